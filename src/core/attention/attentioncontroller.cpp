#include "attention/attentioncontroller.h"

#include "attention/bvusernotificationservice.h"
#include "base/clock.h"
#include "base/logging.h"
#include "model/activity.h"
#include "model/activitymanager.h"
#include "settings/bvsettings.h"
#include "settings/computereventsettings.h"
#include "settings/notificationsettings.h"

AttentionController::AttentionController(ActivityManager &activityManager, BvSettings &settings, Clock &clock,
    IdleSource &idleSource, BvUserNotificationService &notifications, QObject *parent)
    : QObject(parent)
    , m_activityManager(activityManager)
    , m_settings(settings)
    , m_clock(clock)
    , m_notifications(notifications)
    , m_idleTimer(idleSource, clock)
{
    connect(&m_idleTimer, &IdleTimer::idleTimerDidBecomeIdle, this, &AttentionController::onIdleTimerDidBecomeIdle);
    connect(&m_settings, &BvSettings::BvIdleDetectionChanged, this, &AttentionController::bvIdleDetectionChanged);
    connect(m_settings.reminderNotification(), &NotificationSettings::intervalChanged, this,
        [this] { onReminderIntervalChanged(true); });
    connect(m_settings.notTrackingNotification(), &NotificationSettings::intervalChanged, this,
        [this] { onReminderIntervalChanged(false); });
    connect(&m_notifications, &BvUserNotificationService::idlePromptNotificationAnswered, this,
        &AttentionController::idlePromptDidEnd);
    connect(&m_notifications, &BvUserNotificationService::userNotificationClicked, this,
        &AttentionController::mainWindowRequested);
    m_reminderTimer.setTimerType(Qt::CoarseTimer);
    connect(&m_reminderTimer, &QTimer::timeout, this, &AttentionController::performReminder);
}

AttentionController::~AttentionController() = default;

void AttentionController::enableDisableIdleTimer()
{
    // While the question is open the watch stays off: a start or stop meanwhile must not ask twice.
    if (m_activityManager.isTracking() && m_settings.idleTimeoutDetection() && !m_hasIdlePrompt)
        m_idleTimer.startWithIdleTime(unsigned(m_settings.idleTimeoutInterval()));
    else
        m_idleTimer.stop();
}

void AttentionController::bvIdleDetectionChanged()
{
    enableDisableIdleTimer();
}

std::optional<QDateTime> AttentionController::idlePromptIdleFromDate() const
{
    return m_hasIdlePrompt ? m_promptIdleFromDate : std::nullopt;
}

void AttentionController::setHasIdlePrompt(bool hasIdlePrompt)
{
    if (m_hasIdlePrompt == hasIdlePrompt)
        return;
    m_hasIdlePrompt = hasIdlePrompt;
    Q_EMIT hasIdlePromptChanged(hasIdlePrompt);
}

void AttentionController::onIdleTimerDidBecomeIdle()
{
    const std::optional<QDateTime> idleFrom = m_idleTimer.idleFromDate();
    if (!idleFrom)
        return;
    m_promptIdleFromDate = idleFrom;
    m_promptActivity = m_activityManager.currentActivity();
    setHasIdlePrompt(true);
    Q_EMIT idlePromptRequested(*idleFrom);
    // For a session whose windows cannot take focus, the same question with its answers as buttons, when
    // the user wants system notifications at all.
    if (m_settings.appNotificationType() == BvUserNotificationService::SystemNotifications)
        m_notifications.showIdlePromptNotification(*idleFrom, m_clock.now());
}

void AttentionController::idlePromptDidEnd(int response)
{
    if (!m_hasIdlePrompt)
        return;
    const ActivityPtr asked = m_promptActivity.lock();
    if ((response == 1 || response == 2) && asked && asked == m_activityManager.currentActivity())
        m_activityManager.stopCurrentActivityAt(*m_promptIdleFromDate, response == 2);
    m_notifications.withdrawIdlePromptNotification();
    m_promptActivity.reset();
    m_promptIdleFromDate.reset();
    setHasIdlePrompt(false);
    Q_EMIT idlePromptEnded(response);
    enableDisableIdleTimer();
}

void AttentionController::setReminderTimer()
{
    m_repeatingBounceRequested = false;
    stopReminderTimer();
    const NotificationSettings *setting
        = m_activityManager.isTracking() ? m_settings.reminderNotification() : m_settings.notTrackingNotification();
    if (setting->enabled()) {
        m_reminderTimer.start(setting->interval() * 60 * 1000);
        qCDebug(lcAttention) << "Attention timer every" << setting->interval() << "min while"
                             << (m_activityManager.isTracking() ? "tracking" : "not tracking");
    }
}

void AttentionController::stopReminderTimer()
{
    m_reminderTimer.stop();
}

std::optional<int> AttentionController::reminderInterval() const
{
    if (!m_reminderTimer.isActive())
        return std::nullopt;
    return m_reminderTimer.interval();
}

void AttentionController::onReminderIntervalChanged(bool ofTrackingState)
{
    // Only the interval of the state the app is in re-arms; the other takes effect at the next change of
    // state. The flags are read at every tick, so they need no re-arm.
    if (ofTrackingState == m_activityManager.isTracking())
        setReminderTimer();
}

void AttentionController::performReminder()
{
    if (m_trackingWindowIsMain && m_trackingWindowIsMain()) {
        qCDebug(lcAttention) << "Reminder skipped: the main window is in front";
        return;
    }
    const bool tracking = m_activityManager.isTracking();
    const NotificationSettings *setting
        = tracking ? m_settings.reminderNotification() : m_settings.notTrackingNotification();
    if (setting->displayNotification()) {
        const int type = m_settings.appNotificationType();
        qCDebug(lcAttention) << "Reminder: notification of type" << type;
        if (tracking)
            m_notifications.showActivityReminderNotification(type, m_activityManager.currentActivity()->text());
        else
            m_notifications.showNotTrackingNotification(type);
    }
    if (setting->bounceDock()) {
        if (setting->bounceDockRepeat()) {
            m_repeatingBounceRequested = true;
            m_attentionRequestPending = true;
            Q_EMIT userAttentionRequested(true);
        } else {
            m_attentionRequestPending = false;
            Q_EMIT userAttentionRequested(false);
        }
    }
}

void AttentionController::stopDockBouncing()
{
    if (!m_attentionRequestPending)
        return;
    m_attentionRequestPending = false;
    Q_EMIT userAttentionCancelled();
}

void AttentionController::computerEventDidStart(int computerEvent)
{
    const ComputerEventSettings *settings = m_settings.computerEventSettings(computerEvent);
    if (!settings || m_activeComputerEvent != 0)
        return;
    if (!m_activityManager.isTracking() || m_hasIdlePrompt || !settings->stopTracking())
        return;
    m_activeComputerEvent = computerEvent;
    if (settings->resumeTracking())
        m_resumeSleepActivity = m_activityManager.currentActivity()->text();
    qCInfo(lcAttention) << "Computer event" << computerEvent << "stops tracking";
    m_activityManager.stopTrack();
    stopDockBouncing();
}

void AttentionController::computerEventDidStop(int computerEvent)
{
    if (computerEvent == 0 || computerEvent != m_activeComputerEvent)
        return;
    const ComputerEventSettings *settings = m_settings.computerEventSettings(computerEvent);
    const QString text = std::exchange(m_resumeSleepActivity, QString());
    m_activeComputerEvent = 0;
    // Read again now: the user may have switched resuming off while away. Someone who already started
    // something else keeps it.
    if (settings && settings->stopTracking() && settings->resumeTracking() && !text.isNull()
        && !m_activityManager.isTracking()) {
        qCInfo(lcAttention) << "Computer event" << computerEvent << "ended: resuming";
        if (const QString message = m_activityManager.startTrack(text); !message.isNull())
            qCWarning(lcAttention).noquote() << "Could not resume tracking:" << message;
    }
}
