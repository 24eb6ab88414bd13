#include <QtTest>

#include <csignal>

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include "app/inprocessapp.h"
#include "cli/commandline.h"
#include "model/storecontext.h"

using namespace Qt::StringLiterals;

// start, update, stop, status and the sync hand-over against the app's bus interface, served in this
// process on the test's private bus; the commands reach it through a connection of their own, as another
// process would. Europe/Berlin (see CMakeLists.txt), so RFC 3339 times carry +01:00.
class TestAppCommands : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void withoutAppNothingAnswers_data();
    void withoutAppNothingAnswers();
    void commandsDriveTheApp_data();
    void commandsDriveTheApp();
    void statusJsonForStatusBars_data();
    void statusJsonForStatusBars();
    void startLaunchesTheAppFirst();
    void startSaysWhenTheAppCannotStart();
    void followPrintsEveryChangeUntilInterrupted_data();
    void followPrintsEveryChangeUntilInterrupted();
    void syncHandsTheRunToTheApp_data();
    void syncHandsTheRunToTheApp();
    void mergeLeavesTheTrackedActivityAlone();

private:
    void makeApp(const InProcessApp::Options &options = {}, bool registered = true);
    int run(const QStringList &arguments);

    std::unique_ptr<InProcessApp> m_app;
    std::function<bool()> m_launch;
    QString m_out;
    QString m_err;
};

void TestAppCommands::makeApp(const InProcessApp::Options &options, bool registered)
{
    m_app = std::make_unique<InProcessApp>(options);
    if (registered)
        QVERIFY(m_app->service->registerOnSessionBus());
}

void TestAppCommands::cleanup()
{
    m_launch = {};
    m_app.reset();
}

int TestAppCommands::run(const QStringList &arguments)
{
    m_out.clear();
    m_err.clear();
    QTextStream out(&m_out);
    QTextStream err(&m_err);
    StoreOptions options;
    if (m_app) {
        options.applicationFilesDirectory = m_app->home.applicationFilesDirectory();
        options.clock = &m_app->clock;
    }
    CliEnvironment environment { out, err, options, {}, &otherClientConnection, m_launch };
    const int status = CommandLine().run(arguments, environment);
    out.flush();
    err.flush();
    return status;
}

void TestAppCommands::withoutAppNothingAnswers_data()
{
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("update") << QStringList { u"update"_s, u"@Acme x"_s };
    QTest::newRow("stop") << QStringList { u"stop"_s };
    QTest::newRow("status") << QStringList { u"status"_s };
    QTest::newRow("status as json") << QStringList { u"status"_s, u"--json"_s };
}

void TestAppCommands::withoutAppNothingAnswers()
{
    QFETCH(QStringList, arguments);

    // The app's parts exist but are not on the bus, as after the app quit.
    makeApp({}, false);
    QCOMPARE(run(arguments), 1);
    QCOMPARE(m_err, u"Brimvale is not running.\n"_s);
    QCOMPARE(m_out, QString());
}

void TestAppCommands::commandsDriveTheApp_data()
{
    QTest::addColumn<bool>("endCurrentActivityOnTrack");
    QTest::addColumn<QString>("running");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");
    QTest::addColumn<QString>("runningAfter");

    const QString start = u"start"_s;
    const QString update = u"update"_s;
    QTest::newRow("start") << true << "" << QStringList { start, u"@Acme #design mock-ups"_s } << 0 << ""
                           << ""
                           << "@Acme #design mock-ups";
    QTest::newRow("start joins its words") << true << "" << QStringList { start, u"@Acme"_s, u"notes"_s } << 0 << ""
                                           << ""
                                           << "@Acme notes";
    QTest::newRow("start refused while tracking")
        << false << "@Acme a" << QStringList { start, u"@Beta b"_s } << 1 << ""
        << "Stop previous activity before tracking new!\n"
        << "@Acme a";
    QTest::newRow("start without text") << true << "" << QStringList { start } << 1 << ""
                                        << "start needs the activity's text (see brimvale start --help).\n"
                                        << "";
    QTest::newRow("update when idle") << true << "" << QStringList { update, u"x"_s } << 1 << ""
                                      << "Can not update. Not tracking...\n"
                                      << "";
    QTest::newRow("update") << true << "@Acme a" << QStringList { update, u"@Acme #review b"_s } << 0 << ""
                            << ""
                            << "@Acme #review b";
    QTest::newRow("stop") << true << "@Acme a" << QStringList { u"stop"_s } << 0 << ""
                          << ""
                          << "";
    QTest::newRow("status idle") << true << "" << QStringList { u"status"_s } << 0 << "Status: not tracking\n"
                                 << ""
                                 << "";
    // Started at the clock's time; the clock is 3,725 seconds on when the command runs.
    QTest::newRow("status tracking") << true << "@Acme a" << QStringList { u"status"_s } << 0
                                     << "Status: tracking 01:02:05\n@Acme a\n"
                                     << ""
                                     << "@Acme a";
    QTest::newRow("status with an argument") << true << "" << QStringList { u"status"_s, u"now"_s } << 1 << ""
                                             << "status takes no arguments (see brimvale status --help).\n"
                                             << "";
}

void TestAppCommands::commandsDriveTheApp()
{
    QFETCH(bool, endCurrentActivityOnTrack);
    QFETCH(QString, running);
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, out);
    QFETCH(QString, err);
    QFETCH(QString, runningAfter);

    makeApp({ .endCurrentActivityOnTrack = endCurrentActivityOnTrack, .syncFolder = {} });
    if (!running.isEmpty())
        QCOMPARE(m_app->service->StartTrack(running), QString());
    m_app->clock.advance(3725 * 1000);

    QCOMPARE(run(arguments), status);
    QCOMPARE(m_out, out);
    QCOMPARE(m_err, err);
    const ActivityPtr current = m_app->activityManager->currentActivity();
    QCOMPARE(current ? current->text() : QString(), runningAfter);
}

void TestAppCommands::statusJsonForStatusBars_data()
{
    QTest::addColumn<QString>("running");
    QTest::addColumn<QJsonObject>("expected");

    QTest::newRow("idle") << QString()
                          << QJsonObject {
                                 { u"text"_s, u""_s },
                                 { u"tooltip"_s, u"Status: not tracking"_s },
                                 { u"class"_s, u"idle"_s },
                                 { u"tracking"_s, false },
                                 { u"activity"_s, u""_s },
                                 { u"start"_s, QJsonValue::Null },
                                 { u"startSecs"_s, 0 },
                             };
    // The clock starts at 2024-03-12T10:00:00Z, 11:00 in Berlin.
    QTest::newRow("tracking") << u"@Acme #design mock-ups"_s
                              << QJsonObject {
                                     { u"text"_s, u"01:02 @Acme #design mock-ups"_s },
                                     { u"tooltip"_s, u"Status: tracking 01:02:05\n@Acme #design mock-ups"_s },
                                     { u"class"_s, u"tracking"_s },
                                     { u"tracking"_s, true },
                                     { u"activity"_s, u"@Acme #design mock-ups"_s },
                                     { u"start"_s, u"2024-03-12T11:00:00+01:00"_s },
                                     { u"startSecs"_s, 1710237600 },
                                 };
}

void TestAppCommands::statusJsonForStatusBars()
{
    QFETCH(QString, running);
    QFETCH(QJsonObject, expected);

    makeApp();
    if (!running.isEmpty())
        m_app->service->StartTrack(running);
    m_app->clock.advance(3725 * 1000);
    QCOMPARE(run({ u"status"_s, u"--json"_s }), 0);
    // One object on one line: a status bar reads line by line.
    QCOMPARE(m_out.count(u'\n'), 1);
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(m_out.toUtf8(), &error);
    QCOMPARE(error.error, QJsonParseError::NoError);
    QCOMPARE(document.object(), expected);
}

void TestAppCommands::startLaunchesTheAppFirst()
{
    makeApp({}, false);
    int launches = 0;
    // The app takes its name a moment after it was launched.
    m_launch = [&] {
        ++launches;
        QTimer::singleShot(100, m_app->service.get(), [this] { QVERIFY(m_app->service->registerOnSessionBus()); });
        return true;
    };
    QCOMPARE(run({ u"start"_s, u"@Acme #x"_s }), 0);
    QCOMPARE(m_err, QString());
    QCOMPARE(launches, 1);
    QVERIFY(m_app->tracking->isTracking());

    // A running app is not launched again.
    QCOMPARE(run({ u"start"_s, u"@Acme #y"_s }), 0);
    QCOMPARE(launches, 1);
    QCOMPARE(m_app->activityManager->currentActivity()->text(), u"@Acme #y"_s);
}

void TestAppCommands::startSaysWhenTheAppCannotStart()
{
    makeApp({}, false);
    m_launch = [] { return false; };
    QCOMPARE(run({ u"start"_s, u"@Acme #x"_s }), 1);
    QCOMPARE(m_err, u"Brimvale could not be started.\n"_s);
    QVERIFY(!m_app->tracking->isTracking());
}

void TestAppCommands::followPrintsEveryChangeUntilInterrupted_data()
{
    QTest::addColumn<bool>("json");
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("plain") << false
                           << QStringList { u"Status: not tracking"_s, u"Status: tracking 00:00:00 @Acme #x"_s,
                                  u"Status: not tracking"_s, u"Brimvale is not running."_s, u"Status: not tracking"_s };
    QTest::newRow("json") << true
                          << QStringList { u"idle||Status: not tracking"_s,
                                 u"tracking|00:00 @Acme #x|Status: tracking 00:00:00\n@Acme #x"_s,
                                 u"idle||Status: not tracking"_s, u"stopped||Brimvale is not running."_s,
                                 u"idle||Status: not tracking"_s };
}

void TestAppCommands::followPrintsEveryChangeUntilInterrupted()
{
    QFETCH(bool, json);
    QFETCH(QStringList, lines);

    makeApp();
    // Drives the app as each printed line appears: start, stop, quit, start again; then Ctrl-C.
    QTimer driver;
    int step = 0;
    connect(&driver, &QTimer::timeout, this, [&] {
        if (m_out.count(u'\n') <= step)
            return;
        switch (step++) {
        case 0:
            m_app->service->StartTrack(u"@Acme #x"_s);
            break;
        case 1:
            m_app->service->StopTrack();
            break;
        case 2:
            m_app->service.reset();
            break;
        case 3:
            m_app->service = std::make_unique<BrimvaleDBusService>(*m_app->tracking, *m_app->syncManager);
            m_app->service->registerOnSessionBus();
            break;
        default:
            std::raise(SIGINT);
        }
    });
    driver.start(10);
    // Should a line never come, the command still ends.
    QTimer::singleShot(20000, this, [] { std::raise(SIGINT); });

    QCOMPARE(run(json ? QStringList { u"status"_s, u"--follow"_s, u"--json"_s }
                      : QStringList { u"status"_s, u"--follow"_s }),
        0);
    QStringList printed = m_out.split(u'\n', Qt::SkipEmptyParts);
    if (json) {
        for (QString &line : printed) {
            const QJsonObject object = QJsonDocument::fromJson(line.toUtf8()).object();
            line = object.value(u"class"_s).toString() + u'|' + object.value(u"text"_s).toString() + u'|'
                + object.value(u"tooltip"_s).toString();
        }
    }
    QCOMPARE(printed, lines);
}

void TestAppCommands::syncHandsTheRunToTheApp_data()
{
    QTest::addColumn<bool>("withFolder");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");

    QTest::newRow("completed") << true << 0 << "Syncing in the running Brimvale app...\nSync operation completed!\n"
                               << "";
    QTest::newRow("app has no sync method")
        << false << 1 << "Syncing in the running Brimvale app...\n"
        << "Error occurred\nSync is turned off. Please choose a sync method in preferences\n";
}

void TestAppCommands::syncHandsTheRunToTheApp()
{
    QFETCH(bool, withFolder);
    QFETCH(int, status);
    QFETCH(QString, out);
    QFETCH(QString, err);

    QTemporaryDir folder;
    makeApp({ .endCurrentActivityOnTrack = true, .syncFolder = withFolder ? folder.path() : QString() });
    QSignalSpy runs(m_app->syncManager.get(), &BVSyncManager::syncOperationChanged);
    QCOMPARE(run({ u"sync"_s }), status);
    QCOMPARE(m_out, out);
    QCOMPARE(m_err, err);
    // The run is the app's, so its status bar shows it; with sync off there is none.
    QCOMPARE(runs.size(), withFolder ? 2 : 0);
}

void TestAppCommands::mergeLeavesTheTrackedActivityAlone()
{
    makeApp();
    auto context = m_app->store->newContext();
    ActivityPtr earlier = context->insertActivity();
    earlier->setText(u"@Acme draft"_s);
    earlier->setTimeFrom(m_app->clock.now().addSecs(-3600));
    earlier->setTimeTo(m_app->clock.now().addSecs(-1800));
    QVERIFY(context->save());
    QCOMPARE(m_app->service->StartTrack(u"@Acme review"_s), QString());
    const QString running = m_app->activityManager->currentActivity()->uid();

    QCOMPARE(run({ u"merge"_s, earlier->uid(), running }), 1);
    QCOMPARE(m_err, u"The running activity cannot be merged; stop it first.\n"_s);
    QVERIFY(m_app->activityManager->isTracking());
    QVERIFY(m_app->store->newContext()->activityWithUid(earlier->uid()).value());
}

QTEST_GUILESS_MAIN(TestAppCommands)
#include "testappcommands.moc"
