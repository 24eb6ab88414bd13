#include "sync/bvsynccache.h"

#include <algorithm>

#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <QSet>
#include <QStandardPaths>

#include "base/logging.h"
#include "model/storecontext.h"
#include "sync/bvmonthdaterange.h"
#include "sync/bvmonthfile.h"
#include "sync/bvsyncerrors.h"
#include "sync/bvsyncfilename.h"
#include "sync/bvsyncservicebackend.h"

namespace {

BvError fileSystemError(const QString &details)
{
    return BVSyncErrors::error(BVSyncErrors::FileSystemCode, details);
}

std::expected<QList<SyncFilePtr>, BvError> rowsByName(StoreContext &context)
{
    std::expected<QList<SyncFilePtr>, BvError> rows = context.fetchSyncFiles();
    if (rows) {
        std::stable_sort(rows->begin(), rows->end(),
            [](const SyncFilePtr &a, const SyncFilePtr &b) { return a->name() < b->name(); });
    }
    return rows;
}

} // namespace

BVSyncCache::BVSyncCache(BVSyncServiceBackend &backend, QObject *parent)
    : QObject(parent)
    , m_backend(backend)
    , m_cacheFolder(cacheDirectory(backend.cachePrefix()))
{ }

QString BVSyncCache::cacheDirectory(const QString &cachePrefix)
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) + QStringLiteral("/Brimvale/")
        + QStringLiteral("%1-sync").arg(cachePrefix);
}

QString BVSyncCache::filePath(const BVTmpSyncFile &file) const
{
    return m_cacheFolder + QLatin1Char('/') + file.fileName();
}

std::expected<void, BvError> BVSyncCache::prepareLocalCache()
{
    const QFileInfo info(m_cacheFolder);
    if (info.exists()) {
        if (info.isDir())
            return {};
        return std::unexpected(
            fileSystemError(QStringLiteral("Cache path is not a directory: \"%1\"!").arg(m_cacheFolder)));
    }
    if (!QDir().mkpath(m_cacheFolder)) {
        return std::unexpected(
            fileSystemError(QStringLiteral("Failed to create caches directory: \"%1\"!").arg(m_cacheFolder)));
    }
    return {};
}

std::expected<void, BvError> BVSyncCache::ensureCacheFiles(StoreContext &context)
{
    const std::optional<QString> family = BVTmpSyncFile::revisionFamily(m_backend.syncMethod());
    std::expected<QList<SyncFilePtr>, BvError> rows = rowsByName(context);
    if (!rows)
        return std::unexpected(BVSyncErrors::localStorage(rows.error()));
    qint64 deleted = 0;
    for (const SyncFilePtr &row : std::as_const(*rows)) {
        // A revision of another backend, or one written before revisions named their backend, cannot be
        // compared with this backend's: the file must be fetched again.
        if (!family || !row->hasRevisionPrefix(*family)) {
            context.deleteObject(row);
            ++deleted;
        }
    }
    if (std::expected<void, BvError> saved = context.save(); !saved)
        return std::unexpected(BVSyncErrors::localStorage(saved.error()));
    const QString line = QStringLiteral("Deleted %1 items from cache").arg(deleted);
    qCInfo(lcSync).noquote() << line;
    if (m_log)
        m_log(line);
    return {};
}

std::expected<QList<BVTmpSyncFile>, BvError> BVSyncCache::getAllSyncFiles(StoreContext &context)
{
    std::expected<QList<SyncFilePtr>, BvError> rows = rowsByName(context);
    if (!rows)
        return std::unexpected(BVSyncErrors::localStorage(rows.error()));
    QList<BVTmpSyncFile> files;
    for (const SyncFilePtr &row : std::as_const(*rows)) {
        if (row->name() == QLatin1String(BVSyncFileName::DeletedName))
            continue;
        if (std::optional<BVTmpSyncFile> file = BVTmpSyncFile::fromSyncFile(row, m_backend.syncMethod()))
            files.append(*file);
    }
    return files;
}

std::expected<BVTmpSyncFile, BvError> BVSyncCache::getDeletedSyncFile(StoreContext &context)
{
    std::expected<QList<SyncFilePtr>, BvError> rows
        = context.fetchSyncFiles(QString::fromLatin1(BVSyncFileName::DeletedName));
    if (!rows)
        return std::unexpected(BVSyncErrors::localStorage(rows.error()));
    if (!rows->isEmpty()) {
        if (std::optional<BVTmpSyncFile> file = BVTmpSyncFile::fromSyncFile(rows->constFirst(), m_backend.syncMethod()))
            return *file;
    }
    return BVTmpSyncFile::initAsDeletedIndexFileWithSyncMethod(m_backend.syncMethod(), std::nullopt);
}

void BVSyncCache::cleanupFiles(StoreContext &context, const QTimeZone &zone, Done done)
{
    m_cleanupContext = &context;
    m_cleanupDone = std::move(done);
    m_cleanupList.clear();
    const QString progress = QStringLiteral("Cleaning up files ...");
    if (m_progress)
        m_progress(progress);

    std::expected<QList<SyncFilePtr>, BvError> rows = rowsByName(context);
    if (!rows) {
        finishCleanup(std::unexpected(BVSyncErrors::localStorage(QStringLiteral("27"), rows.error())));
        return;
    }
    for (const SyncFilePtr &row : std::as_const(*rows)) {
        if (row->name() == QLatin1String(BVSyncFileName::DeletedName) || !row->hasYearMonth())
            continue;
        const BVMonthDateRange month(row->year(), row->month(), zone);
        // Counted as the export files them, by start alone: counting only activities that also end in the
        // month would delete, on every run, the file of a month whose one activity runs past its end,
        // and that activity would never reach another machine. Counted in the store: every change of the
        // run is saved by now.
        const std::expected<qint64, BvError> count = BVMonthFile::countForMonth(context, month);
        if (!count) {
            finishCleanup(std::unexpected(BVSyncErrors::localStorage(QStringLiteral("28"), count.error())));
            return;
        }
        if (*count == 0) {
            std::optional<BVTmpSyncFile> file = BVTmpSyncFile::fromSyncFile(row, m_backend.syncMethod());
            m_cleanupList.append(file ? *file : BVTmpSyncFile(row->year(), row->month()));
        }
    }
    cleanupNextFile();
}

void BVSyncCache::cleanupNextFile()
{
    if (m_cleanupList.isEmpty()) {
        finishCleanup({});
        return;
    }
    const BVTmpSyncFile file = m_cleanupList.takeFirst();
    QPointer<BVSyncCache> self(this);
    m_backend.deleteFile(file, [self, file]() {
        if (!self)
            return;
        // The backend may call back on any thread; rows and files are touched on the run's thread only.
        QMetaObject::invokeMethod(
            self.data(),
            [self, file]() {
                if (!self)
                    return;
                const QString path = self->filePath(file);
                if (QFileInfo::exists(path) || QFileInfo(path).isSymLink()) {
                    QFile cached(path);
                    if (!cached.remove()) {
                        self->finishCleanup(
                            std::unexpected(fileSystemError(QStringLiteral("Failed to remove file from cache: %1. %2")
                                                                .arg(path, cached.errorString()))));
                        return;
                    }
                }
                if (!file.remove(*self->m_cleanupContext)) {
                    self->finishCleanup(std::unexpected(BVSyncErrors::error(
                        BVSyncErrors::LocalStorageCode, QStringLiteral("Failed to cleanup file in local storage!"))));
                    return;
                }
                if (std::expected<void, BvError> saved = self->m_cleanupContext->save(); !saved) {
                    self->finishCleanup(
                        std::unexpected(BVSyncErrors::localStorage(QStringLiteral("29"), saved.error())));
                    return;
                }
                self->cleanupNextFile();
            },
            Qt::QueuedConnection);
    });
}

void BVSyncCache::finishCleanup(const std::expected<void, BvError> &result)
{
    m_cleanupList.clear();
    m_cleanupContext = nullptr;
    Done done = std::move(m_cleanupDone);
    m_cleanupDone = nullptr;
    if (done)
        done(result);
}

void BVSyncCache::cleanupCachesDir(StoreContext &context)
{
    QDir folder(m_cacheFolder);
    if (!folder.exists())
        return;
    const QFileInfoList entries
        = folder.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    std::expected<QList<SyncFilePtr>, BvError> rows = context.fetchSyncFiles();
    if (!rows)
        return;
    QSet<QString> kept;
    for (const SyncFilePtr &row : std::as_const(*rows))
        kept.insert(BVSyncFileName::fileName(row->name()));
    for (const QFileInfo &entry : entries) {
        if (kept.contains(entry.fileName()))
            continue;
        // A link is removed as a link: its target is not ours.
        if (entry.isDir() && !entry.isSymLink())
            QDir(entry.filePath()).removeRecursively();
        else
            QFile::remove(entry.filePath());
    }
}
