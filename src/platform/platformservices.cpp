#include "platform/platformservices.h"

#include <QDBusConnection>

#include "platform/autostartxdg.h"
#include "platform/globalhotkeynull.h"
#include "platform/idlesourcenull.h"
#include "platform/keychainqt.h"
#include "platform/notifierfreedesktop.h"
#include "platform/notifiernull.h"
#include "platform/sessioneventsnull.h"

PlatformServices::PlatformServices() = default;
PlatformServices::~PlatformServices() = default;
PlatformServices::PlatformServices(PlatformServices &&) noexcept = default;
PlatformServices &PlatformServices::operator=(PlatformServices &&) noexcept = default;

PlatformServices PlatformServices::forSession()
{
    PlatformServices services;
    services.notifier = QDBusConnection::sessionBus().isConnected()
        ? std::unique_ptr<Notifier>(std::make_unique<NotifierFreedesktop>(QDBusConnection::sessionBus()))
        : std::make_unique<NotifierNull>();
    services.idleSource
        = std::make_unique<IdleSourceNull>(QStringLiteral("No source of idle time works in this session."));
    services.sessionEvents = std::make_unique<SessionEventsNull>();
    services.globalHotKey = std::make_unique<GlobalHotKeyNull>();
    services.keychain = std::make_unique<KeychainQt>();
    services.loginItems = std::make_unique<AutostartXdg>();
    return services;
}
