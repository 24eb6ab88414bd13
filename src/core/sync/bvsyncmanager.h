#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <QDateTime>
#include <QObject>
#include <QTimer>

class BVSyncService;
class BVSyncServiceBackend;
class BvSettings;
class Clock;
class Store;

// The one long-lived owner of synchronisation: starts a run on request or on its timer, keeps at most one
// run going (each run on a thread of its own, see BVSyncService), reschedules the next automatic run when
// a run ends, and states each change as a status. Main thread: every call, the timer and every signal.
class BVSyncManager : public QObject
{
    Q_OBJECT
public:
    enum Status : int {
        // The run was cancelled; nothing to show.
        Cancelled = 1,
        Started = 2,
        Completed = 3,
        Failed = 4,
    };

    // The backend of a sync method, or none for a method that does not sync (0). Method 1 gives the
    // Dropbox backend even when no account is connected: its run fails saying so.
    using BackendFactory = std::function<std::unique_ptr<BVSyncServiceBackend>(int syncMethod)>;
    // The uid of the activity being tracked, which a run must not export; none when nothing is tracked.
    using CurrentActivity = std::function<std::optional<QString>()>;

    // None of the references is owned; all must outlive the manager.
    BVSyncManager(BvSettings &settings, Store &store, Clock &clock, BackendFactory backends,
        CurrentActivity currentActivity, QObject *parent = nullptr);
    ~BVSyncManager() override;

    // Starts a run now, unless one is running or the sync method makes none.
    void startSync();
    // (Re)schedules the automatic run from the last sync time, the interval setting and `seconds` more;
    // a run that is due starts at once. Does nothing with sync turned off.
    void enqueueNextSyncWithDelay(double seconds);
    void cancelScheduledSync();

    // When the timer fires; none while no automatic run is scheduled.
    std::optional<QDateTime> nextAutoSyncTime() const;
    // The run in progress, or none.
    BVSyncService *currentSyncService() const { return m_currentSyncService.get(); }
    // The run that ended last (kept until the next one starts, so its window can still show how it
    // ended), or none.
    BVSyncService *lastSyncService() const { return m_lastSyncService.get(); }
    // The zone the journal's sync files are written in (an IANA id) as this session's last run that got
    // that far read it from the sync folder; empty before. It survives the run.
    QByteArray syncTimeZone() const { return m_syncTimeZone; }

    // The seconds until the next automatic run: the rest of the interval since `lastSyncTime` (0 when
    // there was none, it lies in the future, or the interval has passed; interval values outside 1..3 give
    // 0), plus `afterDelay` when positive.
    static double getNextSyncIntervalWithLastSyncTime(
        const QDateTime &lastSyncTime, int andSyncInterval, double afterDelay, const QDateTime &now);

Q_SIGNALS:
    // A run started (Started, with currentSyncService() set) or ended; `syncMethod` is the run's.
    void syncOperationChanged(int status, int syncMethod);
    // A run read the journal's sync zone (see syncTimeZone()).
    void syncTimeZoneKnown(const QByteArray &zoneId);

private:
    void syncFinished();
    void onServiceEnded(int status);

    BvSettings &m_settings;
    Store &m_store;
    Clock &m_clock;
    BackendFactory m_backends;
    CurrentActivity m_currentActivity;
    QTimer m_timer;
    std::optional<QDateTime> m_nextFire;
    std::unique_ptr<BVSyncService> m_currentSyncService;
    std::unique_ptr<BVSyncService> m_lastSyncService;
    QByteArray m_syncTimeZone;
    // Set while the factory makes the run's backend, which may wait for the keyring in a nested event loop
    // where another request to sync can arrive.
    bool m_starting = false;
};
