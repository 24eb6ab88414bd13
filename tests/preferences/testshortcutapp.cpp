#include <QtTest>

#include "app/brimvaleapplication.h"
#include "fakes/fakeclock.h"
#include "fakes/fakedropboxservice.h"
#include "fakes/fakeglobalhotkey.h"
#include "gui/app/brimvale_appdelegate.h"
#include "gui/app/mainwindow.h"
#include "platform/idlesourcenull.h"
#include "platform/keychainnull.h"
#include "platform/notifiernull.h"
#include "platform/sessioneventsnull.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

// The real app offscreen with a fake key grab: what it grabs at launch and after a change, and what a
// press of the shortcut does to the main window.
class TestShortcutApp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void grabFollowsTheSetting();
    void shortcutTogglesTheWindow_data();
    void shortcutTogglesTheWindow();

private:
    void launch(bool trayAvailable);
    MainWindow &window() { return m_app->delegate().mainWindow(); }

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock { QDateTime(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC) };
    FakeDropboxService m_dropboxAgent;
    FakeGlobalHotKey *m_hotKey = nullptr;
    std::unique_ptr<BrimvaleApplication> m_app;
};

void TestShortcutApp::init()
{
    m_home = std::make_unique<IsolatedHome>();
}

void TestShortcutApp::cleanup()
{
    m_app.reset();
    m_home.reset();
}

void TestShortcutApp::launch(bool trayAvailable)
{
    PlatformServices services;
    services.notifier = std::make_unique<NotifierNull>();
    services.idleSource = std::make_unique<IdleSourceNull>(u"none in tests"_s);
    services.sessionEvents = std::make_unique<SessionEventsNull>();
    auto hotKey = std::make_unique<FakeGlobalHotKey>();
    m_hotKey = hotKey.get();
    services.globalHotKey = std::move(hotKey);
    services.keychain = std::make_unique<KeychainNull>();
    AppEnvironment environment;
    environment.clock = &m_clock;
    environment.trayAvailable = [trayAvailable] { return trayAvailable; };
    environment.dropboxService = &m_dropboxAgent;
    m_app = std::make_unique<BrimvaleApplication>(std::move(services), environment);
    QVERIFY(m_app->launch({}));
}

void TestShortcutApp::grabFollowsTheSetting()
{
    {
        UserDefaults defaults(UserDefaults::standardFilePath());
        defaults.setInteger(0x54, u"globalHotKeyCode"_s);
        defaults.setInteger(0x0c000000, u"globalHotKeyFlags"_s);
        QVERIFY(defaults.synchronize());
    }
    launch(false);
    QCOMPARE(m_hotKey->grabbed, std::optional(BvHotKey { Qt::Key_T, BvHotKey::ControlFlag | BvHotKey::AltFlag }));

    m_app->settings().setGlobalHotKey(BvHotKey { Qt::Key_F9, BvHotKey::SuperFlag });
    QCOMPARE(m_hotKey->grabbed, std::optional(BvHotKey { Qt::Key_F9, BvHotKey::SuperFlag }));
    m_app->settings().setGlobalHotKey(std::nullopt);
    QCOMPARE(m_hotKey->grabbed, std::optional<BvHotKey>());
}

void TestShortcutApp::shortcutTogglesTheWindow_data()
{
    QTest::addColumn<bool>("tray");
    QTest::newRow("with a tray icon") << true;
    QTest::newRow("without a tray") << false;
}

void TestShortcutApp::shortcutTogglesTheWindow()
{
    QFETCH(bool, tray);

    launch(tray);
    QVERIFY(QTest::qWaitForWindowActive(&window()));

    // In front: the key puts it away (minimised without a tray, where the taskbar entry is the way back).
    m_hotKey->press();
    if (tray) {
        QVERIFY(!window().isVisible());
    } else {
        QVERIFY(window().isVisible());
        QVERIFY(window().isMinimized());
    }

    // Away: the key brings it back to the front.
    m_hotKey->press();
    QVERIFY(window().isVisible());
    QVERIFY(!window().isMinimized());
    QVERIFY(QTest::qWaitForWindowActive(&window()));

    // Open behind another window: the key brings it up rather than putting it away.
    QWidget other;
    other.show();
    other.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&other));
    QVERIFY(!window().isActiveWindow());
    m_hotKey->press();
    QVERIFY(window().isVisible());
    QVERIFY(QTest::qWaitForWindowActive(&window()));
}

QTEST_MAIN(TestShortcutApp)
#include "testshortcutapp.moc"
