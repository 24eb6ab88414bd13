#pragma once

#include <QString>
#include <QStringView>

// The key under which a project or task name is unique: two names are one project (or task) exactly when
// their keys are equal. Any thread.
//
// The key is the name under full case folding with compatibility normalisation (Unicode's NFKC_Casefold,
// without dropping default-ignorable characters): "Straße", "STRASSE" and "strasse" are one name, as are
// "Σίσυφος" and "ΣΊΣΥΦΟΣ", "ﬁle" and "file", and a letter typed precomposed or with a combining accent.
// The dotted capital İ folds to "i" (not to "i" with a combining dot, as plain full folding gives), so
// "İstanbul", "istanbul" and "ISTANBUL" are one name; the dotless ı stays a letter of its own.
//
// Stored keys follow this function: a store whose keys were computed otherwise is re-keyed when it is
// opened (StoreSchema::refreshNameKeys), so the function may change with a later version.
class NameKey
{
public:
    static QString fromName(QStringView name);
};
