#include "app/services/syncrunner.h"

#include <QTimer>

#include "model/activity.h"
#include "model/activitymanager.h"
#include "settings/bvsettings.h"
#include "sync/bvsyncbackendfactory.h"
#include "sync/bvsyncerrors.h"
#include "sync/bvsyncservice.h"
#include "sync/bvsyncservicebackend.h"

namespace {
QString failureText(const QString &details)
{
    return QString::fromLatin1(BVSyncErrors::Title) + QLatin1Char('\n') + details;
}
} // namespace

SyncRunner::SyncRunner(Store &store, BvSettings &settings, ActivityManager &activityManager, QObject *parent)
    : QObject(parent)
    , m_store(store)
    , m_settings(settings)
    , m_activityManager(activityManager)
{ }

SyncRunner::~SyncRunner() = default;

void SyncRunner::run()
{
    if (m_running)
        return;
    m_running = true;

    auto backend = BVSyncBackendFactory::backendForSettings(m_settings.view());
    if (!backend) {
        // Answered from the event loop like a run that failed later, so every caller sees one order:
        // the request returns, then the result arrives.
        QTimer::singleShot(
            0, this, [this, details = backend.error().message()] { finish(false, failureText(details)); });
        return;
    }

    // The running activity's end moves with every touch; the files get it once it has stopped.
    const ActivityPtr running = m_activityManager.currentActivity();
    m_service = std::make_unique<BVSyncService>(
        std::move(*backend), running ? std::optional<QString>(running->uid()) : std::nullopt);
    m_service->setMOC(m_store);
    m_service->setSettings(&m_settings);
    connect(m_service.get(), &BVSyncService::syncServiceProgress, this, &SyncRunner::syncProgress);
    connect(m_service.get(), &BVSyncService::syncServiceFinish, this,
        [this](const QString &message) { finish(true, message); });
    connect(m_service.get(), &BVSyncService::syncServiceError, this,
        [this](const QString &details) { finish(false, failureText(details)); });
    connect(m_service.get(), &BVSyncService::syncServiceCancelled, this,
        [this] { finish(false, failureText(QStringLiteral("Operation cancelled."))); });
    m_service->sync();
}

void SyncRunner::finish(bool succeeded, const QString &message)
{
    // The service is in the middle of emitting: it goes once control is back in the event loop.
    if (m_service)
        m_service.release()->deleteLater();
    m_running = false;
    Q_EMIT syncFinished(succeeded, message);
}
