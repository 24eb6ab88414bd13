#pragma once

#include <QDBusConnection>

#include "platform/sessionevents.h"

// The desktop's screensaver coming up and going away: ActiveChanged of org.freedesktop.ScreenSaver (Plasma
// and others) and of org.gnome.ScreenSaver (GNOME Shell's shield) on the session bus.
class SessionEventsScreenSaver : public SessionEvents
{
    Q_OBJECT
public:
    explicit SessionEventsScreenSaver(const QDBusConnection &sessionBus, QObject *parent = nullptr);

    void start() override;

private Q_SLOTS:
    void onActiveChanged(bool active);

private:
    QDBusConnection m_bus;
    bool m_started = false;
    bool m_active = false;
};
