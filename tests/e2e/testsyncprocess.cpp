#include <QtTest>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <expected>
#include <functional>
#include <optional>
#include <unistd.h>

#include <QCryptographicHash>
#include <QDirIterator>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLockFile>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QTimeZone>

#include "model/activity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/writeprotection.h"

using namespace Qt::StringLiterals;

namespace {

// One of the user's computers: the real executable with its own home, data, settings and cache folders.
struct Machine
{
    QString root;
    // The machine's TZ; empty: the test's own (Europe/Berlin).
    QString timeZone = {};

    QString dataHome() const { return root + u"/data"_s; }
    QString configHome() const { return root + u"/config"_s; }
    QString cacheHome() const { return root + u"/cache"_s; }
    QString applicationFilesDirectory() const { return dataHome() + u"/Brimvale"_s; }
    QString storePath() const { return applicationFilesDirectory() + u"/db/storedata"_s; }
    QString defaultsFile() const { return configHome() + u"/Brimvale/Brimvale.conf"_s; }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"HOME"_s, root + u"/home"_s);
        environment.insert(u"XDG_DATA_HOME"_s, dataHome());
        environment.insert(u"XDG_CONFIG_HOME"_s, configHome());
        environment.insert(u"XDG_CACHE_HOME"_s, cacheHome());
        if (!timeZone.isEmpty())
            environment.insert(u"TZ"_s, timeZone);
        return environment;
    }
};

struct Result
{
    int status = -1;
    bool killed = false;
    QString out;
    QString err;
};

// A machine's journal as `brimvale list --json` prints it, by uid.
using Journal = QMap<QString, QJsonObject>;

// What the app records for a day's work: local times, never across midnight.
struct Entry
{
    QString text;
    QDateTime from;
    QDateTime to;
};

// The command line that records `entry`; it prints the new activity's uid.
QStringList addCommand(const Entry &entry)
{
    const QString minutes = u"yyyy-MM-ddTHH:mm"_s;
    return { u"add"_s, entry.text, u"--from"_s, entry.from.toString(minutes), u"--to"_s, entry.to.toString(minutes) };
}

const QString kConflictCopy = u"2024-03.sync-conflict-20240305-101010-ABCDEFG.json"_s;

bool makeTree(const QString &root)
{
    for (const QString &sub : { u"home"_s, u"data"_s, u"config"_s, u"cache"_s }) {
        if (!QDir().mkpath(root + u'/' + sub))
            return false;
    }
    return true;
}

bool copyTree(const QString &from, const QString &to)
{
    QDirIterator it(
        from, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    if (!QDir().mkpath(to))
        return false;
    while (it.hasNext()) {
        const QString path = it.next();
        const QString target = to + path.mid(from.size());
        if (it.fileInfo().isDir() ? !QDir().mkpath(target) : !QFile::copy(path, target))
            return false;
    }
    return true;
}

// Every file and folder below `dir` with a hash of its content, to tell whether anything was written.
QStringList snapshot(const QString &dir)
{
    QStringList entries;
    QDirIterator it(
        dir, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QString entry = path.mid(dir.size());
        QFile file(path);
        if (!it.fileInfo().isDir() && file.open(QIODevice::ReadOnly))
            entry += u' '
                + QString::fromLatin1(QCryptographicHash::hash(file.readAll(), QCryptographicHash::Md5).toHex());
        entries.append(entry);
    }
    entries.sort();
    return entries;
}

// Modification stamps are whole seconds: waiting for the next second makes the following change the later
// one on every machine, whatever happened in the current second.
void waitForNextSecond()
{
    QThread::msleep(1020 - QDateTime::currentMSecsSinceEpoch() % 1000);
}

// The files that belong to a run under way or a run that ended badly, never to a finished folder.
QStringList leftovers(const QString &folder)
{
    return QDir(folder).entryList({ u"*.tmp"_s }, QDir::Files | QDir::Hidden | QDir::System);
}

} // namespace

// Three machines, each with its own folders, that meet only in one shared folder, the way a file sync
// tool would keep it, and run the real `brimvale` executable on it. Time zone Europe/Berlin (see
// CMakeLists.txt), in this process and in every machine's.
class TestSyncProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void changesOnEveryMachineConvergeInAnyOrder_data();
    void changesOnEveryMachineConvergeInAnyOrder();
    void killedRunLosesNothing_data();
    void killedRunLosesNothing();
    void folderTurnedReadOnlyFailsTheRunUntilWritable();
    void ctrlCStopsTheRunAtASafePoint();
    void secondRunOnTheSameStoreIsRefused();
    void settingsChooseTheFolder_data();
    void settingsChooseTheFolder();
    void filesOfOtherToolsAreHarmless();
    void machinesInOtherZonesShiftNothing();

private:
    Result brimvale(const Machine &machine, const QStringList &arguments) const;
    Result sync(const Machine &machine) const { return brimvale(machine, { u"sync"_s, u"--folder"_s, m_shared }); }
    // Syncs through the shared folder and hands every line printed on stdout to `onLine` as it comes.
    Result syncWatching(const Machine &machine, const std::function<void(const QString &, QProcess &)> &onLine) const;
    std::optional<Journal> journal(const Machine &machine) const;
    // Empty when every machine lists the same activities field by field, else the first difference.
    QString divergence(const QList<Machine> &machines, Journal *common) const;
    // Syncs b and then a (after b's trouble, the two runs that bring both up to date) and gives the
    // journal they share; the failure's text otherwise.
    QString syncBothAndCompare(const Machine &a, const Machine &b, Journal *common) const;

    // Writes activities straight into a machine's store, as the app would have recorded them; gives the
    // text of each by uid.
    static QMap<QString, QString> record(const Machine &machine, const QList<Entry> &entries);
    // A machine's activities read from its store, "uid|start|end|modified|text" with UTC instants, sorted:
    // what must be equal on machines in different zones.
    static QStringList instants(const Machine &machine);
    // `perMonth` activities on the first days of each of `months` months from January 2023.
    static QList<Entry> months(int months, int perMonth, const QString &label);

    // Runs one command of a fixture; false, with what the command said in `failure`, unless it succeeded.
    bool step(const Machine &machine, const QStringList &arguments, QString *failure, QString *out = nullptr) const;
    // Fixtures are prepared once, at their first use, and copied into each test's folder, so that rows
    // start from the same state. Each gives its folder, or why it could not be made.
    std::expected<QString, QString> buildEditsFixture();
    std::expected<QString, QString> buildJournalsFixture();
    // Empty once the fixture's machines and shared folder are in place.
    QString useFixture(std::optional<std::expected<QString, QString>> &fixture,
        std::expected<QString, QString> (TestSyncProcess::*build)());

    static Machine machineIn(const QString &root, const QString &name) { return { root + u'/' + name }; }

    std::unique_ptr<QTemporaryDir> m_dir;
    QList<Machine> m_machines;
    QString m_shared;
    std::unique_ptr<WriteProtection> m_readOnly;

    QTemporaryDir m_fixtures;
    std::optional<std::expected<QString, QString>> m_editsFixture;
    std::optional<std::expected<QString, QString>> m_journalsFixture;

    // What the edits fixture did on each machine.
    struct Edits
    {
        QString design; // edited on a, then later on b
        QString call; // deleted on c
        QString fixes; // deleted on a, then edited on c
        QString noteOfA;
        QString researchOfB;
        QString reviewOfC;
    } m_edits;
    // Where the journals fixture must end on every machine: a's journal less the activity it deleted, and b's
    // own, which b has not synced yet.
    QMap<QString, QString> m_journalsExpected;
};

void TestSyncProcess::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_machines.clear();
    for (const QString &name : { u"a"_s, u"b"_s, u"c"_s }) {
        m_machines.append(machineIn(m_dir->path(), name));
        QVERIFY(makeTree(m_machines.last().root));
    }
    m_shared = m_dir->path() + u"/shared"_s;
    QVERIFY(QDir().mkpath(m_shared));
}

void TestSyncProcess::cleanup()
{
    m_readOnly.reset();
    m_dir.reset();
}

Result TestSyncProcess::brimvale(const Machine &machine, const QStringList &arguments) const
{
    QProcess process;
    process.setProcessEnvironment(machine.environment());
    process.start(QStringLiteral(BRIMVALE_EXECUTABLE), arguments);
    Result result;
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        result.err = u"timed out: "_s + arguments.join(u' ');
        return result;
    }
    result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

Result TestSyncProcess::syncWatching(
    const Machine &machine, const std::function<void(const QString &, QProcess &)> &onLine) const
{
    QProcess process;
    process.setProcessEnvironment(machine.environment());
    process.start(QStringLiteral(BRIMVALE_EXECUTABLE), { u"sync"_s, u"--folder"_s, m_shared });
    Result result;
    const QDeadlineTimer deadline(60000);
    for (;;) {
        // Checked before reading: a process that is gone has left all its output in the buffer.
        const bool running = process.state() != QProcess::NotRunning;
        while (process.canReadLine()) {
            const QString line = QString::fromUtf8(process.readLine()).trimmed();
            result.out += line + u'\n';
            onLine(line, process);
        }
        if (!running)
            break;
        if (deadline.hasExpired()) {
            process.kill();
            process.waitForFinished();
            result.err = u"timed out"_s;
            return result;
        }
        process.waitForReadyRead(50);
    }
    result.killed = process.exitStatus() == QProcess::CrashExit;
    result.status = result.killed ? -1 : process.exitCode();
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

std::optional<Journal> TestSyncProcess::journal(const Machine &machine) const
{
    const Result listed = brimvale(machine, { u"list"_s, u"--json"_s });
    if (listed.status != 0)
        return std::nullopt;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(listed.out.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return std::nullopt;
    Journal journal;
    for (const QJsonValue &value : document.array())
        journal.insert(value.toObject().value(u"uid"_s).toString(), value.toObject());
    return journal;
}

QString TestSyncProcess::syncBothAndCompare(const Machine &a, const Machine &b, Journal *common) const
{
    for (const Machine *machine : { &b, &a }) {
        const Result synced = sync(*machine);
        if (synced.status != 0)
            return u"sync failed with status %1: %2"_s.arg(synced.status).arg(synced.err);
    }
    return divergence({ a, b }, common);
}

QString TestSyncProcess::divergence(const QList<Machine> &machines, Journal *common) const
{
    std::optional<Journal> first;
    for (const Machine &machine : machines) {
        const std::optional<Journal> current = journal(machine);
        if (!current)
            return u"brimvale list failed on "_s + machine.root;
        if (!first) {
            first = current;
            continue;
        }
        for (auto it = first->cbegin(); it != first->cend(); ++it) {
            if (!current->contains(it.key()))
                return u"%1 lacks %2"_s.arg(machine.root, it.key());
            if (current->value(it.key()) != it.value())
                return u"%1 differs on %2: %3 instead of %4"_s.arg(machine.root, it.key(),
                    QString::fromUtf8(QJsonDocument(current->value(it.key())).toJson(QJsonDocument::Compact)),
                    QString::fromUtf8(QJsonDocument(it.value()).toJson(QJsonDocument::Compact)));
        }
        for (auto it = current->cbegin(); it != current->cend(); ++it) {
            if (!first->contains(it.key()))
                return u"%1 has %2 that the first machine lacks"_s.arg(machine.root, it.key());
        }
    }
    *common = first.value_or(Journal());
    return {};
}

QMap<QString, QString> TestSyncProcess::record(const Machine &machine, const QList<Entry> &entries)
{
    StoreOptions options;
    options.applicationFilesDirectory = machine.applicationFilesDirectory();
    auto store = Store::open(options);
    if (!store)
        return {};
    std::unique_ptr<StoreContext> context = (*store)->newContext();
    QMap<QString, QString> texts;
    for (const Entry &entry : entries) {
        ActivityPtr activity = context->insertActivity();
        activity->setText(entry.text);
        activity->setTimeFrom(entry.from);
        activity->setTimeTo(entry.to);
        texts.insert(activity->uid(), entry.text);
    }
    if (!context->save())
        return {};
    return texts;
}

QStringList TestSyncProcess::instants(const Machine &machine)
{
    StoreOptions options;
    options.applicationFilesDirectory = machine.applicationFilesDirectory();
    auto store = Store::open(options);
    if (!store)
        return { u"store does not open"_s };
    const auto activities = (*store)->newContext()->fetchActivities();
    if (!activities)
        return { u"fetch failed"_s };
    QStringList lines;
    for (const ActivityPtr &activity : *activities) {
        lines.append(QStringList { activity->uid(), activity->timeFrom().toUTC().toString(Qt::ISODate),
            activity->timeTo().toUTC().toString(Qt::ISODate),
            QString::number(activity->modifiedAt().toSecsSinceEpoch()), activity->text() }
                         .join(u'|'));
    }
    lines.sort();
    return lines;
}

QList<Entry> TestSyncProcess::months(int months, int perMonth, const QString &label)
{
    QList<Entry> entries;
    for (int m = 0; m < months; ++m) {
        const QDate month = QDate(2023, 1, 1).addMonths(m);
        for (int i = 0; i < perMonth; ++i) {
            const QDateTime from(month.addDays(1 + i), QTime(9, 0));
            entries.append(
                { u"@Client%1 #%2 %3 %4"_s.arg(i % 3).arg(month.toString(u"MMMyy"_s).toLower(), label).arg(i), from,
                    from.addSecs(45 * 60) });
        }
    }
    return entries;
}

QString TestSyncProcess::useFixture(std::optional<std::expected<QString, QString>> &fixture,
    std::expected<QString, QString> (TestSyncProcess::*build)())
{
    if (!fixture)
        fixture = (this->*build)();
    if (!*fixture)
        return fixture->error();
    for (const QString &name : { u"a"_s, u"b"_s, u"c"_s, u"shared"_s }) {
        QDir(m_dir->path() + u'/' + name).removeRecursively();
        if (!copyTree(**fixture + u'/' + name, m_dir->path() + u'/' + name))
            return u"cannot copy "_s + name;
    }
    return {};
}

bool TestSyncProcess::step(const Machine &machine, const QStringList &arguments, QString *failure, QString *out) const
{
    const Result result = brimvale(machine, arguments);
    if (out)
        *out = result.out.trimmed();
    if (result.status != 0)
        *failure = u"brimvale %1 failed: %2"_s.arg(arguments.join(u' '), result.err);
    return result.status == 0;
}

std::expected<QString, QString> TestSyncProcess::buildEditsFixture()
{
    const QString root = m_fixtures.path() + u"/edits"_s;
    const Machine a = machineIn(root, u"a"_s), b = machineIn(root, u"b"_s), c = machineIn(root, u"c"_s);
    const QStringList sync { u"sync"_s, u"--folder"_s, root + u"/shared"_s };
    if (!makeTree(a.root) || !makeTree(b.root) || !makeTree(c.root) || !QDir().mkpath(root + u"/shared"_s))
        return std::unexpected(u"cannot create the folders"_s);
    const auto at = [](int month, int day, int hour, int minute) {
        return QDateTime(QDate(2024, month, day), QTime(hour, minute));
    };
    const QMap<QString, QString> base = record(a,
        { { u"@Acme #design mock-ups"_s, at(3, 12, 9, 0), at(3, 12, 10, 30) },
            { u"@Acme #call weekly"_s, at(4, 9, 14, 0), at(4, 9, 14, 30) },
            { u"@Beta #fixes login"_s, at(5, 21, 8, 0), at(5, 21, 9, 15) } });
    if (base.size() != 3)
        return std::unexpected(u"cannot record the first activities"_s);
    m_edits.design = base.key(u"@Acme #design mock-ups"_s);
    m_edits.call = base.key(u"@Acme #call weekly"_s);
    m_edits.fixes = base.key(u"@Beta #fixes login"_s);

    QString failure;
    if (!step(a, sync, &failure) || !step(b, sync, &failure) || !step(c, sync, &failure))
        return std::unexpected(failure);

    // While apart, every machine adds, edits and deletes; the March file changes on all three.
    if (!step(a, { u"edit"_s, m_edits.design, u"--text"_s, u"@Acme #design first draft"_s }, &failure)
        || !step(a, { u"delete"_s, m_edits.fixes }, &failure) || !step(c, { u"delete"_s, m_edits.call }, &failure)
        || !step(
            a, addCommand({ u"@Acme #notes from a"_s, at(3, 14, 11, 0), at(3, 14, 12, 0) }), &failure, &m_edits.noteOfA)
        || !step(b, addCommand({ u"@Gamma #research from b"_s, at(6, 3, 13, 0), at(6, 3, 15, 0) }), &failure,
            &m_edits.researchOfB)
        || !step(c, addCommand({ u"@Acme #review from c"_s, at(3, 20, 16, 0), at(3, 20, 16, 45) }), &failure,
            &m_edits.reviewOfC))
        return std::unexpected(failure);
    waitForNextSecond();
    if (!step(b, { u"edit"_s, m_edits.design, u"--text"_s, u"@Acme #design final"_s, u"--invoiced"_s, u"yes"_s },
            &failure)
        || !step(c, { u"edit"_s, m_edits.fixes, u"--text"_s, u"@Beta #fixes login reopened"_s }, &failure))
        return std::unexpected(failure);
    return root;
}

std::expected<QString, QString> TestSyncProcess::buildJournalsFixture()
{
    const QString root = m_fixtures.path() + u"/journals"_s;
    const Machine a = machineIn(root, u"a"_s), b = machineIn(root, u"b"_s);
    if (!makeTree(a.root) || !makeTree(b.root) || !makeTree(root + u"/c"_s) || !QDir().mkpath(root + u"/shared"_s))
        return std::unexpected(u"cannot create the folders"_s);
    QMap<QString, QString> ofA = record(a, months(12, 6, u"a"_s));
    const QMap<QString, QString> ofB = record(b, months(12, 1, u"b"_s));
    if (ofA.size() != 12 * 6 || ofB.size() != 12)
        return std::unexpected(u"cannot record the journals"_s);
    // A deletion, so that the deletion file is in the folder too.
    const QString deleted = ofA.firstKey();
    QString failure;
    if (!step(a, { u"delete"_s, deleted }, &failure)
        || !step(a, { u"sync"_s, u"--folder"_s, root + u"/shared"_s }, &failure))
        return std::unexpected(failure);
    ofA.remove(deleted);
    m_journalsExpected = ofA;
    m_journalsExpected.insert(ofB);
    return root;
}

void TestSyncProcess::changesOnEveryMachineConvergeInAnyOrder_data()
{
    QTest::addColumn<QList<int>>("order");
    QTest::newRow("a b c") << QList<int> { 0, 1, 2 };
    QTest::newRow("a c b") << QList<int> { 0, 2, 1 };
    QTest::newRow("b a c") << QList<int> { 1, 0, 2 };
    QTest::newRow("b c a") << QList<int> { 1, 2, 0 };
    QTest::newRow("c a b") << QList<int> { 2, 0, 1 };
    QTest::newRow("c b a") << QList<int> { 2, 1, 0 };
}

void TestSyncProcess::changesOnEveryMachineConvergeInAnyOrder()
{
    QFETCH(QList<int>, order);
    const QString unprepared = useFixture(m_editsFixture, &TestSyncProcess::buildEditsFixture);
    QVERIFY2(unprepared.isEmpty(), qPrintable(unprepared));

    // The last of the first round has seen everything; the two before it catch up in the second.
    const QList<int> runs = order + order.mid(0, 2);
    for (const int index : runs) {
        const Result synced = sync(m_machines.at(index));
        QVERIFY2(synced.status == 0, qPrintable(synced.err));
        QVERIFY(synced.out.endsWith(u"Sync operation completed!\n"_s));
    }

    Journal common;
    const QString diverged = divergence(m_machines, &common);
    QVERIFY2(diverged.isEmpty(), qPrintable(diverged));
    QMap<QString, QString> texts;
    for (const QJsonObject &activity : std::as_const(common))
        texts.insert(activity.value(u"uid"_s).toString(), activity.value(u"text"_s).toString());
    const QMap<QString, QString> expected {
        { m_edits.design, u"@Acme #design final"_s },
        { m_edits.fixes, u"@Beta #fixes login reopened"_s },
        { m_edits.noteOfA, u"@Acme #notes from a"_s },
        { m_edits.researchOfB, u"@Gamma #research from b"_s },
        { m_edits.reviewOfC, u"@Acme #review from c"_s },
    };
    QCOMPARE(texts, expected);
    // The later edit wins as a whole, its invoiced mark and project with it.
    QCOMPARE(common.value(m_edits.design).value(u"invoiced"_s).toBool(), true);
    QCOMPARE(common.value(m_edits.fixes).value(u"project"_s).toString(), u"Beta"_s);
    QVERIFY(leftovers(m_shared).isEmpty());
}

void TestSyncProcess::killedRunLosesNothing_data()
{
    // b merges a's 12 month files and the deletion file, then uploads its own activity in each month.
    // The output trails the run a little: by the cleanup line the run may be over before the signal lands.
    QTest::addColumn<QString>("step");
    QTest::addColumn<int>("occurrence");
    QTest::addColumn<bool>("midRun");
    QTest::newRow("after reading the folder") << u"Reading the sync folder..."_s << 1 << true;
    QTest::newRow("after the deletions") << u"Processing deleted activities..."_s << 1 << true;
    QTest::newRow("in the middle of merging") << u"Merging data from"_s << 6 << true;
    QTest::newRow("at the first export") << u"Exporting activities for:"_s << 1 << true;
    QTest::newRow("in the middle of exporting") << u"Exporting activities for:"_s << 6 << true;
    QTest::newRow("while cleaning up") << u"Cleaning up files ..."_s << 1 << false;
}

void TestSyncProcess::killedRunLosesNothing()
{
    QFETCH(QString, step);
    QFETCH(int, occurrence);
    QFETCH(bool, midRun);
    const QString unprepared = useFixture(m_journalsFixture, &TestSyncProcess::buildJournalsFixture);
    QVERIFY2(unprepared.isEmpty(), qPrintable(unprepared));
    const Machine &a = m_machines.at(0);
    const Machine &b = m_machines.at(1);

    int seen = 0;
    // Lines already printed keep arriving after the kill; they do not count.
    const Result interrupted = syncWatching(b, [&](const QString &line, QProcess &process) {
        if (seen < occurrence && line.startsWith(step) && ++seen == occurrence)
            process.kill();
    });
    QCOMPARE(seen, occurrence);
    if (midRun) {
        QVERIFY2(interrupted.killed, qPrintable(interrupted.out));
        QVERIFY(QFile::exists(b.storePath() + u".sync-lock"_s));
    }

    // The killed process's lock does not hold the next run back.
    Journal common;
    const QString diverged = syncBothAndCompare(a, b, &common);
    QVERIFY2(diverged.isEmpty(), qPrintable(diverged));
    QMap<QString, QString> texts;
    for (const QJsonObject &activity : std::as_const(common))
        texts.insert(activity.value(u"uid"_s).toString(), activity.value(u"text"_s).toString());
    QCOMPARE(texts, m_journalsExpected);
    QVERIFY2(leftovers(m_shared).isEmpty(), qPrintable(leftovers(m_shared).join(u", "_s)));
}

void TestSyncProcess::folderTurnedReadOnlyFailsTheRunUntilWritable()
{
    const QString unprepared = useFixture(m_journalsFixture, &TestSyncProcess::buildJournalsFixture);
    QVERIFY2(unprepared.isEmpty(), qPrintable(unprepared));
    const Machine &a = m_machines.at(0);
    const Machine &b = m_machines.at(1);

    // The flag has to hold on this file system before the run can be put to it.
    {
        const WriteProtection probe(m_shared);
        if (!probe.isActive())
            QSKIP("This file system cannot make a folder read-only for the user running the tests");
        QFile probeFile(m_shared + u"/probe"_s);
        QVERIFY(!probeFile.open(QIODevice::WriteOnly));
    }

    const Result failed = syncWatching(b, [&](const QString &line, QProcess &) {
        if (line.startsWith(u"Exporting activities for:"_s) && !m_readOnly) {
            m_readOnly = std::make_unique<WriteProtection>(m_shared);
            if (!m_readOnly->isActive())
                m_readOnly.reset();
        }
    });
    QVERIFY2(m_readOnly, qPrintable(failed.out));
    QCOMPARE(failed.status, 1);
    QVERIFY(!failed.out.contains(u"Sync operation completed!"_s));
    const QString reason = QString::fromLocal8Bit(std::strerror(::geteuid() == 0 ? EPERM : EACCES));
    QVERIFY2(failed.err.startsWith(u"Error occurred\nFailed to write "_s), qPrintable(failed.err));
    QVERIFY2(failed.err.contains(u"to the sync folder. "_s + reason), qPrintable(failed.err));

    m_readOnly.reset();
    Journal common;
    const QString diverged = syncBothAndCompare(a, b, &common);
    QVERIFY2(diverged.isEmpty(), qPrintable(diverged));
    QCOMPARE(common.keys(), m_journalsExpected.keys());
    QVERIFY2(leftovers(m_shared).isEmpty(), qPrintable(leftovers(m_shared).join(u", "_s)));
}

void TestSyncProcess::ctrlCStopsTheRunAtASafePoint()
{
    const QString unprepared = useFixture(m_journalsFixture, &TestSyncProcess::buildJournalsFixture);
    QVERIFY2(unprepared.isEmpty(), qPrintable(unprepared));
    const Machine &a = m_machines.at(0);
    const Machine &b = m_machines.at(1);

    bool sent = false;
    const Result interrupted = syncWatching(b, [&](const QString &line, QProcess &process) {
        if (!sent && line.startsWith(u"Merging data from"_s)) {
            sent = true;
            ::kill(pid_t(process.processId()), SIGINT);
        }
    });
    QVERIFY(sent);
    QVERIFY2(!interrupted.killed, "the first Ctrl-C lets the run end by itself");
    QCOMPARE(interrupted.status, 1);
    QVERIFY2(interrupted.err.contains(u"Operation cancelled."_s), qPrintable(interrupted.err));
    QVERIFY(!interrupted.out.contains(u"Sync operation completed!"_s));
    QVERIFY(!QFile::exists(b.storePath() + u".sync-lock"_s));

    Journal common;
    const QString diverged = syncBothAndCompare(a, b, &common);
    QVERIFY2(diverged.isEmpty(), qPrintable(diverged));
    QCOMPARE(common.keys(), m_journalsExpected.keys());
}

void TestSyncProcess::secondRunOnTheSameStoreIsRefused()
{
    const Machine &a = m_machines.at(0);
    QCOMPARE(record(a, months(2, 1, u"a"_s)).size(), 2);

    // The test stands for a run under way in another process: the app's timer, or a second terminal.
    QLockFile running(a.storePath() + u".sync-lock"_s);
    QVERIFY(running.tryLock(0));
    const Result refused = sync(a);
    QCOMPARE(refused.status, 1);
    QCOMPARE(
        refused.err, u"Error occurred\nAnother sync operation is running. Please retry sync when it has finished\n"_s);
    QVERIFY(snapshot(m_shared).isEmpty());
    qint64 holder = 0;
    QVERIFY(running.getLockInfo(&holder, nullptr, nullptr));
    QCOMPARE(holder, QCoreApplication::applicationPid());

    running.unlock();
    const Result synced = sync(a);
    QVERIFY2(synced.status == 0, qPrintable(synced.err));
    // Two month files and the journal's time zone.
    QCOMPARE(snapshot(m_shared).size(), 3);
    QVERIFY(!QFile::exists(a.storePath() + u".sync-lock"_s));
}

void TestSyncProcess::settingsChooseTheFolder_data()
{
    // The folder setting names the shared folder, a folder that is not there, a file, or nothing.
    QTest::addColumn<int>("method");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");

    const QString shared = u"shared"_s;
    QTest::newRow("folder method") << 2 << shared << QStringList() << 0 << u"Sync operation completed!"_s;
    QTest::newRow("sync turned off") << 0 << shared << QStringList() << 1
                                     << u"Sync is turned off. Please choose a sync method in preferences"_s;
    QTest::newRow("no method chosen yet")
        << -1 << shared << QStringList() << 1 << u"Sync is turned off. Please choose a sync method in preferences"_s;
    QTest::newRow("folder option over turned off")
        << 0 << QString() << QStringList { u"--folder"_s, shared } << 0 << u"Sync operation completed!"_s;
    QTest::newRow("missing folder") << 2 << u"shared/gone"_s << QStringList() << 1
                                    << u"/shared/gone\" does not exist. Please check the sync folder in preferences"_s;
    QTest::newRow("missing folder option")
        << 0 << shared << QStringList { u"--folder"_s, u"shared/gone"_s } << 1 << u"/shared/gone\" does not exist."_s;
    QTest::newRow("file as folder")
        << 2 << u"shared/journal.txt"_s << QStringList() << 1
        << u"/shared/journal.txt\" is not a folder. Please check the sync folder in preferences"_s;
    QTest::newRow("no folder chosen") << 2 << QString() << QStringList() << 1
                                      << u"No sync folder is set. Please choose the sync folder in preferences"_s;
}

void TestSyncProcess::settingsChooseTheFolder()
{
    QFETCH(int, method);
    QFETCH(QString, folder);
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, message);
    const Machine &a = m_machines.at(0);
    QCOMPARE(record(a, months(1, 1, u"a"_s)).size(), 1);
    {
        QFile file(m_shared + u"/journal.txt"_s);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("kept by hand\n");
    }
    {
        QSettings defaults(a.defaultsFile(), QSettings::IniFormat);
        if (method >= 0)
            defaults.setValue(u"syncMethod"_s, method);
        if (!folder.isEmpty())
            defaults.setValue(u"syncFolderPath"_s, QString(m_dir->path() + u'/' + folder));
    }
    for (QString &argument : arguments) {
        if (argument.startsWith(u"shared"_s))
            argument = m_dir->path() + u'/' + argument;
    }
    const QStringList before = snapshot(m_shared);

    const Result result = brimvale(a, QStringList { u"sync"_s } + arguments);
    QCOMPARE(result.status, status);
    if (status == 0) {
        QVERIFY(result.out.endsWith(message + u'\n'));
        QCOMPARE(QDir(m_shared).entryList({ u"*.json"_s }), (QStringList { u"2023-01.json"_s, u"timezone.json"_s }));
    } else {
        QVERIFY2(result.err.contains(message), qPrintable(result.err));
        QVERIFY(!result.out.contains(u"Sync operation completed!"_s));
        QCOMPARE(snapshot(m_shared), before);
    }
}

void TestSyncProcess::filesOfOtherToolsAreHarmless()
{
    const Machine &a = m_machines.at(0);
    const Machine &b = m_machines.at(1);
    const QMap<QString, QString> recorded = record(a,
        { { u"@Acme #design mock-ups"_s, QDateTime(QDate(2024, 3, 12), QTime(9, 0)),
              QDateTime(QDate(2024, 3, 12), QTime(10, 30)) },
            { u"@Acme #call weekly"_s, QDateTime(QDate(2024, 3, 19), QTime(14, 0)),
                QDateTime(QDate(2024, 3, 19), QTime(14, 30)) } });
    QCOMPARE(recorded.size(), 2);
    const QString edited = recorded.key(u"@Acme #call weekly"_s);
    for (const Machine &machine : { a, b })
        QCOMPARE(sync(machine).status, 0);

    // What a sync tool and the user leave beside the files: a note, a name that only looks like a month,
    // the tool's own folder.
    const QByteArray stray
        = R"([{"created_at":"2024-03-01T10:00:00","is_invoiced":0,"modified_at":"2024-03-01T10:00:00",)"
          R"("text":"@Stray not a month file","time_from":"2024-03-01T09:00:00",)"
          R"("time_to":"2024-03-01T10:00:00","uid":"00000000-0000-0000-0000-00000000000A"}])";
    const QList<std::pair<QString, QByteArray>> foreign {
        { u"notes.txt"_s, "call the client back\n" },
        { u"2024-3.json"_s, stray },
        { u".stfolder/.stignore"_s, "*.tmp\n" },
    };
    QVERIFY(QDir().mkpath(m_shared + u"/.stfolder"_s));
    for (const auto &[name, content] : foreign) {
        QFile file(m_shared + u'/' + name);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    // Two machines wrote March at once and the tool kept the loser's version as a copy: there the call
    // was edited a minute after the version that stayed.
    QFile month(m_shared + u"/2024-03.json"_s);
    QVERIFY(month.open(QIODevice::ReadOnly));
    QJsonArray records = QJsonDocument::fromJson(month.readAll()).array();
    QCOMPARE(records.size(), 2);
    QString modifiedAt;
    for (qsizetype i = 0; i < records.size(); ++i) {
        QJsonObject record = records.at(i).toObject();
        if (record.value(u"uid"_s).toString() != edited)
            continue;
        const QDateTime modified = QDateTime::fromString(record.value(u"modified_at"_s).toString(), Qt::ISODate);
        QVERIFY(modified.isValid());
        modifiedAt = modified.addSecs(60).toString(u"yyyy-MM-ddTHH:mm:ss"_s);
        record.insert(u"modified_at"_s, modifiedAt);
        record.insert(u"text"_s, u"@Acme #call weekly, moved to Thursday"_s);
        records.replace(i, record);
    }
    QVERIFY(!modifiedAt.isEmpty());
    {
        QFile copy(m_shared + u'/' + kConflictCopy);
        QVERIFY(copy.open(QIODevice::WriteOnly));
        copy.write(QJsonDocument(records).toJson(QJsonDocument::Compact));
    }
    const QStringList foreignBefore = snapshot(m_shared).filter(QRegularExpression(u"notes|2024-3\\.|stfolder"_s));
    QCOMPARE(foreignBefore.size(), 4);

    Journal common;
    const QString diverged = syncBothAndCompare(a, b, &common);
    QVERIFY2(diverged.isEmpty(), qPrintable(diverged));
    QVERIFY(!QFile::exists(m_shared + u'/' + kConflictCopy));
    QCOMPARE(snapshot(m_shared).filter(QRegularExpression(u"notes|2024-3\\.|stfolder"_s)), foreignBefore);
    QCOMPARE(common.size(), 2);
    QCOMPARE(common.value(edited).value(u"text"_s).toString(), u"@Acme #call weekly, moved to Thursday"_s);
    QCOMPARE(QDateTime::fromString(common.value(edited).value(u"modified_at"_s).toString(), Qt::ISODate),
        QDateTime::fromString(modifiedAt, Qt::ISODate));
}

void TestSyncProcess::machinesInOtherZonesShiftNothing()
{
    // A laptop on a trip: a in Berlin syncs first and so names the journal's zone; b syncs from Santiago,
    // five hours behind in March and six in October.
    Machine a = m_machines.at(0);
    Machine b = m_machines.at(1);
    a.timeZone = u"Europe/Berlin"_s;
    b.timeZone = u"America/Santiago"_s;
    const QTimeZone berlin("Europe/Berlin");
    const QMap<QString, QString> recorded = record(a,
        { { u"@Acme #design mock-ups"_s, QDateTime(QDate(2024, 3, 12), QTime(9, 0), berlin),
              QDateTime(QDate(2024, 3, 12), QTime(10, 30), berlin) },
            // Inside the hour Berlin repeats: written "02:30"-"02:30".
            { u"@Acme #autumn inside the repeated hour"_s, QDateTime(QDate(2024, 10, 27), QTime(0, 30), Qt::UTC),
                QDateTime(QDate(2024, 10, 27), QTime(1, 30), Qt::UTC) },
            // Alone in January, ending in February.
            { u"@Acme #late past the month's end"_s, QDateTime(QDate(2024, 1, 31), QTime(23, 30), berlin),
                QDateTime(QDate(2024, 2, 1), QTime(0, 30), berlin) } });
    QCOMPARE(recorded.size(), 3);
    const QString design = recorded.key(u"@Acme #design mock-ups"_s);
    for (const Machine &machine : { a, b }) {
        const Result synced = sync(machine);
        QVERIFY2(synced.status == 0, qPrintable(synced.err));
    }
    QCOMPARE(instants(b), instants(a));
    QCOMPARE(instants(a).size(), 3);

    // b edits one activity and adds one on 31 March at 21:00 in Santiago, which is April in Berlin.
    waitForNextSecond();
    QString failure;
    QString added;
    QVERIFY2(step(b, { u"edit"_s, design, u"--text"_s, u"@Acme #design reviewed in Santiago"_s }, &failure),
        qPrintable(failure));
    QVERIFY2(step(b,
                 addCommand({ u"@Beta #from Santiago"_s, QDateTime(QDate(2024, 3, 31), QTime(21, 0)),
                     QDateTime(QDate(2024, 3, 31), QTime(22, 0)) }),
                 &failure, &added),
        qPrintable(failure));
    for (const Machine &machine : { b, a }) {
        const Result synced = sync(machine);
        QVERIFY2(synced.status == 0, qPrintable(synced.err));
    }
    const QStringList journal = instants(a);
    QCOMPARE(instants(b), journal);
    QCOMPARE(journal.size(), 4);
    QVERIFY(journal.filter(design).constFirst().endsWith(u"@Acme #design reviewed in Santiago"_s));
    QVERIFY(journal.filter(added).constFirst().contains(u"|2024-04-01T00:00:00Z|2024-04-01T01:00:00Z|"_s));

    // The files are Berlin's: the month-end activity keeps January's file, b's activity is in April's.
    QFile zoneFile(m_shared + u"/timezone.json"_s);
    QVERIFY(zoneFile.open(QIODevice::ReadOnly));
    QCOMPARE(zoneFile.readAll(), QByteArray(R"({"timeZone":"Europe/Berlin"})"));
    QCOMPARE(QDir(m_shared).entryList({ u"20*.json"_s }),
        (QStringList { u"2024-01.json"_s, u"2024-03.json"_s, u"2024-04.json"_s, u"2024-10.json"_s }));
    // Nothing is newer on either side once both are up to date: further runs write nothing.
    const QStringList settled = snapshot(m_shared);
    for (const Machine &machine : { a, b, a }) {
        const Result synced = sync(machine);
        QVERIFY2(synced.status == 0, qPrintable(synced.err));
    }
    QCOMPARE(snapshot(m_shared), settled);
    QCOMPARE(instants(b), journal);
}

QTEST_GUILESS_MAIN(TestSyncProcess)
#include "testsyncprocess.moc"
