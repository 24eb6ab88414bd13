#pragma once

#include <QDBusConnection>

#include "attention/idlesource.h"

// The session idle time of org.freedesktop.ScreenSaver, which Plasma's screen locker answers on X11 (in
// milliseconds, whatever the method's name suggests). On Wayland Plasma cannot count, so this source
// refuses Wayland sessions and leaves them to the Wayland protocols.
class IdleSourceScreenSaver : public IdleSource
{
    Q_OBJECT
public:
    // Probes the service on `bus` once; `waylandSession` rules it out.
    IdleSourceScreenSaver(const QDBusConnection &bus, bool waylandSession, QObject *parent = nullptr);

    QString name() const override { return QStringLiteral("Screen saver service"); }
    bool isAvailable() const override { return m_reason.isNull(); }
    QString unavailableReason() const override { return m_reason; }
    std::optional<QDateTime> idleSince(const QDateTime &now) const override;

private:
    std::optional<quint32> idleMilliseconds(QString *error = nullptr) const;

    QDBusConnection m_bus;
    QString m_reason;
};
