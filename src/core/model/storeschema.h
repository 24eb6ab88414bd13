#pragma once

#include <expected>

#include <QSqlDatabase>
#include <QStringList>

#include "base/bverror.h"

// The tables and indexes of the store, and its version in PRAGMA user_version.
class StoreSchema
{
public:
    static constexpr int Version = 5;

    struct Contents
    {
        // PRAGMA user_version: 0 for a file that never had our schema.
        int version = 0;
        // Whether the file holds any table, index, view or trigger.
        bool hasTables = false;
    };

    // What the file holds, read without writing anything.
    static std::expected<Contents, BvError> contents(QSqlDatabase &db);
    // The statements that create every table and index of the current version, in order.
    static QStringList statements();
    // Creates every table and index of the current version in one transaction.
    static std::expected<void, BvError> create(QSqlDatabase &db);
    // Brings every project's and task's name_key up to NameKey in one transaction, when any differs. Names
    // that now have one key are merged into the one whose spelling was used last (the row with the most
    // recently modified activity, else the newest row): its activities and task links move over, the
    // others go. Checks cheaply first, so it costs a read of the names when nothing changed.
    static std::expected<void, BvError> refreshNameKeys(QSqlDatabase &db);
};
