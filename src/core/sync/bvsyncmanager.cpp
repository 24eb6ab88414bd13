#include "sync/bvsyncmanager.h"

#include <algorithm>

#include "base/clock.h"
#include "base/logging.h"
#include "settings/bvsettings.h"
#include "sync/bvsyncservice.h"
#include "sync/bvsyncservicebackend.h"
#include "sync/dropboxsyncintervalcollection.h"

BVSyncManager::BVSyncManager(BvSettings &settings, Store &store, Clock &clock, BackendFactory backends,
    CurrentActivity currentActivity, QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_store(store)
    , m_clock(clock)
    , m_backends(std::move(backends))
    , m_currentActivity(std::move(currentActivity))
{
    m_timer.setObjectName(QStringLiteral("syncTimer"));
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::VeryCoarseTimer);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        m_nextFire.reset();
        startSync();
    });
}

BVSyncManager::~BVSyncManager() = default;

void BVSyncManager::startSync()
{
    if (m_currentSyncService || m_starting)
        return;
    const int method = m_settings.syncMethod();
    if (method == 0)
        return;
    m_starting = true;
    std::unique_ptr<BVSyncServiceBackend> backend = m_backends(method);
    m_starting = false;
    if (!backend || m_currentSyncService)
        return;
    m_lastSyncService.reset();
    m_currentSyncService
        = std::make_unique<BVSyncService>(std::move(backend), m_currentActivity ? m_currentActivity() : std::nullopt);
    BVSyncService *service = m_currentSyncService.get();
    service->setSettings(&m_settings);
    service->setMOC(m_store);
    connect(service, &BVSyncService::syncServiceFinish, this, [this] { onServiceEnded(Completed); });
    connect(service, &BVSyncService::syncServiceError, this, [this] { onServiceEnded(Failed); });
    connect(service, &BVSyncService::syncServiceCancelled, this, [this] { onServiceEnded(Cancelled); });
    connect(service, &BVSyncService::syncTimeZoneKnown, this, [this](const QByteArray &zoneId) {
        m_syncTimeZone = zoneId;
        Q_EMIT syncTimeZoneKnown(zoneId);
    });
    // The run starts on its own thread; its signals reach this thread queued, so a window that the status
    // opens on the service still sees every one of them.
    service->sync();
    Q_EMIT syncOperationChanged(Started, service->syncMethod());
}

void BVSyncManager::onServiceEnded(int status)
{
    if (!m_currentSyncService)
        return;
    const int method = m_currentSyncService->syncMethod();
    syncFinished();
    Q_EMIT syncOperationChanged(status, method);
}

void BVSyncManager::syncFinished()
{
    // The service is still delivering the signal that ended it; it goes when the next run starts.
    m_lastSyncService = std::move(m_currentSyncService);
    cancelScheduledSync();
    // Whatever the outcome, so that a failing run is not retried before a full interval.
    m_settings.setLastSyncTime(m_clock.now());
    enqueueNextSyncWithDelay(0);
}

void BVSyncManager::cancelScheduledSync()
{
    m_timer.stop();
    m_nextFire.reset();
}

std::optional<QDateTime> BVSyncManager::nextAutoSyncTime() const
{
    return m_timer.isActive() ? m_nextFire : std::nullopt;
}

double BVSyncManager::getNextSyncIntervalWithLastSyncTime(
    const QDateTime &lastSyncTime, int andSyncInterval, double afterDelay, const QDateTime &now)
{
    double delay = 0;
    const int interval = DropboxSyncIntervalCollection::intervalSeconds(andSyncInterval);
    if (lastSyncTime.isValid() && interval > 0) {
        const double elapsed = double(lastSyncTime.msecsTo(now)) / 1000.0;
        if (elapsed >= 0 && elapsed <= interval)
            delay = std::max(0.0, interval - elapsed);
    }
    if (afterDelay > 0)
        delay += afterDelay;
    return delay;
}

void BVSyncManager::enqueueNextSyncWithDelay(double seconds)
{
    if (m_settings.syncMethod() == 0)
        return;
    cancelScheduledSync();
    const int interval = m_settings.dropboxSyncInterval();
    if (interval == 0)
        return;
    const QDateTime now = m_clock.now();
    const double delay = getNextSyncIntervalWithLastSyncTime(m_settings.lastSyncTime(), interval, seconds, now);
    if (delay <= 0) {
        startSync();
        return;
    }
    const qint64 msecs = qint64(delay * 1000.0);
    m_nextFire = now.addMSecs(msecs);
    m_timer.start(std::chrono::milliseconds(msecs));
    qCDebug(lcSync).noquote() << QStringLiteral("Next automatic sync in %1 s").arg(delay);
}
