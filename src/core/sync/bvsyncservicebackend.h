#pragma once

#include <functional>
#include <optional>

#include <QByteArray>
#include <QList>
#include <QString>

#include "sync/bvtmpsyncfile.h"

// A storage service that holds the sync folder (Dropbox, a folder kept in sync by another tool), as one
// sync run uses it. Calls are made on the run's thread; every completion may arrive on any thread and is
// called at most once. A backend reports each failure through the error handler and then does not call
// that operation's completion, which ends the run.
class BVSyncServiceBackend
{
public:
    using MessageHandler = std::function<void(const QString &message)>;
    using Completion = std::function<void()>;
    // The files changed remotely since the savepoint (deleted ones with wasDeleted set), and whether the
    // backend listed the whole folder.
    using ChangesHandler = std::function<void(const QList<BVTmpSyncFile> &changes, bool didFullFetch)>;
    using DownloadCallback = std::function<void(bool success)>;
    // The revision value of the file now stored remotely.
    using UploadBlock = std::function<void(const QString &revisionValue)>;
    // The IANA id of the journal's sync zone.
    using TimeZoneHandler = std::function<void(const QByteArray &zoneId)>;

    virtual ~BVSyncServiceBackend() = default;

    // The sync method code (1 Dropbox) and the cache folder prefix ("dropbox").
    virtual int syncMethod() const = 0;
    virtual QString cachePrefix() const = 0;

    // Where the backend sends failures (details text), progress messages and activity-log lines.
    virtual void setErrorHandler(MessageHandler handler) = 0;
    virtual void setProgressHandler(MessageHandler handler) = 0;
    virtual void setActivityLogHandler(MessageHandler handler) = 0;

    // Makes the backend ready (account checked); the completion follows.
    virtual void initializeBackend(Completion completion) = 0;
    // The zone the journal's sync files are written in, recorded in the sync folder as
    // BVSyncTimeZoneFile::FileName beside the month files. When the folder holds none, records
    // `proposedZoneId` there, only if there is still none (a file another machine wrote meanwhile wins, as
    // an upload that expects no file is refused), and hands back what the folder holds then. A file that
    // BVSyncTimeZoneFile::read refuses is a failure: guessing a zone would shift every activity.
    virtual void agreeTimeZone(const QByteArray &proposedZoneId, TimeZoneHandler andHandler) = 0;
    // Forgets the change cursor, so that the next fetch lists the whole folder.
    virtual void deleteSavepoint() = 0;
    // Lists the remote changes, given the descriptors of the locally cached month files.
    virtual void fetchChangesWithLocalCache(const QList<BVTmpSyncFile> &localCache, ChangesHandler andHandler) = 0;
    // Downloads the remote file `name` ("2024-03.json") to `saveToFile` (a path in the cache folder),
    // refusing it when its revision is not `expectedRevision` (when one is given).
    virtual void downloadFileWithName(const QString &name, const std::optional<QString> &expectedRevision,
        const QString &saveToFile, DownloadCallback andCallback)
        = 0;
    // Keeps the cursor of the last fetch for the next run.
    virtual void saveSavepoint() = 0;
    // Uploads the local file (named as its remote file) expecting the remote file to be at the revision of
    // `withRevision`, or to be absent when none is given; a mismatch is refused as a failure.
    virtual void uploadFile(const QString &file, const std::optional<BVTmpSyncFile> &withRevision, UploadBlock andBlock)
        = 0;
    // Deletes the remote file of the descriptor ("<name>.json").
    virtual void deleteFile(const BVTmpSyncFile &file, Completion andBlock) = 0;
};
