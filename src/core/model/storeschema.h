#pragma once

#include <expected>

#include <QSqlDatabase>

#include "base/bverror.h"

// The tables and indexes of the store, and its version in PRAGMA user_version.
class StoreSchema
{
public:
    static constexpr int Version = 5;

    // The version stored in the file; 0 for a file without a schema yet.
    static std::expected<int, BvError> storedVersion(QSqlDatabase &db);
    // Creates every table and index of the current version in one transaction.
    static std::expected<void, BvError> create(QSqlDatabase &db);
};
