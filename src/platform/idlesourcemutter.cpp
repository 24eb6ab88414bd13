#include "platform/idlesourcemutter.h"

#include <QDBusMessage>
#include <QDBusReply>

using namespace Qt::StringLiterals;

IdleSourceMutter::IdleSourceMutter(const QDBusConnection &bus, QObject *parent)
    : IdleSource(parent)
    , m_bus(bus)
{
    QString error;
    if (!idleMilliseconds(&error))
        m_reason = u"GNOME's idle monitor does not answer (%1)."_s.arg(error);
}

std::optional<quint64> IdleSourceMutter::idleMilliseconds(QString *error) const
{
    if (!m_bus.isConnected()) {
        if (error)
            *error = u"no session bus"_s;
        return std::nullopt;
    }
    const QDBusMessage call = QDBusMessage::createMethodCall(u"org.gnome.Mutter.IdleMonitor"_s,
        u"/org/gnome/Mutter/IdleMonitor/Core"_s, u"org.gnome.Mutter.IdleMonitor"_s, u"GetIdletime"_s);
    const QDBusReply<quint64> reply = m_bus.call(call, QDBus::Block, 2000);
    if (!reply.isValid()) {
        if (error)
            *error = reply.error().message();
        return std::nullopt;
    }
    return reply.value();
}

std::optional<QDateTime> IdleSourceMutter::idleSince(const QDateTime &now) const
{
    const std::optional<quint64> idle = idleMilliseconds();
    if (!idle || *idle == 0)
        return std::nullopt;
    return now.addMSecs(-qint64(*idle));
}
