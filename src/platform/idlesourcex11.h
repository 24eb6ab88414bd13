#pragma once

#include "attention/idlesource.h"

struct xcb_connection_t;

// The X server's MIT-SCREEN-SAVER extension: milliseconds since the last input of any kind. Only in an X11
// session: under XWayland it would see only the input that goes to X11 windows.
class IdleSourceX11 : public IdleSource
{
    Q_OBJECT
public:
    // Connects to `display` (empty: $DISPLAY) unless `waylandSession`.
    IdleSourceX11(const QString &display, bool waylandSession, QObject *parent = nullptr);
    ~IdleSourceX11() override;

    QString name() const override { return QStringLiteral("X11 screen saver extension"); }
    bool isAvailable() const override { return m_reason.isNull(); }
    QString unavailableReason() const override { return m_reason; }
    std::optional<QDateTime> idleSince(const QDateTime &now) const override;

private:
    std::optional<quint32> idleMilliseconds() const;

    xcb_connection_t *m_connection = nullptr;
    quint32 m_root = 0;
    QString m_reason;
};
