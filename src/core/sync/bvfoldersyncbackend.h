#pragma once

#include <expected>

#include <QString>
#include <QTimeZone>

#include "sync/bvfolderrevisions.h"
#include "sync/bvsyncservicebackend.h"

// Sync through a folder that another tool keeps in sync between the user's machines (Syncthing,
// Nextcloud, the Dropbox client, a network share): the month files and "deleted.json" lie directly in it.
// Method code 2, cache prefix "folder".
//
// Every change fetch lists the whole folder; a file's revision is the hash of its content
// (BVFolderRevisions), so the cache rows tell which files changed. Uploads check the expected revision,
// then write a temporary file in the folder and rename it over the file, so that neither a reader nor the
// sync tool ever sees half a file; a file changed since it was merged is refused like Dropbox refuses it,
// and the next run merges it first. Conflict copies the sync tool left are merged into their file before
// the listing (BVSyncConflictCopy) and then removed.
//
// All completions are called on the calling thread, before the call returns.
class BVFolderSyncBackend : public BVSyncServiceBackend
{
public:
    static constexpr int SyncMethod = 2;
    static constexpr auto CachePrefix = "folder";

    // `folderPath`: the sync folder ("syncFolderPath"). The remembered revisions are kept beside the cache
    // folder, outside it, so that tidying the cache never drops them.
    explicit BVFolderSyncBackend(const QString &folderPath);
    // Keeps the revisions learnt for the next run.
    ~BVFolderSyncBackend() override;

    int syncMethod() const override { return SyncMethod; }
    QString cachePrefix() const override { return QString::fromLatin1(CachePrefix); }
    void setErrorHandler(MessageHandler handler) override { m_errorHandler = std::move(handler); }
    void setProgressHandler(MessageHandler handler) override { m_progressHandler = std::move(handler); }
    void setActivityLogHandler(MessageHandler handler) override { m_logHandler = std::move(handler); }

    // Fails when no folder is set, or it is not there: a share that is not mounted must not look like an
    // empty journal.
    void initializeBackend(Completion completion) override;
    // Creates the zone file by a hard link of a finished temporary file, which fails when the name exists:
    // of two machines that start at once (on a share both see), exactly one records its zone.
    void agreeTimeZone(const QByteArray &proposedZoneId, TimeZoneHandler andHandler) override;
    // A listing is always whole, so there is no cursor to forget or keep.
    void deleteSavepoint() override;
    void saveSavepoint() override;
    void fetchChangesWithLocalCache(const QList<BVTmpSyncFile> &localCache, ChangesHandler andHandler) override;
    void downloadFileWithName(const QString &name, const std::optional<QString> &expectedRevision,
        const QString &saveToFile, DownloadCallback andCallback) override;
    void uploadFile(
        const QString &file, const std::optional<BVTmpSyncFile> &withRevision, UploadBlock andBlock) override;
    void deleteFile(const BVTmpSyncFile &file, Completion andBlock) override;

    QString folderPath() const { return m_folder; }
    // The zone agreed by the last agreeTimeZone(); invalid before.
    QTimeZone timeZone() const { return m_timeZone; }

private:
    // Conflict copies are read in the agreed zone; without one (a listing before any agreement) in the
    // zone the folder records, or the one this machine would propose.
    void mergeConflictCopies(const QStringList &names);
    void removeAbandonedUploads(const QStringList &names);
    // Replaces the folder's `name` with `content` through a temporary file and a rename; the reason on
    // failure.
    QString replaceFile(const QString &name, const QByteArray &content);
    // Like replaceFile, but only when `name` does not exist: false (and no error) when it does.
    bool createFile(const QString &name, const QByteArray &content, QString *error);
    // Writes `content` to a new temporary file for `name`, on disk; its path, or the reason.
    std::expected<QByteArray, QString> writeTemporary(const QString &name, const QByteArray &content);
    QString pathOf(const QString &name) const;

    void reportError(const QString &message) const;
    void reportProgress(const QString &message) const;
    void log(const QString &line) const;

    QString m_folder;
    QTimeZone m_timeZone;
    BVFolderRevisions m_revisions;
    MessageHandler m_errorHandler;
    MessageHandler m_progressHandler;
    MessageHandler m_logHandler;
};
