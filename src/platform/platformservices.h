#pragma once

#include <memory>

class GlobalHotKey;
class IdleSource;
class Keychain;
class LoginItemService;
class Notifier;
class SessionEvents;

// The desktop services of the running session, each the first backend that works here or its Null
// backend. The composition root makes one set and hands references down; tests build a set of fakes.
struct PlatformServices
{
    PlatformServices();
    ~PlatformServices();
    PlatformServices(PlatformServices &&) noexcept;
    PlatformServices &operator=(PlatformServices &&) noexcept;

    // Chooses the backends for this session (desktop, display server, buses). Main thread, after the
    // application object exists.
    static PlatformServices forSession();

    std::unique_ptr<Notifier> notifier;
    std::unique_ptr<IdleSource> idleSource;
    std::unique_ptr<SessionEvents> sessionEvents;
    std::unique_ptr<GlobalHotKey> globalHotKey;
    std::unique_ptr<Keychain> keychain;
    std::unique_ptr<LoginItemService> loginItems;
};
