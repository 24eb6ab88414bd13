#pragma once

#include <expected>
#include <functional>
#include <optional>

#include <QList>
#include <QObject>
#include <QString>
#include <QTimeZone>

#include "base/bverror.h"
#include "sync/bvsynclog.h"
#include "sync/bvtmpsyncfile.h"

class BVSyncServiceBackend;
class StoreContext;

// This machine's record of the remote sync files for one backend: the SyncFile rows of the store and the
// cache folder (~/.cache/Brimvale/<prefix>-sync) with the last downloaded or written copy of each file.
// The sync service owns one per run and calls it on the run's thread, with the run's context; errors
// carry the designed details text that the service reports under "Error occurred". The backend is not
// owned and must outlive the cache.
class BVSyncCache : public QObject
{
    Q_OBJECT
public:
    using Done = std::function<void(const std::expected<void, BvError> &result)>;

    explicit BVSyncCache(BVSyncServiceBackend &backend, QObject *parent = nullptr);

    // The user's cache folder + "Brimvale" + "<cachePrefix>-sync".
    static QString cacheDirectory(const QString &cachePrefix);
    QString cacheFolder() const { return m_cacheFolder; }
    // "<cache folder>/<name>.json" of the descriptor's file.
    QString filePath(const BVTmpSyncFile &file) const;

    // Lines for the run's activity log, and progress messages.
    void setLog(BVSyncLog log) { m_log = std::move(log); }
    void setProgress(BVSyncLog progress) { m_progress = std::move(progress); }

    // Makes sure the cache folder exists (with its parents). Fails with "Cache path is not a directory:
    // "<path>"!" when something else has its path, or "Failed to create caches directory: "<path>"!".
    std::expected<void, BvError> prepareLocalCache();

    // Deletes every row whose revision is not of the backend's revision family (all rows for a method
    // without one), saves, and logs "Deleted <n> items from cache". Fails with "Local storage error: ...".
    std::expected<void, BvError> ensureCacheFiles(StoreContext &context);
    // The descriptors of the month-file rows, by name; rows that name no sync file are left out.
    std::expected<QList<BVTmpSyncFile>, BvError> getAllSyncFiles(StoreContext &context);
    // The descriptor of the "deleted" row, or a new deletion-file descriptor of the backend's method
    // without a revision when there is no row.
    std::expected<BVTmpSyncFile, BvError> getDeletedSyncFile(StoreContext &context);

    // Deletes, remotely and then from the cache, every month file whose month (of the sync zone `zone`)
    // holds no activity that starts inside it, as the export files them, one at a time, reporting
    // "Cleaning up files ..." first. `done` is
    // called on this object's thread: with success once the last file is gone, or with the failure
    // ("Local storage error (27|28|29): ...", "Failed to remove file from cache: <path>. <reason>",
    // "Failed to cleanup file in local storage!"). A failing backend call reports through the backend's
    // error handler and `done` is not called. `context` must stay alive until then.
    void cleanupFiles(StoreContext &context, const QTimeZone &zone, Done done);

    // Removes every entry of the cache folder that no row names; does nothing when the folder or the
    // rows cannot be read. Removal errors are ignored.
    void cleanupCachesDir(StoreContext &context);

private:
    void cleanupNextFile();
    void finishCleanup(const std::expected<void, BvError> &result);

    BVSyncServiceBackend &m_backend;
    QString m_cacheFolder;
    BVSyncLog m_log;
    BVSyncLog m_progress;
    StoreContext *m_cleanupContext = nullptr;
    QList<BVTmpSyncFile> m_cleanupList;
    Done m_cleanupDone;
};
