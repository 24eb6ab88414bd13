#include "attention/bvusernotificationservice.h"

#include "attention/usernotificationcentre.h"

using namespace Qt::StringLiterals;

namespace {
const QString IdlePromptName = u"Idle time"_s;
const QString KeepKey = u"keep"_s;
const QString SubtractAndStopKey = u"subtract-and-stop"_s;
const QString SubtractAndContinueKey = u"subtract-and-continue"_s;
} // namespace

BvUserNotificationService::BvUserNotificationService(UserNotificationCentre &centre, QObject *parent)
    : QObject(parent)
    , m_centre(centre)
{
    connect(&m_centre, &UserNotificationCentre::didActivateNotification, this,
        &BvUserNotificationService::onDidActivateNotification);
}

bool BvUserNotificationService::hasOSXNotifications() const
{
    return m_centre.isAvailable();
}

void BvUserNotificationService::showNotification(
    int type, const QString &name, const QString &text, const QString &context)
{
    Q_UNUSED(context);
    if (type != SystemNotifications)
        return;
    m_centre.deliver(name, u"Brimvale"_s, text, {});
}

void BvUserNotificationService::showActivityReminderNotification(int type, const QString &activityText)
{
    showNotification(
        type, u"Reminder of activity"_s, u"Are you still working on: %1"_s.arg(activityText), u"reminder"_s);
}

void BvUserNotificationService::showNotTrackingNotification(int type)
{
    showNotification(type, u"When not tracking"_s, u"Are you working on something?"_s, u"not-tracking"_s);
}

void BvUserNotificationService::showPreviewNotification(int type)
{
    showNotification(type, u"Notification preview"_s, u"Notification preview"_s, QString());
}

void BvUserNotificationService::showNotificationWithName(const QString &name, const QString &message)
{
    showNotification(SystemNotifications, name, message, QString());
}

QString BvUserNotificationService::idlePromptText(const QDateTime &idleFromDate, const QDateTime &now)
{
    return u"You have been idle for %1 minutes"_s.arg(qAbs(idleFromDate.secsTo(now)) / 60);
}

bool BvUserNotificationService::showIdlePromptNotification(const QDateTime &idleFromDate, const QDateTime &now)
{
    if (!m_centre.isAvailable() || !m_centre.supportsActions())
        return false;
    m_centre.deliver(IdlePromptName, u"Brimvale"_s, idlePromptText(idleFromDate, now),
        { { SubtractAndStopKey, u"Subtract and stop"_s }, { SubtractAndContinueKey, u"Subtract and continue"_s },
            { KeepKey, u"Keep"_s } });
    return true;
}

void BvUserNotificationService::withdrawIdlePromptNotification()
{
    m_centre.remove(IdlePromptName);
}

void BvUserNotificationService::onDidActivateNotification(const QString &name, const QString &actionKey)
{
    if (name == IdlePromptName) {
        // A click on the body of the idle question brings up the window that asks the same, so the
        // answer is given there.
        if (actionKey == SubtractAndStopKey)
            Q_EMIT idlePromptNotificationAnswered(1);
        else if (actionKey == SubtractAndContinueKey)
            Q_EMIT idlePromptNotificationAnswered(2);
        else if (actionKey == KeepKey)
            Q_EMIT idlePromptNotificationAnswered(0);
        else
            Q_EMIT userNotificationClicked();
        return;
    }
    if (actionKey == u"default"_s)
        Q_EMIT userNotificationClicked();
}
