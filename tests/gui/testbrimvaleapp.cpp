#include <QtTest>

#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QSignalSpy>

#include "app/brimvaleapplication.h"
#include "app/trackingcontroller.h"
#include "fakes/fakeclock.h"
#include "fakes/fakedropboxservice.h"
#include "gui/app/activitytextview.h"
#include "gui/app/brimvale_appdelegate.h"
#include "gui/app/bvmainwindowstatusbarview.h"
#include "gui/app/bvstatusbaritem.h"
#include "gui/app/editactivitystarttimewindowcontroller.h"
#include "gui/app/mainmenubar.h"
#include "gui/app/mainwindow.h"
#include "gui/app/menutags.h"
#include "gui/app/recentactivitiesmenu.h"
#include "gui/app/statusbarmenu.h"
#include "gui/app/storeerroralert.h"
#include "gui/report/reportwindowcontroller.h"
#include "gui/report/reportwindows.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "model/storeerrors.h"
#include "platform/globalhotkeynull.h"
#include "platform/idlesourcenull.h"
#include "platform/keychainnull.h"
#include "platform/notifier.h"
#include "platform/sessioneventsnull.h"
#include "settings/bvsettings.h"
#include "settings/notificationsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

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

PlatformServices nullServices(FakeNotifier **notifier = nullptr)
{
    PlatformServices services;
    auto fakeNotifier = std::make_unique<FakeNotifier>();
    if (notifier)
        *notifier = fakeNotifier.get();
    services.notifier = std::move(fakeNotifier);
    services.idleSource = std::make_unique<IdleSourceNull>(u"none in tests"_s);
    services.sessionEvents = std::make_unique<SessionEventsNull>();
    services.globalHotKey = std::make_unique<GlobalHotKeyNull>();
    services.keychain = std::make_unique<KeychainNull>();
    return services;
}

QString textOfLength(int length)
{
    QString text = u"@Acme "_s;
    while (text.size() < length)
        text += QChar(char16_t(u'a' + text.size() % 26));
    return text;
}

} // namespace

class TestBrimvaleApp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void returnStoresTheActivityWithProjectAndTasks();
    void startWhileTracking_data();
    void startWhileTracking();
    void menusFollowTracking_data();
    void menusFollowTracking();
    void trayTitlePerType_data();
    void trayTitlePerType();
    void recentMenuTitles_data();
    void recentMenuTitles();
    void earlierActivitiesFillTheFieldOnly();
    void launchShowsOrKeepsTheWindowClosed_data();
    void launchShowsOrKeepsTheWindowClosed();
    void keyboardStartClosesTheWindowOnlyWithATray_data();
    void keyboardStartClosesTheWindowOnlyWithATray();
    void closingTheWindowQuitsOnlyWithoutATray_data();
    void closingTheWindowQuitsOnlyWithoutATray();
    void quitStoresTheLineAndEndsTheRunningActivity();
    void intervalChangesRearmOnlyTheRunningTimer_data();
    void intervalChangesRearmOnlyTheRunningTimer();
    void appearanceChangesAtRunTime();
    void switchingToATimerShowsItAtOnce();
    void startTimeButtonOpensTheSheetOnlyWhileTracking();
    void storeThatCannotOpenIsTheLaunchError();
    void reportWindowsFollowShowCloseAndTheApp();

private:
    // Writes settings before launch (the cached ones are read once).
    void setSetting(const QString &key, const QVariant &value);
    BrimvaleApplication &launch(bool trayAvailable = false, AppLaunchOptions options = {});
    MainWindow &window() { return m_app->delegate().mainWindow(); }
    void typeAndReturn(const QString &line);
    QList<ActivityPtr> storedActivities();
    // Saves activities that ended before now, oldest first, so the recent list has them newest first.
    void storePastActivities(const QStringList &texts);

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock { QDateTime(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC) };
    FakeNotifier *m_notifier = nullptr;
    // The Dropbox agent: never started by these tests.
    FakeDropboxService m_dropboxAgent;
    std::unique_ptr<BrimvaleApplication> m_app;
};

void TestBrimvaleApp::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_clock.set(QDateTime(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC));
}

void TestBrimvaleApp::cleanup()
{
    m_app.reset();
    m_home.reset();
}

void TestBrimvaleApp::setSetting(const QString &key, const QVariant &value)
{
    UserDefaults defaults(UserDefaults::standardFilePath());
    defaults.setObject(value, key);
    QVERIFY(defaults.synchronize());
}

BrimvaleApplication &TestBrimvaleApp::launch(bool trayAvailable, AppLaunchOptions options)
{
    AppEnvironment environment;
    environment.clock = &m_clock;
    environment.trayAvailable = [trayAvailable] { return trayAvailable; };
    environment.dropboxService = &m_dropboxAgent;
    m_app = std::make_unique<BrimvaleApplication>(nullServices(&m_notifier), environment);
    const auto launched = m_app->launch(options);
    if (!launched)
        qFatal("launch failed: %s", qPrintable(launched.error().message()));
    return *m_app;
}

void TestBrimvaleApp::typeAndReturn(const QString &line)
{
    ActivityTextView *field = window().textView();
    field->selectAll();
    QTest::keyClick(field, Qt::Key_Backspace);
    QTest::keyClicks(field, line);
    QTest::keyClick(field, Qt::Key_Return);
}

QList<ActivityPtr> TestBrimvaleApp::storedActivities()
{
    StoreContext context(m_app->store());
    auto activities = context.fetchActivities();
    return activities ? *activities : QList<ActivityPtr>();
}

void TestBrimvaleApp::storePastActivities(const QStringList &texts)
{
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    auto store = Store::open(options);
    QVERIFY(store);
    ActivityManager manager(**store);
    QDateTime from = m_clock.now().addDays(-2);
    for (const QString &text : texts) {
        QString error;
        QVERIFY2(manager.saveActivity(text, from, from.addSecs(600), &error), qPrintable(error));
        from = from.addSecs(3600);
    }
}

void TestBrimvaleApp::returnStoresTheActivityWithProjectAndTasks()
{
    launch();
    QCOMPARE(window().statusbarView()->statusString(), u"Status: not tracking"_s);
    typeAndReturn(u"@Acme #design #review mock-ups"_s);

    QVERIFY(m_app->tracking().isTracking());
    const QList<ActivityPtr> stored = storedActivities();
    QCOMPARE(stored.size(), 1);
    QCOMPARE(stored.constFirst()->text(), u"@Acme #design #review mock-ups"_s);
    QVERIFY(stored.constFirst()->project());
    QCOMPARE(stored.constFirst()->project()->name(), u"Acme"_s);
    QStringList tasks;
    for (const TaskPtr &task : stored.constFirst()->tasks())
        tasks.append(task->name());
    tasks.sort();
    QCOMPARE(tasks, QStringList({ u"design"_s, u"review"_s }));
    QCOMPARE(stored.constFirst()->timeFrom(), m_clock.now());
    QCOMPARE(window().statusbarView()->statusString(), u"Status: tracking 00:00:00"_s);
    QVERIFY(window().statusbarView()->isEditStartTimeButtonVisible());
    QVERIFY(window().errorLabel()->isHidden());
}

void TestBrimvaleApp::startWhileTracking_data()
{
    QTest::addColumn<bool>("endCurrentActivityOnTrack");
    QTest::newRow("refused when the running one must be stopped first") << false;
    QTest::newRow("the running one ends now") << true;
}

void TestBrimvaleApp::startWhileTracking()
{
    QFETCH(bool, endCurrentActivityOnTrack);
    setSetting(u"endCurrentActivityOnTrack"_s, endCurrentActivityOnTrack);
    launch();
    typeAndReturn(u"@Acme first"_s);
    const QDateTime firstStart = m_clock.now();
    m_clock.advance(90 * 1000);
    typeAndReturn(u"@Globex second"_s);

    const QList<ActivityPtr> stored = storedActivities();
    QCOMPARE(m_app->tracking().activityManager().currentActivity()->text(),
        endCurrentActivityOnTrack ? u"@Globex second"_s : u"@Acme first"_s);
    if (endCurrentActivityOnTrack) {
        QCOMPARE(stored.size(), 2);
        QVERIFY(window().errorLabel()->isHidden());
        for (const ActivityPtr &activity : stored) {
            if (activity->text() == u"@Acme first"_s)
                QCOMPARE(activity->timeTo(), firstStart.addSecs(90));
        }
    } else {
        QCOMPARE(stored.size(), 1);
        QVERIFY(window().errorLabel()->isVisible());
        QCOMPARE(window().errorLabel()->text(), u"Stop previous activity before tracking new!"_s);
        QCOMPARE(window().errorLabel()->palette().color(QPalette::WindowText), QColor(Qt::red));
    }
}

void TestBrimvaleApp::menusFollowTracking_data()
{
    QTest::addColumn<bool>("endCurrentActivityOnTrack");
    QTest::newRow("end current on track") << true;
    QTest::newRow("stop first") << false;
}

void TestBrimvaleApp::menusFollowTracking()
{
    QFETCH(bool, endCurrentActivityOnTrack);
    setSetting(u"endCurrentActivityOnTrack"_s, endCurrentActivityOnTrack);
    launch(true);
    MainMenuBar *menuBar = window().mainMenuBar();
    StatusBarMenu *statusMenu = m_app->delegate().statusBarMenu();
    QVERIFY(statusMenu);
    auto enabled = [&](int tag) { return menuBar->actionWithTag(tag)->isEnabled(); };
    auto statusStopEnabled = [&] { return statusMenu->actionWithTag(MenuTags::StatusStopTracking)->isEnabled(); };
    QCOMPARE(menuBar->actionWithTag(MenuTags::ActivityMenu), menuBar->activityMenu()->menuAction());

    QVERIFY(enabled(MenuTags::StartTrack) && enabled(MenuTags::RecentActivities));
    QVERIFY(!enabled(MenuTags::UpdateTrack) && !enabled(MenuTags::StopTrack) && !statusStopEnabled());

    typeAndReturn(u"@Acme call"_s);
    QCOMPARE(enabled(MenuTags::StartTrack), endCurrentActivityOnTrack);
    QVERIFY(!enabled(MenuTags::RecentActivities));
    QVERIFY(enabled(MenuTags::UpdateTrack) && enabled(MenuTags::StopTrack) && statusStopEnabled());

    statusMenu->actionWithTag(MenuTags::StatusStopTracking)->trigger();
    QVERIFY(!m_app->tracking().isTracking());
    QVERIFY(enabled(MenuTags::StartTrack) && enabled(MenuTags::RecentActivities));
    QVERIFY(!enabled(MenuTags::UpdateTrack) && !enabled(MenuTags::StopTrack) && !statusStopEnabled());
    QCOMPARE(window().statusbarView()->statusString(), u"Status: not tracking"_s);
    QVERIFY(!window().statusbarView()->isEditStartTimeButtonVisible());
}

void TestBrimvaleApp::trayTitlePerType_data()
{
    QTest::addColumn<int>("statusbarType");
    QTest::addColumn<bool>("tracking");
    QTest::addColumn<QString>("title");
    QTest::newRow("icon, tracking") << 0 << true << u""_s;
    QTest::newRow("timer, tracking") << 1 << true << u"01:02"_s;
    QTest::newRow("icon and timer, tracking") << 2 << true << u"01:02"_s;
    QTest::newRow("timer, idle") << 1 << false << u"--:--"_s;
    QTest::newRow("icon, idle") << 0 << false << u""_s;
}

void TestBrimvaleApp::trayTitlePerType()
{
    QFETCH(int, statusbarType);
    QFETCH(bool, tracking);
    QFETCH(QString, title);
    setSetting(u"statusbarType"_s, statusbarType);
    launch(true);
    if (tracking) {
        typeAndReturn(u"@Acme call"_s);
        m_clock.advance(3725 * 1000);
        m_app->tracking().updateTrackStatus();
        QCOMPARE(window().statusbarView()->statusString(), u"Status: tracking 01:02:05"_s);
    }
    QVERIFY(m_app->delegate().statusBarItem());
    QCOMPARE(m_app->delegate().statusBarItem()->title(), title);
}

void TestBrimvaleApp::recentMenuTitles_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<bool>("cut");
    QTest::newRow("50 characters stay whole") << 50 << false;
    QTest::newRow("51 characters are cut to 47 and ...") << 51 << true;
}

void TestBrimvaleApp::recentMenuTitles()
{
    QFETCH(int, length);
    QFETCH(bool, cut);
    const QString text = textOfLength(length);
    storePastActivities({ u"@Globex older"_s, text });
    launch(true);

    const QString expected = cut ? text.left(47) + u"..."_s : text;
    QList<QMenu *> menus { window().mainMenuBar()->recentActivitiesMenu(),
        m_app->delegate().statusBarMenu()->recentActivitiesMenu(), window().earlierActivitiesMenu() };
    for (QMenu *menu : menus) {
        Q_EMIT menu->aboutToShow();
        const QList<QAction *> actions = menu->actions();
        QCOMPARE(actions.size(), 2);
        QCOMPARE(actions.at(0)->text(), expected);
        QCOMPARE(actions.at(0)->data().toString(), text);
        QCOMPARE(actions.at(1)->text(), u"@Globex older"_s);
    }

    // Choosing from the Activity menu starts the full text.
    window().mainMenuBar()->recentActivitiesMenu()->actions().at(0)->trigger();
    QVERIFY(m_app->tracking().isTracking());
    QCOMPARE(m_app->tracking().activityManager().currentActivity()->text(), text);
}

void TestBrimvaleApp::earlierActivitiesFillTheFieldOnly()
{
    launch();
    RecentActivitiesMenu *menu = window().earlierActivitiesMenu();
    menu->fill();
    QCOMPARE(menu->actions().size(), 1);
    QCOMPARE(menu->actions().constFirst()->text(), u"No previous activities!"_s);
    QVERIFY(!menu->actions().constFirst()->isEnabled());
    m_app.reset();

    storePastActivities({ u"@Acme #design mock-ups"_s });
    launch();
    menu = window().earlierActivitiesMenu();
    menu->fill();
    menu->actions().constFirst()->trigger();
    QCOMPARE(window().textView()->text(), u"@Acme #design mock-ups"_s);
    QVERIFY(!m_app->tracking().isTracking());
}

void TestBrimvaleApp::launchShowsOrKeepsTheWindowClosed_data()
{
    QTest::addColumn<bool>("launchFromHelper");
    QTest::addColumn<int>("appearance");
    QTest::addColumn<bool>("trayAvailable");
    QTest::addColumn<bool>("windowShown");
    QTest::addColumn<bool>("taskbarEntry");
    QTest::addColumn<bool>("trayIcon");
    QTest::addColumn<bool>("explainsMissingTray");
    QTest::newRow("window only") << false << 1 << true << true << true << false << false;
    QTest::newRow("window and tray") << false << 2 << true << true << true << true << false;
    QTest::newRow("tray only") << false << 3 << true << false << false << true << false;
    QTest::newRow("at login") << true << 2 << true << false << true << true << false;
    QTest::newRow("at login without a tray") << true << 3 << false << false << true << false << true;
    QTest::newRow("tray only without a tray") << false << 3 << false << true << true << false << true;
    QTest::newRow("window and tray without a tray") << false << 2 << false << true << true << false << true;
}

void TestBrimvaleApp::launchShowsOrKeepsTheWindowClosed()
{
    QFETCH(bool, launchFromHelper);
    QFETCH(int, appearance);
    QFETCH(bool, trayAvailable);
    QFETCH(bool, windowShown);
    QFETCH(bool, taskbarEntry);
    QFETCH(bool, trayIcon);
    QFETCH(bool, explainsMissingTray);
    setSetting(u"appearance"_s, appearance);
    launch(trayAvailable, { launchFromHelper, {} });

    QCOMPARE(window().isVisible(), windowShown);
    QCOMPARE(m_app->delegate().keepsTaskbarEntry(), taskbarEntry);
    QCOMPARE(window().windowType() == Qt::Tool, !taskbarEntry);
    QCOMPARE(m_app->delegate().statusBarItem() != nullptr, trayIcon);
    QCOMPARE(window().errorLabel()->text(),
        explainsMissingTray ? Brimvale_AppDelegate::trayUnavailableMessage() : QString());
    QCOMPARE(window().errorLabel()->isVisibleTo(&window()), explainsMissingTray);
}

void TestBrimvaleApp::keyboardStartClosesTheWindowOnlyWithATray_data()
{
    QTest::addColumn<bool>("trayAvailable");
    QTest::addColumn<QString>("how");
    QTest::addColumn<bool>("windowClosed");
    QTest::newRow("Return, tray") << true << u"return"_s << true;
    QTest::newRow("Ctrl+Return, tray") << true << u"shortcut"_s << true;
    QTest::newRow("menu click, tray") << true << u"click"_s << false;
    QTest::newRow("Return, no tray") << false << u"return"_s << false;
}

void TestBrimvaleApp::keyboardStartClosesTheWindowOnlyWithATray()
{
    QFETCH(bool, trayAvailable);
    QFETCH(QString, how);
    QFETCH(bool, windowClosed);
    launch(trayAvailable);
    QVERIFY(QTest::qWaitForWindowActive(&window()));
    window().textView()->setText(u"@Acme call"_s);
    m_app->tracking().setActivityTextFromUser(u"@Acme call"_s);
    if (how == u"return"_s)
        QTest::keyClick(window().textView(), Qt::Key_Return);
    else if (how == u"shortcut"_s)
        QTest::keyClick(window().textView(), Qt::Key_Return, Qt::ControlModifier);
    else
        window().mainMenuBar()->actionWithTag(MenuTags::StartTrack)->trigger();

    QVERIFY(m_app->tracking().isTracking());
    QCOMPARE(storedActivities().size(), 1);
    QCOMPARE(window().isVisible() && !window().isMinimized(), !windowClosed);
}

void TestBrimvaleApp::closingTheWindowQuitsOnlyWithoutATray_data()
{
    QTest::addColumn<bool>("trayAvailable");
    QTest::newRow("tray") << true;
    QTest::newRow("no tray") << false;
}

void TestBrimvaleApp::closingTheWindowQuitsOnlyWithoutATray()
{
    QFETCH(bool, trayAvailable);
    launch(trayAvailable);
    QSignalSpy quitting(m_app.get(), &BrimvaleApplication::aboutToQuit);
    window().close();
    QVERIFY(!window().isVisible());
    QCOMPARE(quitting.size(), trayAvailable ? 0 : 1);
}

void TestBrimvaleApp::quitStoresTheLineAndEndsTheRunningActivity()
{
    launch(true);
    typeAndReturn(u"@Acme call"_s);
    m_clock.advance(125 * 1000);
    QTest::keyClicks(window().textView(), u" notes"_s);
    QSignalSpy quitting(m_app.get(), &BrimvaleApplication::aboutToQuit);

    m_app->quit();

    QCOMPARE(quitting.size(), 1);
    QVERIFY(!m_app->tracking().isTracking());
    QVERIFY(!m_app->delegate().statusBarItem());
    QCOMPARE(m_app->settings().lastActivityText(), u"@Acme call notes"_s);
    const QList<ActivityPtr> stored = storedActivities();
    QCOMPARE(stored.size(), 1);
    QCOMPARE(stored.constFirst()->timeTo(), m_clock.now());

    // The next launch starts with the line and with nothing running.
    m_app.reset();
    launch();
    QCOMPARE(window().textView()->text(), u"@Acme call notes"_s);
    QVERIFY(!m_app->tracking().isTracking());
}

void TestBrimvaleApp::intervalChangesRearmOnlyTheRunningTimer_data()
{
    QTest::addColumn<bool>("tracking");
    QTest::addColumn<bool>("reminder");
    QTest::addColumn<bool>("rearmed");
    QTest::newRow("reminder while tracking") << true << true << true;
    QTest::newRow("reminder while idle") << false << true << false;
    QTest::newRow("nag while idle") << false << false << true;
    QTest::newRow("nag while tracking") << true << false << false;
}

void TestBrimvaleApp::intervalChangesRearmOnlyTheRunningTimer()
{
    QFETCH(bool, tracking);
    QFETCH(bool, reminder);
    QFETCH(bool, rearmed);
    launch();
    if (tracking)
        typeAndReturn(u"@Acme call"_s);
    QSignalSpy rearms(&m_app->tracking(), &TrackingController::attentionTimerRearmRequested);
    NotificationSettings *record
        = reminder ? m_app->settings().reminderNotification() : m_app->settings().notTrackingNotification();
    record->setInterval(record->interval() + 7);
    QCOMPARE(rearms.size(), rearmed ? 1 : 0);
}

void TestBrimvaleApp::appearanceChangesAtRunTime()
{
    setSetting(u"appearance"_s, 2);
    launch(true);
    QVERIFY(m_app->delegate().statusBarItem());

    // Leaving the taskbar takes effect at the next launch.
    m_app->settings().setAppAppearance(3);
    QVERIFY(m_app->delegate().statusBarItem());
    QVERIFY(m_app->delegate().keepsTaskbarEntry());

    m_app->settings().setAppAppearance(1);
    QVERIFY(!m_app->delegate().statusBarItem());
    QVERIFY(!m_app->delegate().statusBarMenu());
    QVERIFY(window().isVisible());

    m_app->settings().setAppStatusbarType(1);
    QVERIFY(!m_app->delegate().statusBarItem());
    m_app->settings().setAppAppearance(2);
    QVERIFY(m_app->delegate().statusBarItem());
    QCOMPARE(m_app->delegate().statusBarItem()->title(), u"--:--"_s);
}

void TestBrimvaleApp::switchingToATimerShowsItAtOnce()
{
    setSetting(u"statusbarType"_s, 0);
    launch(true);
    typeAndReturn(u"@Acme call"_s);
    m_clock.advance(125 * 1000);
    m_app->tracking().updateTrackStatus();
    QCOMPARE(m_app->delegate().statusBarItem()->title(), QString());

    m_app->settings().setAppStatusbarType(1);
    QCOMPARE(m_app->delegate().statusBarItem()->title(), u"00:02"_s);
    m_app->settings().setAppStatusbarType(0);
    QCOMPARE(m_app->delegate().statusBarItem()->title(), QString());
}

void TestBrimvaleApp::startTimeButtonOpensTheSheetOnlyWhileTracking()
{
    launch();
    Q_EMIT window().statusbarView()->onEditStartTimeButton();
    QVERIFY(!m_app->delegate().startTimeSheet());

    typeAndReturn(u"@Acme call"_s);
    Q_EMIT window().statusbarView()->onEditStartTimeButton();
    QDialog *sheet = m_app->delegate().startTimeSheet();
    QVERIFY(sheet);
    QVERIFY(sheet->isVisible());
    QCOMPARE(sheet->windowModality(), Qt::WindowModal);
    QCOMPARE(sheet->parentWidget(), &window());
    sheet->reject();
    QTRY_VERIFY(!m_app->delegate().startTimeSheet());
}

void TestBrimvaleApp::storeThatCannotOpenIsTheLaunchError()
{
    // The store's folder is taken by a file.
    QVERIFY(QDir().mkpath(m_home->applicationFilesDirectory()));
    QFile blocker(m_home->applicationFilesDirectory() + u"/db"_s);
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();

    AppEnvironment environment;
    environment.clock = &m_clock;
    BrimvaleApplication app(nullServices(), environment);
    const auto launched = app.launch({});
    QVERIFY(!launched);
    QCOMPARE(launched.error().code(), StoreErrors::FolderIsFileCode);

    StoreErrorAlert alert(launched.error());
    QCOMPARE(alert.text(), launched.error().description());
    QVERIFY(alert.detailedText().contains(QString::number(StoreErrors::FolderIsFileCode)));
    QVERIFY(alert.detailedText().contains(launched.error().domain()));
}

// The main window's Window > Report item follows the report's showing and closing, never its activation;
// an import opened from the report's own File menu belongs to the app and goes with it.
void TestBrimvaleApp::reportWindowsFollowShowCloseAndTheApp()
{
    BrimvaleApplication &app = launch();
    QAction *item = window().findChild<QAction *>(QStringLiteral("windowReportAction"));
    QVERIFY(item);
    QVERIFY(!item->isEnabled());

    window().findChild<QAction *>(QStringLiteral("showReportAction"))->trigger();
    QPointer<ReportWindowController> report = app.reportWindows().reportWindow();
    QVERIFY(report && report->isVisible());
    QVERIFY(item->isEnabled());
    window().activateWindow();
    QApplication::setActiveWindow(&window());
    QVERIFY(item->isEnabled());

    report->findChild<QAction *>(QStringLiteral("importAction"))->trigger();
    QCOMPARE(app.reportWindows().importWindows().size(), 1);
    QPointer<ReportWindowController> import = app.reportWindows().importWindows().first();

    report->close();
    QTRY_VERIFY(!report);
    QVERIFY(!item->isEnabled());
    QVERIFY(import);
    m_app.reset();
    QVERIFY(!import);
}

QTEST_MAIN(TestBrimvaleApp)
#include "testbrimvaleapp.moc"
