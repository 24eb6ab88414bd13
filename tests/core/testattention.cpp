#include <QtTest>

#include "attention/attentioncontroller.h"
#include "attention/bvusernotificationservice.h"
#include "fakes/fakeclock.h"
#include "fakes/fakeidlesource.h"
#include "fakes/fakenotificationcentre.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "settings/bvsettings.h"
#include "settings/computereventsettings.h"
#include "settings/notificationsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {
const QDateTime T0(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC);

QDateTime at(const QString &hhmm)
{
    return QDateTime(T0.date(), QTime::fromString(hhmm, u"hh:mm"_s), Qt::UTC);
}
} // namespace

class TestAttention : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void firstCheckIsDueOneSecondAfterTheThreshold_data();
    void firstCheckIsDueOneSecondAfterTheThreshold();
    void checkDatesIdleStartOneThresholdBack_data();
    void checkDatesIdleStartOneThresholdBack();
    void idleWatchFollowsTrackingAndDetection_data();
    void idleWatchFollowsTrackingAndDetection();
    void idleAnswerChangesTheJournal_data();
    void idleAnswerChangesTheJournal();
    void idleAnswerCutsOnlyTheActivityItWasAskedAbout();
    void idleQuestionIsPostedOnlyWithSystemNotifications_data();
    void idleQuestionIsPostedOnlyWithSystemNotifications();
    void reminderRearmFollowsTheStateItBelongsTo_data();
    void reminderRearmFollowsTheStateItBelongsTo();
    void reminderTick_data();
    void reminderTick();
    void onlyARepeatingRequestIsCancelled();
    void computerEvents_data();
    void computerEvents();

private:
    void startTracking(const QString &text);
    QList<ActivityPtr> activities();
    NotificationSettings &reminder() { return *m_settings->reminderNotification(); }
    NotificationSettings &nag() { return *m_settings->notTrackingNotification(); }

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock { T0 };
    FakeIdleSource m_idle;
    FakeNotificationCentre m_centre;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<ActivityManager> m_manager;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
    std::unique_ptr<BvUserNotificationService> m_notifications;
    std::unique_ptr<AttentionController> m_attention;
};

void TestAttention::init()
{
    m_clock.set(T0);
    m_idle.touch(T0);
    m_centre.delivered.clear();
    m_centre.removed.clear();
    m_centre.setAvailable(true, true);
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    m_store = std::move(*Store::open(options));
    m_manager = std::make_unique<ActivityManager>(*m_store);
    BvSettings::setNotificationsAvailable([] { return true; });
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale.conf"_s);
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
    m_notifications = std::make_unique<BvUserNotificationService>(m_centre);
    m_attention = std::make_unique<AttentionController>(*m_manager, *m_settings, m_clock, m_idle, *m_notifications);
    // The tracking controller's seams: every start and stop re-arms the attention timer and the idle watch.
    for (auto signal : { &ActivityManager::activityManagerStarted, &ActivityManager::activityManagerStopped }) {
        connect(m_manager.get(), signal, m_attention.get(), [this] {
            m_attention->setReminderTimer();
            m_attention->enableDisableIdleTimer();
        });
    }
}

void TestAttention::cleanup()
{
    m_attention.reset();
    m_notifications.reset();
    m_settings.reset();
    m_defaults.reset();
    m_manager.reset();
    m_store.reset();
    m_home.reset();
}

void TestAttention::startTracking(const QString &text)
{
    QCOMPARE(m_manager->startTrack(text), QString());
}

QList<ActivityPtr> TestAttention::activities()
{
    auto context = m_store->newContext();
    QList<ActivityPtr> all = *context->fetchActivities();
    std::ranges::sort(all, {}, &Activity::timeFrom);
    return all;
}

void TestAttention::firstCheckIsDueOneSecondAfterTheThreshold_data()
{
    QTest::addColumn<int>("minutes");
    QTest::addColumn<int>("idleSecs");
    QTest::addColumn<double>("expected");
    QTest::newRow("1 min, just active") << 1 << 0 << 61.0;
    QTest::newRow("15 min, idle 5 min") << 15 << 300 << 601.0;
    QTest::newRow("exactly at threshold") << 15 << 900 << 1.0;
    QTest::newRow("long past threshold") << 1 << 7200 << 1.0;
}

void TestAttention::firstCheckIsDueOneSecondAfterTheThreshold()
{
    QFETCH(int, minutes);
    QFETCH(int, idleSecs);
    QFETCH(double, expected);
    m_idle.touch(T0.addSecs(-idleSecs));
    IdleTimer &timer = m_attention->idleTimer();
    timer.startWithIdleTime(unsigned(minutes));
    QCOMPARE(timer.getNextInterval(), expected);
    QCOMPARE(*timer.nextCheckDate(), T0.addMSecs(qint64(expected * 1000)));
    QCOMPARE(m_idle.threshold(), minutes * 60);
}

void TestAttention::checkDatesIdleStartOneThresholdBack_data()
{
    QTest::addColumn<int>("idleMinutes");
    QTest::addColumn<bool>("idle");
    QTest::addColumn<QDateTime>("nextCheck");
    // Threshold 15, the check runs at 11:00.
    QTest::newRow("90 min idle: dated 15 min back") << 90 << true << QDateTime();
    QTest::newRow("exactly the threshold") << 15 << true << QDateTime();
    QTest::newRow("14 min: again a minute and a second later") << 14 << false << at(u"11:01"_s).addSecs(1);
    QTest::newRow("active: again after a threshold") << 0 << false << at(u"11:15"_s).addSecs(1);
}

void TestAttention::checkDatesIdleStartOneThresholdBack()
{
    QFETCH(int, idleMinutes);
    QFETCH(bool, idle);
    QFETCH(QDateTime, nextCheck);
    IdleTimer &timer = m_attention->idleTimer();
    QSignalSpy became(&timer, &IdleTimer::idleTimerDidBecomeIdle);
    timer.startWithIdleTime(15);
    m_clock.set(at(u"11:00"_s));
    m_idle.touch(at(u"11:00"_s).addSecs(-idleMinutes * 60));
    timer.check();
    QCOMPARE(became.size(), idle ? 1 : 0);
    QCOMPARE(timer.isWatching(), !idle);
    if (idle)
        QCOMPARE(*timer.idleFromDate(), at(u"10:45"_s));
    else
        QCOMPARE(*timer.nextCheckDate(), nextCheck);
    timer.stop();
    QVERIFY(!timer.idleFromDate());
}

void TestAttention::idleWatchFollowsTrackingAndDetection_data()
{
    QTest::addColumn<bool>("tracking");
    QTest::addColumn<bool>("detection");
    QTest::addColumn<bool>("watching");
    QTest::newRow("tracking, detection on") << true << true << true;
    QTest::newRow("tracking, detection off") << true << false << false;
    QTest::newRow("not tracking, detection on") << false << true << false;
}

void TestAttention::idleWatchFollowsTrackingAndDetection()
{
    QFETCH(bool, tracking);
    QFETCH(bool, detection);
    QFETCH(bool, watching);
    m_settings->setIdleTimeoutInterval(5);
    m_settings->setIdleTimeoutDetection(detection);
    if (tracking)
        startTracking(u"@Acme mock-ups"_s);
    QCOMPARE(m_attention->idleTimer().isWatching(), watching);
    if (!watching)
        return;
    // A new threshold while watching only moves the pending check.
    m_clock.advance(60 * 1000);
    m_idle.touch(m_clock.now());
    m_settings->setIdleTimeoutInterval(20);
    QCOMPARE(*m_attention->idleTimer().nextCheckDate(), m_clock.now().addSecs(20 * 60 + 1));
    m_settings->setIdleTimeoutDetection(false);
    QVERIFY(!m_attention->idleTimer().isWatching());
}

void TestAttention::idleAnswerChangesTheJournal_data()
{
    QTest::addColumn<bool>("byNotification");
    QTest::addColumn<int>("response");
    // "from-to" per activity in time order; an open end is the running one.
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<bool>("watchingAfter");
    const QStringList kept { u"10:00-"_s };
    const QStringList stopped { u"10:00-10:15"_s };
    const QStringList continued { u"10:00-10:15"_s, u"10:30-"_s };
    for (bool byNotification : { false, true }) {
        const char *via = byNotification ? "notification" : "window";
        QTest::addRow("%s: cancel keeps the time", via) << byNotification << 0 << kept << true;
        QTest::addRow("%s: subtract and stop", via) << byNotification << 1 << stopped << false;
        QTest::addRow("%s: subtract and continue", via) << byNotification << 2 << continued << true;
    }
}

void TestAttention::idleAnswerChangesTheJournal()
{
    QFETCH(bool, byNotification);
    QFETCH(int, response);
    QFETCH(QStringList, expected);
    QFETCH(bool, watchingAfter);
    m_settings->setAppNotificationType(BvUserNotificationService::SystemNotifications);
    m_settings->setIdleTimeoutDetection(true);
    startTracking(u"@Acme mock-ups"_s);
    QSignalSpy requested(m_attention.get(), &AttentionController::idlePromptRequested);
    QSignalSpy ended(m_attention.get(), &AttentionController::idlePromptEnded);

    // Last input at 10:10; the check runs late, at 10:30.
    m_idle.touch(at(u"10:10"_s));
    m_clock.set(at(u"10:30"_s));
    m_attention->idleTimer().check();
    QCOMPARE(requested.size(), 1);
    QCOMPARE(requested.at(0).at(0).toDateTime(), at(u"10:15"_s));
    QVERIFY(m_attention->hasIdlePrompt());
    QCOMPARE(m_centre.delivered.size(), 1);
    QCOMPARE(m_centre.delivered.at(0).body, u"You have been idle for 15 minutes"_s);
    QCOMPARE(m_centre.delivered.at(0).actions.size(), 3);
    // While the question is open nothing else may ask it again.
    m_attention->enableDisableIdleTimer();
    QVERIFY(!m_attention->idleTimer().isWatching());

    if (byNotification) {
        const QString key = m_centre.delivered.at(0).actions.at(response == 0 ? 2 : response - 1).first;
        m_centre.click(m_centre.delivered.at(0).name, key);
    } else {
        m_attention->idlePromptDidEnd(response);
    }
    // The answer from the other side arrives too late and changes nothing.
    m_attention->idlePromptDidEnd(1);

    QCOMPARE(ended.size(), 1);
    QCOMPARE(ended.at(0).at(0).toInt(), response);
    QVERIFY(!m_attention->hasIdlePrompt());
    QCOMPARE(m_centre.removed, QStringList { m_centre.delivered.at(0).name });
    QStringList got;
    for (const ActivityPtr &activity : activities()) {
        QCOMPARE(activity->text(), u"@Acme mock-ups"_s);
        const bool running = m_manager->currentActivity() && m_manager->currentActivity()->uid() == activity->uid();
        got << activity->timeFrom().toString(u"hh:mm"_s) + u'-'
                + (running ? QString() : activity->timeTo().toString(u"hh:mm"_s));
    }
    QCOMPARE(got, expected);
    QCOMPARE(m_attention->idleTimer().isWatching(), watchingAfter);
}

void TestAttention::idleAnswerCutsOnlyTheActivityItWasAskedAbout()
{
    m_settings->setIdleTimeoutDetection(true);
    startTracking(u"first"_s);
    m_idle.touch(at(u"10:00"_s));
    m_clock.set(at(u"10:20"_s));
    m_attention->idleTimer().check();
    QVERIFY(m_attention->hasIdlePrompt());
    // Stopped and started from the command line while the question was open.
    m_manager->stopTrack();
    m_clock.set(at(u"10:21"_s));
    startTracking(u"second"_s);
    m_attention->idlePromptDidEnd(1);
    QVERIFY(m_manager->isTracking());
    QCOMPARE(m_manager->currentActivity()->text(), u"second"_s);
    QCOMPARE(m_manager->currentActivity()->timeFrom(), at(u"10:21"_s));
}

void TestAttention::idleQuestionIsPostedOnlyWithSystemNotifications_data()
{
    QTest::addColumn<int>("appNotificationType");
    QTest::addColumn<int>("posted");
    QTest::newRow("none") << 0 << 0;
    QTest::newRow("system") << 2 << 1;
}

void TestAttention::idleQuestionIsPostedOnlyWithSystemNotifications()
{
    QFETCH(int, appNotificationType);
    QFETCH(int, posted);
    m_settings->setAppNotificationType(appNotificationType);
    m_settings->setIdleTimeoutDetection(true);
    startTracking(u"@Acme mock-ups"_s);
    m_idle.touch(at(u"10:00"_s));
    m_clock.set(at(u"10:20"_s));
    m_attention->idleTimer().check();
    QVERIFY(m_attention->hasIdlePrompt());
    QCOMPARE(m_centre.delivered.size(), posted);
}

void TestAttention::reminderRearmFollowsTheStateItBelongsTo_data()
{
    QTest::addColumn<bool>("tracking");
    QTest::addColumn<bool>("changeReminder");
    QTest::addColumn<int>("expectedMinutes");
    // Reminder every 10 minutes, nag every 20; the change sets 45.
    QTest::newRow("tracking, reminder changes") << true << true << 45;
    QTest::newRow("tracking, nag changes: ignored") << true << false << 10;
    QTest::newRow("not tracking, nag changes") << false << false << 45;
    QTest::newRow("not tracking, reminder changes: ignored") << false << true << 20;
}

void TestAttention::reminderRearmFollowsTheStateItBelongsTo()
{
    QFETCH(bool, tracking);
    QFETCH(bool, changeReminder);
    QFETCH(int, expectedMinutes);
    reminder().setInterval(10);
    reminder().setDisplayNotification(true);
    nag().setInterval(20);
    nag().setBounceDock(true);
    if (tracking)
        startTracking(u"work"_s);
    else
        m_manager->stopTrack();
    QCOMPARE(m_attention->reminderInterval(), (tracking ? 10 : 20) * 60 * 1000);
    (changeReminder ? reminder() : nag()).setInterval(45);
    QCOMPARE(m_attention->reminderInterval(), expectedMinutes * 60 * 1000);

    // A setting not enabled when armed stays unarmed when only its flags change.
    NotificationSettings &current = tracking ? reminder() : nag();
    current.setDisplayNotification(false);
    current.setBounceDock(false);
    current.setInterval(30);
    QVERIFY(!m_attention->reminderInterval());
    current.setBounceDock(true);
    QVERIFY(!m_attention->reminderInterval());
    m_attention->setReminderTimer();
    QCOMPARE(m_attention->reminderInterval(), 30 * 60 * 1000);
}

void TestAttention::reminderTick_data()
{
    QTest::addColumn<bool>("tracking");
    QTest::addColumn<QString>("flags"); // n notification, b bounce, r repeat
    QTest::addColumn<int>("notificationType");
    QTest::addColumn<bool>("windowIsMain");
    QTest::addColumn<QString>("expectedBody");
    QTest::addColumn<QString>("expectedAttention"); // "", "once", "until active"
    const QString reminderText = u"Are you still working on: @Acme mock-ups"_s;
    const QString nagText = u"Are you working on something?"_s;
    QTest::newRow("reminder posts") << true << u"n"_s << 2 << false << reminderText << QString();
    QTest::newRow("nag posts") << false << u"n"_s << 2 << false << nagText << QString();
    QTest::newRow("bounce once") << true << u"b"_s << 2 << false << QString() << u"once"_s;
    QTest::newRow("bounce until active") << false << u"br"_s << 2 << false << QString() << u"until active"_s;
    QTest::newRow("notifications off: still bounces") << true << u"nb"_s << 0 << false << QString() << u"once"_s;
    QTest::newRow("main window in front: nothing") << true << u"nbr"_s << 2 << true << QString() << QString();
}

void TestAttention::reminderTick()
{
    QFETCH(bool, tracking);
    QFETCH(QString, flags);
    QFETCH(int, notificationType);
    QFETCH(bool, windowIsMain);
    QFETCH(QString, expectedBody);
    QFETCH(QString, expectedAttention);
    m_settings->setAppNotificationType(notificationType);
    NotificationSettings &setting = tracking ? reminder() : nag();
    setting.setInterval(120);
    // The flags are read at the tick, not when the timer was armed.
    if (tracking)
        startTracking(u"@Acme mock-ups"_s);
    setting.setDisplayNotification(flags.contains(u'n'));
    setting.setBounceDock(flags.contains(u'b'));
    setting.setBounceDockRepeat(flags.contains(u'r'));
    m_attention->setTrackingWindowIsMain([windowIsMain] { return windowIsMain; });
    QSignalSpy attention(m_attention.get(), &AttentionController::userAttentionRequested);

    m_attention->performReminder();

    QCOMPARE(m_centre.delivered.size(), expectedBody.isNull() ? 0 : 1);
    if (!expectedBody.isNull()) {
        QCOMPARE(m_centre.delivered.at(0).title, u"Brimvale"_s);
        QCOMPARE(m_centre.delivered.at(0).body, expectedBody);
        QVERIFY(m_centre.delivered.at(0).actions.isEmpty());
    }
    QCOMPARE(attention.size(), expectedAttention.isEmpty() ? 0 : 1);
    if (!expectedAttention.isEmpty())
        QCOMPARE(attention.at(0).at(0).toBool(), expectedAttention == u"until active"_s);
}

void TestAttention::onlyARepeatingRequestIsCancelled()
{
    reminder().setInterval(1);
    reminder().setBounceDock(true);
    startTracking(u"work"_s);
    QSignalSpy cancelled(m_attention.get(), &AttentionController::userAttentionCancelled);
    m_attention->performReminder();
    m_attention->stopDockBouncing();
    QCOMPARE(cancelled.size(), 0);

    reminder().setBounceDockRepeat(true);
    m_attention->performReminder();
    m_attention->stopDockBouncing();
    m_attention->stopDockBouncing();
    QCOMPARE(cancelled.size(), 1);

    // Activating the app ends the request on the desktop's side: nothing left to cancel.
    m_attention->performReminder();
    m_attention->applicationWillBecomeActive();
    m_attention->stopDockBouncing();
    QCOMPARE(cancelled.size(), 1);
}

void TestAttention::computerEvents_data()
{
    QTest::addColumn<QString>("settings"); // per event 1..4: "-" nothing, "s" stop, "sr" stop and resume
    QTest::addColumn<bool>("trackingAtStart");
    // Steps a minute apart: "+N" event N begins, "-N" it ends, "idle" the idle question opens,
    // "norN" resuming of event N is switched off, "start" the user starts the same text.
    QTest::addColumn<QStringList>("steps");
    // Activities as "from-to" (open end: running), all with the same text.
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("sleep stops and resumes as a new activity")
        << u"sr - - -"_s << true << QStringList { u"+1"_s, u"-1"_s } << QStringList { u"10:00-10:01"_s, u"10:02-"_s };
    QTest::newRow("sleep stops, no resume")
        << u"s - - -"_s << true << QStringList { u"+1"_s, u"-1"_s } << QStringList { u"10:00-10:01"_s };
    QTest::newRow("not tracking at sleep")
        << u"sr - - -"_s << false << QStringList { u"+1"_s, u"-1"_s } << QStringList {};
    QTest::newRow("lock while the idle question is open")
        << u"- - - sr"_s << true << QStringList { u"idle"_s, u"+4"_s, u"-4"_s } << QStringList { u"10:00-"_s };
    QTest::newRow("resume switched off while asleep")
        << u"sr - - -"_s << true << QStringList { u"+1"_s, u"nor1"_s, u"-1"_s } << QStringList { u"10:00-10:01"_s };
    QTest::newRow("screensaver end without its start")
        << u"- - sr -"_s << true << QStringList { u"-3"_s } << QStringList { u"10:00-"_s };
    QTest::newRow("screensaver then lock: the lock is ignored")
        << u"- - sr sr"_s << true << QStringList { u"+3"_s, u"+4"_s, u"-4"_s, u"-3"_s }
        << QStringList { u"10:00-10:01"_s, u"10:04-"_s };
    QTest::newRow("an event that does not stop is not remembered")
        << u"- - - sr"_s << true << QStringList { u"+3"_s, u"+4"_s, u"-3"_s, u"-4"_s }
        << QStringList { u"10:00-10:02"_s, u"10:04-"_s };
    QTest::newRow("while the screensaver is active a lock stops nothing")
        << u"- - sr sr"_s << true << QStringList { u"+3"_s, u"start"_s, u"+4"_s, u"-4"_s, u"-3"_s }
        << QStringList { u"10:00-10:01"_s, u"10:02-"_s };
    QTest::newRow("screen sleep with stop only")
        << u"- s - -"_s << true << QStringList { u"+2"_s, u"-2"_s } << QStringList { u"10:00-10:01"_s };
}

void TestAttention::computerEvents()
{
    QFETCH(QString, settings);
    QFETCH(bool, trackingAtStart);
    QFETCH(QStringList, steps);
    QFETCH(QStringList, expected);
    const QStringList perEvent = settings.split(u' ');
    for (int event = 1; event <= 4; ++event) {
        ComputerEventSettings *record = m_settings->computerEventSettings(event);
        record->setStopTracking(perEvent.at(event - 1).contains(u's'));
        record->setResumeTracking(perEvent.at(event - 1).contains(u'r'));
    }
    const QString text = u"@Acme #design mock-ups"_s;
    if (trackingAtStart)
        startTracking(text);
    m_settings->setIdleTimeoutDetection(true);
    for (const QString &step : steps) {
        m_clock.advance(60 * 1000);
        if (step == u"idle"_s) {
            m_idle.touch(T0);
            m_clock.set(m_clock.now().addSecs(15 * 60));
            m_attention->idleTimer().check();
            QVERIFY(m_attention->hasIdlePrompt());
            m_clock.set(m_clock.now().addSecs(-15 * 60));
        } else if (step == u"start"_s) {
            startTracking(text);
        } else if (step.startsWith(u"nor"_s)) {
            m_settings->computerEventSettings(step.mid(3).toInt())->setResumeTracking(false);
        } else if (step.startsWith(u'+')) {
            m_attention->computerEventDidStart(step.mid(1).toInt());
        } else {
            m_attention->computerEventDidStop(step.mid(1).toInt());
        }
    }
    QStringList got;
    for (const ActivityPtr &activity : activities()) {
        QCOMPARE(activity->text(), text);
        const bool running = m_manager->currentActivity() && m_manager->currentActivity()->uid() == activity->uid();
        got << activity->timeFrom().toString(u"hh:mm"_s) + u'-'
                + (running ? QString() : activity->timeTo().toString(u"hh:mm"_s));
    }
    QCOMPARE(got, expected);
    QCOMPARE(m_attention->activeComputerEvent() == 0, m_attention->resumeSleepActivity().isNull());
}

QTEST_GUILESS_MAIN(TestAttention)
#include "testattention.moc"
