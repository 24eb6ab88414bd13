#include "platform/platformservices.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QLoggingCategory>
#include <QStringList>

#include "platform/autostartxdg.h"
#include "platform/globalhotkeykglobalaccel.h"
#include "platform/globalhotkeynull.h"
#include "platform/globalhotkeyportal.h"
#include "platform/idlesourcemutter.h"
#include "platform/idlesourcenull.h"
#include "platform/idlesourcescreensaver.h"
#include "platform/keychainqt.h"
#include "platform/notifierfreedesktop.h"
#include "platform/notifiernull.h"
#include "platform/sessioneventscombined.h"
#include "platform/sessioneventslogind.h"
#include "platform/sessioneventsmutterdisplay.h"
#include "platform/sessioneventsscreensaver.h"
#ifdef BRIMVALE_HAVE_XCB
#include "platform/globalhotkeyx11.h"
#include "platform/idlesourcex11.h"
#include "platform/sessioneventsdpms.h"
#endif
#ifdef BRIMVALE_HAVE_WAYLAND
#include "platform/idlesourcewayland.h"
#endif

namespace {
Q_LOGGING_CATEGORY(lcPlatform, "brimvale.platform")

bool isWaylandSession()
{
    return qEnvironmentVariable("XDG_SESSION_TYPE") == QLatin1String("wayland")
        || qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
}

// The first source that works in this session; else one that says why none does.
std::unique_ptr<IdleSource> idleSourceForSession()
{
    const bool wayland = isWaylandSession();
    std::vector<std::unique_ptr<IdleSource>> candidates;
    candidates.push_back(std::make_unique<IdleSourceMutter>(QDBusConnection::sessionBus()));
#ifdef BRIMVALE_HAVE_WAYLAND
    if (wayland)
        candidates.push_back(std::make_unique<IdleSourceWayland>(QString()));
#endif
#ifdef BRIMVALE_HAVE_XCB
    // On X11 the server's own count first: it needs no desktop service (Plasma on X11 still has it).
    candidates.push_back(std::make_unique<IdleSourceX11>(QString(), wayland));
#endif
    candidates.push_back(std::make_unique<IdleSourceScreenSaver>(QDBusConnection::sessionBus(), wayland));
    QStringList reasons;
    for (auto &candidate : candidates) {
        if (candidate->isAvailable()) {
            qCInfo(lcPlatform).noquote() << "Idle time from" << candidate->name();
            return std::move(candidate);
        }
        reasons << candidate->unavailableReason();
    }
    return std::make_unique<IdleSourceNull>(reasons.join(QLatin1Char(' ')));
}

std::unique_ptr<SessionEvents> sessionEventsForSession()
{
    std::vector<std::unique_ptr<SessionEvents>> sources;
    sources.push_back(
        std::make_unique<SessionEventsLogind>(QDBusConnection::systemBus(), qEnvironmentVariable("XDG_SESSION_ID")));
    sources.push_back(std::make_unique<SessionEventsScreenSaver>(QDBusConnection::sessionBus()));
    sources.push_back(std::make_unique<SessionEventsMutterDisplay>(QDBusConnection::sessionBus()));
#ifdef BRIMVALE_HAVE_XCB
    if (auto dpms = std::make_unique<SessionEventsDpms>(QString(), isWaylandSession()); dpms->isAvailable())
        sources.push_back(std::move(dpms));
#endif
    return std::make_unique<SessionEventsCombined>(std::move(sources));
}

} // namespace

PlatformServices::PlatformServices() = default;
PlatformServices::~PlatformServices() = default;
PlatformServices::PlatformServices(PlatformServices &&) noexcept = default;
PlatformServices &PlatformServices::operator=(PlatformServices &&) noexcept = default;

std::unique_ptr<GlobalHotKey> PlatformServices::globalHotKeyFor(
    const HotKeySession &session, const QDBusConnection &bus)
{
#ifdef BRIMVALE_HAVE_XCB
    if (auto x11 = std::make_unique<GlobalHotKeyX11>(session.x11Display, session.wayland); x11->isAvailable()) {
        qCInfo(lcPlatform) << "Global shortcut through an X11 key grab";
        return x11;
    }
#endif
    if (session.wayland) {
        if (auto portal = std::make_unique<GlobalHotKeyPortal>(bus); portal->isAvailable()) {
            qCInfo(lcPlatform) << "Global shortcut through the desktop portal";
            return portal;
        }
    }
    const bool kde = session.currentDesktop.split(QLatin1Char(':')).contains(QLatin1String("KDE"), Qt::CaseInsensitive);
    const bool daemonRuns = bus.isConnected() && bus.interface()
        && bus.interface()->isServiceRegistered(QStringLiteral("org.kde.kglobalaccel")).value();
    if (kde || daemonRuns) {
        if (auto daemon = std::make_unique<GlobalHotKeyKGlobalAccel>(bus); daemon->isAvailable()) {
            qCInfo(lcPlatform) << "Global shortcut through KDE's shortcut service";
            return daemon;
        }
    }
    qCInfo(lcPlatform) << "No global shortcut in this session";
    return std::make_unique<GlobalHotKeyNull>();
}

PlatformServices PlatformServices::forSession()
{
    PlatformServices services;
    services.notifier = QDBusConnection::sessionBus().isConnected()
        ? std::unique_ptr<Notifier>(std::make_unique<NotifierFreedesktop>(QDBusConnection::sessionBus()))
        : std::make_unique<NotifierNull>();
    services.idleSource = idleSourceForSession();
    services.sessionEvents = sessionEventsForSession();
    services.globalHotKey = globalHotKeyFor(
        { .wayland = isWaylandSession(), .currentDesktop = qEnvironmentVariable("XDG_CURRENT_DESKTOP") },
        QDBusConnection::sessionBus());
    services.keychain = std::make_unique<KeychainQt>();
    services.loginItems = std::make_unique<AutostartXdg>();
    return services;
}
