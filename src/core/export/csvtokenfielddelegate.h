#pragma once

#include <QString>

class CSVTokenField;

// The layout editor that shows a column: told when a property of the column changed, for instance the
// value that a change of type resets, so that its menus follow.
class CSVTokenFieldDelegate
{
public:
    virtual ~CSVTokenFieldDelegate() = default;
    // `key` names the property: "tokenType", "tokenValue" or "xmlPropertyName".
    virtual void tokenFieldDidChange(CSVTokenField &field, const QString &key) = 0;
};
