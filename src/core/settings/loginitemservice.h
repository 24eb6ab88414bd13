#pragma once

#include <expected>

#include <QString>

// Starts the application when the user logs in, with the launch argument "launchFromHelper" so that the
// main window stays closed. Implemented by a platform backend; the settings only ask it.
class LoginItemService
{
public:
    virtual ~LoginItemService() = default;

    // Registers (enabled) or removes (not enabled) the start at login. Removing what is not registered
    // succeeds. On failure, the reason as text for the log. Main thread.
    virtual std::expected<void, QString> setEnabled(bool enabled) = 0;
};
