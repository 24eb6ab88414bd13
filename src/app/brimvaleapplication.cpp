#include "app/brimvaleapplication.h"

#include <QCoreApplication>
#include <QSystemTrayIcon>

#include "app/services/syncrunner.h"
#include "app/trackingcontroller.h"
#include "base/clock.h"
#include "gui/app/brimvale_appdelegate.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "platform/notifier.h"
#include "settings/bvsettings.h"
#include "settings/loginitemservice.h"
#include "settings/userdefaults.h"

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
    m_syncRunner.reset();
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
    m_syncRunner = std::make_unique<SyncRunner>(*m_store, *m_settings, *m_activityManager);
    m_delegate = std::make_unique<Brimvale_AppDelegate>(Brimvale_AppDelegate::Parts { *m_tracking, *m_settings,
        *m_services.globalHotKey, *m_services.notifier, m_environment.trayAvailable, m_environment.dropboxConnector });
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

SyncRunner &BrimvaleApplication::syncRunner()
{
    Q_ASSERT(m_syncRunner);
    return *m_syncRunner;
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
