#pragma once

#include <expected>
#include <functional>
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
    // Whether the user orders projects (false) or tasks (true) by hand in the report sidebar, which gives
    // each new one the next position; never when unset.
    std::function<bool(bool tasks)> sidebarOrderedByHand;
};

// The one SQLite file that holds the journal, opened in WAL mode with one connection per thread.
// Work is done in StoreContexts (units of work), each saved in one transaction. After commits, and when
// another process (the command line while the app runs) has committed, `changed` says what changed.
class Store : public QObject
{
    Q_OBJECT
public:
    using Entity = StoreChanges::Entity;
    using Entities = StoreChanges::Entities;
    static constexpr Entities AllEntities = StoreChanges::AllEntities;

    // ~/.local/share/Brimvale: the user's application data folder.
    static QString applicationFilesDirectory();

    // Opens (and on first use creates) the store file. Failures carry the designed errors and are logged.
    static std::expected<std::unique_ptr<Store>, BvError> open(const StoreOptions &options);
    ~Store() override;

    QString storePath() const { return m_path; }
    Clock *clock() const { return m_clock; }
    bool sidebarOrderedByHand(bool tasks) const { return m_sidebarOrderedByHand && m_sidebarOrderedByHand(tasks); }

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
    Store(const QString &path, const StoreOptions &options);
    std::expected<QSqlDatabase, BvError> openConnection(const QString &name);
    std::expected<void, BvError> prepareSchema(bool skipMigrations);

    QString m_path;
    Clock *m_clock = nullptr;
    std::function<bool(bool tasks)> m_sidebarOrderedByHand;
    QString m_connectionPrefix;
    QMutex m_mutex;
    QHash<QThread *, QString> m_connections;
    QTimer m_watchTimer;
    qint64 m_dataVersion = -1;
    QMutex m_changesMutex;
    StoreChanges m_pendingChanges;
    bool m_deliveryQueued = false;
};
