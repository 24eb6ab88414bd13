#include "sync/bvsyncservice.h"

#include <algorithm>

#include <QFile>
#include <QLockFile>
#include <QMutexLocker>
#include <QSet>

#include "base/clock.h"
#include "base/logging.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "settings/bvsettings.h"
#include "sync/bvdeletedfile.h"
#include "sync/bvmonthfile.h"
#include "sync/bvsynccache.h"
#include "sync/bvsyncerrors.h"
#include "sync/bvsyncfilename.h"
#include "sync/bvsyncservicebackend.h"
#include "sync/bvsynctimezonefile.h"

namespace {

const QString kErrorTitle = QString::fromLatin1(BVSyncErrors::Title);

QString yesNo(bool value)
{
    return value ? QStringLiteral("yes") : QStringLiteral("no");
}

} // namespace

BVSyncService::BVSyncService(
    std::unique_ptr<BVSyncServiceBackend> backend, const std::optional<QString> &currentActivityID, QObject *parent)
    : QObject(parent)
    , m_backend(std::move(backend))
    , m_currentActivityID(currentActivityID)
{
    m_activityLog.reserve(50);
    m_thread.setObjectName(QStringLiteral("com.brimvaleapp.SyncQueue"));
    m_runner = new QObject;
    m_runner->moveToThread(&m_thread);
    m_cache = new BVSyncCache(*m_backend);
    m_cacheFolder = m_cache->cacheFolder();
    m_cache->moveToThread(&m_thread);
    m_cache->setLog([this](const QString &line) { appendToLog(line); });
    m_cache->setProgress([this](const QString &message) { delegateNotifyProgress(message); });

    // The backend calls these on any thread; a failure is acted on in the run's order of events.
    m_backend->setErrorHandler(
        [this](const QString &details) { post([this, details]() { delegateNotifyError(details); }); });
    m_backend->setProgressHandler([this](const QString &message) { delegateNotifyProgress(message); });
    m_backend->setActivityLogHandler([this](const QString &line) { logMessage(line); });
}

BVSyncService::~BVSyncService()
{
    if (m_thread.isRunning()) {
        // The thread's event loop runs until here, so this call cannot wait on a loop that has stopped.
        // The context belongs to the run's thread's connection: it must go there.
        QMetaObject::invokeMethod(
            m_runner,
            [this]() {
                if (!m_ended)
                    endRun();
            },
            Qt::BlockingQueuedConnection);
        m_thread.quit();
        m_thread.wait();
    }
    // Completions that the backend still holds must find nothing to run on.
    m_backend.reset();
    delete m_cache;
    delete m_runner;
}

void BVSyncService::setMOC(Store &store)
{
    m_store = &store;
}

int BVSyncService::syncMethod() const
{
    return m_backend->syncMethod();
}

QString BVSyncService::cacheFolder() const
{
    return m_cacheFolder;
}

QString BVSyncService::activityLog() const
{
    QMutexLocker locker(&m_mutex);
    return m_activityLog.join(QLatin1Char('\n'));
}

QString BVSyncService::currentProgressMessage() const
{
    QMutexLocker locker(&m_mutex);
    return m_currentProgressMessage;
}

void BVSyncService::sync()
{
    int expected = NotStarted;
    if (!m_syncStatus.compare_exchange_strong(expected, Running))
        return;
    m_thread.start();
    post([this]() { startRun(); });
}

void BVSyncService::cancel()
{
    logMessage(QStringLiteral("Cancelling sync operation..."));
    int expected = Running;
    if (m_syncStatus.compare_exchange_strong(expected, Cancelled))
        return;
    if (QThread::currentThread() == thread()) {
        Q_EMIT syncServiceCancelled();
    } else {
        QMetaObject::invokeMethod(
            this, [this]() { Q_EMIT syncServiceCancelled(); }, Qt::BlockingQueuedConnection);
    }
}

void BVSyncService::post(std::function<void()> step)
{
    // A completion that arrives after the run ended (a late backend, a service being destroyed) must not
    // touch a context that is gone.
    QMetaObject::invokeMethod(
        m_runner,
        [this, step = std::move(step)]() {
            if (!m_ended)
                step();
        },
        Qt::QueuedConnection);
}

void BVSyncService::logMessage(const QString &line)
{
    qCInfo(lcSync).noquote() << line;
    appendToLog(line);
}

void BVSyncService::appendToLog(const QString &line)
{
    QMutexLocker locker(&m_mutex);
    m_activityLog.append(line);
}

void BVSyncService::delegateNotifyProgress(const QString &message)
{
    logMessage(message);
    {
        QMutexLocker locker(&m_mutex);
        m_currentProgressMessage = message;
    }
    QMetaObject::invokeMethod(
        this, [this, message]() { Q_EMIT syncServiceProgress(message); }, Qt::QueuedConnection);
}

void BVSyncService::delegateNotifyError(const QString &details)
{
    // A backend may report after the run has already stopped for another reason; one report per run.
    if (m_ended)
        return;
    qCCritical(lcSync).noquote() << kErrorTitle << details;
    logMessage(details);
    m_syncStatus.store(Failed);
    endRun();
    QMetaObject::invokeMethod(
        this, [this, details]() { Q_EMIT syncServiceError(details); }, Qt::QueuedConnection);
}

void BVSyncService::endRun()
{
    m_ended = true;
    // Whatever was not saved belongs to the step that failed; it must not reach the store later.
    if (m_context)
        m_context->reset();
    m_context.reset();
    m_filesToMerge.clear();
    m_cachedFiles.clear();
    m_lock.reset();
}

bool BVSyncService::returnAndCancel()
{
    if (m_syncStatus.load() != Cancelled)
        return false;
    logMessage(QStringLiteral("Sync. operation cancelled"));
    m_syncStatus.store(Cancelled);
    endRun();
    QMetaObject::invokeMethod(
        this, [this]() { Q_EMIT syncServiceCancelled(); }, Qt::QueuedConnection);
    return true;
}

bool BVSyncService::saveMOC()
{
    if (std::expected<void, BvError> saved = m_context->save(); !saved) {
        delegateNotifyError(BVSyncErrors::localStorage(saved.error()).description());
        return false;
    }
    return true;
}

// Step 1.
void BVSyncService::startRun()
{
    if (!m_store) {
        delegateNotifyError(QStringLiteral("Local storage error: %1").arg(QStringLiteral("no store to synchronise")));
        return;
    }
    // One run at a time per store, also across processes (the app's timer and the command line): two runs
    // would upload against each other's revisions and race on the cache rows. A lock left by a process
    // that died is taken over; a long run is never mistaken for a dead one.
    m_lock = std::make_unique<QLockFile>(m_store->storePath() + QStringLiteral(".sync-lock"));
    m_lock->setStaleLockTime(0);
    if (!m_lock->tryLock(0)) {
        m_lock.reset();
        delegateNotifyError(
            QStringLiteral("Another sync operation is running. Please retry sync when it has finished"));
        return;
    }
    m_context = m_store->newContext();
    if (std::expected<void, BvError> prepared = m_cache->prepareLocalCache(); !prepared) {
        delegateNotifyError(prepared.error().description());
        return;
    }
    m_backend->initializeBackend([this]() { post([this]() { agreeTimeZone(); }); });
}

// Between steps 1 and 2: every machine of the journal reads and writes the files in one zone, the one
// the first machine recorded, whatever zone this machine is in today.
void BVSyncService::agreeTimeZone()
{
    m_backend->agreeTimeZone(BVSyncTimeZoneFile::proposedZoneId(), [this](const QByteArray &zoneId) {
        post([this, zoneId]() {
            const QTimeZone zone(zoneId);
            if (!zone.isValid()) {
                delegateNotifyError(QStringLiteral("The sync folder's time zone \"%1\" is not known on this machine")
                                        .arg(QString::fromUtf8(zoneId)));
                return;
            }
            {
                QMutexLocker locker(&m_mutex);
                m_timeZone = zone;
            }
            logMessage(QStringLiteral("Sync time zone: %1").arg(QString::fromUtf8(zoneId)));
            QMetaObject::invokeMethod(
                this, [this, zoneId]() { Q_EMIT syncTimeZoneKnown(zoneId); }, Qt::QueuedConnection);
            fetchChanges();
        });
    });
}

QTimeZone BVSyncService::syncTimeZone() const
{
    QMutexLocker locker(&m_mutex);
    return m_timeZone;
}

// Step 2.
void BVSyncService::fetchChanges()
{
    if (std::expected<void, BvError> ensured = m_cache->ensureCacheFiles(*m_context); !ensured) {
        delegateNotifyError(ensured.error().description());
        return;
    }
    std::expected<QList<BVTmpSyncFile>, BvError> cached = m_cache->getAllSyncFiles(*m_context);
    if (!cached) {
        delegateNotifyError(cached.error().description());
        return;
    }
    if (cached->isEmpty()) {
        logMessage(QStringLiteral("No cached files, clear savepoint for sync backend"));
        m_backend->deleteSavepoint();
    }
    m_backend->fetchChangesWithLocalCache(*cached, [this](const QList<BVTmpSyncFile> &changes, bool didFullFetch) {
        post([this, changes, didFullFetch]() { onChangesFetched(changes, didFullFetch); });
    });
}

void BVSyncService::onChangesFetched(const QList<BVTmpSyncFile> &changes, bool didFullFetch)
{
    logMessage(QStringLiteral("Fetched: %1 items; Did full fetch: %2").arg(changes.size()).arg(yesNo(didFullFetch)));
    std::expected<std::optional<BVTmpSyncFile>, BvError> deletedFile = processRemoteChanges(changes, didFullFetch);
    if (!deletedFile) {
        delegateNotifyError(deletedFile.error().description());
        return;
    }
    fetchDeletedActivities(*deletedFile);
}

// Step 3.
std::expected<std::optional<BVTmpSyncFile>, BvError> BVSyncService::processRemoteChanges(
    const QList<BVTmpSyncFile> &changes, bool didFullFetch)
{
    QList<BVTmpSyncFile> files;
    for (const BVTmpSyncFile &file : changes) {
        if (!file.wasDeleted()) {
            files.append(file);
            continue;
        }
        if (std::expected<void, BvError> removed = file.remove(*m_context); !removed)
            return std::unexpected(BVSyncErrors::localStorage(removed.error()));
    }
    if (std::expected<void, BvError> saved = m_context->save(); !saved)
        return std::unexpected(BVSyncErrors::localStorage(saved.error()));

    std::optional<BVTmpSyncFile> deletedFile;
    const auto deletedIt
        = std::find_if(files.begin(), files.end(), [](const BVTmpSyncFile &file) { return file.isDeletedIndexFile(); });
    if (deletedIt != files.end()) {
        deletedFile = *deletedIt;
        files.erase(deletedIt);
    }

    std::stable_sort(files.begin(), files.end(), [](const BVTmpSyncFile &a, const BVTmpSyncFile &b) {
        return a.year() != b.year() ? a.year() < b.year() : a.month() < b.month();
    });
    m_filesToMerge = files;

    if (didFullFetch) {
        QSet<QString> listed;
        for (const BVTmpSyncFile &file : std::as_const(files))
            listed.insert(file.name());
        if (deletedFile)
            listed.insert(deletedFile->name());
        std::expected<QList<SyncFilePtr>, BvError> rows = m_context->fetchSyncFiles();
        if (!rows)
            return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("3"), rows.error()));
        for (const SyncFilePtr &row : std::as_const(*rows)) {
            if (listed.contains(row->name()))
                continue;
            // Gone from the remote folder: its copy no longer tells what the remote side holds.
            QFile::remove(m_cacheFolder + QLatin1Char('/') + BVSyncFileName::fileName(row->name()));
            m_context->deleteObject(row);
        }
        if (std::expected<void, BvError> saved = m_context->save(); !saved)
            return std::unexpected(BVSyncErrors::localStorage(saved.error()));
    }
    return deletedFile;
}

// Step 4.
void BVSyncService::fetchDeletedActivities(std::optional<BVTmpSyncFile> remoteFile)
{
    if (returnAndCancel())
        return;
    bool shouldFetch = false;
    if (remoteFile) {
        std::expected<bool, BvError> decided = shouldFetchDeletedActivities(*remoteFile);
        if (!decided) {
            delegateNotifyError(decided.error().description());
            return;
        }
        shouldFetch = *decided;
    }
    delegateNotifyProgress(QStringLiteral("Processing deleted activities..."));
    if (!shouldFetch) {
        mergeNextFile();
        return;
    }
    const BVTmpSyncFile file = *remoteFile;
    const QString path = m_cache->filePath(file);
    m_backend->downloadFileWithName(file.fileName(), file.revisionValue(), path, [this, file, path](bool success) {
        post([this, file, path, success]() {
            if (success) {
                BVTmpSyncFile merged = file;
                std::expected<void, BvError> result = BVDeletedFile::merge(
                    *m_context, path, merged, m_timeZone, [this](const QString &line) { appendToLog(line); });
                if (!result) {
                    delegateNotifyError(result.error().description());
                    return;
                }
            }
            mergeNextFile();
        });
    });
}

std::expected<bool, BvError> BVSyncService::shouldFetchDeletedActivities(BVTmpSyncFile &remoteFile)
{
    std::expected<QList<SyncFilePtr>, BvError> rows = m_context->fetchSyncFiles(remoteFile.name());
    if (!rows)
        return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("4"), rows.error()));
    bool cachedRevision = false;
    for (const SyncFilePtr &row : std::as_const(*rows)) {
        const std::optional<BVTmpSyncFile> cached = BVTmpSyncFile::fromSyncFile(row, m_backend->syncMethod());
        if (cached && cached->revisionValue() && cached->revisionValue() == remoteFile.revisionValue()) {
            if (!remoteFile.activityHash())
                remoteFile.setActivityHash(cached->activityHash());
            cachedRevision = true;
            break;
        }
    }
    if (!cachedRevision)
        return true;
    // Deletions made here since the last upload are applied by reading the remote file once more.
    std::expected<QList<DeletedActivityPtr>, BvError> unsynced = m_context->fetchDeletedActivities(std::nullopt, false);
    if (!unsynced)
        return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("4.1"), unsynced.error()));
    return !unsynced->isEmpty();
}

// Step 5.
void BVSyncService::mergeNextFile()
{
    if (m_filesToMerge.isEmpty()) {
        uploadChanges();
        return;
    }
    if (returnAndCancel())
        return;
    const BVTmpSyncFile file = m_filesToMerge.takeFirst();
    delegateNotifyProgress(QStringLiteral("Merging data from %1.json").arg(file.name()));

    std::expected<QList<SyncFilePtr>, BvError> rows = m_context->fetchSyncFiles(file.name());
    if (!rows) {
        delegateNotifyError(BVSyncErrors::localStorage(QStringLiteral("24"), rows.error()).description());
        return;
    }
    // Rows written before revisions named their backend hold the bare value; both mean the same file.
    const bool alreadyHave
        = file.revisionValue() && std::any_of(rows->cbegin(), rows->cend(), [&file](const SyncFilePtr &row) {
              const QString revision = row->revision();
              return !revision.isNull() && (revision == file.revision() || revision == file.revisionValue());
          });
    if (alreadyHave) {
        logMessage(QStringLiteral("Nothing to update, skipping file %1").arg(file.name()));
        post([this]() { mergeNextFile(); });
        return;
    }

    const QString path = m_cache->filePath(file);
    m_backend->downloadFileWithName(file.fileName(), file.revisionValue(), path, [this, file, path](bool success) {
        post([this, file, path, success]() {
            const QString failed = QStringLiteral("Failed to merge data from file: %1").arg(file.name());
            if (!success) {
                delegateNotifyError(failed);
                return;
            }
            BVTmpSyncFile merged = file;
            std::expected<void, BvError> result = BVMonthFile::merge(
                *m_context, path, merged, m_timeZone, [this](const QString &line) { appendToLog(line); });
            if (!result) {
                logMessage(failed);
                delegateNotifyError(result.error().description());
                return;
            }
            mergeNextFile();
        });
    });
}

// Step 6.
void BVSyncService::uploadChanges()
{
    // The cursor is kept only now that every remote change is merged, so an interrupted run lists again.
    m_backend->saveSavepoint();
    std::expected<QList<BVTmpSyncFile>, BvError> cached = m_cache->getAllSyncFiles(*m_context);
    if (!cached) {
        delegateNotifyError(cached.error().description());
        return;
    }
    m_cachedFiles = *cached;
    if (returnAndCancel())
        return;

    std::expected<BVTmpSyncFile, BvError> deletedFile = m_cache->getDeletedSyncFile(*m_context);
    if (!deletedFile) {
        delegateNotifyError(deletedFile.error().description());
        return;
    }
    const QString path = m_cache->filePath(*deletedFile);
    std::expected<std::optional<QString>, BvError> written = BVDeletedFile::write(
        *m_context, *deletedFile, path, m_timeZone, [this](const QString &line) { appendToLog(line); });
    if (!written) {
        delegateNotifyError(written.error().description());
        return;
    }
    if (!*written) {
        uploadActivities();
        return;
    }
    const QString hash = **written;
    const std::optional<BVTmpSyncFile> expected
        = deletedFile->revisionValue() ? std::optional<BVTmpSyncFile>(*deletedFile) : std::nullopt;
    m_backend->uploadFile(path, expected, [this, hash](const QString &revisionValue) {
        post([this, hash, revisionValue]() { onDeletedFileUploaded(revisionValue, hash); });
    });
}

void BVSyncService::onDeletedFileUploaded(const QString &revisionValue, const QString &hash)
{
    std::expected<QList<DeletedActivityPtr>, BvError> unsynced = m_context->fetchDeletedActivities(std::nullopt, false);
    if (!unsynced) {
        delegateNotifyError(BVSyncErrors::localStorage(QStringLiteral("15"), unsynced.error()).description());
        return;
    }
    for (const DeletedActivityPtr &record : std::as_const(*unsynced))
        record->setIsSynced(true);
    if (std::expected<void, BvError> saved = m_context->save(); !saved) {
        delegateNotifyError(BVSyncErrors::localStorage(QStringLiteral("16"), saved.error()).description());
        return;
    }
    BVTmpSyncFile file = BVTmpSyncFile::initAsDeletedIndexFileWithSyncMethod(m_backend->syncMethod(), revisionValue);
    file.setActivityHash(hash);
    std::expected<void, BvError> stored = file.store(*m_context);
    if (stored)
        stored = m_context->save();
    if (!stored) {
        delegateNotifyError(BVSyncErrors::localStorage(QStringLiteral("17"), stored.error()).description());
        return;
    }
    uploadActivities();
}

// Step 7.
void BVSyncService::uploadActivities()
{
    m_monthsToExport = BVMonthYearRange(m_timeZone);
    for (const BVTmpSyncFile &file : std::as_const(m_cachedFiles))
        m_monthsToExport.addYear(file.year(), file.month());
    // One query for the months, instead of materialising every activity of the journal, which a run with
    // nothing to do cannot afford.
    std::expected<QList<int>, BvError> months = m_context->distinctYearMonths();
    if (!months) {
        delegateNotifyError(BVSyncErrors::localStorage(QStringLiteral("18"), months.error()).description());
        return;
    }
    // The stored month is the local one of the zone the machine was in when the activity was saved; the
    // files are filed in the sync zone. No two zones are a month apart, so an activity lies in its stored
    // month's file or a neighbour's: a neighbour is exported too when activities start in it.
    QSet<int> stored;
    for (int yearMonth : std::as_const(*months)) {
        if (yearMonth <= 0)
            continue;
        stored.insert(yearMonth);
        m_monthsToExport.addYear(uint(yearMonth / 100), uint(yearMonth % 100));
    }
    for (const int yearMonth : std::as_const(stored)) {
        const QDate first(yearMonth / 100, yearMonth % 100, 1);
        for (const QDate &neighbour : { first.addMonths(-1), first.addMonths(1) }) {
            if (!neighbour.isValid() || neighbour.year() < 1
                || stored.contains(neighbour.year() * 100 + neighbour.month()))
                continue;
            const BVMonthDateRange month(uint(neighbour.year()), uint(neighbour.month()), m_timeZone);
            const std::expected<qint64, BvError> count = BVMonthFile::countForMonth(*m_context, month);
            if (!count) {
                delegateNotifyError(BVSyncErrors::localStorage(QStringLiteral("18"), count.error()).description());
                return;
            }
            if (*count > 0)
                m_monthsToExport.addYear(month.year(), month.month());
        }
    }
    if (!m_monthsToExport.hasItems()) {
        delegateNotifySuccess();
        return;
    }
    exportNextFile();
}

// Step 8.
void BVSyncService::exportNextFile()
{
    if (returnAndCancel())
        return;
    const std::optional<BVMonthDateRange> month = m_monthsToExport.nextMonth();
    if (!month) {
        cleanup();
        return;
    }
    delegateNotifyProgress(QStringLiteral("Exporting activities for: %1").arg(month->name()));
    const QString excludedUid = m_currentActivityID.value_or(QString());
    // Most months of a run have not changed: their number and hash come from the rows alone, and the
    // activities are built only for a month that is written.
    const std::expected<BVMonthFile::Summary, BvError> summary
        = BVMonthFile::summaryForMonth(*m_context, *month, excludedUid);
    if (!summary) {
        delegateNotifyError(BVSyncErrors::localStorage(QStringLiteral("20"), summary.error()).description());
        return;
    }
    logMessage(QStringLiteral("Number of activities for: %1 %2").arg(month->name()).arg(summary->count));

    if (summary->count == 0) {
        const auto cachedIt
            = std::find_if(m_cachedFiles.begin(), m_cachedFiles.end(), [&month](const BVTmpSyncFile &file) {
                  return file.year() == month->year() && file.month() == month->month();
              });
        if (cachedIt == m_cachedFiles.end()) {
            post([this]() { exportNextFile(); });
            return;
        }
        const BVTmpSyncFile file = *cachedIt;
        m_cachedFiles.erase(cachedIt);
        m_backend->deleteFile(file, [this, file]() { post([this, file]() { removeEmptyMonth(file); }); });
        return;
    }

    const QString hash = summary->hash;
    std::expected<QList<SyncFilePtr>, BvError> rows = m_context->fetchSyncFiles(month->name());
    if (!rows) {
        delegateNotifyError(BVSyncErrors::localStorage(QStringLiteral("21"), rows.error()).description());
        return;
    }
    if (std::any_of(
            rows->cbegin(), rows->cend(), [&hash](const SyncFilePtr &row) { return row->activityHash() == hash; })) {
        logMessage(QStringLiteral("Nothing changed for %1. Skipping.").arg(month->name()));
        post([this]() { exportNextFile(); });
        return;
    }

    logMessage(QStringLiteral("Exporting activities for %1").arg(month->name()));
    const std::expected<QList<ActivityPtr>, BvError> activities
        = BVMonthFile::activitiesForMonth(*m_context, *month, excludedUid);
    if (!activities) {
        delegateNotifyError(BVSyncErrors::localStorage(QStringLiteral("20"), activities.error()).description());
        return;
    }
    // The hash of what the file holds: another process may have saved to this month since the check.
    BVTmpSyncFile file(month->year(), month->month(), m_backend->syncMethod(), std::nullopt);
    file.setActivityHash(BVMonthFile::hashForActivities(*activities, m_timeZone));
    const QString path = m_cache->filePath(file);
    if (std::expected<void, BvError> written = BVMonthFile::write(*activities, path, m_timeZone); !written) {
        delegateNotifyError(written.error().description());
        return;
    }
    // The row may have changed since the check above only through this run, but read it again: the
    // expected revision must be the one this machine last saw, or the backend could overwrite a newer file.
    rows = m_context->fetchSyncFiles(month->name());
    if (!rows) {
        delegateNotifyError(BVSyncErrors::localStorage(QStringLiteral("22"), rows.error()).description());
        return;
    }
    std::optional<BVTmpSyncFile> expected;
    if (!rows->isEmpty()) {
        expected = BVTmpSyncFile::fromSyncFile(rows->constFirst(), m_backend->syncMethod());
        if (expected && !expected->revisionValue())
            expected.reset();
    }
    m_backend->uploadFile(path, expected, [this, file](const QString &revisionValue) {
        post([this, file, revisionValue]() { onMonthUploaded(file, revisionValue); });
    });
}

void BVSyncService::onMonthUploaded(const BVTmpSyncFile &file, const QString &revisionValue)
{
    BVTmpSyncFile uploaded(file.year(), file.month(), m_backend->syncMethod(), revisionValue);
    uploaded.setActivityHash(file.activityHash());
    std::expected<void, BvError> stored = uploaded.store(*m_context);
    if (stored)
        stored = m_context->save();
    if (!stored) {
        delegateNotifyError(BVSyncErrors::localStorage(QStringLiteral("23"), stored.error()).description());
        return;
    }
    exportNextFile();
}

void BVSyncService::removeEmptyMonth(const BVTmpSyncFile &file)
{
    if (!file.remove(*m_context)) {
        delegateNotifyError(QStringLiteral("Failed to cleanup cache file in local storage!"));
        return;
    }
    if (!saveMOC())
        return;
    exportNextFile();
}

// Step 9.
void BVSyncService::cleanup()
{
    m_cache->cleanupFiles(*m_context, m_timeZone, [this](const std::expected<void, BvError> &result) {
        if (!result) {
            delegateNotifyError(result.error().description());
            return;
        }
        delegateNotifySuccess();
    });
}

// Step 10.
void BVSyncService::delegateNotifySuccess()
{
    m_cache->cleanupCachesDir(*m_context);
    logMessage(QStringLiteral("Sync completed!"));
    const QDateTime finishedAt = (m_store->clock() ? m_store->clock() : Clock::system())->now();
    m_syncStatus.store(Succeeded);
    endRun();
    QMetaObject::invokeMethod(
        this,
        [this, finishedAt]() {
            // Settings belong to the main thread.
            if (m_settings && m_backend->syncMethod() == BVTmpSyncFile::DropboxSyncMethod)
                m_settings->setDropboxSyncDate(finishedAt);
            Q_EMIT syncServiceFinish(QStringLiteral("Sync operation completed!"));
        },
        Qt::QueuedConnection);
}
