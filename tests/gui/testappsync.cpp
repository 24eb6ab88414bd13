#include <QtTest>

#include <QMenu>
#include <QTemporaryDir>
#include <QToolButton>

#include "app/brimvaleapplication.h"
#include "fakes/fakeclock.h"
#include "fakes/fakedropboxservice.h"
#include "fakes/fakekeychain.h"
#include "fakes/fakesyncbackend.h"
#include "gui/app/brimvale_appdelegate.h"
#include "gui/app/bvmainwindowstatusbarview.h"
#include "gui/app/mainwindow.h"
#include "gui/app/menutags.h"
#include "gui/app/statusbarmenu.h"
#include "gui/sync/bvsyncstatuswindowcontroller.h"
#include "platform/globalhotkeynull.h"
#include "platform/idlesourcenull.h"
#include "platform/notifier.h"
#include "platform/sessioneventsnull.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"
#include "sync/bvsyncmanager.h"
#include "sync/bvsyncservice.h"
#include "sync/bvsyncstatusindicator.h"

using namespace Qt::StringLiterals;

namespace {

// Stands for the desktop's notification server: always there, remembers what was posted.
class FakeNotifier : public Notifier
{
public:
    bool isAvailable() const override { return true; }
    bool supportsActions() const override { return true; }
    void post(const UserNotification &notification) override { posted.append(notification); }
    void withdraw(const QString &) override { }
    QList<UserNotification> posted;
};

} // namespace

// The sync of the running app: the real app built offscreen with a fake clock, the runs going to a fake
// backend over a local folder, and the Dropbox account talking to an in-memory agent and keyring.
class TestAppSync : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void statusBarButtonFollowsTheRun_data();
    void statusBarButtonFollowsTheRun();
    void statusMenuOffersSyncPerMethod();
    void launchSchedulesTheFirstRunAndSettingsMoveIt_data();
    void launchSchedulesTheFirstRunAndSettingsMoveIt();
    void syncButtonOpensTheWindowOfTheLastRun();
    void dropboxRedirectConnectsTheAccount_data();
    void dropboxRedirectConnectsTheAccount();

private:
    void setSetting(const QString &key, const QVariant &value);
    BrimvaleApplication &launch(AppLaunchOptions options = {});
    BVMainWindowStatusbarView &statusbarView() { return *m_app->delegate().mainWindow().statusbarView(); }
    QAction *syncAction() const { return m_app->delegate().statusBarMenu()->actionWithTag(MenuTags::StatusSync); }

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<QTemporaryDir> m_remote;
    FakeClock m_clock { QDateTime(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC) };
    FakeDropboxService m_dropbox;
    FakeKeychain *m_keychain = nullptr;
    FakeNotifier *m_notifier = nullptr;
    // The next run's backend fails its change listing with this text, when set.
    QString m_failListing;
    std::unique_ptr<BrimvaleApplication> m_app;
};

void TestAppSync::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_remote = std::make_unique<QTemporaryDir>();
    m_failListing.clear();
}

void TestAppSync::cleanup()
{
    m_app.reset();
    m_remote.reset();
    m_home.reset();
}

void TestAppSync::setSetting(const QString &key, const QVariant &value)
{
    UserDefaults defaults(UserDefaults::standardFilePath());
    defaults.setObject(value, key);
    QVERIFY(defaults.synchronize());
}

BrimvaleApplication &TestAppSync::launch(AppLaunchOptions options)
{
    PlatformServices services;
    auto notifier = std::make_unique<FakeNotifier>();
    m_notifier = notifier.get();
    services.notifier = std::move(notifier);
    services.idleSource = std::make_unique<IdleSourceNull>(u"none in tests"_s);
    services.sessionEvents = std::make_unique<SessionEventsNull>();
    services.globalHotKey = std::make_unique<GlobalHotKeyNull>();
    auto keychain = std::make_unique<FakeKeychain>();
    m_keychain = keychain.get();
    services.keychain = std::move(keychain);

    AppEnvironment environment;
    environment.clock = &m_clock;
    environment.trayAvailable = [] { return true; };
    environment.dropboxService = &m_dropbox;
    environment.syncBackends = [this](int syncMethod) -> std::unique_ptr<BVSyncServiceBackend> {
        auto backend = std::make_unique<FakeSyncBackend>(m_remote->path(), syncMethod);
        if (!m_failListing.isEmpty())
            backend->failNext(FakeSyncBackend::Operation::FetchChanges, m_failListing);
        return backend;
    };
    m_app = std::make_unique<BrimvaleApplication>(std::move(services), environment);
    const auto launched = m_app->launch(options);
    if (!launched)
        qFatal("launch failed: %s", qPrintable(launched.error().message()));
    return *m_app;
}

void TestAppSync::statusBarButtonFollowsTheRun_data()
{
    QTest::addColumn<int>("method");
    QTest::addColumn<QString>("failure");
    QTest::addColumn<QString>("endToolTip");

    QTest::newRow("Dropbox completes") << 1 << QString() << u"Dropbox sync completed"_s;
    QTest::newRow("folder completes") << 2 << QString() << u"Folder sync completed"_s;
    QTest::newRow("Dropbox fails") << 1 << u"Dropbox is unreachable"_s << u"Dropbox sync error"_s;
}

void TestAppSync::statusBarButtonFollowsTheRun()
{
    QFETCH(int, method);
    QFETCH(QString, failure);
    QFETCH(QString, endToolTip);
    setSetting(u"syncMethod"_s, method);
    m_failListing = failure;
    launch();
    QVERIFY(statusbarView().syncButtonToolTip().isEmpty());

    // The tray's sync command starts the run; the button shows it at once.
    syncAction()->trigger();
    const QString title = method == 1 ? u"Dropbox"_s : u"Folder"_s;
    QCOMPARE(statusbarView().syncButtonToolTip(), title + u" syncing ..."_s);
    QVERIFY(m_app->syncManager().currentSyncService());

    QTRY_COMPARE_WITH_TIMEOUT(statusbarView().syncButtonToolTip(), endToolTip, 20000);
    if (failure.isEmpty()) {
        // A completed run's button goes after a while; an error stays until the next run.
        QTRY_VERIFY_WITH_TIMEOUT(statusbarView().syncButtonToolTip().isEmpty(), 10000);
    } else {
        QTest::qWait(BVSyncStatusIndicator::HideDelayMsecs + 500);
        QCOMPARE(statusbarView().syncButtonToolTip(), endToolTip);
    }
    // Whatever the outcome, the next automatic run is one interval away (30 minutes by default).
    QCOMPARE(m_app->syncManager().nextAutoSyncTime(), m_clock.now().addSecs(30 * 60));
}

void TestAppSync::statusMenuOffersSyncPerMethod()
{
    setSetting(u"syncMethod"_s, 0);
    launch();
    StatusBarMenu *menu = m_app->delegate().statusBarMenu();
    QVERIFY(menu);
    QAction *activities = menu->actionWithTag(MenuTags::StatusActivities);
    QVERIFY(activities && activities->menu());
    QCOMPARE(activities->text(), u"Activities"_s);
    QCOMPARE(syncAction()->parent(), activities->menu());

    struct Step
    {
        int method;
        QString title;
    };
    const QList<Step> steps { { 0, QString() }, { 1, u"Sync with Dropbox"_s }, { 2, u"Sync with Folder"_s },
        { 0, QString() }, { 7, QString() } };
    for (const Step &step : steps) {
        m_app->settings().setSyncMethod(step.method);
        const QString context = u"method %1"_s.arg(step.method);
        QVERIFY2(syncAction()->isVisible() == !step.title.isNull(), qPrintable(context));
        // "Activities" also holds the import command, so it stays.
        QVERIFY2(activities->isVisible(), qPrintable(context));
        if (!step.title.isNull())
            QVERIFY2(syncAction()->isEnabled(), qPrintable(context));
        QCOMPARE(syncAction()->text(), step.title);
        QCOMPARE(m_app->delegate().syncMenuTitle(), step.title);
    }
}

void TestAppSync::launchSchedulesTheFirstRunAndSettingsMoveIt_data()
{
    QTest::addColumn<int>("method");
    QTest::addColumn<int>("interval");
    QTest::addColumn<int>("firstRunInSecs"); // -1: none scheduled

    QTest::newRow("Dropbox, every 30 minutes") << 1 << 2 << 30;
    QTest::newRow("folder, every hour") << 2 << 3 << 30;
    QTest::newRow("manually") << 1 << 0 << -1;
    QTest::newRow("sync off") << 0 << 2 << -1;
}

void TestAppSync::launchSchedulesTheFirstRunAndSettingsMoveIt()
{
    QFETCH(int, method);
    QFETCH(int, interval);
    QFETCH(int, firstRunInSecs);
    setSetting(u"syncMethod"_s, method);
    setSetting(u"dropboxSyncInterval"_s, interval);
    launch();
    BVSyncManager &manager = m_app->syncManager();
    const QDateTime launchedAt = m_clock.now();
    if (firstRunInSecs < 0)
        QVERIFY(!manager.nextAutoSyncTime());
    else
        QCOMPARE(manager.nextAutoSyncTime(), launchedAt.addSecs(firstRunInSecs));
    QVERIFY(!manager.currentSyncService());

    // The preferences change the interval or the method: the timer follows at once.
    m_app->settings().setLastSyncTime(launchedAt.addSecs(-10 * 60));
    m_app->settings().setSyncMethod(1);
    m_app->settings().setDropboxSyncInterval(2);
    QCOMPARE(manager.nextAutoSyncTime(), launchedAt.addSecs(1200));
    m_app->settings().setDropboxSyncInterval(3);
    QCOMPARE(manager.nextAutoSyncTime(), launchedAt.addSecs(3000));
    m_app->settings().setDropboxSyncInterval(0);
    QVERIFY(!manager.nextAutoSyncTime());
    m_app->settings().setDropboxSyncInterval(1);
    QCOMPARE(manager.nextAutoSyncTime(), launchedAt.addSecs(300));
    m_app->settings().setSyncMethod(0);
    QVERIFY(!manager.nextAutoSyncTime());
    QVERIFY(!manager.currentSyncService());
}

void TestAppSync::syncButtonOpensTheWindowOfTheLastRun()
{
    setSetting(u"syncMethod"_s, 2);
    m_failListing = u"The share is not mounted"_s;
    launch();
    syncAction()->trigger();
    QTRY_COMPARE_WITH_TIMEOUT(statusbarView().syncButtonToolTip(), u"Folder sync error"_s, 20000);
    QTRY_VERIFY(!m_app->syncManager().currentSyncService());
    BVSyncStatusWindowController *window = m_app->delegate().syncStatusWindow();
    QVERIFY(window && !window->isVisible());

    auto *button = statusbarView().findChild<QToolButton *>(u"syncStatusButton"_s);
    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(m_app->delegate().syncStatusWindow(), window);
    QVERIFY(window->isVisible());
    // The run has ended: the window shows how.
    QVERIFY(window->isFinished());
    QCOMPARE(window->statusText(), u"Failure. The share is not mounted"_s);

    // An open window follows the next run.
    m_failListing.clear();
    syncAction()->trigger();
    QVERIFY(!window->isFinished());
    QTRY_VERIFY_WITH_TIMEOUT(window->isFinished(), 20000);
    QCOMPARE(window->statusText(), u"Sync operation completed!"_s);
}

void TestAppSync::dropboxRedirectConnectsTheAccount_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("connected");

    QTest::newRow("bearer token")
        << u"brimvaleapp://dropbox#access_token=sl.AB%2Bc&token_type=bearer&account_id=dbid%3Aada"_s << true;
    QTest::newRow("other token type")
        << u"brimvaleapp://dropbox#access_token=sl.AB&token_type=Bearer&account_id=dbid:ada"_s << false;
    QTest::newRow("other host") << u"brimvaleapp://elsewhere#access_token=sl.AB&token_type=bearer&account_id=a"_s
                                << false;
}

void TestAppSync::dropboxRedirectConnectsTheAccount()
{
    QFETCH(QString, url);
    QFETCH(bool, connected);
    setSetting(u"appNotificationType"_s, 2);
    m_dropbox.acceptToken(u"sl.AB+c"_s);
    launch();
    QSignalSpy authChanged(&m_app->dropboxAccount(), &BVDropboxSyncBackend::BvDropboxAuthChanged);

    // A URL forwarded to the running app by a second `brimvale`.
    m_app->openUrl(url);
    QCOMPARE(m_keychain->value(u"oauth2_token"_s), connected ? u"sl.AB+c"_s : QString());
    QCOMPARE(m_app->dropboxAccount().isDropboxConnected(), connected);
    QCOMPARE(m_notifier->posted.size(), connected ? 1 : 0);
    if (!connected) {
        QCOMPARE(authChanged.size(), 0);
        return;
    }
    QCOMPARE(m_notifier->posted.constFirst().title, u"Dropbox"_s);
    QCOMPARE(m_notifier->posted.constFirst().body, u"Connected with Dropbox"_s);
    // The account's display name comes from Dropbox afterwards.
    QTRY_COMPARE(m_app->settings().dropboxAccountName(), u"Ada Lovelace"_s);
    QCOMPARE(m_app->settings().dropboxAccountID(), u"dbid:ada"_s);
    QVERIFY(authChanged.size() >= 1);
    // The token lives in the keyring only.
    QFile file(UserDefaults::standardFilePath());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(!file.readAll().contains("sl.AB"));
}

QTEST_MAIN(TestAppSync)
#include "testappsync.moc"
