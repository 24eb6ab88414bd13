#include <QtTest>

#include "fakes/fakeclock.h"
#include "model/activitymanager.h"
#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storechanges.h"
#include "model/storecontext.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

class TestActivityManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void startStoresOneSecondActivityAtOnce();
    void emptyTextsAreRefused_data();
    void emptyTextsAreRefused();
    void stopSetsEndWithOneSecondFloor_data();
    void stopSetsEndWithOneSecondFloor();
    void stopWithoutRunningActivityStillNotifies();
    void stopAndContinueStartsSameText();
    void updatedTextIsStoredAtStop();
    void touchMovesEndToNow();
    void typingOtherCaseRenamesProject();
    void editByUid();
    void recentActivities_data();
    void recentActivities();
    void todaysActivitiesStartToday();
    void completionKeepsTypedCase_data();
    void completionKeepsTypedCase();
    void touchAfterExternalEditKeepsTheirText_data();
    void touchAfterExternalEditKeepsTheirText();
    void runningActivityDeletedElsewhereStopsTracking_data();
    void runningActivityDeletedElsewhereStopsTracking();

private:
    void makeManager(const RecentItemsOptions &options = {});
    ActivityPtr stored(const QString &uid);
    void addFinished(const QString &text, const QDateTime &from, int minutes, bool invoiced = false);

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock { QDateTime(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC) };
    std::unique_ptr<Store> m_store;
    std::unique_ptr<ActivityManager> m_manager;
};

void TestActivityManager::init()
{
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    m_store = std::move(*Store::open(options));
    makeManager();
}

void TestActivityManager::cleanup()
{
    m_manager.reset();
    m_store.reset();
    m_home.reset();
}

void TestActivityManager::makeManager(const RecentItemsOptions &options)
{
    m_manager.reset();
    m_manager = std::make_unique<ActivityManager>(*m_store, options);
}

ActivityPtr TestActivityManager::stored(const QString &uid)
{
    auto context = m_store->newContext();
    auto found = context->activityWithUid(uid);
    return found ? *found : nullptr;
}

void TestActivityManager::addFinished(const QString &text, const QDateTime &from, int minutes, bool invoiced)
{
    auto context = m_store->newContext();
    ActivityPtr activity = context->insertActivity();
    activity->setText(text);
    activity->setTimeFrom(from);
    activity->setTimeTo(from.addSecs(minutes * 60));
    activity->setIsInvoiced(invoiced);
    QVERIFY(context->save());
}

void TestActivityManager::startStoresOneSecondActivityAtOnce()
{
    QSignalSpy started(m_manager.get(), &ActivityManager::activityManagerStarted);
    QVERIFY(m_manager->startTrack(u"@Acme #design mock-ups"_s).isNull());
    QCOMPARE(started.size(), 1);
    QVERIFY(m_manager->isTracking());
    const ActivityPtr running = m_manager->currentActivity();
    const ActivityPtr onDisk = stored(running->uid());
    QVERIFY(onDisk);
    QCOMPARE(onDisk->timeFrom(), m_clock.now());
    QCOMPARE(onDisk->durationSecs(), 1);
    QCOMPARE(onDisk->project()->name(), u"Acme"_s);
    QCOMPARE(onDisk->tasksStr(), u"design"_s);
    // The running activity is the main context's own object, with its project resolved there.
    QCOMPARE(running->context(), &m_manager->context());
    QCOMPARE(running->project()->name(), u"Acme"_s);
}

void TestActivityManager::emptyTextsAreRefused_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("message");

    QTest::newRow("blanks") << "   "
                            << "Activity can not be empty!";
    QTest::newRow("tabs and blanks") << " \t "
                                     << "Activity can not be empty!";
    QTest::newRow("nothing") << ""
                             << "Activity can not be empty!";
    QTest::newRow("a line break is content") << "\n" << QString();
}

void TestActivityManager::emptyTextsAreRefused()
{
    QFETCH(QString, text);
    QFETCH(QString, message);
    QCOMPARE(m_manager->startTrack(text), message);
    QCOMPARE(m_manager->isTracking(), message.isNull());
    QCOMPARE(*m_store->newContext()->countActivities(), message.isNull() ? 1 : 0);
}

void TestActivityManager::stopSetsEndWithOneSecondFloor_data()
{
    QTest::addColumn<int>("stopAfterMs");
    QTest::addColumn<int>("touchAfterMs");
    QTest::addColumn<qint64>("durationSecs");

    QTest::newRow("stopped after 0.4 s lasts one second") << 400 << -1 << 1LL;
    QTest::newRow("stopped after 90 s") << 90000 << -1 << 90LL;
    QTest::newRow("stopped before its start keeps the touched end") << -5000 << 30000 << 30LL;
    QTest::newRow("stopped before its start, never touched") << -5000 << -1 << 1LL;
}

void TestActivityManager::stopSetsEndWithOneSecondFloor()
{
    QFETCH(int, stopAfterMs);
    QFETCH(int, touchAfterMs);
    QFETCH(qint64, durationSecs);
    QVERIFY(m_manager->startTrack(u"work"_s).isNull());
    const ActivityPtr running = m_manager->currentActivity();
    const QDateTime start = running->timeFrom();
    if (touchAfterMs >= 0) {
        m_clock.advance(touchAfterMs);
        m_manager->touchCurrentActivity();
    }
    m_manager->stopCurrentActivityAt(start.addMSecs(stopAfterMs), false);
    QVERIFY(!m_manager->isTracking());
    QCOMPARE(stored(running->uid())->durationSecs(), durationSecs);
}

void TestActivityManager::stopWithoutRunningActivityStillNotifies()
{
    QSignalSpy stopped(m_manager.get(), &ActivityManager::activityManagerStopped);
    m_manager->stopTrack();
    QCOMPARE(stopped.size(), 1);
    QVERIFY(!m_manager->isTracking());
}

void TestActivityManager::stopAndContinueStartsSameText()
{
    QVERIFY(m_manager->startTrack(u"@Acme idle later"_s).isNull());
    const QString first = m_manager->currentActivity()->uid();
    m_clock.advance(600000);
    m_manager->stopCurrentActivityAt(m_clock.now().addSecs(-300), true);
    QVERIFY(m_manager->isTracking());
    QVERIFY(m_manager->currentActivity()->uid() != first);
    QCOMPARE(m_manager->currentActivity()->text(), u"@Acme idle later"_s);
    QCOMPARE(stored(first)->durationSecs(), 300);
}

void TestActivityManager::updatedTextIsStoredAtStop()
{
    QCOMPARE(m_manager->updateTrack(u"x"_s), u"Not tracking!"_s);
    QVERIFY(m_manager->startTrack(u"@Acme first"_s).isNull());
    QCOMPARE(m_manager->updateTrack(u"  "_s), u"Activity can not be empty!"_s);
    QVERIFY(m_manager->updateTrack(u"@Globex #call second"_s).isNull());
    const QString uid = m_manager->currentActivity()->uid();
    QCOMPARE(stored(uid)->text(), u"@Acme first"_s);
    m_clock.advance(120000);
    m_manager->stopTrack();
    const ActivityPtr onDisk = stored(uid);
    QCOMPARE(onDisk->text(), u"@Globex #call second"_s);
    QCOMPARE(onDisk->project()->name(), u"Globex"_s);
    QCOMPARE(onDisk->modifiedAt(), m_clock.now());
}

void TestActivityManager::touchMovesEndToNow()
{
    QVERIFY(m_manager->startTrack(u"long work"_s).isNull());
    m_clock.advance(30000);
    m_manager->touchCurrentActivity();
    const ActivityPtr onDisk = stored(m_manager->currentActivity()->uid());
    QCOMPARE(onDisk->timeTo(), m_clock.now());
    QCOMPARE(onDisk->modifiedAt(), m_clock.now());
}

void TestActivityManager::typingOtherCaseRenamesProject()
{
    addFinished(u"@Acme earlier"_s, m_clock.now().addSecs(-7200), 30);
    QVERIFY(m_manager->startTrack(u"@ACME now"_s).isNull());
    const auto projects = m_store->newContext()->projects();
    QCOMPARE(projects->size(), 1);
    QCOMPARE(projects->constFirst()->name(), u"ACME"_s);
}

void TestActivityManager::editByUid()
{
    QString message;
    QVERIFY(!m_manager->update(u"NOPE"_s, u"x"_s, m_clock.now(), m_clock.now().addSecs(60), &message));
    QCOMPARE(message, u"Activity not found!"_s);

    addFinished(u"before"_s, m_clock.now().addSecs(-7200), 30);
    const QString uid = m_store->newContext()->fetchActivities()->constFirst()->uid();
    m_clock.advance(1000);
    message.clear();
    QVERIFY(m_manager->update(uid, u"@New after"_s, m_clock.now().addSecs(-600), m_clock.now(), &message));
    QVERIFY(message.isNull());
    const ActivityPtr onDisk = stored(uid);
    QCOMPARE(onDisk->text(), u"@New after"_s);
    QCOMPARE(onDisk->durationSecs(), 600);
    QCOMPARE(onDisk->modifiedAt(), m_clock.now());
    // A refused edit sets no message: the save result is the answer. It leaves nothing pending in the main
    // context either, or every later touch of the running activity would fail with it.
    QVERIFY(m_manager->startTrack(u"running"_s).isNull());
    QSignalSpy failed(m_manager.get(), &ActivityManager::saveFailed);
    QVERIFY(!m_manager->update(uid, u"x"_s, m_clock.now(), m_clock.now(), &message));
    QVERIFY(message.isNull());
    QCOMPARE(stored(uid)->text(), u"@New after"_s);
    m_clock.advance(30000);
    m_manager->touchCurrentActivity();
    QCOMPARE(failed.size(), 0);
    QCOMPARE(stored(m_manager->currentActivity()->uid())->timeTo(), m_clock.now());
}

void TestActivityManager::recentActivities_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("byDate");
    QTest::addColumn<bool>("excludeInvoiced");
    QTest::addColumn<QStringList>("texts");

    // A repeated text counts with its newest start: "a" started again after "b".
    QTest::newRow("newest first, duplicates once")
        << 10 << true << false << QStringList { u"c"_s, u"a"_s, u"b"_s, u"d"_s };
    QTest::newRow("reverse alphabetical") << 10 << false << false << QStringList { u"d"_s, u"c"_s, u"b"_s, u"a"_s };
    QTest::newRow("limited") << 2 << true << false << QStringList { u"c"_s, u"a"_s };
    QTest::newRow("invoiced left out") << 10 << true << true << QStringList { u"c"_s, u"a"_s, u"b"_s };
    QTest::newRow("none wanted") << 0 << true << false << QStringList {};
}

void TestActivityManager::recentActivities()
{
    QFETCH(int, count);
    QFETCH(bool, byDate);
    QFETCH(bool, excludeInvoiced);
    QFETCH(QStringList, texts);
    const QDateTime base = m_clock.now().addDays(-1);
    addFinished(u"d"_s, base, 10, true);
    addFinished(u"a"_s, base.addSecs(3600), 10);
    addFinished(u"b"_s, base.addSecs(7200), 10);
    addFinished(u"a"_s, base.addSecs(8000), 10);
    addFinished(u"c"_s, base.addSecs(9000), 10);
    makeManager(RecentItemsOptions { count, byDate, excludeInvoiced });
    QVERIFY(m_manager->startTrack(u"c"_s).isNull());

    QStringList got;
    for (const RecentActivityItem &item : m_manager->recentActivities()) {
        got.append(item.text());
        QCOMPARE(item.isCurrent(), item.text() == u"c"_s);
    }
    QCOMPARE(got, texts);
}

void TestActivityManager::todaysActivitiesStartToday()
{
    const QDate today = m_clock.now().toLocalTime().date();
    addFinished(u"yesterday evening"_s, QDateTime(today.addDays(-1), QTime(23, 0)), 120);
    addFinished(u"this morning"_s, QDateTime(today, QTime(0, 0)), 30);
    addFinished(u"last second"_s, QDateTime(today, QTime(23, 59, 59)), 1);
    addFinished(u"tomorrow"_s, QDateTime(today.addDays(1), QTime(0, 0)), 30);
    QStringList texts;
    for (const ActivityPtr &activity : m_manager->todaysActivities())
        texts.append(activity->text());
    QCOMPARE(texts, (QStringList { u"last second"_s, u"this morning"_s }));
}

void TestActivityManager::completionKeepsTypedCase_data()
{
    QTest::addColumn<bool>("tasks");
    QTest::addColumn<QString>("prefix");
    QTest::addColumn<QStringList>("candidates");

    QTest::newRow("projects regardless of case") << false << "ac" << QStringList { u"acME"_s, u"acorn"_s };
    QTest::newRow("tasks case-sensitively") << true << "re" << QStringList { u"reView"_s, u"read"_s };
    QTest::newRow("wildcard typed by the user") << false << "a?o" << QStringList { u"a?orn"_s };
    QTest::newRow("no match") << false << "zz" << QStringList {};
}

void TestActivityManager::completionKeepsTypedCase()
{
    QFETCH(bool, tasks);
    QFETCH(QString, prefix);
    QFETCH(QStringList, candidates);
    addFinished(u"@ACME #read x"_s, m_clock.now().addSecs(-7200), 10);
    addFinished(u"@Acorn #ReView x"_s, m_clock.now().addSecs(-3600), 10);
    addFinished(u"@Globex #other x"_s, m_clock.now().addSecs(-1800), 10);
    m_manager->context().refreshObjects();
    const QStringList got = tasks ? m_manager->findTaskNames(prefix, true) : m_manager->findProjectNames(prefix, true);
    QCOMPARE(got, candidates);
}

void TestActivityManager::touchAfterExternalEditKeepsTheirText_data()
{
    QTest::addColumn<bool>("noticedFirst");
    QTest::addColumn<bool>("updatedHere");

    QTest::newRow("edit noticed before the touch") << true << false;
    QTest::newRow("touch before the edit is noticed") << false << false;
    QTest::newRow("unsaved text typed here wins") << true << true;
}

void TestActivityManager::touchAfterExternalEditKeepsTheirText()
{
    QFETCH(bool, noticedFirst);
    QFETCH(bool, updatedHere);
    QVERIFY(m_manager->startTrack(u"@Acme first"_s).isNull());
    const QString uid = m_manager->currentActivity()->uid();
    if (updatedHere)
        QVERIFY(m_manager->updateTrack(u"@Acme typed here"_s).isNull());

    // `brimvale edit` changes the running activity's text and invoiced mark.
    QVERIFY(!m_store->checkForExternalChanges());
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    auto cli = std::move(*Store::open(options));
    auto cliContext = cli->newContext();
    const ActivityPtr theirs = *cliContext->activityWithUid(uid);
    theirs->setText(u"@Globex edited #call"_s);
    theirs->setIsInvoiced(true);
    QVERIFY(cliContext->save());
    if (noticedFirst) {
        QVERIFY(m_store->checkForExternalChanges());
        QTRY_VERIFY(m_manager->currentActivity()->isInvoiced());
    }

    QSignalSpy failed(m_manager.get(), &ActivityManager::saveFailed);
    m_clock.advance(30000);
    m_manager->touchCurrentActivity();
    QCOMPARE(failed.size(), 0);
    const QString text = updatedHere ? u"@Acme typed here"_s : u"@Globex edited #call"_s;
    const ActivityPtr onDisk = stored(uid);
    QCOMPARE(onDisk->text(), text);
    QCOMPARE(onDisk->project()->name(), updatedHere ? u"Acme"_s : u"Globex"_s);
    QVERIFY(onDisk->isInvoiced());
    QCOMPARE(onDisk->timeTo(), m_clock.now());
    if (noticedFirst)
        QCOMPARE(m_manager->currentActivity()->text(), text);
}

void TestActivityManager::runningActivityDeletedElsewhereStopsTracking_data()
{
    QTest::addColumn<bool>("noticedFirst");

    QTest::newRow("deletion noticed") << true;
    QTest::newRow("found by the next touch") << false;
}

void TestActivityManager::runningActivityDeletedElsewhereStopsTracking()
{
    QFETCH(bool, noticedFirst);
    QVERIFY(m_manager->startTrack(u"@Acme doomed"_s).isNull());
    const QString uid = m_manager->currentActivity()->uid();
    QSignalSpy stopped(m_manager.get(), &ActivityManager::activityManagerStopped);
    QSignalSpy failed(m_manager.get(), &ActivityManager::saveFailed);

    QVERIFY(!m_store->checkForExternalChanges());
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    auto cli = std::move(*Store::open(options));
    auto cliContext = cli->newContext();
    DeletedActivity::deleteActivity(*cliContext->activityWithUid(uid), *cliContext);
    QVERIFY(cliContext->save());

    if (noticedFirst) {
        QVERIFY(m_store->checkForExternalChanges());
        QTRY_COMPARE(stopped.size(), 1);
        QCOMPARE(failed.size(), 0);
    } else {
        m_clock.advance(30000);
        m_manager->touchCurrentActivity();
        QCOMPARE(stopped.size(), 1);
        QCOMPARE(failed.size(), 1);
        QCOMPARE(failed.at(0).at(0).value<BvError>().description(), u"Activity not found!"_s);
    }
    QVERIFY(!m_manager->isTracking());
    // Nothing brings the row back, and the main context goes on working.
    m_manager->touchCurrentActivity();
    m_manager->stopTrack();
    QCOMPARE(failed.size(), noticedFirst ? 0 : 1);
    QVERIFY(!stored(uid));
    QVERIFY(m_manager->startTrack(u"@Acme next"_s).isNull());
    m_clock.advance(30000);
    m_manager->touchCurrentActivity();
    QCOMPARE(failed.size(), noticedFirst ? 0 : 1);
    QCOMPARE(*m_store->newContext()->countActivities(), 1);
}

QTEST_GUILESS_MAIN(TestActivityManager)
#include "testactivitymanager.moc"
