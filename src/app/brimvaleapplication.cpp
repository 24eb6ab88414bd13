#include "app/brimvaleapplication.h"

#include <QCoreApplication>
#include <QSystemTrayIcon>

#include "app/trackingcontroller.h"
#include "base/clock.h"
#include "gui/app/brimvale_appdelegate.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "platform/dropboxagentclient.h"
#include "platform/notifier.h"
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
    m_delegate.reset();
    m_syncManager.reset();
    m_dropboxAccount.reset();
    m_upgradeHelper.reset();
    m_dropboxAgent.reset();
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
    m_tracking = std::make_unique<TrackingController>(*m_activityManager, *m_settings, *m_environment.clock);
    makeSync();
    m_delegate = std::make_unique<Brimvale_AppDelegate>(
        Brimvale_AppDelegate::Parts { *m_tracking, *m_settings, *m_services.globalHotKey, *m_services.notifier,
            m_environment.trayAvailable, *m_dropboxAccount, *m_syncManager });
    connect(m_delegate.get(), &Brimvale_AppDelegate::quitRequested, this, &BrimvaleApplication::quit);
    connect(m_delegate.get(), &Brimvale_AppDelegate::terminationAllowed, this, [this] {
        Q_EMIT aboutToQuit();
        QCoreApplication::quit();
    });

    m_delegate->applicationDidFinishLaunching(options.launchFromHelper);
    if (!options.url.isEmpty())
        openUrl(options.url);
    return {};
}

TrackingController &BrimvaleApplication::tracking()
{
    Q_ASSERT(m_tracking);
    return *m_tracking;
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

void BrimvaleApplication::openUrl(const QString &url)
{
    if (m_delegate)
        m_delegate->handleGetURLEvent(url);
}

void BrimvaleApplication::quit()
{
    if (!m_delegate) {
        QCoreApplication::quit();
        return;
    }
    m_delegate->applicationShouldTerminate();
}
