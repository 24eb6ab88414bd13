#include <QtTest>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QScopeGuard>

#include <unistd.h>

#include "model/store.h"
#include "model/storecontext.h"
#include "support/isolatedhome.h"
#include "support/writeprotection.h"

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
    void readOnlyStoreRefusesWritesAndStillLists_data();
    void readOnlyStoreRefusesWritesAndStillLists();
    void fullDiskKeepsWhatWasCommitted();
    void commandsWriteNoSettings();
    void parallelAddsShareOneNewProject_data();
    void parallelAddsShareOneNewProject();

private:
    struct Result
    {
        int status = -1;
        QString out;
        QString err;
    };
    Result brimvale(const QStringList &arguments, const QProcessEnvironment &environment = {});
    Result add(const QString &text);
    QJsonArray listed();

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

TestCliProcess::Result TestCliProcess::brimvale(const QStringList &arguments, const QProcessEnvironment &environment)
{
    QProcess process;
    if (!environment.isEmpty())
        process.setProcessEnvironment(environment);
    process.start(QStringLiteral(BRIMVALE_EXECUTABLE), arguments);
    Result result;
    if (!process.waitForFinished(30000))
        return result;
    result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

TestCliProcess::Result TestCliProcess::add(const QString &text)
{
    return brimvale({ u"add"_s, text, u"--from"_s, u"2024-03-12T09:00"_s, u"--to"_s, u"2024-03-12T10:30"_s });
}

QJsonArray TestCliProcess::listed()
{
    const Result result = brimvale({ u"list"_s, u"--json"_s });
    if (result.status != 0)
        qWarning() << result.err;
    return QJsonDocument::fromJson(result.out.toUtf8()).array();
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

void TestCliProcess::readOnlyStoreRefusesWritesAndStillLists_data()
{
    QTest::addColumn<bool>("folder");
    QTest::newRow("read-only folder") << true;
    QTest::newRow("read-only file") << false;
}

void TestCliProcess::readOnlyStoreRefusesWritesAndStillLists()
{
    QFETCH(bool, folder);
    const Result kept = add(u"@Acme kept"_s);
    QCOMPARE(kept.status, 0);
    const QDir dbDir(m_home->applicationFilesDirectory() + u"/db"_s);
    QCOMPARE(dbDir.entryList(QDir::Files | QDir::Hidden), QStringList { u"storedata"_s });

    WriteProtection protection(folder ? dbDir.path() : dbDir.filePath(u"storedata"_s));
    if (!protection.isActive())
        QSKIP("the file system of the temporary folder cannot make a file immutable");
    const QString refusal = u"Could not use the store “%1”: attempt to write a readonly database. Make the folder "
                            "“%2” and the files in it writable.\n"_s.arg(dbDir.filePath(u"storedata"_s), dbDir.path());
    for (const Result &refused : { add(u"@Acme refused"_s), brimvale({ u"delete"_s, kept.out.trimmed() }) }) {
        QCOMPARE(refused.status, 2);
        QCOMPARE(refused.err, refusal);
    }
    const QJsonArray activities = listed();
    QCOMPARE(activities.size(), 1);
    QCOMPARE(activities.at(0).toObject().value(u"uid"_s).toString(), kept.out.trimmed());
    // Reading made no side file that a read-only store could never remove again.
    QCOMPARE(dbDir.entryList(QDir::Files | QDir::Hidden), QStringList { u"storedata"_s });
}

void TestCliProcess::fullDiskKeepsWhatWasCommitted()
{
    if (::geteuid() != 0)
        QSKIP("mounting a small tmpfs needs root");
    const QString mountPoint = m_home->applicationFilesDirectory();
    QVERIFY(QDir().mkpath(mountPoint));
    if (QProcess::execute(u"mount"_s, { u"-t"_s, u"tmpfs"_s, u"-o"_s, u"size=1m"_s, u"tmpfs"_s, mountPoint }) != 0)
        QSKIP("this machine does not let the test mount a tmpfs");
    auto unmount = qScopeGuard([&] { QProcess::execute(u"umount"_s, { mountPoint }); });

    const Result first = add(u"@Acme first"_s);
    QCOMPARE(first.status, 0);
    // Fill the disk, then give back less than the next activity needs but enough for SQLite to open the
    // store (its -shm file takes 32 KB).
    QFile ballast(mountPoint + u"/ballast"_s);
    QVERIFY(ballast.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    const QByteArray block(4096, 'b');
    while (ballast.write(block) == block.size()) { }
    QVERIFY(ballast.resize(ballast.size() - 48 * 1024));

    const QString large = u"@Acme "_s + QString(100 * 1024, u'x');
    const Result full = add(large);
    QCOMPARE(full.status, 2);
    QCOMPARE(full.err.count(u'\n'), 1);
    QVERIFY2(
        full.err.startsWith(u"Could not use the store “%1/db/storedata”: database or disk is full."_s.arg(mountPoint)),
        qPrintable(full.err));
    QCOMPARE(listed().size(), 1);

    // Once there is room again the store takes the same activity.
    QVERIFY(ballast.remove());
    QCOMPARE(add(large).status, 0);
    QCOMPARE(listed().size(), 2);
}

void TestCliProcess::commandsWriteNoSettings()
{
    // Values the app would judge and write back when it builds its settings: notifications switched on
    // (no notification server here), an appearance out of range, an old key to upgrade.
    const QString settingsPath = m_home->configHome() + u"/Brimvale/Brimvale.conf"_s;
    QVERIFY(QDir().mkpath(QFileInfo(settingsPath).path()));
    QFile file(settingsPath);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[General]\nnotificationType=2\nappearance=7\nstatus_bar_type=2\ncsvFieldSeparator={TAB}\n"
               "syncMethod=2\nsyncFolderPath=/nonexistent/brimvale\n");
    file.close();
    const auto bytes = [&] {
        QFile settings(settingsPath);
        return settings.open(QIODevice::ReadOnly) ? settings.readAll() : QByteArray();
    };
    const QByteArray before = bytes();

    // As over ssh or from cron: no session bus answers.
    QProcessEnvironment noBus = QProcessEnvironment::systemEnvironment();
    noBus.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, u"unix:path=/nonexistent/bus"_s);
    QCOMPARE(brimvale({ u"add"_s, u"a"_s, u"--from"_s, u"2024-03-12T09:00"_s, u"--to"_s, u"2024-03-12T10:00"_s }, noBus)
                 .status,
        0);
    const Result csv = brimvale({ u"export"_s, u"--format"_s, u"csv"_s }, noBus);
    QCOMPARE(csv.status, 0);
    QVERIFY2(csv.out.contains(u"\"a\"\t"_s), qPrintable(csv.out));
    QCOMPARE(
        brimvale({ u"export"_s, u"--format"_s, u"xml"_s, u"--output"_s, m_home->root() + u"/a.xml"_s }, noBus).status,
        0);
    QVERIFY(QDir().mkpath(m_home->root() + u"/sync"_s));
    const Result folderSync = brimvale({ u"sync"_s, u"--folder"_s, m_home->root() + u"/sync"_s }, noBus);
    QVERIFY2(folderSync.status == 0, qPrintable(folderSync.err));
    // The folder chosen in the settings does not exist: the run fails, and still writes nothing.
    QCOMPARE(brimvale({ u"sync"_s }, noBus).status, 1);
    QCOMPARE(bytes(), before);
}

void TestCliProcess::parallelAddsShareOneNewProject_data()
{
    QTest::addColumn<bool>("storeExists");
    QTest::newRow("store made by the app") << true;
    QTest::newRow("first use: the commands make the store") << false;
}

void TestCliProcess::parallelAddsShareOneNewProject()
{
    // A script starts a dozen adds of one new project at once.
    QFETCH(bool, storeExists);
    if (storeExists) {
        StoreOptions options;
        options.applicationFilesDirectory = m_home->applicationFilesDirectory();
        QVERIFY(Store::open(options));
    }
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
