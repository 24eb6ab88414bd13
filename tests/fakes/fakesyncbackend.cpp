#include "fakes/fakesyncbackend.h"

#include <QCryptographicHash>
#include <QFile>
#include <QSaveFile>

#include "sync/bvsynctimezonefile.h"

FakeSyncBackend::FakeSyncBackend(const QString &remoteFolder, int syncMethod, const QString &cachePrefix)
    : m_remote(remoteFolder)
    , m_syncMethod(syncMethod)
    , m_cachePrefix(cachePrefix)
{
    m_remote.mkpath(QStringLiteral("."));
    m_threadObject = new QObject;
    m_threadObject->moveToThread(&m_thread);
    QObject::connect(&m_thread, &QThread::finished, m_threadObject, &QObject::deleteLater);
    m_thread.start();
}

FakeSyncBackend::~FakeSyncBackend()
{
    m_thread.quit();
    m_thread.wait();
}

void FakeSyncBackend::failNext(Operation operation, const QString &message)
{
    m_failures.insert(operation, message);
}

bool FakeSyncBackend::failing(Operation operation)
{
    if (!m_failures.contains(operation))
        return false;
    const QString message = m_failures.take(operation);
    m_errors.append(message);
    if (m_errorHandler)
        m_errorHandler(message);
    return true;
}

void FakeSyncBackend::complete(std::function<void()> completion)
{
    if (m_callbacks == Callbacks::Direct) {
        m_lastCallbackThread = QThread::currentThread();
        completion();
        return;
    }
    QMetaObject::invokeMethod(
        m_threadObject,
        [this, completion = std::move(completion)]() {
            m_lastCallbackThread = QThread::currentThread();
            completion();
        },
        Qt::QueuedConnection);
}

QString FakeSyncBackend::remoteRevision(const QString &name) const
{
    QFile file(m_remote.filePath(name));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromLatin1(QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha1).toHex().left(12));
}

QMap<QString, QString> FakeSyncBackend::listing() const
{
    QMap<QString, QString> files;
    for (const QString &name : m_remote.entryList(QDir::Files))
        files.insert(name, remoteRevision(name));
    return files;
}

void FakeSyncBackend::initializeBackend(Completion completion)
{
    m_calls.append(QStringLiteral("initialize"));
    if (failing(Operation::Initialize))
        return;
    complete(std::move(completion));
}

void FakeSyncBackend::agreeTimeZone(const QByteArray &proposedZoneId, TimeZoneHandler andHandler)
{
    m_calls.append(QStringLiteral("agreeTimeZone"));
    QFile file(m_remote.filePath(QString::fromLatin1(BVSyncTimeZoneFile::FileName)));
    if (!file.exists()) {
        QSaveFile created(file.fileName());
        if (!created.open(QIODevice::WriteOnly) || created.write(BVSyncTimeZoneFile::json(proposedZoneId)) < 0
            || !created.commit())
            qFatal("FakeSyncBackend: cannot write the zone file");
    }
    if (!file.open(QIODevice::ReadOnly))
        qFatal("FakeSyncBackend: cannot read the zone file");
    const std::expected<QByteArray, QString> zoneId = BVSyncTimeZoneFile::read(file.readAll());
    if (!zoneId) {
        m_errors.append(zoneId.error());
        if (m_errorHandler)
            m_errorHandler(zoneId.error());
        return;
    }
    complete([andHandler, id = *zoneId]() { andHandler(id); });
}

void FakeSyncBackend::deleteSavepoint()
{
    m_calls.append(QStringLiteral("deleteSavepoint"));
    m_hasSavepoint = false;
    m_savepoint.clear();
}

void FakeSyncBackend::saveSavepoint()
{
    m_calls.append(QStringLiteral("saveSavepoint"));
    m_hasSavepoint = true;
    m_savepoint = m_pendingSavepoint;
}

void FakeSyncBackend::fetchChangesWithLocalCache(const QList<BVTmpSyncFile> &localCache, ChangesHandler andHandler)
{
    m_calls.append(QStringLiteral("fetchChanges %1").arg(localCache.size()));
    if (failing(Operation::FetchChanges))
        return;
    const QMap<QString, QString> now = listing();
    const bool full = !m_hasSavepoint;
    QList<BVTmpSyncFile> changes;
    for (auto it = now.cbegin(); it != now.cend(); ++it) {
        if (!full && m_savepoint.value(it.key()) == it.value())
            continue;
        if (auto file = BVTmpSyncFile::fromFileName(it.key(), std::nullopt, m_syncMethod, it.value()))
            changes.append(*file);
    }
    if (!full) {
        for (auto it = m_savepoint.cbegin(); it != m_savepoint.cend(); ++it) {
            if (!now.contains(it.key())) {
                if (auto file = BVTmpSyncFile::deletedFileFromFileName(it.key(), std::nullopt))
                    changes.append(*file);
            }
        }
    }
    m_pendingSavepoint = now;
    complete([andHandler = std::move(andHandler), changes, full]() { andHandler(changes, full); });
}

void FakeSyncBackend::downloadFileWithName(const QString &name, const std::optional<QString> &expectedRevision,
    const QString &saveToFile, DownloadCallback andCallback)
{
    m_calls.append(QStringLiteral("download %1").arg(name));
    if (failing(Operation::Download))
        return;
    const QString revision = remoteRevision(name);
    if (revision.isNull() || (expectedRevision && *expectedRevision != revision)) {
        const QString message = QStringLiteral("Remote file %1 is not at the expected revision").arg(name);
        m_errors.append(message);
        if (m_errorHandler)
            m_errorHandler(message);
        return;
    }
    QFile source(m_remote.filePath(name));
    QSaveFile target(saveToFile);
    const bool ok = source.open(QIODevice::ReadOnly) && target.open(QIODevice::WriteOnly)
        && target.write(source.readAll()) >= 0 && target.commit();
    complete([andCallback = std::move(andCallback), ok]() { andCallback(ok); });
}

void FakeSyncBackend::uploadFile(
    const QString &file, const std::optional<BVTmpSyncFile> &withRevision, UploadBlock andBlock)
{
    const QString name = QFileInfo(file).fileName();
    m_calls.append(QStringLiteral("upload %1").arg(name));
    if (failing(Operation::Upload))
        return;
    const QString current = remoteRevision(name);
    const std::optional<QString> expected = withRevision ? withRevision->revisionValue() : std::nullopt;
    if (current.isNull() != !expected.has_value() || (expected && *expected != current)) {
        const QString message = QStringLiteral("Upload of %1 refused: revision mismatch").arg(name);
        m_errors.append(message);
        if (m_errorHandler)
            m_errorHandler(message);
        return;
    }
    QFile source(file);
    QSaveFile target(m_remote.filePath(name));
    if (!source.open(QIODevice::ReadOnly) || !target.open(QIODevice::WriteOnly) || target.write(source.readAll()) < 0
        || !target.commit()) {
        const QString message = QStringLiteral("Upload of %1 failed").arg(name);
        m_errors.append(message);
        if (m_errorHandler)
            m_errorHandler(message);
        return;
    }
    const QString revision = remoteRevision(name);
    complete([andBlock = std::move(andBlock), revision]() { andBlock(revision); });
}

void FakeSyncBackend::deleteFile(const BVTmpSyncFile &file, Completion andBlock)
{
    m_calls.append(QStringLiteral("delete %1").arg(file.fileName()));
    if (failing(Operation::Delete))
        return;
    QFile::remove(m_remote.filePath(file.fileName()));
    complete(std::move(andBlock));
}
