#include <QtTest>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QProcess>

#include <signal.h>

#include "model/store.h"
#include "model/storecontext.h"
#include "support/appprocess.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

using AppProcess::appStatus;
using AppStatus = AppProcess::Status;
using AppProcess::xdotool;

// The real app under Xvfb and a private session bus: typed into with xdotool, asked over D-Bus, ended by
// signals as a logout or a crash would.
class TestAppProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void typedLineIsTrackedAndEndsAtTermination_data();
    void typedLineIsTrackedAndEndsAtTermination();
    void killedAppLosesAtMostTheLastTouch();
    void secondLaunchRaisesTheFirstAndExits();

private:
    bool startApp(const QStringList &arguments = {});
    QList<ActivityPtr> storedActivities();

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<QProcess> m_app;
};

void TestAppProcess::init()
{
    m_home = std::make_unique<IsolatedHome>();
}

void TestAppProcess::cleanup()
{
    if (m_app && m_app->state() != QProcess::NotRunning) {
        m_app->kill();
        m_app->waitForFinished(5000);
    }
    m_app.reset();
    m_home.reset();
}

bool TestAppProcess::startApp(const QStringList &arguments)
{
    m_app = std::make_unique<QProcess>();
    m_app->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_app->start(QStringLiteral(BRIMVALE_EXECUTABLE), arguments);
    if (!m_app->waitForStarted(5000))
        return false;
    // Ready once the window is mapped (unless started at login) and the app answers on the bus; an app that
    // died on the way fails at once instead of leaving the search waiting.
    const bool needsWindow = arguments.isEmpty();
    QElapsedTimer waited;
    waited.start();
    while ((needsWindow && !xdotool({ u"search"_s, u"--onlyvisible"_s, u"--name"_s, u"^Brimvale$"_s }))
        || !appStatus().answered) {
        if (waited.elapsed() > 10000 || m_app->state() == QProcess::NotRunning)
            return false;
        QTest::qWait(100);
    }
    return true;
}

QList<ActivityPtr> TestAppProcess::storedActivities()
{
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    auto store = Store::open(options);
    if (!store)
        return {};
    StoreContext context(**store);
    auto activities = context.fetchActivities();
    return activities ? *activities : QList<ActivityPtr>();
}

void TestAppProcess::typedLineIsTrackedAndEndsAtTermination_data()
{
    QTest::addColumn<int>("signalNumber");
    QTest::newRow("SIGTERM (logout)") << int(SIGTERM);
    QTest::newRow("SIGINT (Ctrl+C)") << int(SIGINT);
    QTest::newRow("SIGHUP (terminal closed)") << int(SIGHUP);
}

void TestAppProcess::typedLineIsTrackedAndEndsAtTermination()
{
    QFETCH(int, signalNumber);
    QVERIFY(startApp());
    QVERIFY(xdotool({ u"type"_s, u"--delay"_s, u"10"_s, u"@Acme #design mock-ups"_s }));
    QVERIFY(xdotool({ u"key"_s, u"Return"_s }));

    AppStatus status;
    QTRY_VERIFY_WITH_TIMEOUT((status = appStatus()).tracking, 5000);
    QCOMPARE(status.text, u"@Acme #design mock-ups"_s);
    QList<ActivityPtr> stored = storedActivities();
    QCOMPARE(stored.size(), 1);
    QCOMPARE(stored.constFirst()->project()->name(), u"Acme"_s);
    QCOMPARE(stored.constFirst()->timeFrom().toSecsSinceEpoch(), status.startSecs);

    QTest::qWait(1500);
    const QDateTime signalled = QDateTime::currentDateTimeUtc();
    ::kill(pid_t(m_app->processId()), signalNumber);
    QVERIFY(m_app->waitForFinished(10000));
    QCOMPARE(m_app->exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_app->exitCode(), 0);

    stored = storedActivities();
    QCOMPARE(stored.size(), 1);
    const qint64 endOffset = signalled.msecsTo(stored.constFirst()->timeTo());
    QVERIFY2(endOffset >= -100 && endOffset < 3000, qPrintable(QString::number(endOffset)));
}

void TestAppProcess::killedAppLosesAtMostTheLastTouch()
{
    QVERIFY(startApp());
    QVERIFY(xdotool({ u"type"_s, u"--delay"_s, u"10"_s, u"@Acme crash"_s }));
    QVERIFY(xdotool({ u"key"_s, u"Return"_s }));
    QTRY_VERIFY_WITH_TIMEOUT(appStatus().tracking, 5000);
    // Past the first touch, so the stored end shows the touches work, not just the start's first second.
    QTest::qWait(31'000);
    const QDateTime killed = QDateTime::currentDateTimeUtc();
    m_app->kill();
    QVERIFY(m_app->waitForFinished(5000));

    const QList<ActivityPtr> stored = storedActivities();
    QCOMPARE(stored.size(), 1);
    QCOMPARE(stored.constFirst()->text(), u"@Acme crash"_s);
    QVERIFY2(
        stored.constFirst()->durationSecs() >= 29, qPrintable(QString::number(stored.constFirst()->durationSecs())));
    QVERIFY(stored.constFirst()->timeTo().secsTo(killed) <= 30);
}

void TestAppProcess::secondLaunchRaisesTheFirstAndExits()
{
    // Started at login: running, with its window closed.
    QVERIFY(startApp({ u"launchFromHelper"_s }));
    auto visibleWindows = [] {
        QProcess search;
        search.start(u"xdotool"_s, { u"search"_s, u"--onlyvisible"_s, u"--name"_s, u"^Brimvale$"_s });
        search.waitForFinished(5000);
        return QString::fromUtf8(search.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts).size();
    };
    QCOMPARE(visibleWindows(), 0);

    QProcess second;
    second.start(QStringLiteral(BRIMVALE_EXECUTABLE), {});
    QVERIFY(second.waitForFinished(10000));
    QCOMPARE(second.exitStatus(), QProcess::NormalExit);
    QCOMPARE(second.exitCode(), 0);
    QCOMPARE(m_app->state(), QProcess::Running);
    // The first one's window comes up, and it stays the only one.
    QTRY_COMPARE_WITH_TIMEOUT(visibleWindows(), 1, 5000);
}

QTEST_GUILESS_MAIN(TestAppProcess)
#include "testappprocess.moc"
