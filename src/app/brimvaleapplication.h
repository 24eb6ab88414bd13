#pragma once

#include <expected>
#include <functional>
#include <memory>

#include <QObject>
#include <QString>

#include "base/bverror.h"
#include "platform/platformservices.h"
#include "sync/bvdropboxsyncbackend.h"
#include "sync/bvsyncmanager.h"

class ActivityManager;
class AttentionController;
class Brimvale_AppDelegate;
class BvUserNotificationService;
class DockAttention;
class IdlePromptPresenter;
class ReportWindows;
class UserNotificationCentre;
class BvSettings;
class BVDropboxSettings;
class BVDropboxUpgradeHelper;
class Clock;
class DropboxSyncServiceProtocol;
class Store;
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
    // The Dropbox agent; a DropboxAgentClient on the session bus when null. Not owned.
    DropboxSyncServiceProtocol *dropboxService = nullptr;
    // Makes the backend of a sync method for each run; the Dropbox and folder backends when unset.
    BVSyncManager::BackendFactory syncBackends;
};

// The composition root of the desktop app: owns the defaults and settings, the store, the tracking engine,
// the platform services, the tracking controller, the Dropbox account, the sync manager and the app's
// controller, and hands each its collaborators by reference. Nothing here is a global: a test builds one with fakes.
// Main thread, with a QApplication.
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
    // Every sync run of the app: its timer, the menu, the status bar and the D-Bus Sync().
    BVSyncManager &syncManager();
    // The connected Dropbox account (connect, disconnect, its name); the redirect's connector.
    BVDropboxSyncBackend &dropboxAccount();
    PlatformServices &services() { return m_services; }

    // showAndBringMainWindowToFront.
    void showMainWindow();
    // handleGetURLEvent.
    void openUrl(const QString &url);
    // The report window, brought to the front (one per app).
    void showReport();
    // Valid after a successful launch.
    ReportWindows &reportWindows();
    // The quit flow, then QCoreApplication::quit(). A second call while the flow waits for its alert is
    // ignored.
    void quit();

Q_SIGNALS:
    // The quit flow is done; emitted just before QCoreApplication::quit().
    void aboutToQuit();

private:
    // The Dropbox agent, settings and account, and the sync manager over them.
    void makeSync();

    PlatformServices m_services;
    AppEnvironment m_environment;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<ActivityManager> m_activityManager;
    std::unique_ptr<TrackingController> m_tracking;
    std::unique_ptr<DropboxSyncServiceProtocol> m_dropboxAgent;
    std::unique_ptr<BVDropboxSettings> m_dropboxSettings;
    BVDropboxServices m_dropboxServices;
    std::unique_ptr<BVDropboxSyncBackend> m_dropboxAccount;
    std::unique_ptr<BVDropboxUpgradeHelper> m_upgradeHelper;
    std::unique_ptr<BVSyncManager> m_syncManager;
    std::unique_ptr<UserNotificationCentre> m_notificationCentre;
    std::unique_ptr<BvUserNotificationService> m_notifications;
    std::unique_ptr<AttentionController> m_attention;
    std::unique_ptr<Brimvale_AppDelegate> m_delegate;
    std::unique_ptr<IdlePromptPresenter> m_idlePrompt;
    std::unique_ptr<DockAttention> m_dockAttention;
    std::unique_ptr<ReportWindows> m_reportWindows;
};
