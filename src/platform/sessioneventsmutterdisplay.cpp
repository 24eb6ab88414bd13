#include "platform/sessioneventsmutterdisplay.h"

using namespace Qt::StringLiterals;

namespace {
const QString Interface = u"org.gnome.Mutter.DisplayConfig"_s;
}

SessionEventsMutterDisplay::SessionEventsMutterDisplay(const QDBusConnection &sessionBus, QObject *parent)
    : SessionEvents(parent)
    , m_bus(sessionBus)
{ }

void SessionEventsMutterDisplay::start()
{
    if (m_started || !m_bus.isConnected())
        return;
    m_started = true;
    m_bus.connect(u"org.gnome.Mutter.DisplayConfig"_s, u"/org/gnome/Mutter/DisplayConfig"_s,
        u"org.freedesktop.DBus.Properties"_s, u"PropertiesChanged"_s, this,
        SLOT(onPropertiesChanged(QString, QVariantMap, QStringList)));
}

void SessionEventsMutterDisplay::onPropertiesChanged(
    const QString &interface, const QVariantMap &changed, const QStringList &)
{
    const auto mode = changed.constFind(u"PowerSaveMode"_s);
    if (interface != Interface || mode == changed.constEnd())
        return;
    // -1 means Mutter does not know: that changes nothing.
    const int value = mode->toInt();
    if (value < 0 || (value > 0) == m_asleep)
        return;
    m_asleep = value > 0;
    if (m_asleep)
        Q_EMIT computerEventDidStart(2);
    else
        Q_EMIT computerEventDidStop(2);
}
