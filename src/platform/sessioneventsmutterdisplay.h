#pragma once

#include <QDBusConnection>
#include <QVariantMap>

#include "platform/sessionevents.h"

// Screens asleep and awake on GNOME (X11 and Wayland): the PowerSaveMode of org.gnome.Mutter.DisplayConfig,
// 0 on, 1..3 standby, suspend, off, announced through PropertiesChanged.
class SessionEventsMutterDisplay : public SessionEvents
{
    Q_OBJECT
public:
    explicit SessionEventsMutterDisplay(const QDBusConnection &sessionBus, QObject *parent = nullptr);

    void start() override;

private Q_SLOTS:
    void onPropertiesChanged(const QString &interface, const QVariantMap &changed, const QStringList &);

private:
    QDBusConnection m_bus;
    bool m_started = false;
    bool m_asleep = false;
};
