#include "platform/idlesourcescreensaver.h"

#include <QDBusMessage>
#include <QDBusReply>

using namespace Qt::StringLiterals;

IdleSourceScreenSaver::IdleSourceScreenSaver(const QDBusConnection &bus, bool waylandSession, QObject *parent)
    : IdleSource(parent)
    , m_bus(bus)
{
    QString error;
    if (waylandSession)
        m_reason = u"The screen saver service cannot tell the idle time in a Wayland session."_s;
    else if (!idleMilliseconds(&error))
        m_reason = u"The screen saver service does not tell the idle time (%1)."_s.arg(error);
}

std::optional<quint32> IdleSourceScreenSaver::idleMilliseconds(QString *error) const
{
    if (!m_bus.isConnected()) {
        if (error)
            *error = u"no session bus"_s;
        return std::nullopt;
    }
    const QDBusMessage call = QDBusMessage::createMethodCall(
        u"org.freedesktop.ScreenSaver"_s, u"/ScreenSaver"_s, u"org.freedesktop.ScreenSaver"_s, u"GetSessionIdleTime"_s);
    const QDBusReply<quint32> reply = m_bus.call(call, QDBus::Block, 2000);
    if (!reply.isValid()) {
        if (error)
            *error = reply.error().message();
        return std::nullopt;
    }
    return reply.value();
}

std::optional<QDateTime> IdleSourceScreenSaver::idleSince(const QDateTime &now) const
{
    const std::optional<quint32> idle = idleMilliseconds();
    if (!idle || *idle == 0)
        return std::nullopt;
    return now.addMSecs(-qint64(*idle));
}
