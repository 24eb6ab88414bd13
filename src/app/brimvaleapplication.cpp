#include "app/brimvaleapplication.h"

#include <QCoreApplication>
#include <QMenuBar>
#include <QSystemTrayIcon>

#include "app/trackingcontroller.h"
#include "attention/attentioncontroller.h"
#include "attention/bvusernotificationservice.h"
#include "base/clock.h"
#include "gui/app/brimvale_appdelegate.h"
#include "gui/app/editactivitystarttimewindowcontroller.h"
#include "gui/app/mainwindow.h"
#include "gui/app/statusbarmenu.h"
#include "gui/attention/dockattention.h"
#include "gui/attention/idlepromptpresenter.h"
#include "gui/preferences/preferenceswindowcontroller.h"
#include "gui/report/reportwindows.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "platform/dropboxagentclient.h"
#include "platform/idlesource.h"
#include "platform/notificationcentrenotifier.h"
#include "platform/notifier.h"
#include "platform/sessionevents.h"
#include "settings/bvsettings.h"
#include "settings/loginitemservice.h"
#include "settings/userdefaults.h"
#include "sync/bvdropboxsettings.h"
#include "sync/bvdropboxupgradehelper.h"
#include "sync/bvsyncbackendfactory.h"
#include "sync/keychain.h"

BrimvaleApplication::BrimvaleApplication(PlatformServices services, QObject *parent)
    : BrimvaleApplication(std::move(services), AppEnvironment(), parent)
{ }

BrimvaleApplication::BrimvaleApplication(PlatformServices services, AppEnvironment environment, QObject *parent)
    : QObject(parent)
    , m_services(std::move(services))
    , m_environment(std::move(environment))
{
    if (!m_environment.clock)
        m_environment.clock = Clock::system();
    if (m_environment.applicationFilesDirectory.isEmpty())
        m_environment.applicationFilesDirectory = Store::applicationFilesDirectory();
    if (m_environment.settingsFilePath.isEmpty())
        m_environment.settingsFilePath = UserDefaults::standardFilePath();
    if (!m_environment.trayAvailable)
        m_environment.trayAvailable = &QSystemTrayIcon::isSystemTrayAvailable;
}

// The parts refer to each other: the controller goes first, the store last.
BrimvaleApplication::~BrimvaleApplication()
{
    m_reportWindows.reset();
    m_preferences.reset();
    m_dockAttention.reset();
    m_idlePrompt.reset();
    m_delegate.reset();
    m_syncManager.reset();
    m_dropboxAccount.reset();
    m_upgradeHelper.reset();
    m_dropboxAgent.reset();
    m_attention.reset();
    m_notifications.reset();
    m_notificationCentre.reset();
    m_tracking.reset();
    m_activityManager.reset();
    m_store.reset();
    // The settings' availability check asks this object's notifier, which goes now.
    BvSettings::setNotificationsAvailable({});
}

std::expected<void, BvError> BrimvaleApplication::launch(const AppLaunchOptions &options)
{
    Q_ASSERT(!m_delegate);
    // The settings ask whether notifications can be shown while they are read, so the answer comes first.
    Notifier *notifier = m_services.notifier.get();
    BvSettings::setNotificationsAvailable([notifier] { return notifier && notifier->isAvailable(); });
    m_defaults = std::make_unique<UserDefaults>(m_environment.settingsFilePath);
    m_defaults->registerDefaultsFromResource();
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
    m_settings->setLoginItemService(m_services.loginItems.get());
    // The settings' upgrade asks the keyring whether this machine held Dropbox before.
    if (m_services.keychain) {
        m_upgradeHelper = std::make_unique<BVDropboxUpgradeHelper>(*m_services.keychain);
        m_settings->setUpgradeHelper(m_upgradeHelper.get());
    }

    StoreOptions storeOptions;
    storeOptions.applicationFilesDirectory = m_environment.applicationFilesDirectory;
    storeOptions.skipMigrations = m_defaults->boolForKey(QStringLiteral("skipMigrations"));
    storeOptions.clock = m_environment.clock;
    storeOptions.projectsOrderedByHand = m_settings->reportSidebarProjectsOrdered();
    storeOptions.tasksOrderedByHand = m_settings->reportSidebarTasksOrdered();
    auto store = Store::open(storeOptions);
    if (!store)
        return std::unexpected(store.error());
    m_store = std::move(*store);
    // An edit made with `brimvale edit` in a terminal shows in the open window.
    m_store->setWatchesExternalChanges(true);

    m_activityManager = std::make_unique<ActivityManager>(*m_store,
        RecentItemsOptions { m_settings->recentItemsCount(), m_settings->recentItemsOrderedByDate(),
            m_settings->recentItemsExcludeInvoiced() });
    // The recent menus fill when they open, so a change in the preferences shows at the next opening.
    connect(m_settings.get(), &BvSettings::recentItemsChanged, m_activityManager.get(), [this] {
        m_activityManager->setRecentItemsOptions({ m_settings->recentItemsCount(),
            m_settings->recentItemsOrderedByDate(), m_settings->recentItemsExcludeInvoiced() });
    });
    m_tracking = std::make_unique<TrackingController>(*m_activityManager, *m_settings, *m_environment.clock);
    // The attention rules follow the tracking controller's seams from the launch's first stop on.
    m_notificationCentre = std::make_unique<NotificationCentreNotifier>(*m_services.notifier);
    m_notifications = std::make_unique<BvUserNotificationService>(*m_notificationCentre);
    m_attention = std::make_unique<AttentionController>(
        *m_activityManager, *m_settings, *m_environment.clock, *m_services.idleSource, *m_notifications);
    connect(m_tracking.get(), &TrackingController::attentionTimerRearmRequested, m_attention.get(),
        &AttentionController::setReminderTimer);
    connect(m_tracking.get(), &TrackingController::idleTimerUpdateRequested, m_attention.get(),
        &AttentionController::enableDisableIdleTimer);
    connect(m_tracking.get(), &TrackingController::dockBouncingStopRequested, m_attention.get(),
        &AttentionController::stopDockBouncing);
    SessionEvents *sessionEvents = m_services.sessionEvents.get();
    connect(m_tracking.get(), &TrackingController::trackingChanged, sessionEvents,
        [sessionEvents](bool tracking) { sessionEvents->setTracking(tracking); });
    connect(sessionEvents, &SessionEvents::computerEventDidStart, m_attention.get(),
        &AttentionController::computerEventDidStart);
    connect(sessionEvents, &SessionEvents::computerEventDidStop, m_attention.get(),
        &AttentionController::computerEventDidStop);
    makeSync();
    m_delegate = std::make_unique<Brimvale_AppDelegate>(
        Brimvale_AppDelegate::Parts { *m_tracking, *m_settings, *m_services.globalHotKey, *m_services.notifier,
            m_environment.trayAvailable, *m_dropboxAccount, *m_syncManager });
    connect(m_delegate.get(), &Brimvale_AppDelegate::quitRequested, this, &BrimvaleApplication::quit);
    connect(m_delegate.get(), &Brimvale_AppDelegate::preferencesRequested, this, [this] { showPreferences(-1); });
    connect(m_delegate.get(), &Brimvale_AppDelegate::terminationAllowed, this, [this] {
        Q_EMIT aboutToQuit();
        QCoreApplication::quit();
    });

    m_idlePrompt = std::make_unique<IdlePromptPresenter>(*m_attention, *m_settings, *m_environment.clock);
    m_dockAttention = std::make_unique<DockAttention>(*m_attention);
    m_dockAttention->setTrackingWindow(&m_delegate->mainWindow());
    connect(m_attention.get(), &AttentionController::mainWindowRequested, m_delegate.get(),
        &Brimvale_AppDelegate::showAndBringMainWindowToFront);
    // Subtracting idle time changes the running activity under the start-time sheet: the sheet gives up.
    connect(m_attention.get(), &AttentionController::idlePromptEnded, m_delegate.get(), [this](int response) {
        if (response != 0 && m_delegate->startTimeSheet())
            m_delegate->startTimeSheet()->done(0);
    });
    // While the idle question is open, the controller's menus take no command.
    connect(m_attention.get(), &AttentionController::hasIdlePromptChanged, m_delegate.get(), [this](bool open) {
        m_delegate->mainWindow().menuBar()->setEnabled(!open);
        if (QMenu *menu = m_delegate->statusBarMenu())
            menu->setEnabled(!open);
    });

    m_reportWindows = std::make_unique<ReportWindows>(*m_store, *m_activityManager, *m_settings);
    connect(
        m_delegate.get(), &Brimvale_AppDelegate::reportRequested, m_reportWindows.get(), &ReportWindows::showReport);
    connect(
        m_delegate.get(), &Brimvale_AppDelegate::importRequested, m_reportWindows.get(), &ReportWindows::showImport);
    connect(m_reportWindows.get(), &ReportWindows::reportOpenChanged, m_delegate.get(),
        &Brimvale_AppDelegate::enableWindowMenuItemReport);
    connect(m_reportWindows.get(), &ReportWindows::mainWindowRequested, m_delegate.get(),
        &Brimvale_AppDelegate::showAndBringMainWindowToFront);

    m_delegate->applicationDidFinishLaunching(options.launchFromHelper);
    // Sleep, screen sleep, screensaver and lock reach the rules from here on.
    sessionEvents->start();
    if (!options.url.isEmpty())
        openUrl(options.url);
    return {};
}

TrackingController &BrimvaleApplication::tracking()
{
    Q_ASSERT(m_tracking);
    return *m_tracking;
}

AttentionController &BrimvaleApplication::attention()
{
    Q_ASSERT(m_attention);
    return *m_attention;
}

Brimvale_AppDelegate &BrimvaleApplication::delegate()
{
    Q_ASSERT(m_delegate);
    return *m_delegate;
}

BvSettings &BrimvaleApplication::settings()
{
    Q_ASSERT(m_settings);
    return *m_settings;
}

Store &BrimvaleApplication::store()
{
    Q_ASSERT(m_store);
    return *m_store;
}

BVSyncManager &BrimvaleApplication::syncManager()
{
    Q_ASSERT(m_syncManager);
    return *m_syncManager;
}

BVDropboxSyncBackend &BrimvaleApplication::dropboxAccount()
{
    Q_ASSERT(m_dropboxAccount);
    return *m_dropboxAccount;
}

void BrimvaleApplication::makeSync()
{
    DropboxSyncServiceProtocol *agent = m_environment.dropboxService;
    if (!agent) {
        m_dropboxAgent = std::make_unique<DropboxAgentClient>();
        agent = m_dropboxAgent.get();
    }
    m_dropboxSettings = std::make_unique<BVDropboxSettings>(*m_defaults);
    m_dropboxServices
        = BVDropboxServices { agent, m_services.keychain.get(), m_dropboxSettings.get(), m_environment.clock };
    // One account object lives as long as the app: the preferences and the browser's redirect use it.
    // Each run gets a backend of its own.
    m_dropboxAccount = std::make_unique<BVDropboxSyncBackend>(m_dropboxServices);

    BVSyncManager::BackendFactory backends = m_environment.syncBackends;
    if (!backends) {
        backends = [this](int syncMethod) {
            return BVSyncBackendFactory::backendForSyncMethod(syncMethod, m_settings->view(), &m_dropboxServices);
        };
    }
    // The running activity's end moves with every touch; the files get it once it has stopped.
    m_syncManager = std::make_unique<BVSyncManager>(
        *m_settings, *m_store, *m_environment.clock, std::move(backends), [this]() -> std::optional<QString> {
            const ActivityPtr running = m_activityManager->currentActivity();
            return running ? std::optional<QString>(running->uid()) : std::nullopt;
        });
}

void BrimvaleApplication::showMainWindow()
{
    if (m_delegate)
        m_delegate->showAndBringMainWindowToFront();
}

void BrimvaleApplication::showReport()
{
    if (m_reportWindows)
        m_reportWindows->showReport();
}

ReportWindows &BrimvaleApplication::reportWindows()
{
    Q_ASSERT(m_reportWindows);
    return *m_reportWindows;
}

void BrimvaleApplication::openUrl(const QString &url)
{
    if (m_delegate)
        m_delegate->handleGetURLEvent(url);
}

void BrimvaleApplication::showPreferences(int tab)
{
    if (!m_delegate)
        return;
    if (!m_preferences) {
        m_preferences = std::make_unique<PreferencesWindowController>(PreferencesWindowController::Parts { *m_settings,
            *m_store, *m_services.idleSource, *m_notifications, *m_dropboxAccount, *m_syncManager,
            *m_services.globalHotKey, m_environment.trayAvailable, m_environment.openUrl,
            [this] { return PreferencesWindowController::menuShortcuts(*m_delegate->mainWindow().menuBar()); } });
    }
    m_preferences->showPreferencesWithTabIdx(tab);
}

void BrimvaleApplication::quit()
{
    if (!m_delegate) {
        QCoreApplication::quit();
        return;
    }
    m_delegate->applicationShouldTerminate();
}
