#pragma once

#include <QDBusConnection>

#include "attention/idlesource.h"

// GNOME's idle monitor (org.gnome.Mutter.IdleMonitor), the one source that works on GNOME under both X11
// and Wayland. Asked only when the idle rules check, which is rarely.
class IdleSourceMutter : public IdleSource
{
    Q_OBJECT
public:
    // Probes the monitor on `bus` once.
    explicit IdleSourceMutter(const QDBusConnection &bus, QObject *parent = nullptr);

    QString name() const override { return QStringLiteral("GNOME idle monitor"); }
    bool isAvailable() const override { return m_reason.isNull(); }
    QString unavailableReason() const override { return m_reason; }
    std::optional<QDateTime> idleSince(const QDateTime &now) const override;

    // Milliseconds since the last input, or the bus error.
    std::optional<quint64> idleMilliseconds(QString *error = nullptr) const;

private:
    QDBusConnection m_bus;
    QString m_reason;
};
