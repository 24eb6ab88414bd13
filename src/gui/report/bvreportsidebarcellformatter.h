#pragma once

#include <QString>
#include <QVariant>

// Turns a report sidebar item into the text its row shows: the item's title, and a null string for
// anything that is not an item (a group row's value, nothing at all).
class BvReportSidebarCellFormatter
{
public:
    static QString stringForObjectValue(const QVariant &value);
};
