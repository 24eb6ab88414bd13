#pragma once

#include <expected>

#include <QString>
#include <QStringList>

#include "base/bverror.h"

class Store;

// Activities named by the first characters of their UID, as git names commits: `brimvale edit` and
// `delete` take a whole UID or a prefix of at least MinimumLength characters that only one activity has.
class UidPrefix
{
public:
    static constexpr int MinimumLength = 8;

    // The whole UID that `text` names, regardless of case; a null string when no activity has it. The
    // error is the line to print: a prefix too short, one that several activities share, a store failure.
    static std::expected<QString, QString> resolve(Store &store, const QString &text);

    // The UIDs that start with `prefix` exactly (UIDs are stored in upper case), in order. Reads the uid
    // index only. Calling thread's connection.
    static std::expected<QStringList, BvError> uidsStartingWith(Store &store, const QString &prefix);
};
