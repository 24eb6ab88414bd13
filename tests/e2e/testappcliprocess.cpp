#include <QtTest>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <signal.h>

#include "model/store.h"
#include "model/storecontext.h"
#include "support/appprocess.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

using AppProcess::mainWindowShown;
using Run = AppProcess::Run;

namespace {

Run brimvale(const QStringList &arguments)
{
    return AppProcess::run(QStringLiteral(BRIMVALE_EXECUTABLE), arguments);
}

QString readLine(QProcess &process)
{
    if (!process.canReadLine() && !process.waitForReadyRead(10000))
        return {};
    return QString::fromUtf8(process.readLine()).trimmed();
}

} // namespace

// The command line against the real app under Xvfb and a private session bus, each its own process.
class TestAppCliProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void startLaunchesTheAppAndTheOtherCommandsFollowIt();

private:
    QList<ActivityPtr> storedActivities();

    std::unique_ptr<IsolatedHome> m_home;
};

void TestAppCliProcess::init()
{
    m_home = std::make_unique<IsolatedHome>();
}

void TestAppCliProcess::cleanup()
{
    // The app was launched detached: it is found through its bus name.
    QVERIFY(AppProcess::terminateOwner());
    m_home.reset();
}

QList<ActivityPtr> TestAppCliProcess::storedActivities()
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

void TestAppCliProcess::startLaunchesTheAppAndTheOtherCommandsFollowIt()
{
    Run run = brimvale({ u"status"_s });
    QCOMPARE(run.status, 1);
    QCOMPARE(run.err, u"Brimvale is not running.\n"_s);

    run = brimvale({ u"start"_s, u"@Acme #design mock-ups"_s });
    QCOMPARE(run.err, QString());
    QCOMPARE(run.status, 0);
    QVERIFY(AppProcess::registered());
    // Launched as at login: the window stays closed.
    QVERIFY(!mainWindowShown());

    run = brimvale({ u"status"_s });
    QCOMPARE(run.status, 0);
    const QStringList lines = run.out.split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 2);
    QVERIFY2(lines.at(0).startsWith(u"Status: tracking 00:00:"_s), qPrintable(lines.at(0)));
    QCOMPARE(lines.at(1), u"@Acme #design mock-ups"_s);

    // A status bar's follower hears the change another command makes.
    QProcess follower;
    follower.start(QStringLiteral(BRIMVALE_EXECUTABLE), { u"status"_s, u"--json"_s, u"--follow"_s });
    QCOMPARE(QJsonDocument::fromJson(readLine(follower).toUtf8()).object().value(u"class"_s).toString(), u"tracking"_s);
    QCOMPARE(brimvale({ u"update"_s, u"@Acme #review notes"_s }).status, 0);
    const QJsonObject updated = QJsonDocument::fromJson(readLine(follower).toUtf8()).object();
    QCOMPARE(updated.value(u"activity"_s).toString(), u"@Acme #review notes"_s);
    QCOMPARE(brimvale({ u"stop"_s }).status, 0);
    const QJsonObject stopped = QJsonDocument::fromJson(readLine(follower).toUtf8()).object();
    QCOMPARE(stopped.value(u"class"_s).toString(), u"idle"_s);
    ::kill(pid_t(follower.processId()), SIGINT);
    QVERIFY(follower.waitForFinished(10000));
    QCOMPARE(follower.exitCode(), 0);

    const QList<ActivityPtr> stored = storedActivities();
    QCOMPARE(stored.size(), 1);
    QCOMPARE(stored.constFirst()->text(), u"@Acme #review notes"_s);
    QVERIFY(stored.constFirst()->timeTo() > stored.constFirst()->timeFrom());

    // A second start reaches the same app.
    QCOMPARE(brimvale({ u"start"_s, u"@Beta"_s }).status, 0);
    QTRY_COMPARE(storedActivities().size(), 2);
}

QTEST_GUILESS_MAIN(TestAppCliProcess)
#include "testappcliprocess.moc"
