#pragma once

#include <atomic>
#include <expected>
#include <functional>
#include <memory>
#include <optional>

#include <QList>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QThread>
#include <QTimeZone>

#include "base/bverror.h"
#include "sync/bvmonthyearrange.h"
#include "sync/bvtmpsyncfile.h"

class BVSyncCache;
class QLockFile;
class BVSyncServiceBackend;
class BvSettings;
class Store;
class StoreContext;

// One synchronisation run between the local store and one storage backend: it lists the remote changes,
// applies the remote deletion file, merges every changed month file, uploads the local deletion file and
// every month whose content changed, deletes the remote files of months that became empty and tidies the
// cache folder. One object serves one run.
//
// Threads: create, configure and start it on one thread (the main thread; it must run an event loop). The
// run itself executes on a thread of the service's own, with a store context made there; backend
// completions may arrive on any thread and are carried over to it. Every signal is delivered on the
// thread the service lives on. The activity being tracked (its uid given at creation) is never exported.
//
// Failure: every failure ends the run with status Failed and one syncServiceError() with the details text
// (the title is always BVSyncErrors::Title). What the run had saved before stays saved; rows of the
// cache are stored only after the backend confirmed an upload, so the next run repeats unconfirmed work.
class BVSyncService : public QObject
{
    Q_OBJECT
public:
    enum Status : int {
        NotStarted = 0,
        Running = 1,
        Cancelled = 2,
        Failed = 3,
        Succeeded = 4,
    };

    // Takes the backend, installs its error, progress and activity-log handlers, and fixes the cache
    // folder (from the backend's cachePrefix and the user's cache location at this moment).
    // `currentActivityID`: the uid of the activity being tracked, or none.
    BVSyncService(std::unique_ptr<BVSyncServiceBackend> backend, const std::optional<QString> &currentActivityID,
        QObject *parent = nullptr);
    // Waits for the run's thread: a run still waiting on the backend is abandoned, its unsaved work dropped.
    ~BVSyncService() override;

    // The store the run works on, through a context of its own made on the run's thread. Not owned; it
    // must outlive the service. Set before sync().
    void setMOC(Store &store);
    // Where a successful run of method 1 records "dropboxSyncDate" (the store's clock); none to skip it,
    // as the command line does: it writes no setting. Not owned; used on the service's thread only.
    void setSettings(BvSettings *settings) { m_settings = settings; }

    int syncMethod() const;
    QString cacheFolder() const;
    // Every line the run logged, joined with "\n". Any thread.
    QString activityLog() const;
    // The last progress message. Any thread.
    QString currentProgressMessage() const;
    // One of Status. Any thread.
    int syncStatus() const { return m_syncStatus.load(); }
    // The zone the journal's sync files are written in, as the sync folder records it (the first machine
    // to sync recorded its own); invalid until the run has read it. Any thread.
    QTimeZone syncTimeZone() const;

public Q_SLOTS:
    // Starts the run (status Running); does nothing when the service has run already.
    void sync();
    // While running, asks the run to stop at its next checkpoint (a backend call under way finishes
    // first). Otherwise emits syncServiceCancelled() at once, waiting for delivery when called from
    // another thread.
    void cancel();

Q_SIGNALS:
    void syncServiceProgress(const QString &message);
    // "Sync operation completed!".
    void syncServiceFinish(const QString &message);
    void syncServiceError(const QString &details);
    void syncServiceCancelled();
    // The run read the journal's sync zone (an IANA id) from the sync folder, or recorded this machine's
    // zone there as the first machine; the files of the run are read and written in it.
    void syncTimeZoneKnown(const QByteArray &zoneId);

private:
    // All of the following run on the run's thread.
    void startRun();
    void agreeTimeZone();
    void fetchChanges();
    void onChangesFetched(const QList<BVTmpSyncFile> &changes, bool didFullFetch);
    std::expected<std::optional<BVTmpSyncFile>, BvError> processRemoteChanges(
        const QList<BVTmpSyncFile> &changes, bool didFullFetch);
    void fetchDeletedActivities(std::optional<BVTmpSyncFile> remoteFile);
    std::expected<bool, BvError> shouldFetchDeletedActivities(BVTmpSyncFile &remoteFile);
    void mergeNextFile();
    void uploadChanges();
    void onDeletedFileUploaded(const QString &revisionValue, const QString &hash);
    void uploadActivities();
    void exportNextFile();
    void onMonthUploaded(const BVTmpSyncFile &file, const QString &revisionValue);
    void removeEmptyMonth(const BVTmpSyncFile &file);
    void cleanup();
    void delegateNotifySuccess();
    bool returnAndCancel();
    void delegateNotifyError(const QString &details);
    void delegateNotifyProgress(const QString &message);
    void endRun();
    // Runs `step` on the run's thread, whichever thread calls.
    void post(std::function<void()> step);
    bool saveMOC();

    // Any thread. The components of the run (cache, file formats) write their lines to the debug log
    // themselves; their lines only join the activity log.
    void logMessage(const QString &line);
    void appendToLog(const QString &line);

    std::unique_ptr<BVSyncServiceBackend> m_backend;
    std::optional<QString> m_currentActivityID;
    Store *m_store = nullptr;
    BvSettings *m_settings = nullptr;
    std::atomic<int> m_syncStatus { NotStarted };

    QThread m_thread;
    // Lives on m_thread: the receiver of every step.
    QObject *m_runner = nullptr;
    BVSyncCache *m_cache = nullptr;
    QString m_cacheFolder;

    mutable QMutex m_mutex;
    QStringList m_activityLog;
    QString m_currentProgressMessage;
    // Written once on the run's thread before the first file is touched; read there without the lock.
    QTimeZone m_timeZone;

    // The run's state, touched on m_thread only.
    std::unique_ptr<StoreContext> m_context;
    std::unique_ptr<QLockFile> m_lock;
    bool m_ended = false;
    QList<BVTmpSyncFile> m_filesToMerge;
    QList<BVTmpSyncFile> m_cachedFiles;
    BVMonthYearRange m_monthsToExport;
};
