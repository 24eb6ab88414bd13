#pragma once

// Whether a desktop notification server runs: a process owns org.freedesktop.Notifications on the
// session bus. Without a session bus (a plain SSH login) there is none.
class NotificationServerFreedesktop
{
public:
    static bool isAvailable();
};
