#include <QtTest>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include "model/store.h"
#include "model/storecontext.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

// Runs the real brimvale executable, as a user or a script would, on a temporary HOME.
class TestCliProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void addListDeleteRoundTrip();
    void statusesAndStreams_data();
    void statusesAndStreams();
    void runningAppNoticesCommandLineWrites();
    void parallelAddsShareOneNewProject();

private:
    struct Result
    {
        int status = -1;
        QString out;
        QString err;
    };
    Result brimvale(const QStringList &arguments);

    std::unique_ptr<IsolatedHome> m_home;
};

void TestCliProcess::init()
{
    m_home = std::make_unique<IsolatedHome>();
}

void TestCliProcess::cleanup()
{
    m_home.reset();
}

TestCliProcess::Result TestCliProcess::brimvale(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral(BRIMVALE_EXECUTABLE), arguments);
    Result result;
    if (!process.waitForFinished(30000))
        return result;
    result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

void TestCliProcess::addListDeleteRoundTrip()
{
    const Result added = brimvale({ u"add"_s, u"@Acme #design mock-ups"_s, u"--from"_s, u"2024-03-12T09:00"_s,
        u"--to"_s, u"2024-03-12T10:30"_s });
    QCOMPARE(added.status, 0);
    const QString uid = added.out.trimmed();
    QCOMPARE(uid.size(), 36);
    QVERIFY(QFile::exists(m_home->applicationFilesDirectory() + u"/db/storedata"_s));

    const Result listed = brimvale({ u"list"_s, u"--json"_s });
    QCOMPARE(listed.status, 0);
    const QJsonArray array = QJsonDocument::fromJson(listed.out.toUtf8()).array();
    QCOMPARE(array.size(), 1);
    QCOMPARE(array.at(0).toObject().value(u"uid"_s).toString(), uid);
    QCOMPARE(array.at(0).toObject().value(u"duration_secs"_s).toInteger(), 5400);

    // Export to standard output, as a pipe into another tool would take it.
    const Result csv = brimvale({ u"export"_s, u"--format"_s, u"csv"_s });
    QCOMPARE(csv.status, 0);
    QVERIFY2(csv.out.contains(u"\"@Acme #design mock-ups\""_s), qPrintable(csv.out));
    QVERIFY(!csv.out.endsWith(u'\n'));
    const Result xml = brimvale({ u"export"_s, u"--format"_s, u"xml"_s });
    QCOMPARE(xml.status, 0);
    QVERIFY(xml.out.contains(u"uid=\""_s + uid + u'"'));

    QCOMPARE(brimvale({ u"delete"_s, uid }).status, 0);
    QCOMPARE(QJsonDocument::fromJson(brimvale({ u"list"_s, u"--json"_s }).out.toUtf8()).array().size(), 0);
}

void TestCliProcess::statusesAndStreams_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("printsOnStdout");

    QTest::newRow("help") << QStringList { u"--help"_s } << 0 << true;
    QTest::newRow("version") << QStringList { u"--version"_s } << 0 << true;
    QTest::newRow("refused activity") << QStringList { u"add"_s, u"x"_s, u"--from"_s, u"2024-03-12"_s, u"--to"_s,
        u"2024-03-12"_s } << 1 << false;
    QTest::newRow("unknown uid") << QStringList { u"delete"_s, u"nope"_s } << 1 << false;
    QTest::newRow("unknown command") << QStringList { u"stat"_s } << 1 << false;
}

void TestCliProcess::statusesAndStreams()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(bool, printsOnStdout);
    const Result result = brimvale(arguments);
    QCOMPARE(result.status, status);
    QCOMPARE(!result.out.isEmpty(), printsOnStdout);
    QCOMPARE(result.err.isEmpty(), status == 0);
    if (status != 0)
        QCOMPARE(result.err.count(u'\n'), 1);
}

void TestCliProcess::runningAppNoticesCommandLineWrites()
{
    // The app's store, watching for writes of other processes.
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    auto store = Store::open(options);
    QVERIFY(store);
    QSignalSpy changed(store->get(), &Store::changed);
    (*store)->setWatchesExternalChanges(true, 50);

    QCOMPARE(brimvale({ u"add"_s, u"from the terminal"_s, u"--from"_s, u"2024-03-12T09:00"_s, u"--to"_s,
                          u"2024-03-12T09:30"_s })
                 .status,
        0);
    QTRY_VERIFY(!changed.isEmpty());
    QCOMPARE(*(*store)->newContext()->countActivities(), 1);

    // A store the app cannot use makes the command line fail with status 2 and the store's own text.
    store->reset();
    QFile::remove(m_home->applicationFilesDirectory() + u"/db/storedata-wal"_s);
    QFile::remove(m_home->applicationFilesDirectory() + u"/db/storedata-shm"_s);
    QFile file(m_home->applicationFilesDirectory() + u"/db/storedata"_s);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(QByteArray(4096, '\x7f'));
    file.close();
    const Result broken = brimvale({ u"list"_s });
    QCOMPARE(broken.status, 2);
    QVERIFY2(broken.err.contains(u"file is not a database"_s), qPrintable(broken.err));
}

void TestCliProcess::parallelAddsShareOneNewProject()
{
    // The store exists (the app made it); a script starts a dozen adds of one new project at once.
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    QVERIFY(Store::open(options));
    std::vector<std::unique_ptr<QProcess>> processes;
    for (int i = 0; i < 12; ++i) {
        processes.push_back(std::make_unique<QProcess>());
        processes.back()->start(QStringLiteral(BRIMVALE_EXECUTABLE),
            { u"add"_s, u"@NewProj #Kickoff part %1"_s.arg(i), u"--from"_s, u"2024-03-12T09:00"_s, u"--to"_s,
                u"2024-03-12T09:30"_s });
    }
    for (const auto &process : processes) {
        QVERIFY(process->waitForFinished(60000));
        QVERIFY2(process->exitStatus() == QProcess::NormalExit && process->exitCode() == 0,
            process->readAllStandardError().constData());
    }
    QCOMPARE(brimvale({ u"projects"_s }).out.split(u'\n', Qt::SkipEmptyParts).size(), 1);
    QCOMPARE(brimvale({ u"tasks"_s }).out.split(u'\n', Qt::SkipEmptyParts).size(), 1);
    QCOMPARE(QJsonDocument::fromJson(brimvale({ u"list"_s, u"--project"_s, u"newproj"_s, u"--json"_s }).out.toUtf8())
                 .array()
                 .size(),
        12);
}

QTEST_GUILESS_MAIN(TestCliProcess)
#include "testcliprocess.moc"
