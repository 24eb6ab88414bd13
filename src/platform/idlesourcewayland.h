#pragma once

#include <QSocketNotifier>

#include "attention/idlesource.h"

struct wl_display;
struct wl_registry;
struct wl_seat;
struct ext_idle_notifier_v1;
struct ext_idle_notification_v1;
struct org_kde_kwin_idle;
struct org_kde_kwin_idle_timeout;

// The compositor's idle notification in a Wayland session: ext-idle-notify-v1 where offered (KWin, newer
// wlroots), else KDE's org_kde_kwin_idle (older KWin, sway 1.7). Both only say "idle for the threshold"
// and "back": the idle start is dated one threshold before the first, and the rules are told at once. Uses
// a connection of its own to the compositor, read through a socket notifier on the main thread.
class IdleSourceWayland : public IdleSource
{
    Q_OBJECT
public:
    // Connects to `display` (empty: $WAYLAND_DISPLAY).
    explicit IdleSourceWayland(const QString &display, QObject *parent = nullptr);
    ~IdleSourceWayland() override;

    QString name() const override;
    bool isAvailable() const override { return m_reason.isNull(); }
    QString unavailableReason() const override { return m_reason; }
    std::optional<QDateTime> idleSince(const QDateTime &now) const override;
    void setThresholdSeconds(int seconds) override;

private:
    static void onGlobal(void *data, wl_registry *registry, uint32_t name, const char *interface, uint32_t version);
    static void onGlobalRemove(void *data, wl_registry *registry, uint32_t name);
    static void onIdled(void *data, ext_idle_notification_v1 *);
    static void onResumed(void *data, ext_idle_notification_v1 *);
    static void onKdeIdle(void *data, org_kde_kwin_idle_timeout *);
    static void onKdeResumed(void *data, org_kde_kwin_idle_timeout *);
    void becameIdle();
    void resumed();
    void dispatch();
    void flush();
    void releaseNotification();

    wl_display *m_display = nullptr;
    wl_registry *m_registry = nullptr;
    wl_seat *m_seat = nullptr;
    ext_idle_notifier_v1 *m_notifier = nullptr;
    ext_idle_notification_v1 *m_notification = nullptr;
    org_kde_kwin_idle *m_kdeIdle = nullptr;
    org_kde_kwin_idle_timeout *m_kdeTimeout = nullptr;
    QSocketNotifier *m_socket = nullptr;
    int m_threshold = 0;
    std::optional<QDateTime> m_idleSince;
    QString m_reason;
};
