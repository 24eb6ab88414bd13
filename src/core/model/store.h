#pragma once

#include <atomic>
#include <expected>
#include <memory>

#include <QHash>
#include <QMutex>
#include <QObject>
#include <QSqlDatabase>
#include <QTimer>

#include "base/bverror.h"

class Clock;
class QThread;
class StoreContext;

struct StoreOptions
{
    // The application's data folder; the store is "db/storedata" inside it.
    QString applicationFilesDirectory;
    // "skipMigrations": open the file as it is, without upgrading an older one.
    bool skipMigrations = false;
    // Where insertion and deletion times come from; the system clock when none.
    Clock *clock = nullptr;
    // Whether the user orders projects and tasks by hand in the report sidebar when the store opens (see
    // Store::setSidebarOrderedByHand).
    bool projectsOrderedByHand = false;
    bool tasksOrderedByHand = false;
};

// The one SQLite file that holds the journal, opened in WAL mode with one connection per thread.
// Work is done in StoreContexts (units of work), each saved in one transaction. After every commit, and
// when another process (the command line while the app runs) has committed, `changed` is emitted.
//
// A store whose file or folder cannot be written is opened read-only: it reads as usual, every save fails
// with "attempt to write a readonly database", and it leaves no "-wal" or "-shm" file behind. It stays
// read-only until it is opened again.
class Store : public QObject
{
    Q_OBJECT
public:
    enum class Entity {
        Activity = 0x1,
        Project = 0x2,
        Task = 0x4,
        DeletedActivity = 0x8,
        SyncFile = 0x10,
    };
    Q_DECLARE_FLAGS(Entities, Entity)
    Q_FLAG(Entities)
    static constexpr Entities AllEntities = Entities(0x1f);

    // ~/.local/share/Brimvale: the user's application data folder.
    static QString applicationFilesDirectory();

    // Opens (and on first use creates) the store file. A file that holds no table yet receives the schema; an
    // SQLite file of another program (version 0 with tables in it) is refused and left as it was. In a
    // writable store, names whose stored keys no longer match NameKey are re-keyed first. Failures carry the designed
    // errors, name the file and are logged.
    static std::expected<std::unique_ptr<Store>, BvError> open(const StoreOptions &options);
    ~Store() override;

    QString storePath() const { return m_path; }
    Clock *clock() const { return m_clock; }
    // Whether the file or its folder could not be written when the store was opened.
    bool isReadOnly() const { return m_readOnly; }

    // Whether the user orders projects (tasks) by hand in the report sidebar, which gives each new one the
    // next position. The owner keeps these current from the settings on its own thread; contexts on any
    // thread (a sync run) read them, so the store never asks the settings from a thread they do not
    // belong to.
    void setSidebarOrderedByHand(bool projects, bool tasks);
    bool sidebarOrderedByHand(bool tasks) const;

    // The calling thread's connection, opened on first use and closed when the thread ends.
    std::expected<QSqlDatabase, BvError> database();
    // A new unit of work on this store, for use on the calling thread.
    std::unique_ptr<StoreContext> newContext();

    // Polls PRAGMA data_version on the owning thread's connection to notice commits of other
    // processes. Off until asked for.
    void setWatchesExternalChanges(bool watch, int intervalMsecs = 1000);
    // Emits `changed` with every entity kind if another connection has committed since the last check.
    bool checkForExternalChanges();

    // Called by a context after its commit.
    void didCommit(Entities entities);

Q_SIGNALS:
    void changed(Store::Entities entities);

private:
    Store(const QString &path, const StoreOptions &options, bool readOnly);
    std::expected<QSqlDatabase, BvError> openConnection(const QString &name);
    std::expected<void, BvError> useWriteAheadLog(QSqlDatabase &db);
    std::expected<void, BvError> prepareSchema(bool skipMigrations);

    QString m_path;
    Clock *m_clock = nullptr;
    const bool m_readOnly;
    // Set once the file is known to be ours: only then may a connection switch it to WAL mode.
    bool m_schemaReady = false;
    std::atomic<bool> m_projectsOrderedByHand;
    std::atomic<bool> m_tasksOrderedByHand;
    QString m_connectionPrefix;
    QMutex m_mutex;
    QHash<QThread *, QString> m_connections;
    QTimer m_watchTimer;
    qint64 m_dataVersion = -1;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(Store::Entities)
