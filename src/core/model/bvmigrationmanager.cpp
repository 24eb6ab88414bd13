#include "model/bvmigrationmanager.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QLockFile>
#include <QSaveFile>
#include <QTemporaryFile>
#include <QTimeZone>
#include <QUrl>

#include "base/clock.h"
#include "base/localzone.h"
#include "base/logging.h"
#include "model/activity.h"
#include "model/storeerrors.h"
#include "model/storeschema.h"

namespace {

const auto kDbFolder = QStringLiteral("db");
const auto kBackupPrefix = QStringLiteral("db-backup-");
// Where a migrated store waits, on the store's own disk, for the swap: the swap is then two renames.
const auto kStagingFolder = QStringLiteral("db-migrated");

// Version 3: the first schema the program migrates from. Frozen: a shipped schema never changes.
const char *const kVersion3[] = {
    "CREATE TABLE projects (id INTEGER PRIMARY KEY, name TEXT NOT NULL, name_key TEXT NOT NULL UNIQUE,"
    " position INTEGER, visible INTEGER NOT NULL DEFAULT 1)",
    "CREATE TABLE tasks (id INTEGER PRIMARY KEY, name TEXT NOT NULL, name_key TEXT NOT NULL UNIQUE,"
    " position INTEGER, visible INTEGER NOT NULL DEFAULT 1)",
    "CREATE INDEX projects_name ON projects(name)",
    "CREATE INDEX tasks_name ON tasks(name)",
    "CREATE TABLE activities (id INTEGER PRIMARY KEY, uid TEXT NOT NULL UNIQUE, text TEXT,"
    " time_from INTEGER NOT NULL, time_to INTEGER NOT NULL, created_at INTEGER NOT NULL,"
    " modified_at INTEGER NOT NULL, is_invoiced INTEGER NOT NULL DEFAULT 0,"
    " project_id INTEGER REFERENCES projects(id) ON DELETE SET NULL)",
    "CREATE INDEX activities_time_from ON activities(time_from)",
    "CREATE INDEX activities_project ON activities(project_id)",
    "CREATE INDEX activities_text ON activities(text)",
    "CREATE TABLE activity_tasks (activity_id INTEGER NOT NULL REFERENCES activities(id) ON DELETE CASCADE,"
    " task_id INTEGER NOT NULL REFERENCES tasks(id) ON DELETE CASCADE,"
    " PRIMARY KEY (activity_id, task_id)) WITHOUT ROWID",
    "CREATE INDEX activity_tasks_task ON activity_tasks(task_id)",
    "CREATE TABLE deleted_activities (id INTEGER PRIMARY KEY, uid TEXT NOT NULL, deleted_at INTEGER NOT NULL,"
    " is_synced INTEGER NOT NULL DEFAULT 0)",
    "CREATE INDEX deleted_activities_uid ON deleted_activities(uid)",
    "CREATE INDEX deleted_activities_is_synced ON deleted_activities(is_synced)",
    "CREATE TABLE sync_files (id INTEGER PRIMARY KEY, name TEXT NOT NULL, revision TEXT, activity_hash TEXT)",
};

// Version 4 added the bound on activity spans and the index on month file names.
const char *const kVersion4Additions[] = {
    "CREATE TABLE activity_bounds (max_span INTEGER NOT NULL)",
    "INSERT INTO activity_bounds (max_span) VALUES (0)",
    "CREATE INDEX sync_files_name ON sync_files(name)",
};

// A mapping model: the columns of the destination that the step computes instead of copying.
struct Derived
{
    const char *table;
    const char *column;
    const char *expression; // over the source row
};

struct Mapping
{
    int from;
    int to;
    QList<Derived> derived;
};

const QList<Mapping> &mappings()
{
    static const QList<Mapping> list {
        { 3, 4, {} },
        // Every activity gets its month key from its start in the local calendar, as the activity sets it
        // whenever its start changes.
        { 4, 5, { { "activities", "year_month", "bv_year_month(time_from)" } } },
    };
    return list;
}

BvError migrationError(const QString &text)
{
    return BvError(QString::fromLatin1(BvMigrationManager::ErrorDomain), BvMigrationManager::ErrorCode, text);
}

BvError layoutError(int code, const QString &text)
{
    return BvError(QString::fromLatin1(BvMigrationManager::LayoutErrorDomain), code, text);
}

BvError fileError(const QString &text, const QString &reason)
{
    return BvError(QString::fromLatin1(BvErrorDomain::Cocoa), StoreErrors::FolderCode, text, reason);
}

void info(const QString &text)
{
    qCInfo(lcStore).noquote() << text;
}

QString systemReason(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// Makes `path` with its missing parents; the system's reason when it cannot.
std::optional<QString> makeFolder(const QString &path)
{
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(QFile::encodeName(path).toStdString()), error);
    if (error)
        return QString::fromLocal8Bit(error.message());
    return std::nullopt;
}

// Writes the entries of a folder to disk, so that a rename into it or out of it survives a power loss.
std::expected<void, BvError> syncFolder(const QString &path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool synced = fd >= 0 && ::fsync(fd) == 0;
    const int error = errno;
    if (fd >= 0)
        ::close(fd);
    if (!synced)
        return std::unexpected(
            fileError(QStringLiteral("The folder “%1” could not be written to disk.").arg(path), systemReason(error)));
    return {};
}

// The store folder as it is on disk. "db" may be a link to a folder on another disk: the swap renames
// that folder beside itself and leaves the link alone.
QString resolvedFolder(const QString &path)
{
    const QFileInfo link(path);
    if (!link.isSymLink())
        return QDir::cleanPath(link.absoluteFilePath());
    if (const QString canonical = link.canonicalFilePath(); !canonical.isEmpty())
        return canonical;
    // Dangling: a kill between the two renames of a swap left the link's target missing.
    return QDir::cleanPath(link.symLinkTarget());
}

// A connection of our own on the native API: the migration works on files that no Store has open.
class Connection
{
public:
    explicit Connection(const QString &path)
        : m_path(path)
    { }
    ~Connection() { sqlite3_close_v2(m_db); }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    std::expected<void, BvError> open(const QString &uri, int flags)
    {
        if (sqlite3_open_v2(uri.toUtf8().constData(), &m_db, flags | SQLITE_OPEN_URI, nullptr) != SQLITE_OK)
            return std::unexpected(error());
        sqlite3_extended_result_codes(m_db, 1);
        return {};
    }
    std::expected<void, BvError> exec(const QString &sql)
    {
        if (sqlite3_exec(m_db, sql.toUtf8().constData(), nullptr, nullptr, nullptr) != SQLITE_OK)
            return std::unexpected(error());
        return {};
    }
    // The rows of a query, each as its columns' texts.
    std::expected<QList<QStringList>, BvError> rows(const QString &sql)
    {
        sqlite3_stmt *statement = nullptr;
        if (sqlite3_prepare_v2(m_db, sql.toUtf8().constData(), -1, &statement, nullptr) != SQLITE_OK)
            return std::unexpected(error());
        QList<QStringList> result;
        int step = SQLITE_ROW;
        while ((step = sqlite3_step(statement)) == SQLITE_ROW) {
            QStringList row;
            for (int i = 0; i < sqlite3_column_count(statement); ++i)
                row.append(QString::fromUtf8(reinterpret_cast<const char *>(sqlite3_column_text(statement, i))));
            result.append(row);
        }
        sqlite3_finalize(statement);
        if (step != SQLITE_DONE)
            return std::unexpected(error());
        return result;
    }
    std::expected<QString, BvError> value(const QString &sql)
    {
        auto result = rows(sql);
        if (!result)
            return std::unexpected(result.error());
        return result->isEmpty() || result->constFirst().isEmpty() ? QString() : result->constFirst().constFirst();
    }
    std::expected<void, BvError> close()
    {
        const int closed = sqlite3_close(m_db);
        if (closed != SQLITE_OK)
            return std::unexpected(error());
        m_db = nullptr;
        return {};
    }
    sqlite3 *handle() const { return m_db; }
    BvError error() const
    {
        const int code = m_db ? sqlite3_extended_errcode(m_db) : SQLITE_CANTOPEN;
        const QString reason
            = m_db ? QString::fromUtf8(sqlite3_errmsg(m_db)) : QString::fromUtf8(sqlite3_errstr(SQLITE_CANTOPEN));
        return StoreErrors::sqlite(code, reason, m_path);
    }

private:
    QString m_path;
    sqlite3 *m_db = nullptr;
};

// A URI that reads the store without writing a byte to it: without a "-wal" file every committed change
// is in the file itself and it is read as it stands; with one, SQLite reads through it.
QString readOnlyUri(const QString &path)
{
    QUrl uri = QUrl::fromLocalFile(path);
    uri.setQuery(
        QFileInfo::exists(path + QStringLiteral("-wal")) ? QStringLiteral("mode=ro") : QStringLiteral("immutable=1"));
    return uri.toString(QUrl::FullyEncoded);
}

struct Metadata
{
    int version = 0;
    bool hasTables = false;
};

std::expected<Metadata, BvError> readMetadata(const QString &path)
{
    Connection connection(path);
    if (auto opened = connection.open(readOnlyUri(path), SQLITE_OPEN_READONLY); !opened)
        return std::unexpected(opened.error());
    auto version = connection.value(QStringLiteral("PRAGMA user_version"));
    if (!version)
        return std::unexpected(version.error());
    auto tables = connection.value(QStringLiteral("SELECT EXISTS (SELECT 1 FROM sqlite_master)"));
    if (!tables)
        return std::unexpected(tables.error());
    return Metadata { version->toInt(), tables->toInt() != 0 };
}

void yearMonthFunction(sqlite3_context *context, int, sqlite3_value **arguments)
{
    const QDateTime start = QDateTime::fromMSecsSinceEpoch(sqlite3_value_int64(arguments[0]), Qt::UTC);
    sqlite3_result_int(context, Activity::yearMonthOf(start));
}

QStringList columnsOf(Connection &connection, const QString &schema, const QString &table)
{
    QStringList columns;
    if (auto info
        = connection.rows(QStringLiteral("SELECT name FROM pragma_table_info('%1', '%2')").arg(table, schema)))
        for (const QStringList &row : std::as_const(*info))
            columns.append(row.constFirst());
    return columns;
}

// Writes the store at `source` into a new file at `destination` in the schema of `version`: every table
// the two share is copied with the columns both have, the mapping's derived columns are computed, and
// the result must pass the integrity check and hold every activity of the source.
std::expected<void, BvError> migrateFile(
    const QString &source, const QString &destination, int version, const QStringList &model, const Mapping *mapping)
{
    Connection db(destination);
    auto run = [&db](const QString &sql) { return db.exec(sql); };
    if (auto opened = db.open(
            QUrl::fromLocalFile(destination).toString(QUrl::FullyEncoded), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
        !opened)
        return opened;
    sqlite3_create_function_v2(db.handle(), "bv_year_month", 1, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr,
        &yearMonthFunction, nullptr, nullptr, nullptr);
    // The copy is one transaction into a new file: a rollback journal costs nothing there, and the
    // commit is durable before the swap deletes the old store. The file turns to WAL like every store.
    for (const auto *pragma :
        { "PRAGMA synchronous = FULL", "PRAGMA cache_size = -65536", "PRAGMA temp_store = MEMORY" })
        if (auto done = run(QString::fromLatin1(pragma)); !done)
            return done;
    sqlite3_stmt *attach = nullptr;
    sqlite3_prepare_v2(db.handle(), "ATTACH DATABASE ? AS source", -1, &attach, nullptr);
    const QByteArray sourceUri = readOnlyUri(source).toUtf8();
    sqlite3_bind_text(attach, 1, sourceUri.constData(), int(sourceUri.size()), SQLITE_TRANSIENT);
    const int attached = sqlite3_step(attach);
    sqlite3_finalize(attach);
    if (attached != SQLITE_DONE)
        return std::unexpected(db.error());

    if (auto begun = run(QStringLiteral("BEGIN")); !begun)
        return begun;
    for (const QString &statement : model)
        if (auto created = run(statement); !created)
            return created;
    auto tables = db.rows(QStringLiteral("SELECT name FROM main.sqlite_master WHERE type = 'table' ORDER BY name"));
    if (!tables)
        return std::unexpected(tables.error());
    for (const QStringList &row : std::as_const(*tables)) {
        const QString table = row.constFirst();
        const QStringList sourceColumns = columnsOf(db, QStringLiteral("source"), table);
        if (sourceColumns.isEmpty())
            continue;
        QStringList columns;
        QStringList values;
        for (const QString &column : columnsOf(db, QStringLiteral("main"), table)) {
            const Derived *derived = nullptr;
            if (mapping) {
                for (const Derived &candidate : mapping->derived)
                    if (table == QLatin1String(candidate.table) && column == QLatin1String(candidate.column))
                        derived = &candidate;
            }
            if (!derived && !sourceColumns.contains(column))
                continue;
            columns.append(column);
            values.append(derived ? QString::fromLatin1(derived->expression) : column);
        }
        // The schema may seed a table (activity_bounds); the source's rows take the place of the seed.
        if (auto cleared = run(QStringLiteral("DELETE FROM main.%1").arg(table)); !cleared)
            return cleared;
        if (auto copied = run(QStringLiteral("INSERT INTO main.%1 (%2) SELECT %3 FROM source.%1")
                                  .arg(table, columns.join(QLatin1Char(',')), values.join(QLatin1Char(','))));
            !copied)
            return copied;
    }
    // The longest span bounds the overlap queries; a store that had no bound gets the one its activities need,
    // whichever step made the table.
    if (columnsOf(db, QStringLiteral("source"), QStringLiteral("activity_bounds")).isEmpty()
        && !columnsOf(db, QStringLiteral("main"), QStringLiteral("activity_bounds")).isEmpty())
        if (auto filled = run(QStringLiteral("UPDATE main.activity_bounds SET max_span = "
                                             "(SELECT coalesce(max(time_to - time_from), 0) FROM main.activities)"));
            !filled)
            return filled;
    // Counted in the copy's own snapshot of the source, before the copy counts.
    auto migrated = db.value(QStringLiteral("SELECT count(*) FROM main.activities"));
    auto original = db.value(QStringLiteral("SELECT count(*) FROM source.activities"));
    if (!migrated || !original)
        return std::unexpected(migrated ? original.error() : migrated.error());
    if (*migrated != *original)
        return std::unexpected(
            migrationError(QStringLiteral("The migrated store holds %1 activities, the store “%2” %3.")
                               .arg(*migrated, source, *original)));
    if (auto stamped = run(QStringLiteral("PRAGMA user_version = %1").arg(version)); !stamped)
        return stamped;
    if (auto committed = run(QStringLiteral("COMMIT")); !committed)
        return committed;

    auto integrity = db.value(QStringLiteral("PRAGMA main.integrity_check(1)"));
    if (!integrity)
        return std::unexpected(integrity.error());
    if (*integrity != QLatin1String("ok"))
        return std::unexpected(migrationError(
            QStringLiteral("The migrated store “%1” failed its integrity check: %2").arg(destination, *integrity)));
    if (auto detached = run(QStringLiteral("DETACH DATABASE source")); !detached)
        return detached;
    if (auto wal = db.value(QStringLiteral("PRAGMA journal_mode = WAL")); !wal)
        return std::unexpected(wal.error());
    return db.close();
}

// Every file of `from` copied into the new folder `to`, each written in full and synced before it counts.
// A partial copy is removed again.
std::expected<void, BvError> copyFolder(const QString &from, const QString &to)
{
    auto failed = [&to](const QString &file, const QString &reason) {
        QDir(to).removeRecursively();
        return std::unexpected(fileError(QStringLiteral("“%1” could not be copied to “%2”.").arg(file, to), reason));
    };
    if (const auto notMade = makeFolder(to))
        return failed(from, *notMade);
    QDirIterator files(from, QDir::Files | QDir::Hidden | QDir::System);
    while (files.hasNext()) {
        const QString path = files.next();
        QFile in(path);
        QSaveFile out(QDir(to).filePath(files.fileName()));
        if (!in.open(QIODevice::ReadOnly))
            return failed(path, in.errorString());
        if (!out.open(QIODevice::WriteOnly))
            return failed(path, out.errorString());
        while (!in.atEnd()) {
            const QByteArray chunk = in.read(1 << 20);
            if (chunk.isEmpty() && in.error() != QFileDevice::NoError)
                return failed(path, in.errorString());
            if (out.write(chunk) != chunk.size())
                return failed(path, out.errorString());
        }
        if (!out.commit())
            return failed(path, out.errorString());
    }
    return {};
}

// A rename where both folders share a disk; across disks (the temporary folder is often on another one)
// a copy that is complete before the source goes. Any other failure of the rename is the system's.
std::expected<void, BvError> moveFolder(const QString &from, const QString &to)
{
    if (::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0)
        return {};
    if (const int error = errno; error != EXDEV)
        return std::unexpected(
            fileError(QStringLiteral("“%1” could not be moved to “%2”.").arg(from, to), systemReason(error)));
    if (auto copied = copyFolder(from, to); !copied)
        return copied;
    QDir(from).removeRecursively();
    return {};
}

// The permission bits of `path`; none when it cannot be read.
std::optional<mode_t> modeOf(const QString &path)
{
    struct stat status
    {
    };
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return std::nullopt;
    return status.st_mode & 07777;
}

// Gives the migrated folder and its files the permissions of the store they replace: a store kept private
// stays private.
void copyModes(const QString &sourceFolder, const QString &sourceFile, const QString &folder)
{
    if (const auto mode = modeOf(sourceFolder))
        ::chmod(QFile::encodeName(folder).constData(), *mode);
    const auto fileMode = modeOf(sourceFile);
    if (!fileMode)
        return;
    for (const QFileInfo &file : QDir(folder).entryInfoList(QDir::Files | QDir::Hidden | QDir::System))
        ::chmod(QFile::encodeName(file.filePath()).constData(), *fileMode);
}

// The folder temporary migrations are made in. Qt answers an empty path when TMPDIR names a folder that
// does not exist, which would put the migration into the working directory; the folder asked for fails
// then and is named instead.
QString temporaryRoot()
{
    const QString root = QDir::tempPath();
    return root.isEmpty() ? QDir::cleanPath(qEnvironmentVariable("TMPDIR")) : root;
}

const auto kTemporaryPrefix = QStringLiteral("brimvale-migration-");

// Holds the step's temporary folder for as long as the step runs. The lock ends with the process, so a
// folder nobody holds was left by a run that was killed.
class TemporaryFolderLock
{
public:
    explicit TemporaryFolderLock(const QString &path)
        : m_fd(::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        if (m_fd >= 0 && ::flock(m_fd, LOCK_EX | LOCK_NB) != 0) {
            ::close(m_fd);
            m_fd = -1;
        }
    }
    ~TemporaryFolderLock()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    TemporaryFolderLock(const TemporaryFolderLock &) = delete;
    TemporaryFolderLock &operator=(const TemporaryFolderLock &) = delete;
    bool isHeld() const { return m_fd >= 0; }

private:
    int m_fd = -1;
};

// A killed step leaves a full copy of the journal in the temporary folder; the next migration removes
// every such folder of this user that no running migration holds.
void removeStaleTemporaryFolders()
{
    const QDir root(temporaryRoot());
    for (const QFileInfo &folder :
        root.entryInfoList({ kTemporaryPrefix + QLatin1Char('*') }, QDir::Dirs | QDir::Hidden)) {
        if (folder.isSymLink() || folder.ownerId() != ::geteuid())
            continue;
        if (const TemporaryFolderLock held(folder.filePath()); held.isHeld()) {
            QDir(folder.filePath()).removeRecursively();
            info(QStringLiteral("Removed %1, left by an interrupted migration").arg(folder.filePath()));
        }
    }
}

// Keeps every other writer away from the store from the moment the copy reads it until the swap is done,
// so nothing can be committed to the old store that the copy does not hold. A program that keeps a write
// open is waited for a few seconds; then the migration is refused.
constexpr int kSourceLockWaitMs = 5000;

std::expected<std::unique_ptr<Connection>, BvError> lockSource(const QString &path)
{
    auto connection = std::make_unique<Connection>(path);
    if (auto opened = connection->open(QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded), SQLITE_OPEN_READWRITE);
        !opened)
        return std::unexpected(opened.error());
    sqlite3_busy_timeout(connection->handle(), kSourceLockWaitMs);
    if (auto begun = connection->exec(QStringLiteral("BEGIN IMMEDIATE")); !begun)
        return std::unexpected(begun.error());
    return connection;
}

// Closes the lock on a store whose folder was renamed. SQLite removes the write-ahead log and index of the
// last connection by their old names, which now belong to the migrated store: this connection leaves
// them, and the old store is opened once more under its new name to fold them back in.
void releaseMovedSource(std::unique_ptr<Connection> lock)
{
    sqlite3_db_config(lock->handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    lock->exec(QStringLiteral("ROLLBACK"));
    lock->close();
}

// Whether no program has the old store open any more: the last connection to close folds its log into
// the file and removes it, so a log that stays belongs to a program that may still write to it.
bool isClosedEverywhere(const QString &path)
{
    {
        Connection connection(path);
        if (!connection.open(QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded), SQLITE_OPEN_READWRITE)
            || !connection.value(QStringLiteral("PRAGMA user_version")) || !connection.close())
            return false;
    }
    return !QFileInfo::exists(path + QStringLiteral("-wal"));
}

// After the swap the store folder keeps whatever else the user or another program kept in it, and the
// backup is removed only when nothing but the old store is left in it and no program has that open.
void finishSwap(const QString &backup, const QString &dbDir, const QString &name)
{
    const QStringList storeFiles { name, name + QStringLiteral("-wal"), name + QStringLiteral("-shm") };
    QStringList kept;
    for (const QString &entry :
        QDir(backup).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        if (storeFiles.contains(entry))
            continue;
        const QString to = QDir(dbDir).filePath(entry);
        if (QFileInfo::exists(to)
            || ::rename(QFile::encodeName(QDir(backup).filePath(entry)).constData(), QFile::encodeName(to).constData())
                != 0)
            kept.append(entry);
    }
    syncFolder(dbDir);
    const QString oldStore = QDir(backup).filePath(name);
    if (!kept.isEmpty() || !isClosedEverywhere(oldStore)) {
        info(QStringLiteral("Kept the store folder as it was before the migration in %1: %2")
                 .arg(backup,
                     kept.isEmpty() ? QStringLiteral("another program still has the old store open")
                                    : QStringLiteral("it holds %1").arg(kept.join(QStringLiteral(", ")))));
        return;
    }
    for (const QString &file : storeFiles)
        QFile::remove(QDir(backup).filePath(file));
    QDir().rmdir(backup);
    syncFolder(QFileInfo(backup).absolutePath());
}

// A kill between moving the store folder to its backup and moving the migrated store into its place
// leaves no store but the backup. The store is put back before anything looks for it, so the next
// launch migrates it again instead of starting an empty journal.
void restoreInterruptedSwap(const QString &folder, const QString &name)
{
    const QString dbDir = resolvedFolder(QDir(folder).filePath(kDbFolder));
    if (QFileInfo::exists(QDir(dbDir).filePath(name)) || QFileInfo::exists(QDir(folder).filePath(name)))
        return;
    QFileInfo newest;
    for (const QFileInfo &backup : QFileInfo(dbDir).absoluteDir().entryInfoList(
             { kBackupPrefix + QLatin1Char('*') }, QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QFileInfo store(QDir(backup.filePath()).filePath(name));
        if (store.isFile() && (!newest.exists() || store.lastModified() > newest.lastModified()))
            newest = store;
    }
    if (!newest.exists())
        return;
    // The "db" folder the opening made is empty; a non-empty one is left alone.
    if (QFileInfo::exists(dbDir) && !QDir().rmdir(dbDir))
        return;
    if (QDir().rename(newest.absolutePath(), dbDir))
        info(QStringLiteral("Restored the store from %1, left there by an interrupted migration")
                 .arg(newest.absolutePath()));
}

} // namespace

std::expected<void, BvError> BvMigrationManager::migrateStore(const QString &name, const QString &toDbDir)
{
    const QString db = QDir(toDbDir).filePath(kDbFolder);
    const QString target = QDir(db).filePath(name);
    const QFileInfo targetInfo(target);
    if (targetInfo.isDir()) {
        info(QStringLiteral("Error: Expects db/storedata to be a file, but it's a directory"));
        return std::unexpected(layoutError(TargetIsDirectoryCode,
            QStringLiteral("Expected a file to store application data, found a directory (%1).").arg(target)));
    }
    const QStringList items { name, name + QStringLiteral("-wal"), name + QStringLiteral("-shm") };
    // A move killed after the store but before its log leaves committed activities in the log beside
    // the old place: they follow the store. A log already in "db" belongs to the store there, and two
    // logs for one store cannot both be right.
    const bool moved = targetInfo.exists();
    if (moved && !QFileInfo::exists(QDir(toDbDir).filePath(items.at(1))))
        return {};

    const QFileInfo dbInfo(db);
    if (!dbInfo.exists()) {
        if (const auto notMade = makeFolder(db)) {
            info(QStringLiteral("Error: Failed to create db/ directory"));
            return std::unexpected(StoreErrors::folderUnusable(db, *notMade));
        }
    } else if (!dbInfo.isDir()) {
        info(QStringLiteral("Error: Expects db/ to be a directory but it's a file"));
        return std::unexpected(layoutError(DbIsFileCode,
            QStringLiteral("Expected a directory to store application data, found a file (%1).").arg(target)));
    }
    if (!moved && !QFileInfo::exists(QDir(toDbDir).filePath(name)))
        return {};
    if (const QString log = QDir(db).filePath(items.at(1)); QFileInfo::exists(log)) {
        const QString stray = QDir(toDbDir).filePath(items.at(1));
        info(QStringLiteral("ERROR: Failed to move %1").arg(stray));
        return std::unexpected(fileError(QStringLiteral("“%1” could not be moved to “%2”.").arg(stray, db),
            QStringLiteral("“%1” exists already; keep the one whose activities are missing and remove the other.")
                .arg(log)));
    }

    for (qsizetype i = moved ? 1 : 0; i < items.size(); ++i) {
        const QString item = QDir(toDbDir).filePath(items.at(i));
        const QString to = QDir(db).filePath(items.at(i));
        // The index is rebuilt from the log by the first connection; one "db" has already is as good.
        if (!QFileInfo::exists(item) || (i == 2 && QFileInfo::exists(to)))
            continue;
        QFile file(item);
        if (!file.rename(to)) {
            info(QStringLiteral("ERROR: Failed to move %1").arg(item));
            if (i < 2)
                return std::unexpected(
                    fileError(QStringLiteral("“%1” could not be moved to “%2”.").arg(item, db), file.errorString()));
        }
    }
    return {};
}

std::expected<void, BvError> BvMigrationManager::upgrade(
    const QString &applicationFilesDirectory, const QString &name, Clock *clock, std::chrono::milliseconds lockWait)
{
    // The app, the command line and a sync run may open the store at the same moment. Without the lock a
    // second migration could swap its copy of the old store over the first one's result after the first
    // process had already written to it. A lock left by a crash on this machine is taken over at once;
    // one that stays held (another machine sharing the folder, a hung program) is waited for only so long.
    const QString lockPath = QDir(applicationFilesDirectory).filePath(QStringLiteral("db-migration.lock"));
    QLockFile lock(lockPath);
    lock.setStaleLockTime(std::chrono::hours(1));
    if (!lock.tryLock(lockWait) && lock.error() == QLockFile::LockFailedError) {
        qint64 pid = 0;
        QString host;
        QString program;
        lock.getLockInfo(&pid, &host, &program);
        const BvError error = migrationError(
            QStringLiteral("The store could not be opened: “%1” says that %2 (process %3 on %4) is upgrading it. "
                           "If that program is no longer running, remove the file and try again.")
                .arg(lockPath, program.isEmpty() ? QStringLiteral("another program") : program)
                .arg(pid)
                .arg(host));
        qCCritical(lcStore).noquote() << QStringLiteral("Error occurred while trying to migrating store: %1; %2")
                                             .arg(QDir(applicationFilesDirectory).filePath(kDbFolder), error.message());
        return std::unexpected(error);
    }
    restoreInterruptedSwap(applicationFilesDirectory, name);
    if (auto moved = migrateStore(name, applicationFilesDirectory); !moved)
        return moved;
    removeStaleTemporaryFolders();
    BvMigrationManager manager(resolvedFolder(QDir(applicationFilesDirectory).filePath(kDbFolder)), name, clock);
    manager.migrateToVersion(3, false);
    manager.migrateToVersion(4, true);
    manager.migrateToVersion(5, true);
    if (manager.error()) {
        qCCritical(lcStore).noquote() << QStringLiteral("Error occurred while trying to migrating store: %1; %2")
                                             .arg(manager.storePath(), manager.error()->message());
        return std::unexpected(*manager.error());
    }
    return {};
}

QMap<int, QStringList> BvMigrationManager::models()
{
    QStringList version3;
    for (const char *statement : kVersion3)
        version3.append(QString::fromLatin1(statement));
    QStringList version4 = version3;
    for (const char *statement : kVersion4Additions)
        version4.append(QString::fromLatin1(statement));
    return { { 3, version3 }, { 4, version4 }, { StoreSchema::Version, StoreSchema::statements() } };
}

BvMigrationManager::BvMigrationManager(const QString &url, const QString &name, Clock *clock)
    : m_sourceDir(url)
    , m_dbName(name)
    , m_clock(clock ? clock : Clock::system())
{
    const QString path = storePath();
    if (!QFileInfo(path).isFile())
        return;
    const std::expected<Metadata, BvError> metadata = readMetadata(path);
    if (!metadata) {
        qCCritical(lcStore).noquote() << QStringLiteral("Failed to get metadata when performing migration, will skip "
                                                        "migration. Error domain: %1, error code: %2, description: %3")
                                             .arg(metadata.error().domain())
                                             .arg(metadata.error().code())
                                             .arg(metadata.error().description());
        return;
    }
    // Version 0 is a new file or a database of another program; the opening tells the two apart.
    if (metadata->version == 0 || metadata->version == StoreSchema::Version)
        return;
    m_requiresMigrations = true;
    if (metadata->version > StoreSchema::Version) {
        // Nothing is written to a store of a later program: it knows what its data means, we do not.
        fail(StoreErrors::incompatibleVersion(path, metadata->version, StoreSchema::Version));
        return;
    }
    loadModelPaths();
    setCurrentModel(metadata->version);
}

QString BvMigrationManager::storePath() const
{
    return QDir(m_sourceDir).filePath(m_dbName);
}

void BvMigrationManager::loadModelPaths()
{
    m_models = models();
    for (auto it = m_models.cbegin(); it != m_models.cend(); ++it) {
        info(QStringLiteral("Discovered model version: %1").arg(it.key()));
        info(QStringLiteral("Version for model: %1").arg(it.key()));
    }
}

void BvMigrationManager::setCurrentModel(int version)
{
    if (!m_models.contains(version)) {
        m_currentModelVersion.reset();
        fail(StoreErrors::incompatibleVersion(storePath(), version, StoreSchema::Version));
        return;
    }
    m_currentModelVersion = version;
}

bool BvMigrationManager::fail(const BvError &error)
{
    if (!m_error)
        m_error = error;
    return false;
}

bool BvMigrationManager::migrateToVersion(int version, bool useMappingModel)
{
    if (m_error)
        return false;
    if (!m_requiresMigrations || !m_currentModelVersion || *m_currentModelVersion >= version)
        return true;
    const int from = *m_currentModelVersion;
    info(QStringLiteral("Migrate store to version: %1").arg(version));
    if (!m_models.contains(version))
        return fail(migrationError(QStringLiteral("No model found for version %1").arg(version)));
    const Mapping *mapping = nullptr;
    if (useMappingModel) {
        for (const Mapping &candidate : mappings())
            if (candidate.from == from && candidate.to == version)
                mapping = &candidate;
        if (!mapping)
            return fail(migrationError(QStringLiteral("Mapping model not found!")));
    }

    QTemporaryFile reservedName(
        QDir(temporaryRoot()).filePath(kTemporaryPrefix + QStringLiteral("%1-%2.XXXXXXXX").arg(from).arg(version)));
    reservedName.setAutoRemove(false);
    const bool made = reservedName.open();
    const QString tempFolder = reservedName.fileName();
    reservedName.close();
    if (made)
        info(QStringLiteral("Migration store path: %1").arg(tempFolder));
    // Private: the folder receives a full copy of the journal.
    const bool replaced = made && QFile::remove(tempFolder);
    if (!replaced || ::mkdir(QFile::encodeName(tempFolder).constData(), 0700) != 0) {
        const QString reason = !made ? reservedName.errorString() : systemReason(errno);
        const QString shown = made ? tempFolder : reservedName.fileTemplate();
        info(QStringLiteral("Error: Failed to create temporary dir %1").arg(shown));
        return fail(StoreErrors::folderUnusable(shown, reason));
    }
    const TemporaryFolderLock tempLock(tempFolder);

    auto source = lockSource(storePath());
    if (!source) {
        info(QStringLiteral("Error: failed to migrate store: %1").arg(source.error().message()));
        QDir(tempFolder).removeRecursively();
        return fail(source.error());
    }
    if (auto migrated
        = migrateFile(storePath(), QDir(tempFolder).filePath(m_dbName), version, m_models.value(version), mapping);
        !migrated) {
        info(QStringLiteral("Error: failed to migrate store: %1").arg(migrated.error().message()));
        QDir(tempFolder).removeRecursively();
        return fail(migrated.error());
    }

    const QDir parent = QFileInfo(m_sourceDir).absoluteDir();
    const QString staging = parent.filePath(kStagingFolder);
    // One left by a killed run is incomplete; the migration just made is the one that counts.
    QDir(staging).removeRecursively();
    auto staged = moveFolder(tempFolder, staging);
    if (staged) {
        copyModes(m_sourceDir, storePath(), staging);
        staged = syncFolder(staging);
    }
    if (!staged) {
        info(QStringLiteral("Error: failed to copy migrated store to final destination"));
        QDir(tempFolder).removeRecursively();
        QDir(staging).removeRecursively();
        return fail(staged.error());
    }

    // Every candidate is looked at and the last one is used, even when an earlier one is free; this is
    // how backups have always been named, so it stays. A backup kept by an earlier step of this launch
    // (another program still had the store open) may hold that name: then the last free one is used.
    const QString stamp = LocalZone::toLocal(m_clock->now()).toString(QStringLiteral("yyyy-MM-dd-HH-mm"));
    bool anyFree = false;
    QString backup;
    QString lastFree;
    for (int i = 0; i < 100; ++i) {
        const QString suffix = i == 0 ? QString() : QLatin1Char('-') + QString::number(i);
        backup = parent.filePath(kBackupPrefix + stamp + suffix);
        if (!QFileInfo::exists(backup)) {
            anyFree = true;
            lastFree = backup;
        }
    }
    if (anyFree)
        backup = lastFree;
    if (!anyFree) {
        info(QStringLiteral("Error: failed to generate backup dir name"));
        QDir(staging).removeRecursively();
        return fail(migrationError(QStringLiteral("Can't create backup of current store, can't generate unique dir")));
    }
    if (::rename(QFile::encodeName(m_sourceDir).constData(), QFile::encodeName(backup).constData()) != 0) {
        const int error = errno;
        info(QStringLiteral("Error: Failed to backup existing db to %1").arg(backup));
        QDir(staging).removeRecursively();
        return fail(
            fileError(QStringLiteral("The store folder “%1” could not be moved to “%2”.").arg(m_sourceDir, backup),
                systemReason(error)));
    }
    if (::rename(QFile::encodeName(staging).constData(), QFile::encodeName(m_sourceDir).constData()) != 0) {
        const int error = errno;
        info(QStringLiteral("Error: failed to copy migrated store to final destination"));
        QDir(staging).removeRecursively();
        const bool restored = QDir().rename(backup, m_sourceDir);
        return fail(fileError(QStringLiteral("The migrated store could not be moved to “%1”.").arg(m_sourceDir),
            restored ? QStringLiteral("%1. The store was left as it was.").arg(systemReason(error))
                     : QStringLiteral("%1. The store as it was before the migration is in “%2”.")
                           .arg(systemReason(error), backup)));
    }
    // Both renames are on disk before the old store can go.
    const auto swapped = syncFolder(parent.path());
    releaseMovedSource(std::move(*source));
    if (!swapped) {
        info(QStringLiteral("Kept the store folder as it was before the migration in %1: %2")
                 .arg(backup, swapped.error().message()));
    } else {
        finishSwap(backup, m_sourceDir, m_dbName);
    }
    m_currentModelVersion = version;
    return true;
}
