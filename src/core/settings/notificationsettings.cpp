#include "settings/notificationsettings.h"

#include <algorithm>

NotificationSettings::NotificationSettings(QObject *parent)
    : QObject(parent)
{ }

template<typename T> void NotificationSettings::change(T &field, T value, void (NotificationSettings::*changed)())
{
    if (field == value)
        return;
    const bool wasEnabled = enabled();
    field = value;
    Q_EMIT(this->*changed)();
    if (enabled() != wasEnabled)
        Q_EMIT enabledChanged();
}

void NotificationSettings::setInterval(int interval)
{
    change(m_interval, std::clamp(interval, 1, 120), &NotificationSettings::intervalChanged);
}

void NotificationSettings::setDisplayNotification(bool displayNotification)
{
    change(m_displayNotification, displayNotification, &NotificationSettings::displayNotificationChanged);
}

void NotificationSettings::setBounceDock(bool bounceDock)
{
    change(m_bounceDock, bounceDock, &NotificationSettings::bounceDockChanged);
}

void NotificationSettings::setBounceDockRepeat(bool bounceDockRepeat)
{
    change(m_bounceDockRepeat, bounceDockRepeat, &NotificationSettings::bounceDockRepeatChanged);
}

bool NotificationSettings::enabled() const
{
    return m_interval >= 1 && (m_bounceDock || m_displayNotification);
}
