#pragma once

#include <memory>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDateTime>
#include <QVariantList>

#include "app/services/brimvaledbusservice.h"
#include "app/services/syncrunner.h"
#include "app/trackingcontroller.h"
#include "fakes/fakeclock.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

// The running app's tracking parts and its bus interface in this process, over a temporary store, settings
// file and a fake clock, as the composition root wires them (without windows). Registered on the session bus
// the test runs with (bv_add_test ... BUS).
struct InProcessApp
{
    struct Options
    {
        bool endCurrentActivityOnTrack = true;
        // Sync method 2 through this folder when set; sync off otherwise.
        QString syncFolder;
    };

    explicit InProcessApp(const Options &options);
    InProcessApp();

    IsolatedHome home;
    FakeClock clock { QDateTime(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC) };
    std::unique_ptr<UserDefaults> defaults;
    std::unique_ptr<BvSettings> settings;
    std::unique_ptr<Store> store;
    std::unique_ptr<ActivityManager> activityManager;
    std::unique_ptr<TrackingController> tracking;
    std::unique_ptr<SyncRunner> syncRunner;
    std::unique_ptr<BrimvaleDBusService> service;
};

// A connection of its own to the session bus, as another process has: calls through it reach the service
// over the bus, not as a shortcut inside the process.
QDBusConnection otherClientConnection();

// Calls `method` of the app's interface through `connection` and waits for the answer while this thread's
// event loop serves the in-process app.
QDBusMessage callApp(
    QDBusConnection connection, const QString &method, const QVariantList &arguments = {}, int timeoutMsecs = 10000);
