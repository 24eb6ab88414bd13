#include "platform/sessioneventsscreensaver.h"

using namespace Qt::StringLiterals;

SessionEventsScreenSaver::SessionEventsScreenSaver(const QDBusConnection &sessionBus, QObject *parent)
    : SessionEvents(parent)
    , m_bus(sessionBus)
{ }

void SessionEventsScreenSaver::start()
{
    if (m_started || !m_bus.isConnected())
        return;
    m_started = true;
    // Plasma announces on two paths; both carry the same change, which onActiveChanged counts once.
    for (const QString &path : { u"/ScreenSaver"_s, u"/org/freedesktop/ScreenSaver"_s }) {
        m_bus.connect(u"org.freedesktop.ScreenSaver"_s, path, u"org.freedesktop.ScreenSaver"_s, u"ActiveChanged"_s,
            this, SLOT(onActiveChanged(bool)));
    }
    m_bus.connect(u"org.gnome.ScreenSaver"_s, u"/org/gnome/ScreenSaver"_s, u"org.gnome.ScreenSaver"_s,
        u"ActiveChanged"_s, this, SLOT(onActiveChanged(bool)));
}

void SessionEventsScreenSaver::onActiveChanged(bool active)
{
    if (m_active == active)
        return;
    m_active = active;
    if (active)
        Q_EMIT computerEventDidStart(3);
    else
        Q_EMIT computerEventDidStop(3);
}
