#include <QtTest>

#include "app/trackingcontroller.h"
#include "fakes/fakeclock.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;
using Kind = TrackingController::MessageKind;

class TestTrackingController : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void startStoresTheLine();
    void startWhileTracking_data();
    void startWhileTracking();
    void refusedLineShowsManagersMessage();
    void updateRules_data();
    void updateRules();
    void statusTexts_data();
    void statusTexts();
    void statusItemTitleFollowsTrayType_data();
    void statusItemTitleFollowsTrayType();
    void timersFollowTracking();
    void touchTimerMovesEnd();
    void menuStates_data();
    void menuStates();
    void recentTitles_data();
    void recentTitles();
    void recentEntryOfRunningTextIsDisabledWhenStarting();
    void typingWhileTrackingShowsTip();
    void hideOnTrack_data();
    void hideOnTrack();
    void startTimeBounds_data();
    void startTimeBounds();
    void movedStartIsStored();
    void trackingChangedOnlyOnRealChanges();

private:
    void makeController(const QVariantMap &settings = {});
    ActivityPtr stored(const QString &uid);

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock { QDateTime(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC) };
    std::unique_ptr<Store> m_store;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
    std::unique_ptr<ActivityManager> m_manager;
    std::unique_ptr<TrackingController> m_tracking;
};

void TestTrackingController::init()
{
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    m_store = std::move(*Store::open(options));
    makeController();
}

void TestTrackingController::cleanup()
{
    m_tracking.reset();
    m_manager.reset();
    m_settings.reset();
    m_defaults.reset();
    m_store.reset();
    m_home.reset();
}

void TestTrackingController::makeController(const QVariantMap &settings)
{
    m_tracking.reset();
    m_manager.reset();
    m_settings.reset();
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale/Brimvale.conf"_s);
    for (auto it = settings.cbegin(); it != settings.cend(); ++it)
        m_defaults->setObject(it.value(), it.key());
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
    m_manager = std::make_unique<ActivityManager>(*m_store);
    m_tracking = std::make_unique<TrackingController>(*m_manager, *m_settings, m_clock);
}

ActivityPtr TestTrackingController::stored(const QString &uid)
{
    auto context = m_store->newContext();
    auto found = context->activityWithUid(uid);
    return found ? *found : nullptr;
}

void TestTrackingController::startStoresTheLine()
{
    m_tracking->setActivityTextFromUser(u"@Acme #design mock-ups"_s);
    QVERIFY(m_tracking->doStartTrackAndShowWindow(true));

    const ActivityPtr running = stored(m_manager->currentActivity()->uid());
    QVERIFY(running);
    QCOMPARE(running->text(), u"@Acme #design mock-ups"_s);
    QCOMPARE(running->project()->name(), u"Acme"_s);
    QCOMPARE(running->timeFrom(), m_clock.now());
    QCOMPARE(m_tracking->messageKind(), Kind::None);
}

void TestTrackingController::startWhileTracking_data()
{
    QTest::addColumn<bool>("endCurrent");
    QTest::addColumn<bool>("started");
    QTest::newRow("refused while the setting is off") << false << false;
    QTest::newRow("ends the running one while it is on") << true << true;
}

void TestTrackingController::startWhileTracking()
{
    QFETCH(bool, endCurrent);
    QFETCH(bool, started);
    makeController({ { u"endCurrentActivityOnTrack"_s, endCurrent } });
    m_tracking->setActivityText(u"first"_s);
    QVERIFY(m_tracking->doStartTrackAndShowWindow(true));
    const QString firstUid = m_manager->currentActivity()->uid();
    m_clock.advance(90'000);

    QSignalSpy front(m_tracking.get(), &TrackingController::mainWindowFrontRequested);
    m_tracking->setActivityText(u"second"_s);
    QCOMPARE(m_tracking->doStartTrackAndShowWindow(false), started);

    if (started) {
        QCOMPARE(m_manager->currentActivity()->text(), u"second"_s);
        QCOMPARE(stored(firstUid)->timeTo(), m_clock.now());
        QCOMPARE(front.count(), 0);
    } else {
        QCOMPARE(m_manager->currentActivity()->uid(), firstUid);
        QCOMPARE(m_tracking->messageKind(), Kind::Error);
        QCOMPARE(m_tracking->messageText(), u"Stop previous activity before tracking new!"_s);
        // A refusal brings the window up even when the command asked it not to.
        QCOMPARE(front.count(), 1);
    }
}

void TestTrackingController::refusedLineShowsManagersMessage()
{
    m_tracking->setActivityText(u"  \t "_s);
    QVERIFY(!m_tracking->doStartTrackAndShowWindow(true));
    QVERIFY(!m_tracking->isTracking());
    QCOMPARE(m_tracking->messageKind(), Kind::Error);
    QCOMPARE(m_tracking->messageText(), u"Activity can not be empty!"_s);
}

void TestTrackingController::updateRules_data()
{
    QTest::addColumn<bool>("tracking");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("updated");
    QTest::addColumn<QString>("message");
    QTest::newRow("not tracking") << false << u"new"_s << false << u"Can not update. Not tracking..."_s;
    QTest::newRow("empty line") << true << u" "_s << false << u"Activity can not be empty!"_s;
    QTest::newRow("updated") << true << u"@Beta review"_s << true << u"Activity updated!"_s;
}

void TestTrackingController::updateRules()
{
    QFETCH(bool, tracking);
    QFETCH(QString, text);
    QFETCH(bool, updated);
    QFETCH(QString, message);
    if (tracking) {
        m_tracking->setActivityText(u"old"_s);
        QVERIFY(m_tracking->doStartTrackAndShowWindow(true));
    }
    m_tracking->setActivityText(text);
    QCOMPARE(m_tracking->doUpdateTrack(false), updated);
    QCOMPARE(m_tracking->messageText(), message);
    QCOMPARE(m_tracking->messageKind(), updated ? Kind::Info : Kind::Error);
    if (updated) {
        // Saved at once: another program reading the store sees the new text.
        QCOMPARE(stored(m_manager->currentActivity()->uid())->text(), text);
    }
}

void TestTrackingController::statusTexts_data()
{
    QTest::addColumn<qint64>("secs");
    QTest::addColumn<QString>("status");
    QTest::addColumn<QString>("title");
    QTest::newRow("59 s") << qint64(59) << u"Status: tracking 00:00:59"_s << u"00:00"_s;
    QTest::newRow("61 s") << qint64(61) << u"Status: tracking 00:01:01"_s << u"00:01"_s;
    QTest::newRow("exactly an hour") << qint64(3600) << u"Status: tracking 00:60:00"_s << u"00:60"_s;
    QTest::newRow("3,725 s") << qint64(3725) << u"Status: tracking 01:02:05"_s << u"01:02"_s;
    QTest::newRow("over 99 hours") << qint64(360'061) << u"Status: tracking 100:01:01"_s << u"100:01"_s;
}

void TestTrackingController::statusTexts()
{
    QFETCH(qint64, secs);
    QFETCH(QString, status);
    QFETCH(QString, title);
    makeController({ { u"statusbarType"_s, 2 } });
    m_tracking->setActivityText(u"work"_s);
    QVERIFY(m_tracking->doStartTrackAndShowWindow(true));
    m_clock.advance(secs * 1000);
    m_tracking->updateTrackStatus();
    QCOMPARE(m_tracking->statusText(), status);
    QCOMPARE(m_tracking->statusItemTitle(), title);

    m_tracking->stopTrack();
    QCOMPARE(m_tracking->statusText(), u"Status: not tracking"_s);
    QVERIFY(m_tracking->statusItemTitle().isNull());
}

void TestTrackingController::statusItemTitleFollowsTrayType_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("hasTitle");
    QTest::newRow("icon") << 0 << false;
    QTest::newRow("timer") << 1 << true;
    QTest::newRow("icon and timer") << 2 << true;
}

void TestTrackingController::statusItemTitleFollowsTrayType()
{
    QFETCH(int, type);
    QFETCH(bool, hasTitle);
    m_tracking->setActivityText(u"work"_s);
    QVERIFY(m_tracking->doStartTrackAndShowWindow(true));
    m_clock.advance(125'000);
    // A change in the preferences shows at once, without waiting for the next tick.
    m_settings->setAppStatusbarType(type == 0 ? 1 : 0);
    m_settings->setAppStatusbarType(type);
    QCOMPARE(m_tracking->statusItemTitle().isNull(), !hasTitle);
    if (hasTitle)
        QCOMPARE(m_tracking->statusItemTitle(), u"00:02"_s);
}

void TestTrackingController::timersFollowTracking()
{
    QVERIFY(!m_tracking->isTouchTimerRunning());
    QVERIFY(!m_tracking->isCounterRunning());
    m_tracking->mainWindowDidBecomeMain();
    QVERIFY(m_tracking->isCounterRunning());

    m_tracking->setActivityText(u"work"_s);
    QVERIFY(m_tracking->doStartTrackAndShowWindow(true));
    QVERIFY(m_tracking->isTouchTimerRunning());

    // Deleted by another program: tracking stops, and with it the touches.
    auto context = m_store->newContext();
    auto other = *context->activityWithUid(m_manager->currentActivity()->uid());
    context->deleteObject(other);
    QVERIFY(context->save());
    QTRY_VERIFY(!m_tracking->isTracking());
    QVERIFY(!m_tracking->isTouchTimerRunning());
    QVERIFY(m_tracking->isCounterRunning());
}

void TestTrackingController::touchTimerMovesEnd()
{
    m_tracking->setActivityText(u"work"_s);
    QVERIFY(m_tracking->doStartTrackAndShowWindow(true));
    m_clock.advance(TrackingController::TouchIntervalMsecs);
    m_tracking->touchActivity();
    QCOMPARE(stored(m_manager->currentActivity()->uid())->timeTo(), m_clock.now());
    QCOMPARE(m_tracking->statusText(), u"Status: tracking 00:00:30"_s);
}

void TestTrackingController::menuStates_data()
{
    QTest::addColumn<bool>("tracking");
    QTest::addColumn<bool>("endCurrent");
    QTest::addColumn<bool>("start");
    QTest::addColumn<bool>("recent");
    QTest::addColumn<bool>("update");
    QTest::addColumn<bool>("stop");
    QTest::newRow("idle") << false << false << true << true << false << false;
    QTest::newRow("tracking") << true << false << false << false << true << true;
    QTest::newRow("tracking, start ends current") << true << true << true << false << true << true;
}

void TestTrackingController::menuStates()
{
    QFETCH(bool, tracking);
    QFETCH(bool, endCurrent);
    makeController({ { u"endCurrentActivityOnTrack"_s, endCurrent } });
    if (tracking) {
        m_tracking->setActivityText(u"work"_s);
        QVERIFY(m_tracking->doStartTrackAndShowWindow(true));
    }
    const TrackingController::ActivityMenuState state = m_tracking->activityMenuState();
    QTEST(state.start, "start");
    QTEST(state.recentActivities, "recent");
    QTEST(state.update, "update");
    QTEST(state.stop, "stop");
}

void TestTrackingController::recentTitles_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("title");
    const QString fifty = QString(50, u'a');
    const QString fiftyOne = QString(51, u'b');
    QTest::newRow("50 characters whole") << fifty << fifty;
    QTest::newRow("51 characters cut") << fiftyOne << QString(47, u'b') + u"..."_s;
    // An emoji across the cut is not split into half a character.
    QTest::newRow("surrogate pair at the cut")
        << QString(46, u'c') + u"😀"_s + QString(10, u'd') << QString(46, u'c') + u"..."_s;
}

void TestTrackingController::recentTitles()
{
    QFETCH(QString, text);
    QTEST(TrackingController::recentMenuTitle(text), "title");
}

void TestTrackingController::recentEntryOfRunningTextIsDisabledWhenStarting()
{
    QVERIFY(m_tracking->recentMenuEntries(true).isEmpty());
    for (const QString &text : { u"older"_s, u"running"_s }) {
        m_tracking->setActivityText(text);
        QVERIFY(m_tracking->doStartTrackAndShowWindow(true));
        m_clock.advance(60'000);
        m_tracking->stopTrack();
    }
    m_tracking->setActivityText(u"running"_s);
    QVERIFY(m_tracking->doStartTrackAndShowWindow(true));

    const auto starting = m_tracking->recentMenuEntries(true);
    QCOMPARE(starting.size(), 2);
    QCOMPARE(starting[0].text, u"running"_s);
    QVERIFY(starting[0].isCurrent && !starting[0].enabled);
    QVERIFY(starting[1].enabled);
    // Filling the line only: every entry can be chosen.
    QVERIFY(m_tracking->recentMenuEntries(false)[0].enabled);
}

void TestTrackingController::typingWhileTrackingShowsTip()
{
    m_tracking->setActivityTextFromUser(u"idle typing"_s);
    QCOMPARE(m_tracking->messageKind(), Kind::None);
    QVERIFY(m_tracking->doStartTrackAndShowWindow(true));
    m_tracking->setActivityTextFromUser(u"idle typing more"_s);
    QCOMPARE(m_tracking->messageKind(), Kind::Info);
    QCOMPARE(m_tracking->messageText(), u"Tip: press \"Update activity\" to update current activity!"_s);
}

void TestTrackingController::hideOnTrack_data()
{
    QTest::addColumn<bool>("dontHide");
    QTest::addColumn<bool>("hide");
    QTest::addColumn<bool>("keyboard");
    QTest::addColumn<bool>("tray");
    QTest::addColumn<bool>("expected");
    QTest::newRow("never hide wins") << true << true << true << true << false;
    QTest::newRow("keyboard start with tray") << false << false << true << true << true;
    QTest::newRow("keyboard start without tray") << false << false << true << false << false;
    QTest::newRow("menu start, hide on") << false << true << false << true << true;
    QTest::newRow("menu start, hide off") << false << false << false << true << false;
}

void TestTrackingController::hideOnTrack()
{
    QFETCH(bool, dontHide);
    QFETCH(bool, hide);
    QFETCH(bool, keyboard);
    QFETCH(bool, tray);
    makeController(
        { { u"dontHideMainWindowOnStartTracking"_s, dontHide }, { u"hideMainWindowOnStartTracking"_s, hide } });
    QTEST(m_tracking->shouldHideMainWindowOnTrack(keyboard, tray), "expected");
}

void TestTrackingController::startTimeBounds_data()
{
    QTest::addColumn<qint64>("runningSecs");
    QTest::addColumn<qint64>("minimumSecsBeforeNow");
    QTest::newRow("started 3 days ago") << qint64(3 * 86400) << qint64(3 * 86400);
    QTest::newRow("started 2 hours ago") << qint64(7200) << qint64(86400);
    QTest::newRow("started exactly a day ago") << qint64(86400) << qint64(86400);
}

void TestTrackingController::startTimeBounds()
{
    QFETCH(qint64, runningSecs);
    QFETCH(qint64, minimumSecsBeforeNow);
    QVERIFY(!m_tracking->startTimeBounds().minimum.isValid());
    m_tracking->setActivityText(u"work"_s);
    QVERIFY(m_tracking->doStartTrackAndShowWindow(true));
    m_clock.advance(runningSecs * 1000);
    const auto bounds = m_tracking->startTimeBounds();
    QCOMPARE(bounds.maximum, m_clock.now());
    QCOMPARE(bounds.minimum, m_clock.now().addSecs(-minimumSecsBeforeNow));
}

void TestTrackingController::movedStartIsStored()
{
    m_tracking->setActivityText(u"work"_s);
    QVERIFY(m_tracking->doStartTrackAndShowWindow(true));
    m_clock.advance(600'000);
    QSignalSpy changed(m_tracking.get(), &TrackingController::trackingChanged);
    const QDateTime earlier = m_clock.now().addSecs(-3725);
    QVERIFY(m_tracking->setCurrentActivityStart(earlier));
    const ActivityPtr row = stored(m_manager->currentActivity()->uid());
    QCOMPARE(row->timeFrom(), earlier);
    QCOMPARE(row->timeTo(), m_clock.now());
    QCOMPARE(m_tracking->statusText(), u"Status: tracking 01:02:05"_s);
    QCOMPARE(changed.count(), 1);
}

void TestTrackingController::trackingChangedOnlyOnRealChanges()
{
    QSignalSpy changed(m_tracking.get(), &TrackingController::trackingChanged);
    m_tracking->stopTrack();
    QCOMPARE(changed.count(), 0);
    m_tracking->setActivityText(u"work"_s);
    QVERIFY(m_tracking->doStartTrackAndShowWindow(true));
    QCOMPARE(changed.count(), 1);
    QCOMPARE(changed[0][0].toBool(), true);
    QCOMPARE(changed[0][1].toString(), u"work"_s);
    m_tracking->stopTrack();
    QCOMPARE(changed.count(), 2);
    QCOMPARE(changed[1][0].toBool(), false);
}

QTEST_GUILESS_MAIN(TestTrackingController)
#include "testtrackingcontroller.moc"
