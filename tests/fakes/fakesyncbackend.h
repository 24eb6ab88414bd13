#pragma once

#include <QDir>
#include <QHash>
#include <QMap>
#include <QObject>
#include <QStringList>
#include <QThread>

#include "sync/bvsyncservicebackend.h"

// A storage backend over a local folder that plays the remote sync folder. A file's revision is derived
// from its content, so any change made to the folder (by the test or another fake machine) is a new
// revision. Tests can make any operation fail once, and can have completions arrive on another thread,
// as a real backend's do.
class FakeSyncBackend : public BVSyncServiceBackend
{
public:
    enum class Operation { Initialize, FetchChanges, Download, Upload, Delete };
    enum class Callbacks { Direct, OtherThread };

    explicit FakeSyncBackend(
        const QString &remoteFolder, int syncMethod = 1, const QString &cachePrefix = QStringLiteral("dropbox"));
    ~FakeSyncBackend() override;

    int syncMethod() const override { return m_syncMethod; }
    QString cachePrefix() const override { return m_cachePrefix; }
    void setErrorHandler(MessageHandler handler) override { m_errorHandler = std::move(handler); }
    void setProgressHandler(MessageHandler handler) override { m_progressHandler = std::move(handler); }
    void setActivityLogHandler(MessageHandler handler) override { m_logHandler = std::move(handler); }
    void initializeBackend(Completion completion) override;
    // Keeps the zone file in the remote folder, as the folder backend does.
    void agreeTimeZone(const QByteArray &proposedZoneId, TimeZoneHandler andHandler) override;
    void deleteSavepoint() override;
    void fetchChangesWithLocalCache(const QList<BVTmpSyncFile> &localCache, ChangesHandler andHandler) override;
    void downloadFileWithName(const QString &name, const std::optional<QString> &expectedRevision,
        const QString &saveToFile, DownloadCallback andCallback) override;
    void saveSavepoint() override;
    void uploadFile(
        const QString &file, const std::optional<BVTmpSyncFile> &withRevision, UploadBlock andBlock) override;
    void deleteFile(const BVTmpSyncFile &file, Completion andBlock) override;

    // Test controls.
    // The next call of `operation` reports `message` through the error handler and never completes.
    void failNext(Operation operation, const QString &message);
    void setCallbacks(Callbacks callbacks) { m_callbacks = callbacks; }
    // "<operation> <argument>" of every call, in order.
    QStringList calls() const { return m_calls; }
    QStringList errors() const { return m_errors; }
    bool hasSavepoint() const { return m_hasSavepoint; }
    QString remoteFolder() const { return m_remote.path(); }
    // The revision the fake gives the remote file `name` now; null when there is none.
    QString remoteRevision(const QString &name) const;
    // The thread the last completion ran on.
    QThread *lastCallbackThread() const { return m_lastCallbackThread; }

private:
    bool failing(Operation operation);
    void complete(std::function<void()> completion);
    QMap<QString, QString> listing() const;

    QDir m_remote;
    int m_syncMethod;
    QString m_cachePrefix;
    MessageHandler m_errorHandler;
    MessageHandler m_progressHandler;
    MessageHandler m_logHandler;
    QHash<Operation, QString> m_failures;
    Callbacks m_callbacks = Callbacks::Direct;
    QThread m_thread;
    QObject *m_threadObject = nullptr;
    QThread *m_lastCallbackThread = nullptr;
    QStringList m_calls;
    QStringList m_errors;
    bool m_hasSavepoint = false;
    QMap<QString, QString> m_savepoint;
    QMap<QString, QString> m_pendingSavepoint;
};
