#include "platform/notificationcentrenotifier.h"

#include "platform/notifier.h"

NotificationCentreNotifier::NotificationCentreNotifier(Notifier &notifier, QObject *parent)
    : UserNotificationCentre(parent)
    , m_notifier(notifier)
{
    connect(&m_notifier, &Notifier::actionInvoked, this, &UserNotificationCentre::didActivateNotification);
}

bool NotificationCentreNotifier::isAvailable() const
{
    return m_notifier.isAvailable();
}

bool NotificationCentreNotifier::supportsActions() const
{
    return m_notifier.supportsActions();
}

void NotificationCentreNotifier::deliver(
    const QString &name, const QString &title, const QString &body, const QList<QPair<QString, QString>> &actions)
{
    m_notifier.post(UserNotification { name, title, body, actions });
}

void NotificationCentreNotifier::remove(const QString &name)
{
    m_notifier.withdraw(name);
}
