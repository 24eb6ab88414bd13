#pragma once

#include <chrono>
#include <expected>
#include <optional>

#include <QMap>
#include <QString>
#include <QStringList>

#include "base/bverror.h"

class Clock;

// Brings an older store up to the current schema before the store opens it: first the move of the
// oldest layout (the store beside "db") into "db", then one step per schema version, each migrating
// into a temporary folder that replaces the store folder only once the migrated copy has passed its
// checks. The store folder itself is never written by a step: a failed step leaves it as it was.
//
// Single-threaded: one manager per opening, on the opening thread. Failures are values; the first
// one is kept and every later step answers false at once.
class BvMigrationManager
{
public:
    static constexpr auto ErrorDomain = "Brimvale";
    static constexpr int ErrorCode = 8001;
    static constexpr auto LayoutErrorDomain = "BV_STORE_ERROR";
    static constexpr int TargetIsDirectoryCode = 101;
    static constexpr int DbIsFileCode = 102;

    // Moves `name` and its "-wal" and "-shm" files from `toDbDir` (the application files folder) into
    // its "db" folder, creating that folder. Succeeds when there is nothing to move or the store is
    // already there; fails with 101 when db/name is a folder, 102 when db is a file.
    static std::expected<void, BvError> migrateStore(const QString &name, const QString &toDbDir);

    // The whole upgrade the store runs on opening (unless "skipMigrations" is set): puts back a store
    // folder that a killed swap left as a backup, moves the old layout, then migrates to versions 3, 4
    // and 5. A store of a newer version than this program knows is refused and left untouched. Another
    // program's migration of the same folder is waited for up to `lockWait`.
    static std::expected<void, BvError> upgrade(const QString &applicationFilesDirectory, const QString &name,
        Clock *clock = nullptr, std::chrono::milliseconds lockWait = std::chrono::seconds(30));

    // The tables and indexes of every schema version the program can migrate through, by version:
    // the shipped history of the store (see docs/store.md).
    static QMap<int, QStringList> models();

    // Reads the version of `url`/`name` without writing to it. No migration is required when there is
    // no file, when it cannot be read as a store (the opening reports that), or when it is current.
    // `clock` names the backup folders; the system clock when none.
    BvMigrationManager(const QString &url, const QString &name, Clock *clock = nullptr);

    // Migrates the store to `version` when it is older, in one step. With `useMappingModel` the step
    // runs the rules of the mapping from the current version to `version` (there is one for 3 to 4 and
    // 4 to 5); without, the copy keeps every column both versions have, as an added column or index
    // needs. Answers true when nothing had to be done.
    bool migrateToVersion(int version, bool useMappingModel);

    bool requiresMigrations() const { return m_requiresMigrations; }
    // The version the store is in now; none when it is not known.
    std::optional<int> currentModelVersion() const { return m_currentModelVersion; }
    // The first failure; none while every step succeeded.
    const std::optional<BvError> &error() const { return m_error; }
    QString storePath() const;

private:
    void loadModelPaths();
    void setCurrentModel(int version);
    bool fail(const BvError &error);

    QString m_sourceDir;
    QString m_dbName;
    Clock *m_clock = nullptr;
    QMap<int, QStringList> m_models;
    std::optional<int> m_currentModelVersion;
    bool m_requiresMigrations = false;
    std::optional<BvError> m_error;
};
