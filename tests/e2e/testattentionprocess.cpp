#include <QtTest>

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QProcess>

#include "model/store.h"
#include "model/storecontext.h"
#include "settings/bvsettings.h"
#include "settings/computereventsettings.h"
#include "settings/notificationsettings.h"
#include "settings/userdefaults.h"
#include "support/appprocess.h"
#include "support/dbusmock.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {

const QString Service = u"com.brimvaleapp.Brimvale"_s;

QDBusMessage callApp(const QString &method, const QVariantList &args = {})
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        Service, u"/com/brimvaleapp/Brimvale"_s, u"com.brimvaleapp.Brimvale1"_s, method);
    call.setArguments(args);
    return QDBusConnection::sessionBus().call(call, QDBus::Block, 5000);
}

// Whether the app tracks, and what; nothing when it does not answer.
std::optional<QString> trackedText()
{
    const QDBusMessage reply = callApp(u"Status"_s);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 3)
        return std::nullopt;
    return reply.arguments().at(0).toBool() ? reply.arguments().at(1).toString() : QString();
}

int inhibitorCount(const DBusMock &logind)
{
    const QDBusMessage reply
        = logind.call(u"/org/freedesktop/login1"_s, u"org.freedesktop.login1.Manager"_s, u"ListInhibitors"_s);
    const QDBusArgument list = reply.arguments().value(0).value<QDBusArgument>();
    int count = 0;
    list.beginArray();
    while (!list.atEnd()) {
        QString what, who, why, mode;
        quint32 uid = 0, pid = 0;
        list.beginStructure();
        list >> what >> who >> why >> mode >> uid >> pid;
        list.endStructure();
        count += who == u"Brimvale"_s && mode == u"delay"_s;
    }
    list.endArray();
    return count;
}

} // namespace

using AppProcess::xdotool;

// The real app under Xvfb with mocks of logind (on a private system bus) and of GNOME's idle monitor: a
// sleep ends the running activity in the store, the wake resumes it, and an idle user gets the prompt
// whose answer changes the store.
class TestAttentionProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void sleepStopsAndWakeResumes();
    void idlePromptAnswerCutsTheActivity();
    void reminderIsPostedThroughTheNotificationServer();

private:
    bool startApp(const QStringList &arguments = {});
    QList<ActivityPtr> storedActivities();

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<DBusMock> m_logind;
    std::unique_ptr<DBusMock> m_idleMonitor;
    std::unique_ptr<QProcess> m_app;
};

void TestAttentionProcess::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_logind = DBusMock::fromTemplate(u"logind"_s, u"org.freedesktop.login1"_s, DBusMock::Bus::System);
    QVERIFY(m_logind);
    m_logind->mock(u"AddSession"_s, { u"c1"_s, u"seat0"_s, 1000u, u"user"_s, true });
    qputenv("XDG_SESSION_ID", "c1");
}

void TestAttentionProcess::cleanup()
{
    if (m_app && m_app->state() != QProcess::NotRunning) {
        m_app->terminate();
        if (!m_app->waitForFinished(5000))
            m_app->kill();
        m_app->waitForFinished(2000);
    }
    m_app.reset();
    m_idleMonitor.reset();
    m_logind.reset();
    m_home.reset();
}

bool TestAttentionProcess::startApp(const QStringList &arguments)
{
    m_app = std::make_unique<QProcess>();
    m_app->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_app->start(QStringLiteral(BRIMVALE_EXECUTABLE), arguments);
    if (!m_app->waitForStarted(5000))
        return false;
    QElapsedTimer waited;
    waited.start();
    while (!trackedText()) {
        if (waited.elapsed() > 15000)
            return false;
        QTest::qWait(50);
    }
    return true;
}

QList<ActivityPtr> TestAttentionProcess::storedActivities()
{
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    auto store = Store::open(options);
    if (!store)
        return {};
    StoreContext context(**store);
    QList<ActivityPtr> activities = context.fetchActivities().value_or(QList<ActivityPtr>());
    std::ranges::sort(activities, {}, &Activity::timeFrom);
    return activities;
}

void TestAttentionProcess::sleepStopsAndWakeResumes()
{
    {
        UserDefaults defaults(UserDefaults::standardFilePath());
        BvSettings settings(&defaults);
        settings.eventSleepSettings()->setStopTracking(true);
        settings.eventSleepSettings()->setResumeTracking(true);
    }
    QVERIFY(startApp());
    const QString text = u"@Acme #design mock-ups"_s;
    QCOMPARE(callApp(u"StartTrack"_s, { text }).arguments().value(0).toString(), QString());
    QTRY_COMPARE(trackedText(), std::optional<QString>(text));
    QTRY_COMPARE(inhibitorCount(*m_logind), 1);

    QTest::qWait(1500);
    QElapsedTimer sleepTook;
    sleepTook.start();
    const QDateTime beforeSleep = QDateTime::currentDateTimeUtc();
    m_logind->emitSignal(u"org.freedesktop.login1.Manager"_s, u"PrepareForSleep"_s, u"b"_s, { true });
    // The app lets go of the delay lock only once the stop is in the store.
    QTRY_COMPARE(inhibitorCount(*m_logind), 0);
    const qint64 releasedAfter = sleepTook.elapsed();
    QList<ActivityPtr> stored = storedActivities();
    QCOMPARE(stored.size(), 1);
    // The stop written when the machine went to sleep: not the start, nor a time before it.
    const QDateTime stoppedAt = stored.at(0)->timeTo();
    QVERIFY2(stoppedAt >= stored.at(0)->timeFrom().addMSecs(1500), qPrintable(stoppedAt.toString(Qt::ISODateWithMs)));
    QVERIFY2(stoppedAt >= beforeSleep, qPrintable(stoppedAt.toString(Qt::ISODateWithMs)));
    QVERIFY(stoppedAt <= QDateTime::currentDateTimeUtc());
    QCOMPARE(trackedText(), std::optional<QString>(QString()));
    qInfo("PrepareForSleep(true) to the delay lock's release, with the stop saved: %lld ms", releasedAfter);

    m_logind->emitSignal(u"org.freedesktop.login1.Manager"_s, u"PrepareForSleep"_s, u"b"_s, { false });
    QTRY_COMPARE(trackedText(), std::optional<QString>(text));
    QTRY_COMPARE(inhibitorCount(*m_logind), 1);
    stored = storedActivities();
    QCOMPARE(stored.size(), 2);
    QVERIFY(stored.at(1)->timeFrom() >= stored.at(0)->timeTo());
}

void TestAttentionProcess::idlePromptAnswerCutsTheActivity()
{
    // The user has not touched anything for 20 minutes; the threshold is one.
    m_idleMonitor = DBusMock::bare(
        u"org.gnome.Mutter.IdleMonitor"_s, u"/org/gnome/Mutter/IdleMonitor/Core"_s, u"org.gnome.Mutter.IdleMonitor"_s);
    QVERIFY(m_idleMonitor);
    m_idleMonitor->mock(u"AddMethod"_s, { QString(), u"GetIdletime"_s, QString(), u"t"_s, u"ret = 1200000"_s });
    {
        UserDefaults defaults(UserDefaults::standardFilePath());
        BvSettings settings(&defaults);
        settings.setIdleTimeoutDetection(true);
        settings.setIdleTimeoutInterval(1);
        settings.setDefaultIdleAction(1);
    }
    QVERIFY(startApp());
    const QString text = u"@Acme review"_s;
    callApp(u"StartTrack"_s, { text });
    QTRY_COMPARE(trackedText(), std::optional<QString>(text));

    // The first check comes a second later and finds the user idle.
    QVERIFY(xdotool({ u"search"_s, u"--sync"_s, u"--onlyvisible"_s, u"--name"_s, u"^Brimvale: idle time$"_s }));
    QTest::qWait(300);
    const QString shot = QCoreApplication::applicationDirPath() + u"/idle-prompt.png"_s;
    QProcess::execute(u"import"_s, { u"-window"_s, u"root"_s, shot });
    // Subtract and stop is the remembered choice; the window has the focus, so Return answers OK.
    QVERIFY(xdotool({ u"search"_s, u"--name"_s, u"^Brimvale: idle time$"_s, u"windowfocus"_s, u"--sync"_s }));
    QVERIFY(xdotool({ u"key"_s, u"Return"_s }));

    QTRY_COMPARE(trackedText(), std::optional<QString>(QString()));
    const QList<ActivityPtr> stored = storedActivities();
    QCOMPARE(stored.size(), 1);
    QCOMPARE(stored.at(0)->text(), text);
    // Cut back to one threshold before the check, which the one-second floor keeps at a second.
    QCOMPARE(stored.at(0)->timeFrom().secsTo(stored.at(0)->timeTo()), 1);
}

void TestAttentionProcess::reminderIsPostedThroughTheNotificationServer()
{
    auto server
        = DBusMock::fromTemplate(u"notification_daemon"_s, u"org.freedesktop.Notifications"_s, DBusMock::Bus::Session);
    QVERIFY(server);
    {
        BvSettings::setNotificationsAvailable([] { return true; });
        UserDefaults defaults(UserDefaults::standardFilePath());
        // Over the defaults the app registers, so that each value that differs from them is written.
        defaults.registerDefaultsFromResource();
        BvSettings settings(&defaults);
        settings.setAppNotificationType(2);
        settings.reminderNotification()->setInterval(1);
        settings.reminderNotification()->setDisplayNotification(true);
        BvSettings::setNotificationsAvailable({});
    }
    // Started at login: the main window stays closed, so nothing keeps the reminder quiet.
    QVERIFY(startApp({ u"launchFromHelper"_s }));
    const QString text = u"@Acme #design mock-ups"_s;
    callApp(u"StartTrack"_s, { text });
    QTRY_COMPARE(trackedText(), std::optional<QString>(text));

    // One minute after the start the reminder goes out: "Brimvale" / "Are you still working on: ...".
    QStringList bodies;
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            const QDBusMessage calls = server->mock(u"GetMethodCalls"_s, { u"Notify"_s });
            const QDBusArgument list = calls.arguments().value(0).value<QDBusArgument>();
            list.beginArray();
            while (!list.atEnd()) {
                quint64 timestamp = 0;
                QVariantList args;
                list.beginStructure();
                list >> timestamp >> args;
                list.endStructure();
                if (args.size() >= 5 && args.at(3).toString() == u"Brimvale"_s)
                    bodies << args.at(4).toString();
            }
            list.endArray();
            return !bodies.isEmpty();
        }(),
        75000);
    QCOMPARE(bodies.value(0), u"Are you still working on: @Acme #design mock-ups"_s);
}

QTEST_GUILESS_MAIN(TestAttentionProcess)
#include "testattentionprocess.moc"
