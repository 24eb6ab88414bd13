// The sync manager's scheduling and statuses with a fake clock and a fake remote folder, and the status
// bar's sync button rule.
#include <QtTest>

#include <QSemaphore>
#include <QSignalSpy>

#include "fakes/fakeclock.h"
#include "fakes/fakesyncbackend.h"
#include "model/store.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"
#include "sync/bvsyncmanager.h"
#include "sync/bvsyncservice.h"
#include "sync/bvsyncstatusindicator.h"
#include "sync/bvsyncstatuswindowmodel.h"
#include "sync/dropboxsyncintervalcollection.h"

using namespace Qt::StringLiterals;

namespace {

// Holds the run in its first step until the test lets it go on.
class HeldBackend : public FakeSyncBackend
{
public:
    HeldBackend(const QString &folder, QSemaphore &gate)
        : FakeSyncBackend(folder, 2, u"folder"_s)
        , m_gate(gate)
    { }
    void initializeBackend(Completion completion) override
    {
        m_gate.acquire();
        FakeSyncBackend::initializeBackend(std::move(completion));
    }

private:
    QSemaphore &m_gate;
};

} // namespace

class TestSyncManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void delayFollowsTheLastSyncAndTheInterval_data();
    void delayFollowsTheLastSyncAndTheInterval();
    void enqueueSchedulesOrStartsAtOnce_data();
    void enqueueSchedulesOrStartsAtOnce();
    void aRunEndsInItsStatusAndWaitsAFullInterval_data();
    void aRunEndsInItsStatusAndWaitsAFullInterval();
    void oneRunAtATime();
    void syncTurnedOffStartsNothing();
    void intervalsAreOfferedInOrder();
    void statusWindowFollowsTheRun_data();
    void statusWindowFollowsTheRun();
    void completedButtonHidesUnlessAnotherRunStarted_data();
    void completedButtonHidesUnlessAnotherRunStarted();

private:
    std::unique_ptr<BVSyncManager> makeManager();

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
    std::unique_ptr<Store> m_store;
    FakeClock m_clock;
    QString m_failInitialize;
    QStringList m_methodsMade;
    // Runs while the factory makes a backend, as a Sync() call does that arrives while the keyring is read.
    std::function<void()> m_whileMaking;
};

void TestSyncManager::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale/Brimvale.conf"_s);
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
    StoreOptions options;
    options.applicationFilesDirectory = m_home->root() + u"/data"_s;
    options.clock = &m_clock;
    auto store = Store::open(options);
    QVERIFY(store);
    m_store = std::move(*store);
    QVERIFY(QDir().mkpath(m_home->root() + u"/remote"_s));
    m_clock.set(QDateTime(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC));
    m_failInitialize.clear();
    m_methodsMade.clear();
    m_whileMaking = nullptr;
}

void TestSyncManager::cleanup()
{
    m_store.reset();
    m_settings.reset();
    m_defaults.reset();
    m_home.reset();
}

std::unique_ptr<BVSyncManager> TestSyncManager::makeManager()
{
    return std::make_unique<BVSyncManager>(
        *m_settings, *m_store, m_clock,
        [this](int method) -> std::unique_ptr<BVSyncServiceBackend> {
            m_methodsMade.append(QString::number(method));
            if (auto whileMaking = std::exchange(m_whileMaking, nullptr))
                whileMaking();
            auto backend = std::make_unique<FakeSyncBackend>(
                m_home->root() + u"/remote"_s, method, method == 1 ? u"dropbox"_s : u"folder"_s);
            if (!m_failInitialize.isEmpty())
                backend->failNext(FakeSyncBackend::Operation::Initialize, m_failInitialize);
            return backend;
        },
        [] { return std::optional<QString>(); });
}

void TestSyncManager::delayFollowsTheLastSyncAndTheInterval_data()
{
    QTest::addColumn<int>("minutesAgo"); // negative: in the future; 9999: never
    QTest::addColumn<int>("interval");
    QTest::addColumn<double>("extra");
    QTest::addColumn<double>("delay");

    QTest::newRow("30 minutes, 10 ago") << 10 << 2 << 0.0 << 1200.0;
    QTest::newRow("30 minutes, 40 ago") << 40 << 2 << 0.0 << 0.0;
    QTest::newRow("30 minutes, exactly 30 ago") << 30 << 2 << 0.0 << 0.0;
    QTest::newRow("never synced") << 9999 << 2 << 0.0 << 0.0;
    QTest::newRow("last sync in the future") << -5 << 2 << 0.0 << 0.0;
    QTest::newRow("hourly, just now") << 0 << 3 << 0.0 << 3600.0;
    QTest::newRow("15 minutes, 5 ago, 30 s more") << 5 << 1 << 30.0 << 630.0;
    QTest::newRow("launch: never synced, 30 s") << 9999 << 2 << 30.0 << 30.0;
    QTest::newRow("negative extra is ignored") << 10 << 2 << -100.0 << 1200.0;
    QTest::newRow("manually") << 10 << 0 << 0.0 << 0.0;
    QTest::newRow("unknown interval") << 10 << 7 << 0.0 << 0.0;
}

void TestSyncManager::delayFollowsTheLastSyncAndTheInterval()
{
    QFETCH(int, minutesAgo);
    QFETCH(int, interval);
    QFETCH(double, extra);
    QFETCH(double, delay);
    const QDateTime now = m_clock.now();
    const QDateTime last = minutesAgo == 9999 ? QDateTime() : now.addSecs(-60 * minutesAgo);
    QCOMPARE(BVSyncManager::getNextSyncIntervalWithLastSyncTime(last, interval, extra, now), delay);
}

void TestSyncManager::enqueueSchedulesOrStartsAtOnce_data()
{
    QTest::addColumn<int>("method");
    QTest::addColumn<int>("interval");
    QTest::addColumn<int>("minutesAgo");
    QTest::addColumn<int>("timerSeconds"); // -1: no timer
    QTest::addColumn<bool>("started");

    QTest::newRow("30 minutes after 10") << 1 << 2 << 10 << 1200 << false;
    QTest::newRow("due: starts at once") << 1 << 2 << 40 << -1 << true;
    QTest::newRow("future last sync: starts at once") << 1 << 2 << -10 << -1 << true;
    QTest::newRow("manually: no timer") << 1 << 0 << 10 << -1 << false;
    QTest::newRow("sync off: nothing") << 0 << 2 << 40 << -1 << false;
    QTest::newRow("folder method is scheduled too") << 2 << 1 << 5 << 600 << false;
}

void TestSyncManager::enqueueSchedulesOrStartsAtOnce()
{
    QFETCH(int, method);
    QFETCH(int, interval);
    QFETCH(int, minutesAgo);
    QFETCH(int, timerSeconds);
    QFETCH(bool, started);

    m_settings->setSyncMethod(method);
    m_settings->setDropboxSyncInterval(interval);
    m_settings->setLastSyncTime(m_clock.now().addSecs(-60 * minutesAgo));
    auto manager = makeManager();
    QSignalSpy statuses(manager.get(), &BVSyncManager::syncOperationChanged);
    manager->enqueueNextSyncWithDelay(0);

    QCOMPARE(manager->currentSyncService() != nullptr, started);
    QCOMPARE(statuses.count(), started ? 1 : 0);
    const std::optional<QDateTime> next = manager->nextAutoSyncTime();
    QCOMPARE(next.has_value(), timerSeconds >= 0);
    if (next) {
        QCOMPARE(m_clock.now().secsTo(*next), timerSeconds);
        auto *timer = manager->findChild<QTimer *>(u"syncTimer"_s);
        QVERIFY(!timer || timer->remainingTime() > (timerSeconds - 5) * 1000);
    }
    if (started)
        QTRY_VERIFY(!manager->currentSyncService());
}

void TestSyncManager::aRunEndsInItsStatusAndWaitsAFullInterval_data()
{
    QTest::addColumn<QString>("failure");
    QTest::addColumn<int>("status");

    QTest::newRow("success") << "" << int(BVSyncManager::Completed);
    QTest::newRow("failure") << "Dropbox is not connected. Please configure Dropbox sync in preferences"
                             << int(BVSyncManager::Failed);
}

void TestSyncManager::aRunEndsInItsStatusAndWaitsAFullInterval()
{
    QFETCH(QString, failure);
    QFETCH(int, status);

    m_settings->setSyncMethod(1);
    m_settings->setDropboxSyncInterval(2);
    m_failInitialize = failure;
    auto manager = makeManager();
    QSignalSpy statuses(manager.get(), &BVSyncManager::syncOperationChanged);
    manager->startSync();
    QVERIFY(manager->currentSyncService());
    QTRY_COMPARE_WITH_TIMEOUT(statuses.count(), 2, 20000);
    QCOMPARE(statuses.at(0), (QVariantList { int(BVSyncManager::Started), 1 }));
    QCOMPARE(statuses.at(1), (QVariantList { status, 1 }));
    QVERIFY(!manager->currentSyncService());
    // Whatever the outcome, the next automatic run is one full interval away.
    QCOMPARE(m_settings->lastSyncTime(), m_clock.now());
    QVERIFY(manager->nextAutoSyncTime());
    QCOMPARE(m_clock.now().secsTo(*manager->nextAutoSyncTime()), 1800);
    QCOMPARE(m_settings->dropboxSyncDate().isValid(), failure.isEmpty());
}

void TestSyncManager::oneRunAtATime()
{
    m_settings->setSyncMethod(2);
    auto manager = makeManager();
    QSignalSpy statuses(manager.get(), &BVSyncManager::syncOperationChanged);
    m_whileMaking = [&] { manager->startSync(); };
    manager->startSync();
    BVSyncService *first = manager->currentSyncService();
    QVERIFY(first);
    manager->startSync();
    QCOMPARE(manager->currentSyncService(), first);
    QCOMPARE(m_methodsMade, QStringList { u"2"_s });
    QCOMPARE(statuses.count(), 1);
    QTRY_COMPARE_WITH_TIMEOUT(statuses.count(), 2, 20000);
    QCOMPARE(statuses.at(1), (QVariantList { int(BVSyncManager::Completed), 2 }));
    // Manually: nothing is scheduled after the run.
    QVERIFY(!manager->nextAutoSyncTime());
    manager->startSync();
    QCOMPARE(m_methodsMade.size(), 2);
    QTRY_COMPARE_WITH_TIMEOUT(statuses.count(), 4, 20000);
}

void TestSyncManager::syncTurnedOffStartsNothing()
{
    m_settings->setSyncMethod(0);
    m_settings->setDropboxSyncInterval(1);
    auto manager = makeManager();
    QSignalSpy statuses(manager.get(), &BVSyncManager::syncOperationChanged);
    manager->startSync();
    manager->enqueueNextSyncWithDelay(30);
    QVERIFY(!manager->currentSyncService());
    QVERIFY(!manager->nextAutoSyncTime());
    QCOMPARE(statuses.count(), 0);
    QVERIFY(m_methodsMade.isEmpty());
}

void TestSyncManager::intervalsAreOfferedInOrder()
{
    QStringList shown;
    for (const auto &item : DropboxSyncIntervalCollection::items())
        shown.append(QString::number(item.value) + u' ' + item.title + u' '
            + QString::number(DropboxSyncIntervalCollection::intervalSeconds(item.value)));
    QCOMPARE(shown,
        (QStringList {
            u"0 Manually 0"_s, u"1 Every 15 minutes 900"_s, u"2 Every 30 minutes 1800"_s, u"3 Every hour 3600"_s }));
    QVERIFY(DropboxSyncIntervalCollection::separatorAfter(0));
    QVERIFY(!DropboxSyncIntervalCollection::separatorAfter(1));
}

void TestSyncManager::statusWindowFollowsTheRun_data()
{
    QTest::addColumn<QString>("ending"); // "finish", "fail", "cancel"
    QTest::addColumn<QString>("finalText");

    QTest::newRow("completed") << "finish"
                               << "Sync operation completed!";
    QTest::newRow("failed") << "fail"
                            << "Failure. The share is not mounted";
    QTest::newRow("cancelled") << "cancel"
                               << "Operation cancelled.";
}

void TestSyncManager::statusWindowFollowsTheRun()
{
    QFETCH(QString, ending);
    QFETCH(QString, finalText);

    QSemaphore gate;
    m_settings->setSyncMethod(2);
    BVSyncManager manager(
        *m_settings, *m_store, m_clock,
        [&](int) -> std::unique_ptr<BVSyncServiceBackend> {
            auto backend = std::make_unique<HeldBackend>(m_home->root() + u"/remote"_s, gate);
            if (ending == u"fail")
                backend->failNext(FakeSyncBackend::Operation::Initialize, u"The share is not mounted"_s);
            return backend;
        },
        [] { return std::optional<QString>(); });
    BVSyncStatusWindowModel window;
    // The window opens as the run starts, before its first progress message.
    connect(&manager, &BVSyncManager::syncOperationChanged, &window, [&](int status) {
        if (status == BVSyncManager::Started)
            window.setSyncService(manager.currentSyncService());
    });
    QSignalSpy closing(&window, &BVSyncStatusWindowModel::closeRequested);
    manager.startSync();
    QCOMPARE(window.statusText(), u"Initializing sync service..."_s);
    QVERIFY(window.isIndicatorRunning());
    QCOMPARE(window.actionTitle(), u"Cancel"_s);
    QVERIFY(!window.isFinished());
    window.showDetails();
    QVERIFY(!window.isDetailsShown());
    if (ending == u"cancel") {
        window.triggerAction();
        QCOMPARE(window.statusText(), u"Cancelling sync operation..."_s);
        QVERIFY(!window.isActionEnabled());
    }
    gate.release();
    QTRY_VERIFY_WITH_TIMEOUT(window.isFinished(), 20000);
    QCOMPARE(window.statusText(), finalText);
    QVERIFY(!window.isIndicatorRunning());
    QCOMPARE(window.actionTitle(), u"Close"_s);
    QVERIFY(window.isActionEnabled());
    QTRY_VERIFY(!manager.currentSyncService());
    // The run stays the manager's last one, for a window opened after it ended.
    QVERIFY(manager.lastSyncService());
    window.showDetails();
    QVERIFY(window.isDetailsShown());
    QVERIFY2(!window.detailsText().isEmpty(), "the run's log");
    window.triggerAction();
    QCOMPARE(closing.count(), 1);

    // A window opened on no run says so.
    BVSyncStatusWindowModel idle;
    idle.setSyncService(nullptr);
    QCOMPARE(idle.statusText(), u"Sync operation is not running."_s);
    QVERIFY(idle.isFinished());
}

void TestSyncManager::completedButtonHidesUnlessAnotherRunStarted_data()
{
    QTest::addColumn<QList<int>>("statuses"); // after the first run's Started
    QTest::addColumn<bool>("visibleAfterDelay");
    QTest::addColumn<QString>("toolTip");

    QTest::newRow("completed hides") << QList<int> { 3 } << false << "Dropbox sync completed";
    QTest::newRow("another run started") << QList<int> { 3, 2 } << true << "Dropbox syncing ...";
    QTest::newRow("another run failed") << QList<int> { 3, 2, 4 } << true << "Dropbox sync error";
    QTest::newRow("another run completed too") << QList<int> { 3, 2, 3 } << true << "Dropbox sync completed";
}

void TestSyncManager::completedButtonHidesUnlessAnotherRunStarted()
{
    QFETCH(QList<int>, statuses);
    QFETCH(bool, visibleAfterDelay);
    QFETCH(QString, toolTip);

    BVSyncStatusIndicator indicator;
    indicator.syncOperationChanged(BVSyncManager::Started, 1);
    QCOMPARE(indicator.imageName(), u"DropboxSyncProgress"_s);
    const int firstRun = indicator.runNumber();
    for (int status : std::as_const(statuses))
        indicator.syncOperationChanged(status, 1);
    QCOMPARE(indicator.toolTip(), toolTip);
    indicator.hideDelayElapsed(firstRun);
    QCOMPARE(indicator.isVisible(), visibleAfterDelay);

    // The folder method shows its own title; a cancellation hides at once.
    indicator.syncOperationChanged(BVSyncManager::Failed, 2);
    QCOMPARE(indicator.toolTip(), u"Folder sync error"_s);
    QCOMPARE(indicator.imageName(), u"DropboxSyncError"_s);
    indicator.syncOperationChanged(BVSyncManager::Cancelled, 2);
    QVERIFY(!indicator.isVisible());
}

QTEST_GUILESS_MAIN(TestSyncManager)
#include "testsyncmanager.moc"
