#include "app/services/brimvaledbusservice.h"

#include <QDBusConnectionInterface>
#include <QDateTime>
#include <QLoggingCategory>

#include "app/trackingcontroller.h"
#include "model/activity.h"
#include "model/activitymanager.h"
#include "platform/brimvaledbus.h"
#include "sync/bvsyncbackendfactory.h"
#include "sync/bvsyncerrors.h"
#include "sync/bvsyncmanager.h"
#include "sync/bvsyncservice.h"

namespace {
Q_LOGGING_CATEGORY(lcDBus, "brimvale.dbus")

qint64 secondsSinceEpoch(const QDateTime &instant)
{
    return instant.isValid() ? instant.toSecsSinceEpoch() : 0;
}

QString failureText(const QString &details)
{
    return QString::fromLatin1(BVSyncErrors::Title) + QLatin1Char('\n') + details;
}
} // namespace

BrimvaleDBusService::BrimvaleDBusService(TrackingController &tracking, BVSyncManager &sync, QObject *parent)
    : QObject(parent)
    , m_tracking(tracking)
    , m_sync(sync)
{
    connect(&m_tracking, &TrackingController::trackingChanged, this,
        [this](bool isTracking, const QString &text, const QDateTime &startedAt) {
            Q_EMIT TrackingChanged(
                isTracking, isTracking ? text : QString(), isTracking ? secondsSinceEpoch(startedAt) : 0);
        });
}

BrimvaleDBusService::~BrimvaleDBusService()
{
    // A caller still waiting for a sync gets an answer rather than its timeout.
    for (const PendingSync &pending : std::as_const(m_pendingSyncs)) {
        QDBusConnection connection = pending.connection;
        connection.send(pending.call.createErrorReply(QDBusError::NoServer, QStringLiteral("Brimvale quit.")));
    }
    // The name goes with the interface: a new app can start while this one finishes saving.
    if (m_registered) {
        QDBusConnection bus = QDBusConnection::sessionBus();
        bus.unregisterObject(QString::fromLatin1(BrimvaleDBus::ObjectPath));
        bus.unregisterService(QString::fromLatin1(BrimvaleDBus::ServiceName));
    }
}

bool BrimvaleDBusService::registerOnSessionBus()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()) {
        qCWarning(lcDBus) << "No session bus:" << bus.lastError().message();
        return false;
    }
    const QString path = QString::fromLatin1(BrimvaleDBus::ObjectPath);
    if (!bus.registerObject(
            path, this, QDBusConnection::ExportScriptableSlots | QDBusConnection::ExportScriptableSignals)) {
        qCWarning(lcDBus) << "Could not publish" << path << bus.lastError().message();
        return false;
    }
    // The object first, the name second: whoever sees the name finds the object behind it.
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply
        = bus.interface()->registerService(QString::fromLatin1(BrimvaleDBus::ServiceName),
            QDBusConnectionInterface::DontQueueService, QDBusConnectionInterface::DontAllowReplacement);
    if (!reply.isValid() || reply.value() != QDBusConnectionInterface::ServiceRegistered) {
        qCWarning(lcDBus) << "Another process owns" << BrimvaleDBus::ServiceName;
        bus.unregisterObject(path);
        return false;
    }
    m_registered = true;
    return true;
}

QString BrimvaleDBusService::StartTrack(const QString &text)
{
    const QString typed = m_tracking.activityText();
    m_tracking.setActivityText(text);
    if (m_tracking.doStartTrackAndShowWindow(false))
        return QLatin1String("");
    // A refused command leaves the line as the user left it.
    const QString message = m_tracking.messageText();
    m_tracking.setActivityText(typed);
    return message;
}

QString BrimvaleDBusService::UpdateTrack(const QString &text)
{
    const QString typed = m_tracking.activityText();
    m_tracking.setActivityText(text);
    if (m_tracking.doUpdateTrack(false))
        return QLatin1String("");
    // A refused command leaves the line as the user left it.
    const QString message = m_tracking.messageText();
    m_tracking.setActivityText(typed);
    return message;
}

void BrimvaleDBusService::StopTrack()
{
    m_tracking.stopTrack();
}

bool BrimvaleDBusService::Status(QString &text, qint64 &startSecs)
{
    const ActivityPtr current = m_tracking.activityManager().currentActivity();
    text = current ? current->text() : QLatin1String("");
    startSecs = current ? secondsSinceEpoch(current->timeFrom()) : 0;
    return current != nullptr;
}

void BrimvaleDBusService::ShowMainWindow()
{
    Q_EMIT showMainWindowRequested();
}

void BrimvaleDBusService::ShowReport()
{
    Q_EMIT showReportRequested();
}

void BrimvaleDBusService::OpenUrl(const QString &url)
{
    Q_EMIT openUrlRequested(url);
}

QString BrimvaleDBusService::Sync()
{
    m_sync.startSync();
    BVSyncService *service = m_sync.currentSyncService();
    if (!service)
        return failureText(BVSyncBackendFactory::syncTurnedOffMessage());
    watch(service);
    // Answered when the run ends; a call made while one runs waits for that run's result.
    if (calledFromDBus()) {
        setDelayedReply(true);
        m_pendingSyncs.append({ connection(), message() });
    }
    return {};
}

void BrimvaleDBusService::watch(BVSyncService *service)
{
    if (m_watched == service)
        return;
    m_watched = service;
    connect(service, &BVSyncService::syncServiceFinish, this, &BrimvaleDBusService::onSyncFinished);
    connect(service, &BVSyncService::syncServiceError, this,
        [this](const QString &details) { onSyncFinished(failureText(details)); });
    connect(service, &BVSyncService::syncServiceCancelled, this,
        [this] { onSyncFinished(failureText(QStringLiteral("Operation cancelled."))); });
}

void BrimvaleDBusService::onSyncFinished(const QString &message)
{
    const QList<PendingSync> pending = std::exchange(m_pendingSyncs, {});
    for (const PendingSync &caller : pending) {
        QDBusConnection connection = caller.connection;
        connection.send(caller.call.createReply(message));
    }
}
