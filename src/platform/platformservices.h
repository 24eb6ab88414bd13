#pragma once

#include <memory>

#include <QString>

class GlobalHotKey;
class QDBusConnection;
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

    // What the global shortcut's backend is chosen by, besides the services on the session bus.
    struct HotKeySession
    {
        bool wayland = false;
        // XDG_CURRENT_DESKTOP: a colon-separated list ("KDE", "ubuntu:GNOME", "sway").
        QString currentDesktop;
        // The X display to grab on; empty for $DISPLAY.
        QString x11Display;
    };
    // An X11 key grab where the X server sees every key; on Wayland the desktop portal's GlobalShortcuts
    // where the portal exports it; else KDE's daemon when the desktop is KDE or the daemon already runs
    // (merely activatable, it would be started on GNOME or sway, where nothing ever presses its keys);
    // else the Null backend, with which the recorder offers `brimvale show`.
    static std::unique_ptr<GlobalHotKey> globalHotKeyFor(const HotKeySession &session, const QDBusConnection &bus);

    std::unique_ptr<Notifier> notifier;
    std::unique_ptr<IdleSource> idleSource;
    std::unique_ptr<SessionEvents> sessionEvents;
    std::unique_ptr<GlobalHotKey> globalHotKey;
    std::unique_ptr<Keychain> keychain;
    std::unique_ptr<LoginItemService> loginItems;
};
