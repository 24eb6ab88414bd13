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
#include "model/storechanges.h"

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
// Work is done in StoreContexts (units of work), each saved in one transaction. After commits, and when
// another process (the command line while the app runs) has committed, `changed` says what changed.
//
// A store whose file or folder cannot be written is opened read-only: it reads as usual, every save fails
// with "attempt to write a readonly database", and it leaves no "-wal" or "-shm" file behind. It stays
// read-only until it is opened again.
class Store : public QObject
{
    Q_OBJECT
public:
    using Entity = StoreChanges::Entity;
    using Entities = StoreChanges::Entities;
    static constexpr Entities AllEntities = StoreChanges::AllEntities;

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
    // Announces StoreChanges::everything() if another connection has committed since the last check.
    bool checkForExternalChanges();

    // Called by a context after its commit, on any thread.
    void didCommit(const StoreChanges &changes);
    // Whether anything is connected to `changed`: without a listener, a save need not gather the uids it
    // wrote (a bulk import writes a hundred thousand).
    bool hasChangeListeners() const;

Q_SIGNALS:
    // Emitted on the thread this store lives on (the one that opened it), whichever thread committed: a
    // sync run's commits on its own thread arrive here too. Commits are gathered until that thread's event
    // loop next runs and then reported in one emission, so a listener never sees the store mid-way through
    // a burst of saves and never runs on the committing thread.
    void changed(const StoreChanges &changes);

private:
    void deliverChanges();
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
    QMutex m_changesMutex;
    StoreChanges m_pendingChanges;
    bool m_deliveryQueued = false;
};
