#include "sync/bvfoldersyncbackend.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSysInfo>

#include "base/logging.h"
#include "sync/bvsynccache.h"
#include "sync/bvsyncconflictcopy.h"
#include "sync/bvsyncfilename.h"
#include "sync/bvsynctimezonefile.h"

namespace {

QString hostTag()
{
    QString host = QSysInfo::machineHostName();
    host.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9-]")), QStringLiteral("_"));
    return host.isEmpty() ? QStringLiteral("host") : host;
}

// ".2024-03.json.brimvale-<host>-<pid>.tmp": hidden, and telling which process on which machine wrote it.
QString temporaryName(const QString &name)
{
    return QLatin1Char('.') + name + QStringLiteral(".brimvale-") + hostTag() + QLatin1Char('-')
        + QString::number(::getpid()) + QStringLiteral(".tmp");
}

QString systemError(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

std::optional<QByteArray> readAll(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = file.errorString();
        return std::nullopt;
    }
    QByteArray content = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        *error = file.errorString();
        return std::nullopt;
    }
    return content;
}

} // namespace

BVFolderSyncBackend::BVFolderSyncBackend(const QString &folderPath)
    : m_folder(folderPath.isEmpty() ? QString() : QDir::cleanPath(QDir(folderPath).absolutePath()))
    , m_revisions(
          m_folder, BVSyncCache::cacheDirectory(QString::fromLatin1(CachePrefix)) + QStringLiteral("-revisions.json"))
{ }

BVFolderSyncBackend::~BVFolderSyncBackend()
{
    if (!m_folder.isEmpty())
        m_revisions.save();
}

QString BVFolderSyncBackend::pathOf(const QString &name) const
{
    return m_folder + QLatin1Char('/') + name;
}

// The sync service writes what it is handed to the debug log; without a service the backend does.
void BVFolderSyncBackend::reportError(const QString &message) const
{
    if (m_errorHandler)
        m_errorHandler(message);
    else
        qCWarning(lcSync).noquote() << message;
}

void BVFolderSyncBackend::reportProgress(const QString &message) const
{
    if (m_progressHandler)
        m_progressHandler(message);
}

void BVFolderSyncBackend::log(const QString &line) const
{
    if (m_logHandler)
        m_logHandler(line);
    else
        qCInfo(lcSync).noquote() << line;
}

void BVFolderSyncBackend::initializeBackend(Completion completion)
{
    if (m_folder.isEmpty()) {
        reportError(QStringLiteral("No sync folder is set. Please choose the sync folder in preferences"));
        return;
    }
    const QFileInfo folder(m_folder);
    if (!folder.exists()) {
        reportError(QStringLiteral("The sync folder \"%1\" does not exist. Please check the sync folder in preferences")
                        .arg(m_folder));
        return;
    }
    if (!folder.isDir()) {
        reportError(
            QStringLiteral("The sync folder \"%1\" is not a folder. Please check the sync folder in preferences")
                .arg(m_folder));
        return;
    }
    log(QStringLiteral("Sync folder: %1").arg(m_folder));
    completion();
}

void BVFolderSyncBackend::agreeTimeZone(const QByteArray &proposedZoneId, TimeZoneHandler andHandler)
{
    const QString name = QString::fromLatin1(BVSyncTimeZoneFile::FileName);
    for (int attempt = 0; attempt < 2; ++attempt) {
        QString error;
        if (QFileInfo::exists(pathOf(name))) {
            const std::optional<QByteArray> content = readAll(pathOf(name), &error);
            if (!content) {
                reportError(QStringLiteral("Failed to read %1 from the sync folder. %2").arg(name, error));
                return;
            }
            const std::expected<QByteArray, QString> zoneId = BVSyncTimeZoneFile::read(*content);
            if (!zoneId) {
                reportError(QStringLiteral("The sync folder's %1 cannot be used: %2. Please fix or remove it")
                                .arg(name, zoneId.error()));
                return;
            }
            m_timeZone = QTimeZone(*zoneId);
            andHandler(*zoneId);
            return;
        }
        if (createFile(name, BVSyncTimeZoneFile::json(proposedZoneId), &error)) {
            log(QStringLiteral("Recorded the sync time zone %1 in %2").arg(QString::fromUtf8(proposedZoneId), name));
            m_timeZone = QTimeZone(proposedZoneId);
            andHandler(proposedZoneId);
            return;
        }
        if (!error.isEmpty()) {
            reportError(
                QStringLiteral("Failed to write %1 to the sync folder. %2\n\nPlease retry sync").arg(name, error));
            return;
        }
        // Another machine recorded its zone in between: read that one.
    }
    reportError(
        QStringLiteral("Failed to read %1 from the sync folder. It keeps changing.\n\nPlease retry sync").arg(name));
}

void BVFolderSyncBackend::deleteSavepoint() { }

void BVFolderSyncBackend::saveSavepoint() { }

void BVFolderSyncBackend::fetchChangesWithLocalCache(const QList<BVTmpSyncFile> &localCache, ChangesHandler andHandler)
{
    Q_UNUSED(localCache)
    reportProgress(QStringLiteral("Reading the sync folder..."));
    const QDir folder(m_folder);
    const auto list = [&] { return folder.entryList(QDir::Files | QDir::Hidden | QDir::System, QDir::Name); };
    if (!folder.isReadable()) {
        reportError(QStringLiteral("Failed to list the sync folder \"%1\"").arg(m_folder));
        return;
    }
    QStringList names = list();
    removeAbandonedUploads(names);
    mergeConflictCopies(names);
    names = list();

    QList<BVTmpSyncFile> changes;
    for (const QString &name : std::as_const(names)) {
        if (!BVSyncFileName::match(name, std::nullopt))
            continue;
        const BVFolderRevisions::Result revision = m_revisions.revision(name);
        if (!revision.error.isEmpty()) {
            reportError(QStringLiteral("Failed to read %1 in the sync folder. %2").arg(name, revision.error));
            return;
        }
        if (revision.revision.isNull())
            continue; // removed while listing
        log(QStringLiteral("Folder file: %1; rev: %2").arg(name, revision.revision));
        if (auto file = BVTmpSyncFile::fromFileName(name, std::nullopt, SyncMethod, revision.revision))
            changes.append(*file);
    }
    m_revisions.keepOnly(names);
    m_revisions.save();
    andHandler(changes, true);
}

void BVFolderSyncBackend::removeAbandonedUploads(const QStringList &names)
{
    // Only this machine's own leftovers, of processes that are gone: another machine's upload, or one of
    // a run still under way here, is none of our business.
    static const QRegularExpression pattern(QStringLiteral("\\A\\..+\\.brimvale-(.+)-([0-9]+)\\.tmp\\z"));
    const QString host = hostTag();
    for (const QString &name : names) {
        const QRegularExpressionMatch match = pattern.match(name);
        if (!match.hasMatch() || match.captured(1) != host)
            continue;
        const pid_t pid = pid_t(match.captured(2).toLongLong());
        if (pid == ::getpid() || (::kill(pid, 0) != 0 && errno == ESRCH)) {
            if (QFile::remove(pathOf(name)))
                log(QStringLiteral("Removed abandoned upload %1").arg(name));
        }
    }
}

void BVFolderSyncBackend::mergeConflictCopies(const QStringList &names)
{
    QTimeZone zone = m_timeZone;
    if (!zone.isValid()) {
        QString error;
        const std::optional<QByteArray> content
            = readAll(pathOf(QString::fromLatin1(BVSyncTimeZoneFile::FileName)), &error);
        const std::expected<QByteArray, QString> recorded
            = content ? BVSyncTimeZoneFile::read(*content) : std::unexpected(error);
        zone = QTimeZone(recorded ? *recorded : BVSyncTimeZoneFile::proposedZoneId());
    }
    for (const QString &name : names) {
        const std::optional<QString> original = BVSyncConflictCopy::originalFileName(name);
        if (!original)
            continue;
        QString error;
        const std::optional<QByteArray> copy = readAll(pathOf(name), &error);
        if (!copy) {
            log(QStringLiteral("Conflict copy %1 left in place: %2").arg(name, error));
            continue;
        }
        QByteArray current;
        if (QFileInfo::exists(pathOf(*original))) {
            const std::optional<QByteArray> content = readAll(pathOf(*original), &error);
            if (!content) {
                log(QStringLiteral("Conflict copy %1 left in place: %2").arg(name, error));
                continue;
            }
            current = *content;
        }
        const std::expected<QByteArray, QString> merged = BVSyncConflictCopy::merge(*original, current, *copy, zone);
        if (!merged) {
            log(QStringLiteral("Conflict copy %1 left in place: %2").arg(name, merged.error()));
            continue;
        }
        if (*merged != current) {
            error = replaceFile(*original, *merged);
            if (!error.isEmpty()) {
                log(QStringLiteral("Conflict copy %1 left in place: %2").arg(name, error));
                continue;
            }
        }
        // The copy goes only once its records are safe in the file: a run stopped in between merges it
        // again, which changes nothing.
        if (QFile::remove(pathOf(name)))
            log(QStringLiteral("Merged conflict copy %1 into %2").arg(name, *original));
        else
            log(QStringLiteral("Merged conflict copy %1 into %2, but could not remove it").arg(name, *original));
    }
}

std::expected<QByteArray, QString> BVFolderSyncBackend::writeTemporary(const QString &name, const QByteArray &content)
{
    const QByteArray temporaryPath = QFile::encodeName(pathOf(temporaryName(name)));
    const int fd = ::open(temporaryPath.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return std::unexpected(systemError(errno));
    qsizetype written = 0;
    while (written < content.size()) {
        const ssize_t n = ::write(fd, content.constData() + written, size_t(content.size() - written));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            const int error = n < 0 ? errno : EIO;
            ::close(fd);
            ::unlink(temporaryPath.constData());
            return std::unexpected(systemError(error));
        }
        written += n;
    }
    // On disk before the rename, so that a crash leaves the old file or the new one, never an empty one.
    if (::fsync(fd) != 0 || ::close(fd) != 0) {
        const int error = errno;
        ::unlink(temporaryPath.constData());
        return std::unexpected(systemError(error));
    }
    return temporaryPath;
}

bool BVFolderSyncBackend::createFile(const QString &name, const QByteArray &content, QString *error)
{
    const std::expected<QByteArray, QString> temporary = writeTemporary(name, content);
    if (!temporary) {
        *error = temporary.error();
        return false;
    }
    const QByteArray target = QFile::encodeName(pathOf(name));
    const int linked = ::link(temporary->constData(), target.constData());
    const int linkError = errno;
    if (linked != 0 && (linkError == EPERM || linkError == EOPNOTSUPP || linkError == ENOSYS)) {
        // A file system without hard links (FAT, some shares): only a check just before the rename is left.
        if (QFileInfo::exists(pathOf(name))) {
            ::unlink(temporary->constData());
            return false;
        }
        if (std::rename(temporary->constData(), target.constData()) == 0)
            return true;
        *error = systemError(errno);
        ::unlink(temporary->constData());
        return false;
    }
    ::unlink(temporary->constData());
    if (linked != 0 && linkError != EEXIST)
        *error = systemError(linkError);
    return linked == 0;
}

QString BVFolderSyncBackend::replaceFile(const QString &name, const QByteArray &content)
{
    const std::expected<QByteArray, QString> temporary = writeTemporary(name, content);
    if (!temporary)
        return temporary.error();
    const QByteArray &temporaryPath = *temporary;
    if (std::rename(temporaryPath.constData(), QFile::encodeName(pathOf(name)).constData()) != 0) {
        const int error = errno;
        ::unlink(temporaryPath.constData());
        return systemError(error);
    }
    // The rename itself is not forced to disk: a crash that loses it leaves the old file, whose revision
    // is not the one the cache recorded, so the next run merges it and uploads again. Forcing it would
    // double the cost of a first sync.
    return {};
}

void BVFolderSyncBackend::downloadFileWithName(const QString &name, const std::optional<QString> &expectedRevision,
    const QString &saveToFile, DownloadCallback andCallback)
{
    const QString path = pathOf(name);
    if (!QFileInfo::exists(path)) {
        // Like a missing file on Dropbox: no error unless a certain revision was expected.
        if (!expectedRevision) {
            andCallback(false);
            return;
        }
        reportError(QStringLiteral("Failed to retrieve %1 file. It is no longer in the sync folder.").arg(name));
        return;
    }
    QString error;
    const std::optional<QByteArray> content = readAll(path, &error);
    if (!content) {
        reportError(QStringLiteral("Failed to read %1 from the sync folder. %2").arg(name, error));
        return;
    }
    // The revision of exactly the bytes taken, so that a file changed since the listing is never merged
    // under the listed revision.
    const QString revision = BVFolderRevisions::revisionOfContent(*content);
    if (expectedRevision && *expectedRevision != revision) {
        reportError(QStringLiteral("Invalid revision for %1 file. Expected revision: %2, received revision: %3. File "
                                   "has been changed in the sync folder.")
                        .arg(name, *expectedRevision, revision));
        return;
    }
    QSaveFile target(saveToFile);
    if (!target.open(QIODevice::WriteOnly) || target.write(*content) != content->size() || !target.commit()) {
        reportError(QStringLiteral("Failed to move file %1 to cache. %2").arg(saveToFile, target.errorString()));
        return;
    }
    andCallback(true);
}

void BVFolderSyncBackend::uploadFile(
    const QString &file, const std::optional<BVTmpSyncFile> &withRevision, UploadBlock andBlock)
{
    const QString name = QFileInfo(file).fileName();
    QString error;
    const std::optional<QByteArray> content = readAll(file, &error);
    if (!content) {
        reportError(QStringLiteral("Failed to read %1. %2").arg(file, error));
        return;
    }
    const BVFolderRevisions::Result current = m_revisions.revision(name);
    if (!current.error.isEmpty()) {
        reportError(
            QStringLiteral("Failed to read %1 in the sync folder. %2\n\nPlease retry sync").arg(name, current.error));
        return;
    }
    const std::optional<QString> expected = withRevision ? withRevision->revisionValue() : std::nullopt;
    const bool matches = current.revision.isNull() ? !expected.has_value() : expected == current.revision;
    if (!matches) {
        const QString none = QStringLiteral("none");
        log(QStringLiteral("Failed to upload file to the sync folder (file: %1; revision: %2)")
                .arg(name, expected.value_or(none)));
        reportError(QStringLiteral("%1 has been changed in the sync folder since it was merged (expected revision: "
                                   "%2, found revision: %3).\n\nPlease retry sync")
                        .arg(name, expected.value_or(none), current.revision.isNull() ? none : current.revision));
        return;
    }
    error = replaceFile(name, *content);
    if (!error.isEmpty()) {
        reportError(QStringLiteral("Failed to write %1 to the sync folder. %2\n\nPlease retry sync").arg(name, error));
        return;
    }
    m_revisions.remember(name, *content);
    andBlock(BVFolderRevisions::revisionOfContent(*content));
}

void BVFolderSyncBackend::deleteFile(const BVTmpSyncFile &file, Completion andBlock)
{
    const QString name = file.fileName();
    QFile remote(pathOf(name));
    if (remote.exists() && !remote.remove()) {
        reportError(QStringLiteral("Failed to delete %1 from the sync folder. %2").arg(name, remote.errorString()));
        return;
    }
    m_revisions.forget(name);
    andBlock();
}
