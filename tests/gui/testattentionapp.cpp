#include <QtTest>
#include <QtWidgets>

#include "app/brimvaleapplication.h"
#include "app/trackingcontroller.h"
#include "attention/attentioncontroller.h"
#include "fakes/fakeclock.h"
#include "fakes/fakeidlesource.h"
#include "fakes/fakenotifier.h"
#include "fakes/fakesessionevents.h"
#include "gui/app/brimvale_appdelegate.h"
#include "gui/app/bvmainwindowstatusbarview.h"
#include "gui/app/editactivitystarttimewindowcontroller.h"
#include "gui/app/mainwindow.h"
#include "gui/attention/idletimepromptwindowcontroller.h"
#include "model/activitymanager.h"
#include "platform/globalhotkeynull.h"
#include "platform/keychainnull.h"
#include "settings/bvsettings.h"
#include "settings/computereventsettings.h"
#include "settings/notificationsettings.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {
const QDateTime T0(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC);
}

// The attention rules as the composition root wires them into the app: the tracking controller's seams,
// the session's events and the sleep lock, the notifier, the idle prompt over the main window.
class TestAttentionApp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void idleQuestionBlocksTheMenusAndItsAnswerClosesTheSheet();
    void notificationButtonAnswersTheIdleQuestion();
    void lockStopsAndUnlockResumesWhileTheSleepLockFollowsTracking();
    void reminderGoesOutAndItsClickShowsTheWindow();

private:
    void launch();
    void startTracking(const QString &text);
    void becomeIdle();

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock { T0 };
    FakeNotifier *m_notifier = nullptr;
    FakeIdleSource *m_idle = nullptr;
    FakeSessionEvents *m_events = nullptr;
    std::unique_ptr<BrimvaleApplication> m_app;
};

void TestAttentionApp::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_clock.set(T0);
}

void TestAttentionApp::cleanup()
{
    m_app.reset();
    m_home.reset();
}

void TestAttentionApp::launch()
{
    PlatformServices services;
    auto notifier = std::make_unique<FakeNotifier>();
    auto idle = std::make_unique<FakeIdleSource>();
    auto events = std::make_unique<FakeSessionEvents>();
    m_notifier = notifier.get();
    m_idle = idle.get();
    m_events = events.get();
    services.notifier = std::move(notifier);
    services.idleSource = std::move(idle);
    services.sessionEvents = std::move(events);
    services.globalHotKey = std::make_unique<GlobalHotKeyNull>();
    services.keychain = std::make_unique<KeychainNull>();
    AppEnvironment environment;
    environment.clock = &m_clock;
    environment.trayAvailable = [] { return false; };
    m_app = std::make_unique<BrimvaleApplication>(std::move(services), environment);
    QVERIFY(m_app->launch({}));
    QVERIFY(m_events->started);
}

void TestAttentionApp::startTracking(const QString &text)
{
    m_app->tracking().setActivityText(text);
    QVERIFY(m_app->tracking().doStartTrackAndShowWindow(false));
}

void TestAttentionApp::becomeIdle()
{
    m_idle->touch(m_clock.now());
    m_clock.advance(16 * 60 * 1000);
    m_app->attention().idleTimer().check();
}

void TestAttentionApp::idleQuestionBlocksTheMenusAndItsAnswerClosesTheSheet()
{
    launch();
    m_app->settings().setIdleTimeoutDetection(true);
    startTracking(u"@Acme mock-ups"_s);
    QVERIFY(m_app->attention().idleTimer().isWatching());
    Q_EMIT m_app->delegate().mainWindow().statusbarView()->onEditStartTimeButton();
    QPointer<QDialog> sheet = m_app->delegate().startTimeSheet();
    QVERIFY(sheet);

    becomeIdle();
    QVERIFY(m_app->attention().hasIdlePrompt());
    QTRY_VERIFY(qobject_cast<IdleTimePromptWindowController *>(QApplication::activeModalWidget()));
    auto *prompt = qobject_cast<IdleTimePromptWindowController *>(QApplication::activeModalWidget());
    QVERIFY(!m_app->delegate().mainWindow().menuBar()->isEnabled());

    QTest::mouseClick(prompt->findChild<QRadioButton *>(u"idleAction2"_s), Qt::LeftButton);
    QTest::mouseClick(prompt->findChild<QPushButton *>(u"okButton"_s), Qt::LeftButton);
    QVERIFY(m_app->delegate().mainWindow().menuBar()->isEnabled());
    QTRY_VERIFY(!sheet || !sheet->isVisible());
    // Subtracted and continued: the same text runs again from now, and the watch is back.
    QVERIFY(m_app->tracking().isTracking());
    QCOMPARE(m_app->tracking().activityManager().currentActivity()->timeFrom(), m_clock.now());
    QVERIFY(m_app->attention().idleTimer().isWatching());
    QCOMPARE(m_app->settings().defaultIdleAction(), 2);
}

void TestAttentionApp::notificationButtonAnswersTheIdleQuestion()
{
    launch();
    m_app->settings().setIdleTimeoutDetection(true);
    startTracking(u"@Acme review"_s);
    becomeIdle();
    QTRY_VERIFY(QApplication::activeModalWidget());
    QPointer<QWidget> prompt = QApplication::activeModalWidget();
    QCOMPARE(m_notifier->posted.size(), 1);
    const UserNotification question = m_notifier->posted.at(0);
    QCOMPARE(question.actions.size(), 3);
    m_notifier->click(question.name, question.actions.at(0).first);
    QTRY_VERIFY(!prompt);
    QVERIFY(!m_app->tracking().isTracking());
    QCOMPARE(m_notifier->withdrawn, QStringList { question.name });
    // The notification's answer is not the remembered choice.
    QCOMPARE(m_app->settings().defaultIdleAction(), 1);
}

void TestAttentionApp::lockStopsAndUnlockResumesWhileTheSleepLockFollowsTracking()
{
    launch();
    ComputerEventSettings *locked = m_app->settings().eventScreenLockedSettings();
    locked->setStopTracking(true);
    locked->setResumeTracking(true);
    startTracking(u"@Acme call"_s);
    m_clock.advance(60 * 1000);
    m_events->begin(4);
    QVERIFY(!m_app->tracking().isTracking());
    m_clock.advance(60 * 1000);
    m_events->end(4);
    QVERIFY(m_app->tracking().isTracking());
    QCOMPARE(m_app->tracking().activityManager().currentActivity()->text(), u"@Acme call"_s);
    QCOMPARE(m_events->trackingStates, (QList<bool> { true, false, true }));
}

void TestAttentionApp::reminderGoesOutAndItsClickShowsTheWindow()
{
    launch();
    m_app->settings().setAppNotificationType(2);
    NotificationSettings *reminder = m_app->settings().reminderNotification();
    reminder->setInterval(1);
    reminder->setDisplayNotification(true);
    startTracking(u"@Acme #design mock-ups"_s);
    QCOMPARE(m_app->attention().reminderInterval(), 60 * 1000);
    // The user works in the main window: a tick does nothing.
    MainWindow &window = m_app->delegate().mainWindow();
    window.show();
    window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    m_app->attention().performReminder();
    QCOMPARE(m_notifier->posted.size(), 0);
    // Another application is in front: a tick reminds.
    m_app->delegate().mainWindow().hide();
    QCOMPARE(m_app->settings().appNotificationType(), 2);
    m_app->attention().performReminder();
    QCOMPARE(m_notifier->posted.size(), 1);
    QCOMPARE(m_notifier->posted.at(0).title, u"Brimvale"_s);
    QCOMPARE(m_notifier->posted.at(0).body, u"Are you still working on: @Acme #design mock-ups"_s);
    m_notifier->click(m_notifier->posted.at(0).name, u"default"_s);
    QTRY_VERIFY(m_app->delegate().mainWindow().isVisible());
}

QTEST_MAIN(TestAttentionApp)
#include "testattentionapp.moc"
