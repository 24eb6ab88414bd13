#include <QDBusArgument>
#include <QDBusVariant>
#include <QtTest>

#include "attention/attentioncontroller.h"
#include "attention/bvusernotificationservice.h"
#include "fakes/fakeclock.h"
#include "fakes/fakeidlesource.h"
#include "fakes/fakenotificationcentre.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "platform/idlesourcemutter.h"
#include "platform/idlesourcescreensaver.h"
#include "platform/platformservices.h"
#include "platform/sessioneventscombined.h"
#include "platform/sessioneventslogind.h"
#include "platform/sessioneventsmutterdisplay.h"
#include "platform/sessioneventsscreensaver.h"
#include "settings/bvsettings.h"
#include "settings/computereventsettings.h"
#include "settings/userdefaults.h"
#include "support/dbusmock.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {
using Bus = DBusMock::Bus;

std::unique_ptr<DBusMock> mutterIdleMonitor(quint64 idleMsecs)
{
    auto mock = DBusMock::bare(
        u"org.gnome.Mutter.IdleMonitor"_s, u"/org/gnome/Mutter/IdleMonitor/Core"_s, u"org.gnome.Mutter.IdleMonitor"_s);
    if (mock)
        mock->mock(u"AddMethod"_s, { QString(), u"GetIdletime"_s, QString(), u"t"_s, u"ret = %1"_s.arg(idleMsecs) });
    return mock;
}

std::unique_ptr<DBusMock> freedesktopScreenSaver(quint32 idleMsecs)
{
    auto mock = DBusMock::bare(u"org.freedesktop.ScreenSaver"_s, u"/ScreenSaver"_s, u"org.freedesktop.ScreenSaver"_s);
    if (mock)
        mock->mock(
            u"AddMethod"_s, { QString(), u"GetSessionIdleTime"_s, QString(), u"u"_s, u"ret = %1"_s.arg(idleMsecs) });
    return mock;
}

// The (what, who, mode) of each sleep lock logind holds.
QStringList inhibitors(const DBusMock &logind)
{
    const QDBusMessage reply
        = logind.call(u"/org/freedesktop/login1"_s, u"org.freedesktop.login1.Manager"_s, u"ListInhibitors"_s);
    QStringList result;
    const QDBusArgument list = reply.arguments().value(0).value<QDBusArgument>();
    list.beginArray();
    while (!list.atEnd()) {
        QString what, who, why, mode;
        quint32 uid = 0, pid = 0;
        list.beginStructure();
        list >> what >> who >> why >> mode >> uid >> pid;
        list.endStructure();
        result << what + u'/' + who + u'/' + mode;
    }
    list.endArray();
    return result;
}

// "+N" / "-N" for each event reported.
QStringList eventsOf(SessionEvents &events, QObject *context, QStringList &log)
{
    QObject::connect(
        &events, &SessionEvents::computerEventDidStart, context, [&log](int event) { log << u"+%1"_s.arg(event); });
    QObject::connect(
        &events, &SessionEvents::computerEventDidStop, context, [&log](int event) { log << u"-%1"_s.arg(event); });
    return log;
}
} // namespace

class TestSessionSources : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void idleSourceChoice_data();
    void idleSourceChoice();
    void idleTimeIsCountedBackFromNow_data();
    void idleTimeIsCountedBackFromNow();
    void sleepIsInTheStoreBeforeTheLockIsReleased();
    void lockReportedOncePerChange_data();
    void lockReportedOncePerChange();
    void screensaverActiveChanged_data();
    void screensaverActiveChanged();
    void screensPowerSaveMode();
    void withoutLogindNothingIsReported();
};

void TestSessionSources::initTestCase()
{
    QVERIFY2(QDBusConnection::sessionBus().isConnected(), "needs a private session bus");
    QVERIFY2(QDBusConnection::systemBus().isConnected(), "needs a private system bus");
    qunsetenv("DISPLAY");
    qunsetenv("WAYLAND_DISPLAY");
}

void TestSessionSources::idleSourceChoice_data()
{
    QTest::addColumn<bool>("mutter");
    QTest::addColumn<bool>("screenSaver");
    QTest::addColumn<QString>("sessionType");
    QTest::addColumn<QString>("expected"); // the chosen source's name, or the start of the reason
    QTest::newRow("GNOME wins") << true << true << u"x11"_s << u"GNOME idle monitor"_s;
    QTest::newRow("GNOME on Wayland") << true << false << u"wayland"_s << u"GNOME idle monitor"_s;
    QTest::newRow("Plasma on X11") << false << true << u"x11"_s << u"Screen saver service"_s;
    QTest::newRow("Plasma's service on Wayland does not count")
        << false << true << u"wayland"_s << u"GNOME's idle monitor does not answer"_s;
    QTest::newRow("nothing") << false << false << u"x11"_s << u"GNOME's idle monitor does not answer"_s;
}

void TestSessionSources::idleSourceChoice()
{
    QFETCH(bool, mutter);
    QFETCH(bool, screenSaver);
    QFETCH(QString, sessionType);
    QFETCH(QString, expected);
    std::unique_ptr<DBusMock> mutterMock = mutter ? mutterIdleMonitor(1000) : nullptr;
    std::unique_ptr<DBusMock> screenSaverMock = screenSaver ? freedesktopScreenSaver(1000) : nullptr;
    QCOMPARE(bool(mutterMock), mutter);
    QCOMPARE(bool(screenSaverMock), screenSaver);
    qputenv("XDG_SESSION_TYPE", sessionType.toLatin1());

    const PlatformServices services = PlatformServices::forSession();
    qunsetenv("XDG_SESSION_TYPE");
    if (services.idleSource->isAvailable()) {
        QCOMPARE(services.idleSource->name(), expected);
    } else {
        QVERIFY2(services.idleSource->unavailableReason().startsWith(expected),
            qPrintable(services.idleSource->unavailableReason()));
        // Every source that was tried says why it did not work.
        QVERIFY(services.idleSource->unavailableReason().contains(u"screen saver service"_s));
    }
}

void TestSessionSources::idleTimeIsCountedBackFromNow_data()
{
    QTest::addColumn<bool>("gnome");
    QTest::addColumn<quint32>("idleMsecs");
    QTest::addColumn<bool>("idle");
    QTest::newRow("GNOME, 90 s") << true << 90000u << true;
    QTest::newRow("GNOME, just touched") << true << 0u << false;
    QTest::newRow("Plasma, 25 min") << false << 1500000u << true;
}

void TestSessionSources::idleTimeIsCountedBackFromNow()
{
    QFETCH(bool, gnome);
    QFETCH(quint32, idleMsecs);
    QFETCH(bool, idle);
    auto mock = gnome ? mutterIdleMonitor(idleMsecs) : freedesktopScreenSaver(idleMsecs);
    QVERIFY(mock);
    std::unique_ptr<IdleSource> source;
    if (gnome)
        source = std::make_unique<IdleSourceMutter>(QDBusConnection::sessionBus());
    else
        source = std::make_unique<IdleSourceScreenSaver>(QDBusConnection::sessionBus(), false);
    QVERIFY2(source->isAvailable(), qPrintable(source->unavailableReason()));
    const QDateTime now(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC);
    const std::optional<QDateTime> since = source->idleSince(now);
    QCOMPARE(bool(since), idle);
    if (idle)
        QCOMPARE(*since, now.addMSecs(-qint64(idleMsecs)));
    // The service goes away: no answer, no idle time.
    mock.reset();
    QVERIFY(!source->idleSince(now));
}

void TestSessionSources::sleepIsInTheStoreBeforeTheLockIsReleased()
{
    auto logind = DBusMock::fromTemplate(u"logind"_s, u"org.freedesktop.login1"_s, Bus::System);
    QVERIFY(logind);
    logind->mock(u"AddSession"_s, { u"c1"_s, u"seat0"_s, 1000u, u"user"_s, true });

    IsolatedHome home;
    FakeClock clock;
    StoreOptions options;
    options.applicationFilesDirectory = home.applicationFilesDirectory();
    options.clock = &clock;
    std::unique_ptr<Store> store = std::move(*Store::open(options));
    ActivityManager manager(*store);
    UserDefaults defaults(home.configHome() + u"/Brimvale.conf"_s);
    BvSettings settings(&defaults);
    settings.eventSleepSettings()->setStopTracking(true);
    settings.eventSleepSettings()->setResumeTracking(true);
    FakeIdleSource idle;
    FakeNotificationCentre centre;
    BvUserNotificationService notifications(centre);
    AttentionController attention(manager, settings, clock, idle, notifications);

    // The lock must still be held when the stop has been saved (the stopped signal follows the save).
    QStringList heldAfterSave;
    connect(&manager, &ActivityManager::activityManagerStopped, this, [&] { heldAfterSave = inhibitors(*logind); });
    // As the app wires it: the events drive the rules, the tracking state the sleep lock.
    std::vector<std::unique_ptr<SessionEvents>> sources;
    sources.push_back(std::make_unique<SessionEventsLogind>(QDBusConnection::systemBus(), u"c1"_s));
    SessionEventsCombined events(std::move(sources));
    connect(&events, &SessionEvents::computerEventDidStart, &attention, &AttentionController::computerEventDidStart);
    connect(&events, &SessionEvents::computerEventDidStop, &attention, &AttentionController::computerEventDidStop);
    connect(&manager, &ActivityManager::activityManagerStarted, &events, [&] { events.setTracking(true); });
    connect(&manager, &ActivityManager::activityManagerStopped, &events, [&] { events.setTracking(false); });
    events.start();
    QCOMPARE(inhibitors(*logind), QStringList());

    QCOMPARE(manager.startTrack(u"@Acme mock-ups"_s), QString());
    QCOMPARE(inhibitors(*logind), QStringList { u"sleep/Brimvale/delay"_s });

    clock.advance(25 * 60 * 1000);
    logind->emitSignal(u"org.freedesktop.login1.Manager"_s, u"PrepareForSleep"_s, u"b"_s, { true });
    QTRY_VERIFY(!manager.isTracking());
    QCOMPARE(heldAfterSave, QStringList { u"sleep/Brimvale/delay"_s });
    QTRY_COMPARE(inhibitors(*logind), QStringList());
    {
        auto context = store->newContext();
        const QList<ActivityPtr> stored = *context->fetchActivities();
        QCOMPARE(stored.size(), 1);
        QCOMPARE(stored.at(0)->timeTo(), clock.now());
    }

    clock.advance(60 * 60 * 1000);
    logind->emitSignal(u"org.freedesktop.login1.Manager"_s, u"PrepareForSleep"_s, u"b"_s, { false });
    QTRY_VERIFY(manager.isTracking());
    QCOMPARE(manager.currentActivity()->text(), u"@Acme mock-ups"_s);
    QCOMPARE(manager.currentActivity()->timeFrom(), clock.now());
    QTRY_COMPARE(inhibitors(*logind), QStringList { u"sleep/Brimvale/delay"_s });

    manager.stopTrack();
    QTRY_COMPARE(inhibitors(*logind), QStringList());
}

void TestSessionSources::lockReportedOncePerChange_data()
{
    QTest::addColumn<QString>("sessionId");
    QTest::newRow("named by the desktop") << u"c2"_s;
    // No session id and no session found by the process (a user service): logind's "auto" names the
    // caller's session, but signals come from the session's own path.
    QTest::newRow("found by logind") << QString();
}

void TestSessionSources::lockReportedOncePerChange()
{
    QFETCH(QString, sessionId);
    auto logind = DBusMock::fromTemplate(u"logind"_s, u"org.freedesktop.login1"_s, Bus::System);
    QVERIFY(logind);
    logind->mock(u"AddSession"_s, { u"c2"_s, u"seat0"_s, 1000u, u"user"_s, true });
    logind->mock(u"AddMethod"_s,
        { QString(), u"GetSession"_s, u"s"_s, u"o"_s,
            u"ret = '/org/freedesktop/login1/session/' + ('c2' if args[0] == 'auto' else args[0])"_s });
    SessionEventsLogind events(QDBusConnection::systemBus(), sessionId);
    QStringList log;
    eventsOf(events, this, log);
    events.start();
    QCOMPARE(events.sessionPath(), u"/org/freedesktop/login1/session/c2"_s);

    const QString session = events.sessionPath();
    const QString iface = u"org.freedesktop.login1.Session"_s;
    // The request to lock, then the locker's hint; the reverse on unlock.
    logind->call(session, iface, u"Lock"_s);
    QTRY_COMPARE(log, QStringList { u"+4"_s });
    logind->call(session, iface, u"SetLockedHint"_s, { true });
    logind->call(session, iface, u"Unlock"_s);
    QTRY_COMPARE(log, (QStringList { u"+4"_s, u"-4"_s }));
    logind->call(session, iface, u"SetLockedHint"_s, { false });
    // A locker that only sets the hint.
    logind->call(session, iface, u"SetLockedHint"_s, { true });
    QTRY_COMPARE(log, (QStringList { u"+4"_s, u"-4"_s, u"+4"_s }));
    logind->call(session, iface, u"SetLockedHint"_s, { false });
    QTRY_COMPARE(log, (QStringList { u"+4"_s, u"-4"_s, u"+4"_s, u"-4"_s }));
}

void TestSessionSources::screensaverActiveChanged_data()
{
    QTest::addColumn<bool>("gnome");
    QTest::newRow("GNOME Shell") << true;
    QTest::newRow("freedesktop (Plasma)") << false;
}

void TestSessionSources::screensaverActiveChanged()
{
    QFETCH(bool, gnome);
    std::unique_ptr<DBusMock> mock = gnome
        ? DBusMock::fromTemplate(u"gnome_screensaver"_s, u"org.gnome.ScreenSaver"_s, Bus::Session)
        : DBusMock::bare(u"org.freedesktop.ScreenSaver"_s, u"/ScreenSaver"_s, u"org.freedesktop.ScreenSaver"_s);
    QVERIFY(mock);
    SessionEventsScreenSaver events(QDBusConnection::sessionBus());
    QStringList log;
    eventsOf(events, this, log);
    events.start();
    const auto setActive = [&](bool active) {
        if (gnome)
            mock->call(u"/org/gnome/ScreenSaver"_s, u"org.gnome.ScreenSaver"_s, u"SetActive"_s, { active });
        else
            mock->emitSignal(u"org.freedesktop.ScreenSaver"_s, u"ActiveChanged"_s, u"b"_s, { active });
    };
    setActive(true);
    setActive(true);
    setActive(false);
    QTRY_COMPARE(log, (QStringList { u"+3"_s, u"-3"_s }));
}

void TestSessionSources::screensPowerSaveMode()
{
    auto mock = DBusMock::bare(
        u"org.gnome.Mutter.DisplayConfig"_s, u"/org/gnome/Mutter/DisplayConfig"_s, u"org.gnome.Mutter.DisplayConfig"_s);
    QVERIFY(mock);
    const QString iface = u"org.gnome.Mutter.DisplayConfig"_s;
    mock->mock(u"AddProperty"_s, { iface, u"PowerSaveMode"_s, QVariant::fromValue(QDBusVariant(0)) });
    SessionEventsMutterDisplay events(QDBusConnection::sessionBus());
    QStringList log;
    eventsOf(events, this, log);
    events.start();
    // Off, standby (still asleep), unknown (no change), on.
    for (int mode : { 3, 1, -1, 0 })
        mock->mock(u"UpdateProperties"_s, { iface, QVariantMap { { u"PowerSaveMode"_s, mode } } });
    QTRY_COMPARE(log, (QStringList { u"+2"_s, u"-2"_s }));
}

void TestSessionSources::withoutLogindNothingIsReported()
{
    SessionEventsLogind events(QDBusConnection::systemBus(), u"c1"_s);
    QVERIFY(!events.isAvailable());
    events.start();
    events.setTracking(true);
    QVERIFY(!events.holdsSleepInhibitor());
}

QTEST_GUILESS_MAIN(TestSessionSources)
#include "testsessionsources.moc"
