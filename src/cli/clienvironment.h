#pragma once

#include <functional>

#include <QDBusConnection>
#include <QTextStream>

#include "model/store.h"
#include "settings/bvsettingsview.h"

// What a command runs with: its two streams and how to open the store. The executable hands in stdout,
// stderr and the user's store; tests hand in buffers and a temporary store.
struct CliEnvironment
{
    QTextStream &out;
    QTextStream &err;
    StoreOptions storeOptions;
    // The user's export layouts and sync choice, read on first use; commands never write settings.
    std::function<BvSettingsView()> settings;
    // Where the running app is reached (start, update, stop, status, sync) and how `start` launches it
    // when none runs: the user's session bus and this executable in the background unless set (tests
    // hand in a connection of their own and an in-process app).
    std::function<QDBusConnection()> appBus = {};
    std::function<bool()> launchApp = {};
};

// Exit statuses of every command.
namespace CliExit {
inline constexpr int Success = 0;
// A wrong argument, an unknown uid or a refused activity; nothing in the store changed.
inline constexpr int Failure = 1;
// The store could not be opened.
inline constexpr int StoreUnavailable = 2;
} // namespace CliExit
