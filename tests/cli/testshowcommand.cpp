#include <QtTest>

#include "app/inprocessapp.h"
#include "cli/commandline.h"

using namespace Qt::StringLiterals;

// brimvale show against the app's bus interface served in this process on the test's private bus, the
// command reaching it through a connection of its own as another process would.
class TestShowCommand : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void showRaisesTheAppStartingItWhenNeeded_data();
    void showRaisesTheAppStartingItWhenNeeded();
};

void TestShowCommand::showRaisesTheAppStartingItWhenNeeded_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("running");
    QTest::addColumn<bool>("launchWorks");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("launches");
    QTest::addColumn<int>("shown");
    QTest::addColumn<QString>("error");

    const QStringList show { u"show"_s };
    QTest::newRow("running app") << show << true << true << 0 << 0 << 1 << QString();
    QTest::newRow("launched first") << show << false << true << 0 << 1 << 1 << QString();
    QTest::newRow("launch fails") << show << false << false << 1 << 1 << 0 << u"Brimvale could not be started.\n"_s;
    QTest::newRow("stray argument") << QStringList { u"show"_s, u"now"_s } << true << true << 1 << 0 << 0
                                    << u"show takes no arguments (see brimvale show --help).\n"_s;
}

void TestShowCommand::showRaisesTheAppStartingItWhenNeeded()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, running);
    QFETCH(bool, launchWorks);
    QFETCH(int, status);
    QFETCH(int, launches);
    QFETCH(int, shown);
    QFETCH(QString, error);

    InProcessApp app;
    if (running)
        QVERIFY(app.service->registerOnSessionBus());
    QSignalSpy showRequests(app.service.get(), &BrimvaleDBusService::showMainWindowRequested);
    int launched = 0;
    // Like the real app, a launched one takes its name a moment later.
    const std::function<bool()> launch = [&] {
        ++launched;
        if (launchWorks)
            QTimer::singleShot(100, app.service.get(), [&app] { QVERIFY(app.service->registerOnSessionBus()); });
        return launchWorks;
    };

    QString out;
    QString err;
    QTextStream outStream(&out);
    QTextStream errStream(&err);
    StoreOptions options;
    options.applicationFilesDirectory = app.home.applicationFilesDirectory();
    options.clock = &app.clock;
    CliEnvironment environment { outStream, errStream, options, {}, &otherClientConnection, launch };
    QCOMPARE(CommandLine().run(arguments, environment), status);
    outStream.flush();
    errStream.flush();

    QCOMPARE(err, error);
    QCOMPARE(out, QString());
    QCOMPARE(launched, launches);
    QCOMPARE(showRequests.count(), shown);
}

QTEST_GUILESS_MAIN(TestShowCommand)
#include "testshowcommand.moc"
