#pragma once

#include <expected>
#include <functional>
#include <memory>

#include <QObject>
#include <QString>

#include "base/bverror.h"
#include "platform/platformservices.h"

class ActivityManager;
class AttentionController;
class Brimvale_AppDelegate;
class BvUserNotificationService;
class DockAttention;
class IdlePromptPresenter;
class UserNotificationCentre;
class BvSettings;
class Clock;
class DropboxConnector;
class Store;
class SyncRunner;
class TrackingController;
class UserDefaults;

// How the app was started: at login ("launchFromHelper" keeps the window closed), or by the browser with
// a brimvaleapp: URL.
struct AppLaunchOptions
{
    bool launchFromHelper = false;
    QString url;
};

// What the composition takes from its surroundings. Every field has the running desktop's default; tests
// put in a fake clock or tray availability.
struct AppEnvironment
{
    // Where the store asks the time; the system clock when null. Not owned.
    Clock *clock = nullptr;
    // The application data folder; Store::applicationFilesDirectory() when empty.
    QString applicationFilesDirectory;
    // The settings file; UserDefaults::standardFilePath() when empty.
    QString settingsFilePath;
    // Whether the session has a tray host; QSystemTrayIcon's answer when unset.
    std::function<bool()> trayAvailable;
    // Connects a Dropbox account from the browser's redirect; none until the app syncs with Dropbox.
    DropboxConnector *dropboxConnector = nullptr;
};

// The composition root of the desktop app: owns the defaults and settings, the store, the tracking engine,
// the platform services, the tracking controller, the sync runner and the app's controller, and hands each its
// collaborators by reference. Nothing here is a global: a test builds one with fakes. Main thread, with a
// QApplication.
class BrimvaleApplication : public QObject
{
    Q_OBJECT
public:
    explicit BrimvaleApplication(PlatformServices services, QObject *parent = nullptr);
    BrimvaleApplication(PlatformServices services, AppEnvironment environment, QObject *parent = nullptr);
    ~BrimvaleApplication() override;

    // Opens the settings and the store and runs the launch steps; a store that cannot be opened is the
    // error (with its designed domain, code and text), and the app then has no window. Call once.
    std::expected<void, BvError> launch(const AppLaunchOptions &options);

    // Valid after a successful launch.
    TrackingController &tracking();
    // The idle, reminder and computer-event rules.
    AttentionController &attention();
    Brimvale_AppDelegate &delegate();
    BvSettings &settings();
    Store &store();
    // Runs a sync of the settings' method on request (the D-Bus Sync()).
    SyncRunner &syncRunner();
    PlatformServices &services() { return m_services; }

    // showAndBringMainWindowToFront.
    void showMainWindow();
    // handleGetURLEvent.
    void openUrl(const QString &url);
    // The quit flow, then QCoreApplication::quit(). A second call while the flow waits for its alert is
    // ignored.
    void quit();

Q_SIGNALS:
    // The quit flow is done; emitted just before QCoreApplication::quit().
    void aboutToQuit();

private:
    PlatformServices m_services;
    AppEnvironment m_environment;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<ActivityManager> m_activityManager;
    std::unique_ptr<TrackingController> m_tracking;
    std::unique_ptr<UserNotificationCentre> m_notificationCentre;
    std::unique_ptr<BvUserNotificationService> m_notifications;
    std::unique_ptr<AttentionController> m_attention;
    std::unique_ptr<SyncRunner> m_syncRunner;
    std::unique_ptr<Brimvale_AppDelegate> m_delegate;
    std::unique_ptr<IdlePromptPresenter> m_idlePrompt;
    std::unique_ptr<DockAttention> m_dockAttention;
};
