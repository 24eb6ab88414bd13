#include "model/store.h"

#include <atomic>

#include <QDir>
#include <QFileInfo>
#include <QMetaMethod>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QThread>
#include <QUrl>

#include "base/clock.h"
#include "base/logging.h"
#include "model/bvmigrationmanager.h"
#include "model/storecontext.h"
#include "model/storeerrors.h"
#include "model/storeschema.h"

namespace {

const auto kDbFolder = QStringLiteral("db");
const auto kStoreFile = QStringLiteral("storedata");

std::atomic<quint64> s_storeSerial { 0 };

std::unexpected<BvError> refused(const QString &path, const BvError &error)
{
    qCCritical(lcStore).noquote()
        << QStringLiteral("Error occurred while adding store coordinator: %1; %2").arg(path, error.message());
    return std::unexpected(error);
}

} // namespace

QString Store::applicationFilesDirectory()
{
    return QDir(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation))
        .filePath(QStringLiteral("Brimvale"));
}

std::expected<std::unique_ptr<Store>, BvError> Store::open(const StoreOptions &options)
{
    const QString base
        = options.applicationFilesDirectory.isEmpty() ? applicationFilesDirectory() : options.applicationFilesDirectory;
    const QString dbDir = QDir(base).filePath(kDbFolder);
    const QFileInfo dbInfo(dbDir);
    if (!dbInfo.exists()) {
        if (!QDir().mkpath(dbDir)) {
            const BvError error
                = StoreErrors::folderUnusable(dbDir, QStringLiteral("Permission denied or no space left."));
            qCCritical(lcStore).noquote() << error.description();
            return std::unexpected(error);
        }
    } else if (!dbInfo.isDir()) {
        const BvError error = StoreErrors::folderIsFile(dbDir);
        qCCritical(lcStore).noquote() << error.description();
        return std::unexpected(error);
    }

    if (!options.skipMigrations) {
        if (auto upgraded = BvMigrationManager::upgrade(base, kStoreFile, options.clock); !upgraded)
            return std::unexpected(upgraded.error());
    }

    const QString path = QDir(dbDir).filePath(kStoreFile);
    // SQLite needs the folder as well as the file to write: the "-wal" and "-shm" files come and go beside
    // the store. A store whose file or folder cannot be written is opened read-only from the start rather
    // than failing half-way through a write; one that does not exist yet cannot be made.
    const QFileInfo storeInfo(path);
    const bool readOnly = !QFileInfo(dbDir).isWritable() || (storeInfo.exists() && !storeInfo.isWritable());
    if (readOnly && !storeInfo.exists())
        return refused(path, StoreErrors::readOnly(path));
    std::unique_ptr<Store> store(new Store(path, options, readOnly));
    std::expected<QSqlDatabase, BvError> db = store->database();
    if (!db)
        return refused(path, db.error());
    if (std::expected<void, BvError> prepared = store->prepareSchema(options.skipMigrations); !prepared)
        return std::unexpected(prepared.error());
    return store;
}

Store::Store(const QString &path, const StoreOptions &options, bool readOnly)
    : m_path(path)
    , m_clock(options.clock ? options.clock : Clock::system())
    , m_readOnly(readOnly)
    , m_projectsOrderedByHand(options.projectsOrderedByHand)
    , m_tasksOrderedByHand(options.tasksOrderedByHand)
    , m_connectionPrefix(QStringLiteral("brimvale-store-%1-").arg(++s_storeSerial))
{
    m_watchTimer.callOnTimeout(this, [this] { checkForExternalChanges(); });
}

Store::~Store()
{
    m_watchTimer.stop();
    QStringList names;
    {
        QMutexLocker lock(&m_mutex);
        names = m_connections.values();
        m_connections.clear();
    }
    for (const QString &name : std::as_const(names)) {
        {
            QSqlDatabase db = QSqlDatabase::database(name, false);
            db.close();
        }
        QSqlDatabase::removeDatabase(name);
    }
}

std::expected<QSqlDatabase, BvError> Store::database()
{
    QThread *thread = QThread::currentThread();
    QString name;
    {
        QMutexLocker lock(&m_mutex);
        name = m_connections.value(thread);
    }
    if (!name.isEmpty())
        return QSqlDatabase::database(name, false);

    name = m_connectionPrefix + QString::number(reinterpret_cast<quintptr>(thread), 16);
    std::expected<QSqlDatabase, BvError> db = openConnection(name);
    if (!db) {
        QSqlDatabase::removeDatabase(name);
        return db;
    }
    {
        QMutexLocker lock(&m_mutex);
        m_connections.insert(thread, name);
    }
    // A worker thread's connection goes with the thread: SQLite connections must not cross threads.
    if (thread != this->thread()) {
        QObject::connect(
            thread, &QThread::finished, thread,
            [this, thread, name] {
                {
                    QMutexLocker lock(&m_mutex);
                    if (m_connections.value(thread) != name)
                        return;
                    m_connections.remove(thread);
                }
                QSqlDatabase::database(name, false).close();
                QSqlDatabase::removeDatabase(name);
            },
            Qt::DirectConnection);
    }
    return db;
}

std::expected<QSqlDatabase, BvError> Store::openConnection(const QString &name)
{
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
    QString connectOptions = QStringLiteral("QSQLITE_BUSY_TIMEOUT=10000");
    if (m_readOnly) {
        connectOptions += QStringLiteral(";QSQLITE_OPEN_READONLY");
        // Reading a WAL store makes SQLite create "-wal" and "-shm" files, which a read-only connection
        // can never remove again, and which it cannot create at all in a read-only folder. Without a
        // "-wal" file every committed change is in the store file itself, and nobody can write to it
        // without making one, so the file is read as it stands. With one, SQLite reads through it.
        if (!QFileInfo::exists(m_path + QStringLiteral("-wal"))) {
            connectOptions += QStringLiteral(";QSQLITE_OPEN_URI");
            QUrl uri = QUrl::fromLocalFile(m_path);
            uri.setQuery(QStringLiteral("immutable=1"));
            db.setDatabaseName(uri.toString(QUrl::FullyEncoded));
        } else {
            db.setDatabaseName(m_path);
        }
    } else {
        db.setDatabaseName(m_path);
    }
    db.setConnectOptions(connectOptions);
    if (!db.open())
        return std::unexpected(StoreErrors::fromSql(db.lastError(), m_path));
    QSqlQuery query(db);
    // FULL makes every commit survive a power cut, not only a crash; the foreign keys keep tasks and
    // activities linked consistently. A 16 MB page cache keeps a large import or sync in memory until its
    // commit instead of spilling it half-way, and statement journals stay in memory rather than in a
    // temporary file per statement. Reading the file through a memory map spares a copy per page when a
    // whole journal is listed.
    // A sync merges each month file in a transaction of its own, and with uids and texts in no particular
    // order each one rewrites a good part of those two indexes, over a thousand pages. Checkpointing at
    // SQLite's default of 1000 pages would copy them back into the file after every month, the same pages
    // again and again; at 8192 pages (32 MB) a page is copied once for several months.
    for (const auto *pragma : { "PRAGMA synchronous = FULL", "PRAGMA foreign_keys = ON", "PRAGMA cache_size = -16384",
             "PRAGMA temp_store = MEMORY", "PRAGMA mmap_size = 268435456", "PRAGMA wal_autocheckpoint = 8192" }) {
        if (!query.exec(QString::fromLatin1(pragma))) {
            const BvError error = StoreErrors::fromSql(query);
            db.close();
            return std::unexpected(error);
        }
    }
    if (m_schemaReady && !m_readOnly) {
        if (std::expected<void, BvError> wal = useWriteAheadLog(db); !wal) {
            db.close();
            return std::unexpected(wal.error());
        }
    }
    return db;
}

std::expected<void, BvError> Store::useWriteAheadLog(QSqlDatabase &db)
{
    // WAL lets the command line write while the app reads. The mode is kept in the file, so this only
    // changes something for a new store; journal_mode answers with the mode it got, and anything but "wal"
    // means the file is not usable as ours.
    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("PRAGMA journal_mode = WAL")))
        return std::unexpected(StoreErrors::fromSql(query));
    if (!query.next() || query.value(0).toString().compare(QLatin1String("wal"), Qt::CaseInsensitive) != 0)
        return std::unexpected(BvError(QStringLiteral("NSSQLiteErrorDomain"), 26,
            QStringLiteral("The store “%1” could not be opened in WAL mode.").arg(m_path)));
    return {};
}

std::expected<void, BvError> Store::prepareSchema(bool skipMigrations)
{
    std::expected<QSqlDatabase, BvError> db = database();
    if (!db)
        return std::unexpected(db.error());
    auto fail = [this](const BvError &error) { return refused(m_path, error); };
    // Nothing is written before the file is known to be ours or empty: even switching the journal mode
    // would change a stranger's file.
    std::expected<StoreSchema::Contents, BvError> contents = StoreSchema::contents(*db);
    if (!contents)
        return fail(contents.error());
    if (skipMigrations)
        qCInfo(lcStore).noquote() << QStringLiteral("Skipping migrations");

    if (contents->version == 0 && contents->hasTables)
        return fail(StoreErrors::foreignFile(m_path));
    if (contents->version != 0 && contents->version != StoreSchema::Version) {
        const BvError error = StoreErrors::incompatibleVersion(m_path, contents->version, StoreSchema::Version);
        qCCritical(lcStore).noquote()
            << QStringLiteral("Error occurred while trying to migrating store: %1; %2").arg(m_path, error.message());
        return std::unexpected(error);
    }
    if (m_readOnly) {
        if (contents->version == 0)
            return fail(StoreErrors::readOnly(m_path));
        m_schemaReady = true;
        return {};
    }
    if (std::expected<void, BvError> wal = useWriteAheadLog(*db); !wal)
        return fail(wal.error());
    if (contents->version == 0) {
        if (std::expected<void, BvError> created = StoreSchema::create(*db); !created)
            return fail(created.error());
    } else if (std::expected<void, BvError> rekeyed = StoreSchema::refreshNameKeys(*db); !rekeyed) {
        return fail(rekeyed.error());
    }
    m_schemaReady = true;
    return {};
}

std::unique_ptr<StoreContext> Store::newContext()
{
    return std::make_unique<StoreContext>(*this);
}

void Store::setSidebarOrderedByHand(bool projects, bool tasks)
{
    m_projectsOrderedByHand.store(projects, std::memory_order_relaxed);
    m_tasksOrderedByHand.store(tasks, std::memory_order_relaxed);
}

bool Store::sidebarOrderedByHand(bool tasks) const
{
    return (tasks ? m_tasksOrderedByHand : m_projectsOrderedByHand).load(std::memory_order_relaxed);
}

void Store::setWatchesExternalChanges(bool watch, int intervalMsecs)
{
    if (!watch) {
        m_watchTimer.stop();
        return;
    }
    checkForExternalChanges();
    m_watchTimer.start(intervalMsecs);
}

bool Store::checkForExternalChanges()
{
    std::expected<QSqlDatabase, BvError> db = database();
    if (!db)
        return false;
    QSqlQuery query(*db);
    if (!query.exec(QStringLiteral("PRAGMA data_version")) || !query.next())
        return false;
    const qint64 version = query.value(0).toLongLong();
    const bool changedElsewhere = m_dataVersion >= 0 && version != m_dataVersion;
    m_dataVersion = version;
    if (changedElsewhere) {
        qCDebug(lcStore) << "store changed by another connection";
        didCommit(StoreChanges::everything());
    }
    return changedElsewhere;
}

bool Store::hasChangeListeners() const
{
    return isSignalConnected(QMetaMethod::fromSignal(&Store::changed));
}

void Store::didCommit(const StoreChanges &changes)
{
    if (changes.isEmpty() || !hasChangeListeners())
        return;
    QMutexLocker lock(&m_changesMutex);
    if (m_pendingChanges.isEmpty())
        m_pendingChanges = changes;
    else
        m_pendingChanges.merge(changes);
    if (std::exchange(m_deliveryQueued, true))
        return;
    QMetaObject::invokeMethod(this, &Store::deliverChanges, Qt::QueuedConnection);
}

void Store::deliverChanges()
{
    StoreChanges changes;
    {
        QMutexLocker lock(&m_changesMutex);
        changes = std::exchange(m_pendingChanges, StoreChanges());
        m_deliveryQueued = false;
    }
    if (!changes.isEmpty())
        Q_EMIT changed(changes);
}
