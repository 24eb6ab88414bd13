#include "platform/idlesourcewayland.h"

#include <cstring>

#include <wayland-client.h>

#include "ext-idle-notify-v1-client-protocol.h"
#include "idle-client-protocol.h"

using namespace Qt::StringLiterals;

IdleSourceWayland::IdleSourceWayland(const QString &display, QObject *parent)
    : IdleSource(parent)
{
    const QByteArray name = display.toLocal8Bit();
    m_display = wl_display_connect(name.isEmpty() ? nullptr : name.constData());
    if (!m_display) {
        m_reason = u"No Wayland compositor to ask for idle notifications."_s;
        return;
    }
    static const wl_registry_listener listener = { &IdleSourceWayland::onGlobal, &IdleSourceWayland::onGlobalRemove };
    m_registry = wl_display_get_registry(m_display);
    wl_registry_add_listener(m_registry, &listener, this);
    wl_display_roundtrip(m_display);
    if (!m_seat)
        m_reason = u"The Wayland compositor offers no seat."_s;
    else if (!m_notifier && !m_kdeIdle)
        m_reason = u"The Wayland compositor offers neither ext-idle-notify-v1 nor org_kde_kwin_idle."_s;
    if (!m_reason.isNull())
        return;
    m_socket = new QSocketNotifier(wl_display_get_fd(m_display), QSocketNotifier::Read, this);
    connect(m_socket, &QSocketNotifier::activated, this, &IdleSourceWayland::dispatch);
}

IdleSourceWayland::~IdleSourceWayland()
{
    if (!m_display)
        return;
    delete m_socket;
    releaseNotification();
    if (m_notifier)
        ext_idle_notifier_v1_destroy(m_notifier);
    if (m_kdeIdle)
        org_kde_kwin_idle_destroy(m_kdeIdle);
    if (m_seat)
        wl_seat_destroy(m_seat);
    if (m_registry)
        wl_registry_destroy(m_registry);
    wl_display_flush(m_display);
    wl_display_disconnect(m_display);
}

QString IdleSourceWayland::name() const
{
    return m_notifier ? u"Wayland idle notification"_s : u"KDE Wayland idle notification"_s;
}

void IdleSourceWayland::onGlobal(
    void *data, wl_registry *registry, uint32_t name, const char *interface, uint32_t version)
{
    Q_UNUSED(version);
    auto *self = static_cast<IdleSourceWayland *>(data);
    if (std::strcmp(interface, wl_seat_interface.name) == 0 && !self->m_seat) {
        self->m_seat = static_cast<wl_seat *>(wl_registry_bind(registry, name, &wl_seat_interface, 1));
    } else if (std::strcmp(interface, ext_idle_notifier_v1_interface.name) == 0) {
        self->m_notifier
            = static_cast<ext_idle_notifier_v1 *>(wl_registry_bind(registry, name, &ext_idle_notifier_v1_interface, 1));
    } else if (std::strcmp(interface, org_kde_kwin_idle_interface.name) == 0) {
        self->m_kdeIdle
            = static_cast<org_kde_kwin_idle *>(wl_registry_bind(registry, name, &org_kde_kwin_idle_interface, 1));
    }
}

void IdleSourceWayland::onGlobalRemove(void *, wl_registry *, uint32_t) { }

void IdleSourceWayland::onIdled(void *data, ext_idle_notification_v1 *)
{
    static_cast<IdleSourceWayland *>(data)->becameIdle();
}

void IdleSourceWayland::onResumed(void *data, ext_idle_notification_v1 *)
{
    static_cast<IdleSourceWayland *>(data)->resumed();
}

void IdleSourceWayland::onKdeIdle(void *data, org_kde_kwin_idle_timeout *)
{
    static_cast<IdleSourceWayland *>(data)->becameIdle();
}

void IdleSourceWayland::onKdeResumed(void *data, org_kde_kwin_idle_timeout *)
{
    static_cast<IdleSourceWayland *>(data)->resumed();
}

void IdleSourceWayland::becameIdle()
{
    // The compositor says so once the threshold has passed without input.
    m_idleSince = QDateTime::currentDateTimeUtc().addSecs(-m_threshold);
    Q_EMIT idleSinceChanged();
}

void IdleSourceWayland::resumed()
{
    m_idleSince.reset();
    Q_EMIT idleSinceChanged();
}

std::optional<QDateTime> IdleSourceWayland::idleSince(const QDateTime &now) const
{
    if (!m_idleSince || *m_idleSince > now)
        return std::nullopt;
    return m_idleSince;
}

void IdleSourceWayland::releaseNotification()
{
    if (m_notification)
        ext_idle_notification_v1_destroy(std::exchange(m_notification, nullptr));
    if (m_kdeTimeout)
        org_kde_kwin_idle_timeout_release(std::exchange(m_kdeTimeout, nullptr));
}

void IdleSourceWayland::setThresholdSeconds(int seconds)
{
    if (!isAvailable() || seconds <= 0 || seconds == m_threshold)
        return;
    releaseNotification();
    m_threshold = seconds;
    m_idleSince.reset();
    const auto timeout = uint32_t(seconds) * 1000;
    if (m_notifier) {
        static const ext_idle_notification_v1_listener listener
            = { &IdleSourceWayland::onIdled, &IdleSourceWayland::onResumed };
        m_notification = ext_idle_notifier_v1_get_idle_notification(m_notifier, timeout, m_seat);
        ext_idle_notification_v1_add_listener(m_notification, &listener, this);
    } else {
        static const org_kde_kwin_idle_timeout_listener listener
            = { &IdleSourceWayland::onKdeIdle, &IdleSourceWayland::onKdeResumed };
        m_kdeTimeout = org_kde_kwin_idle_get_idle_timeout(m_kdeIdle, m_seat, timeout);
        org_kde_kwin_idle_timeout_add_listener(m_kdeTimeout, &listener, this);
    }
    flush();
}

void IdleSourceWayland::flush()
{
    wl_display_flush(m_display);
}

void IdleSourceWayland::dispatch()
{
    // The socket is readable: read and handle what arrived, then send whatever the handlers queued.
    if (wl_display_dispatch(m_display) < 0) {
        m_socket->setEnabled(false);
        m_reason = u"The connection to the Wayland compositor was lost."_s;
        return;
    }
    flush();
}
