// Runs in Europe/Berlin (see CMakeLists.txt). Each "machine" is a store and a cache folder of its own; all
// of them meet in one fake remote folder, as the user's computers meet in one Dropbox folder.
#include <QtTest>

#include <QDir>
#include <QSignalSpy>

#include "fakes/fakeclock.h"
#include "fakes/fakesyncbackend.h"
#include "model/activity.h"
#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/isolatedhome.h"
#include "sync/bvsyncservice.h"
#include "sync/bvsynctimezonefile.h"

using namespace Qt::StringLiterals;

namespace {

QDateTime local(int y, int mo, int d, int h, int mi, int s = 0, int ms = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s, ms), Qt::LocalTime).toUTC();
}

// A fake backend that asks the service to cancel when it is called for one operation, which puts the
// cancellation exactly before the checkpoint that follows that call.
class CancellingBackend : public FakeSyncBackend
{
public:
    using FakeSyncBackend::FakeSyncBackend;

    BVSyncService *service = nullptr;
    QString cancelAt;

    void fetchChangesWithLocalCache(const QList<BVTmpSyncFile> &localCache, ChangesHandler andHandler) override
    {
        cancelIf(u"fetchChanges"_s);
        FakeSyncBackend::fetchChangesWithLocalCache(localCache, std::move(andHandler));
    }
    void downloadFileWithName(const QString &name, const std::optional<QString> &expectedRevision,
        const QString &saveToFile, DownloadCallback andCallback) override
    {
        cancelIf(u"download "_s + name);
        FakeSyncBackend::downloadFileWithName(name, expectedRevision, saveToFile, std::move(andCallback));
    }
    void saveSavepoint() override
    {
        cancelIf(u"saveSavepoint"_s);
        FakeSyncBackend::saveSavepoint();
    }
    void uploadFile(
        const QString &file, const std::optional<BVTmpSyncFile> &withRevision, UploadBlock andBlock) override
    {
        cancelIf(u"upload "_s + QFileInfo(file).fileName());
        FakeSyncBackend::uploadFile(file, withRevision, std::move(andBlock));
    }

private:
    void cancelIf(const QString &call)
    {
        if (service && call == cancelAt)
            service->cancel();
    }
};

struct Machine
{
    QString root;
    QString cacheHome;
    FakeClock clock;
    std::unique_ptr<Store> store;
};

struct RunResult
{
    int status = -1;
    QString error;
    int finished = 0;
    int cancelled = 0;
    QStringList calls;
    bool savepointSaved = false;
    QString log;
    QString cacheFolder;
    bool signalsOnMainThread = true;
};

} // namespace

class TestSyncService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void fullRunIntoEmptyRemoteExportsEveryMonthButTheRunningActivity();
    void secondRunWithNothingChangedUploadsNothing();
    void editRewritesOnlyItsMonth();
    void deletionReachesTheOtherMachineAndEmptiesTheMonth();
    void laterModificationWins_data();
    void laterModificationWins();
    void cancelStopsAtTheNextCheckpoint_data();
    void cancelStopsAtTheNextCheckpoint();
    void cancelBeforeStartReportsAtOnce();
    void destroyingTheServiceMidRunKeepsTheStoreUsable();
    void backendFailureStopsTheRunAndTheNextCompletes_data();
    void backendFailureStopsTheRunAndTheNextCompletes();
    void unreadableRemoteMonthFailsEveryRun();
    void monthThirteenIsMergedAndFiledUnderItsRealMonth();
    void twoMachinesConverge_data();
    void twoMachinesConverge();

private:
    Machine &machine(const QString &name);
    void run(Machine &m, RunResult &result, const QString &cancelAt = {},
        std::optional<FakeSyncBackend::Operation> failure = std::nullopt, const QString &running = {},
        FakeSyncBackend::Callbacks callbacks = FakeSyncBackend::Callbacks::Direct);
    QString add(Machine &m, const QDateTime &from, const QString &text);
    void edit(Machine &m, const QString &uid, const QString &text, const QDateTime &modifiedAt);
    void remove(Machine &m, const QString &uid);
    QStringList journal(Machine &m);
    QStringList remoteFiles() const;
    QString remoteText(const QString &name) const;

    std::unique_ptr<IsolatedHome> m_home;
    QString m_remote;
    std::map<QString, std::unique_ptr<Machine>> m_machines;
};

void TestSyncService::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_remote = m_home->root() + u"/remote"_s;
    QVERIFY(QDir().mkpath(m_remote));
}

void TestSyncService::cleanup()
{
    m_machines.clear();
    m_home.reset();
}

Machine &TestSyncService::machine(const QString &name)
{
    std::unique_ptr<Machine> &slot = m_machines[name];
    if (!slot) {
        slot = std::make_unique<Machine>();
        slot->root = m_home->root() + u"/"_s + name;
        slot->cacheHome = slot->root + u"/cache"_s;
        StoreOptions options;
        options.applicationFilesDirectory = slot->root + u"/data"_s;
        options.clock = &slot->clock;
        auto store = Store::open(options);
        if (!store)
            qFatal("cannot open the store of machine %s", qPrintable(name));
        slot->store = std::move(*store);
    }
    return *slot;
}

void TestSyncService::run(Machine &m, RunResult &result, const QString &cancelAt,
    std::optional<FakeSyncBackend::Operation> failure, const QString &running, FakeSyncBackend::Callbacks callbacks)
{
    // The cache folder is taken from the environment when the service is made: one per machine.
    qputenv("XDG_CACHE_HOME", m.cacheHome.toLocal8Bit());
    auto backend = std::make_unique<CancellingBackend>(m_remote);
    CancellingBackend *fake = backend.get();
    fake->cancelAt = cancelAt;
    fake->setCallbacks(callbacks);
    if (failure)
        fake->failNext(*failure, u"Remote storage failed"_s);
    BVSyncService service(std::move(backend), running.isEmpty() ? std::nullopt : std::optional<QString>(running));
    fake->service = &service;
    service.setMOC(*m.store);

    QSignalSpy finished(&service, &BVSyncService::syncServiceFinish);
    QSignalSpy errors(&service, &BVSyncService::syncServiceError);
    QSignalSpy cancelled(&service, &BVSyncService::syncServiceCancelled);
    QThread *mainThread = QThread::currentThread();
    bool onMain = true;
    const auto checkThread = [&onMain, mainThread]() { onMain = onMain && QThread::currentThread() == mainThread; };
    connect(&service, &BVSyncService::syncServiceProgress, this, checkThread);
    connect(&service, &BVSyncService::syncServiceFinish, this, checkThread);
    connect(&service, &BVSyncService::syncServiceError, this, checkThread);

    service.sync();
    QTRY_COMPARE_WITH_TIMEOUT(finished.count() + errors.count() + cancelled.count(), 1, 30000);
    QTest::qWait(10);
    QCOMPARE(finished.count() + errors.count() + cancelled.count(), 1);

    result.status = service.syncStatus();
    result.error = errors.isEmpty() ? QString() : errors.constFirst().constFirst().toString();
    result.finished = int(finished.count());
    if (result.finished)
        QCOMPARE(finished.constFirst().constFirst().toString(), u"Sync operation completed!"_s);
    result.cancelled = int(cancelled.count());
    result.calls = fake->calls();
    result.savepointSaved = fake->hasSavepoint();
    result.log = service.activityLog();
    result.cacheFolder = service.cacheFolder();
    result.signalsOnMainThread = onMain;
}

QString TestSyncService::add(Machine &m, const QDateTime &from, const QString &text)
{
    m.clock.set(from.addSecs(3600));
    auto context = m.store->newContext();
    ActivityPtr activity = context->insertActivity();
    activity->setTimeFrom(from);
    activity->setTimeTo(from.addSecs(1800));
    activity->setText(text);
    if (!context->save())
        QTest::qFail("cannot save an activity", __FILE__, __LINE__);
    return activity->uid();
}

void TestSyncService::edit(Machine &m, const QString &uid, const QString &text, const QDateTime &modifiedAt)
{
    auto context = m.store->newContext();
    auto activity = context->activityWithUid(uid);
    QVERIFY(activity && *activity);
    (*activity)->setText(text);
    (*activity)->setModifiedAt(modifiedAt);
    QVERIFY(context->save());
}

void TestSyncService::remove(Machine &m, const QString &uid)
{
    auto context = m.store->newContext();
    auto activity = context->activityWithUid(uid);
    QVERIFY(activity && *activity);
    DeletedActivity::deleteActivity(*activity, *context);
    QVERIFY(context->save());
}

QStringList TestSyncService::journal(Machine &m)
{
    auto context = m.store->newContext();
    auto activities = context->fetchActivities();
    QStringList lines;
    if (!activities)
        return { u"fetch failed"_s };
    for (const ActivityPtr &a : std::as_const(*activities)) {
        lines.append(QStringList { a->uid(), a->timeFrom().toString(Qt::ISODate), a->timeTo().toString(Qt::ISODate),
            QString::number(a->modifiedAt().toSecsSinceEpoch()), a->text() }
                         .join(u'|'));
    }
    lines.sort();
    return lines;
}

// The sync files; the zone file is checked where it matters.
QStringList TestSyncService::remoteFiles() const
{
    QStringList files = QDir(m_remote).entryList(QDir::Files, QDir::Name);
    files.removeOne(QString::fromLatin1(BVSyncTimeZoneFile::FileName));
    return files;
}

QString TestSyncService::remoteText(const QString &name) const
{
    QFile file(m_remote + u"/"_s + name);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll());
}

void TestSyncService::fullRunIntoEmptyRemoteExportsEveryMonthButTheRunningActivity()
{
    Machine &a = machine(u"a"_s);
    const QString jan = add(a, local(2024, 1, 15, 9, 0), u"Write report"_s);
    const QString feb = add(a, local(2024, 2, 10, 9, 0), u"Review"_s);
    const QString running = add(a, local(2024, 3, 12, 9, 0), u"Still tracking"_s);

    RunResult result;
    run(a, result, {}, std::nullopt, running, FakeSyncBackend::Callbacks::OtherThread);
    QVERIFY(!QTest::currentTestFailed());
    QCOMPARE(result.status, int(BVSyncService::Succeeded));
    QVERIFY(result.signalsOnMainThread);
    // An empty cache always forgets the savepoint, so the remote folder is listed whole.
    QVERIFY(result.calls.contains(u"deleteSavepoint"_s));
    QVERIFY(result.log.contains(u"No cached files, clear savepoint for sync backend"_s));
    QVERIFY(result.log.contains(u"Fetched: 0 items; Did full fetch: yes"_s));
    QVERIFY(result.log.endsWith(u"Sync completed!"_s));
    QVERIFY(result.savepointSaved);
    QCOMPARE(remoteFiles(), (QStringList { u"2024-01.json"_s, u"2024-02.json"_s }));
    // The first machine records its zone for the journal.
    QCOMPARE(remoteText(u"timezone.json"_s), u"{\"timeZone\":\"Europe/Berlin\"}"_s);
    QVERIFY(remoteText(u"2024-01.json"_s).contains(jan));
    QVERIFY(remoteText(u"2024-02.json"_s).contains(feb));
    for (const QString &name : remoteFiles())
        QVERIFY2(!remoteText(name).contains(running), qPrintable(name));
    // The cache holds exactly the files that have rows.
    QCOMPARE(QDir(result.cacheFolder).entryList(QDir::Files, QDir::Name),
        (QStringList { u"2024-01.json"_s, u"2024-02.json"_s }));
    auto context = a.store->newContext();
    auto rows = context->fetchSyncFiles();
    QVERIFY(rows);
    QCOMPARE(rows->size(), 2);
    for (const SyncFilePtr &row : std::as_const(*rows))
        QVERIFY(row->revision().startsWith(u"dropbox:"_s));
}

void TestSyncService::secondRunWithNothingChangedUploadsNothing()
{
    Machine &a = machine(u"a"_s);
    add(a, local(2024, 1, 15, 9, 0), u"Write report"_s);
    add(a, local(2024, 2, 10, 9, 0), u"Review"_s);
    RunResult first;
    run(a, first);
    QCOMPARE(first.status, int(BVSyncService::Succeeded));
    const QStringList journalBefore = journal(a);

    RunResult second;
    run(a, second);
    QCOMPARE(second.status, int(BVSyncService::Succeeded));
    QVERIFY(!second.calls.contains(u"deleteSavepoint"_s));
    for (const QString &call : std::as_const(second.calls)) {
        QVERIFY2(!call.startsWith(u"upload"_s) && !call.startsWith(u"download"_s) && !call.startsWith(u"delete "_s),
            qPrintable(call));
    }
    QVERIFY(second.log.contains(u"Nothing to update, skipping file 2024-01"_s));
    QVERIFY(second.log.contains(u"Nothing changed for 2024-02. Skipping."_s));
    QCOMPARE(journal(a), journalBefore);
}

void TestSyncService::editRewritesOnlyItsMonth()
{
    Machine &a = machine(u"a"_s);
    add(a, local(2024, 1, 15, 9, 0), u"Write report"_s);
    const QString feb = add(a, local(2024, 2, 10, 9, 0), u"Review"_s);
    add(a, local(2024, 3, 5, 9, 0), u"Plan"_s);
    RunResult first;
    run(a, first);
    QCOMPARE(first.status, int(BVSyncService::Succeeded));
    const QString janBefore = remoteText(u"2024-01.json"_s);

    edit(a, feb, u"Review the draft"_s, local(2024, 3, 20, 8, 0));
    RunResult second;
    run(a, second);
    QCOMPARE(second.status, int(BVSyncService::Succeeded));
    QStringList uploads = second.calls.filter(u"upload"_s);
    QCOMPARE(uploads, QStringList { u"upload 2024-02.json"_s });
    QVERIFY(remoteText(u"2024-02.json"_s).contains(u"Review the draft"_s));
    QCOMPARE(remoteText(u"2024-01.json"_s), janBefore);
}

void TestSyncService::deletionReachesTheOtherMachineAndEmptiesTheMonth()
{
    Machine &a = machine(u"a"_s);
    Machine &b = machine(u"b"_s);
    const QString keep = add(a, local(2024, 1, 15, 9, 0), u"Write report"_s);
    const QString gone = add(a, local(2024, 2, 10, 9, 0), u"Review"_s);
    RunResult result;
    run(a, result);
    QCOMPARE(result.status, int(BVSyncService::Succeeded));
    run(b, result);
    QCOMPARE(result.status, int(BVSyncService::Succeeded));
    QCOMPARE(journal(b), journal(a));

    b.clock.set(local(2024, 3, 1, 12, 0));
    remove(b, gone);
    run(b, result);
    QCOMPARE(result.status, int(BVSyncService::Succeeded));
    QVERIFY(result.calls.contains(u"upload deleted.json"_s));
    QVERIFY(result.calls.contains(u"delete 2024-02.json"_s));
    QCOMPARE(remoteFiles(), (QStringList { u"2024-01.json"_s, u"deleted.json"_s }));
    QVERIFY(remoteText(u"deleted.json"_s).contains(gone));

    run(a, result);
    QCOMPARE(result.status, int(BVSyncService::Succeeded));
    QCOMPARE(journal(a).size(), 1);
    QVERIFY(journal(a).constFirst().startsWith(keep));
    QCOMPARE(journal(a), journal(b));
    auto context = b.store->newContext();
    auto unsynced = context->fetchDeletedActivities(std::nullopt, false);
    QVERIFY(unsynced);
    QVERIFY(unsynced->isEmpty());
}

void TestSyncService::laterModificationWins_data()
{
    QTest::addColumn<QDateTime>("aModified");
    QTest::addColumn<QDateTime>("bModified");
    QTest::addColumn<QString>("expected");

    QTest::newRow("the first to sync is later") << local(2024, 3, 2, 10, 0, 7) << local(2024, 3, 2, 10, 0, 6) << u"a"_s;
    QTest::newRow("the second to sync is later")
        << local(2024, 3, 2, 10, 0, 6) << local(2024, 3, 2, 10, 0, 7) << u"b"_s;
    QTest::newRow("a later second wins over more milliseconds")
        << local(2024, 3, 2, 10, 0, 5, 999) << local(2024, 3, 2, 10, 0, 6, 0) << u"b"_s;
    QTest::newRow("a day later") << local(2024, 3, 3, 10, 0) << local(2024, 3, 2, 10, 0) << u"a"_s;
    // Edits within one second: both machines keep the greater encoding ("Edited on b"), whoever syncs first.
    QTest::newRow("same second, second to sync greater")
        << local(2024, 3, 2, 10, 0, 6, 900) << local(2024, 3, 2, 10, 0, 6, 100) << u"b"_s;
}

void TestSyncService::laterModificationWins()
{
    QFETCH(QDateTime, aModified);
    QFETCH(QDateTime, bModified);
    QFETCH(QString, expected);
    Machine &a = machine(u"a"_s);
    Machine &b = machine(u"b"_s);
    const QString uid = add(a, local(2024, 2, 10, 9, 0), u"Review"_s);
    RunResult result;
    run(a, result);
    run(b, result);
    QCOMPARE(result.status, int(BVSyncService::Succeeded));

    edit(a, uid, u"Edited on a"_s, aModified);
    edit(b, uid, u"Edited on b"_s, bModified);
    for (Machine *m : { &a, &b, &a }) {
        run(*m, result);
        QCOMPARE(result.status, int(BVSyncService::Succeeded));
    }
    QCOMPARE(journal(a), journal(b));
    QVERIFY(journal(a).constFirst().endsWith(u"Edited on "_s + expected));
}

void TestSyncService::cancelStopsAtTheNextCheckpoint_data()
{
    QTest::addColumn<QString>("cancelAt");
    QTest::addColumn<QString>("lastCall");
    QTest::addColumn<QStringList>("merged");

    // The remote holds January and February from machine b; machine a adds March and April.
    QTest::newRow("before the deletion file") << u"fetchChanges"_s << u"fetchChanges 0"_s << QStringList();
    QTest::newRow("before the second month file")
        << u"download 2024-01.json"_s << u"download 2024-01.json"_s << QStringList { u"Jan"_s };
    QTest::newRow("before uploading") << u"saveSavepoint"_s << u"saveSavepoint"_s << QStringList { u"Jan"_s, u"Feb"_s };
    QTest::newRow("before the second export")
        << u"upload 2024-03.json"_s << u"upload 2024-03.json"_s << QStringList { u"Jan"_s, u"Feb"_s };
}

void TestSyncService::cancelStopsAtTheNextCheckpoint()
{
    QFETCH(QString, cancelAt);
    QFETCH(QString, lastCall);
    QFETCH(QStringList, merged);
    Machine &a = machine(u"a"_s);
    Machine &b = machine(u"b"_s);
    add(b, local(2024, 1, 15, 9, 0), u"Jan"_s);
    add(b, local(2024, 2, 15, 9, 0), u"Feb"_s);
    RunResult result;
    run(b, result);
    QCOMPARE(result.status, int(BVSyncService::Succeeded));
    add(a, local(2024, 3, 15, 9, 0), u"Mar"_s);
    add(a, local(2024, 4, 15, 9, 0), u"Apr"_s);

    run(a, result, cancelAt);
    QCOMPARE(result.status, int(BVSyncService::Cancelled));
    QCOMPARE(result.cancelled, 1);
    QCOMPARE(result.calls.constLast(), lastCall);
    QVERIFY(result.log.contains(u"Cancelling sync operation..."_s));
    QVERIFY(result.log.endsWith(u"Sync. operation cancelled"_s));
    QStringList texts;
    for (const QString &line : journal(a))
        texts.append(line.section(u'|', 4));
    QStringList expectedTexts = merged + QStringList { u"Mar"_s, u"Apr"_s };
    texts.sort();
    expectedTexts.sort();
    QCOMPARE(texts, expectedTexts);

    run(a, result);
    QCOMPARE(result.status, int(BVSyncService::Succeeded));
    run(b, result);
    QCOMPARE(journal(a), journal(b));
    QCOMPARE(journal(a).size(), 4);
}

void TestSyncService::cancelBeforeStartReportsAtOnce()
{
    qputenv("XDG_CACHE_HOME", (m_home->root() + u"/c"_s).toLocal8Bit());
    BVSyncService service(std::make_unique<FakeSyncBackend>(m_remote), std::nullopt);
    QSignalSpy cancelled(&service, &BVSyncService::syncServiceCancelled);
    service.cancel();
    QCOMPARE(cancelled.count(), 1);
    QCOMPARE(service.syncStatus(), int(BVSyncService::NotStarted));
}

void TestSyncService::destroyingTheServiceMidRunKeepsTheStoreUsable()
{
    Machine &a = machine(u"a"_s);
    Machine &b = machine(u"b"_s);
    for (int month = 1; month <= 6; ++month)
        add(b, local(2024, month, 15, 9, 0), u"Month %1"_s.arg(month));
    RunResult result;
    run(b, result);
    QCOMPARE(result.status, int(BVSyncService::Succeeded));

    qputenv("XDG_CACHE_HOME", a.cacheHome.toLocal8Bit());
    {
        auto backend = std::make_unique<FakeSyncBackend>(m_remote);
        backend->setCallbacks(FakeSyncBackend::Callbacks::OtherThread);
        BVSyncService service(std::move(backend), std::nullopt);
        service.setMOC(*a.store);
        QSignalSpy progress(&service, &BVSyncService::syncServiceProgress);
        service.sync();
        QTRY_VERIFY_WITH_TIMEOUT(progress.count() >= 2, 10000);
    }
    run(a, result);
    QCOMPARE(result.status, int(BVSyncService::Succeeded));
    QCOMPARE(journal(a), journal(b));
}

void TestSyncService::backendFailureStopsTheRunAndTheNextCompletes_data()
{
    QTest::addColumn<FakeSyncBackend::Operation>("operation");
    QTest::addColumn<bool>("mergedBeforeFailure");

    QTest::newRow("initialize") << FakeSyncBackend::Operation::Initialize << false;
    QTest::newRow("fetch changes") << FakeSyncBackend::Operation::FetchChanges << false;
    QTest::newRow("download") << FakeSyncBackend::Operation::Download << false;
    QTest::newRow("upload") << FakeSyncBackend::Operation::Upload << true;
    QTest::newRow("delete") << FakeSyncBackend::Operation::Delete << true;
}

void TestSyncService::backendFailureStopsTheRunAndTheNextCompletes()
{
    QFETCH(FakeSyncBackend::Operation, operation);
    QFETCH(bool, mergedBeforeFailure);
    Machine &a = machine(u"a"_s);
    Machine &b = machine(u"b"_s);
    const QString jan = add(b, local(2024, 1, 15, 9, 0), u"Jan"_s);
    add(a, local(2024, 3, 15, 9, 0), u"Mar"_s);
    const QString apr = add(a, local(2024, 4, 15, 9, 0), u"Apr"_s);
    RunResult result;
    run(b, result);
    run(a, result);
    run(b, result);
    QCOMPARE(result.status, int(BVSyncService::Succeeded));

    // Machine b edits January; machine a deletes its only April activity. a's next run downloads
    // January, uploads the deletion file and deletes the April file.
    edit(b, jan, u"Jan edited"_s, local(2024, 5, 1, 9, 0));
    run(b, result);
    a.clock.set(local(2024, 5, 2, 9, 0));
    remove(a, apr);
    const QStringList before = journal(a);

    run(a, result, {}, operation);
    QCOMPARE(result.status, int(BVSyncService::Failed));
    QCOMPARE(result.error, u"Remote storage failed"_s);
    QCOMPARE(result.finished, 0);
    QCOMPARE(result.savepointSaved, mergedBeforeFailure);
    if (mergedBeforeFailure)
        QVERIFY(journal(a) != before);
    else
        QCOMPARE(journal(a), before);

    run(a, result);
    QCOMPARE(result.status, int(BVSyncService::Succeeded));
    QCOMPARE(remoteFiles(), (QStringList { u"2024-01.json"_s, u"2024-03.json"_s, u"deleted.json"_s }));
    run(b, result);
    QCOMPARE(result.status, int(BVSyncService::Succeeded));
    QCOMPARE(journal(a), journal(b));
    QCOMPARE(journal(a).size(), 2);
}

void TestSyncService::unreadableRemoteMonthFailsEveryRun()
{
    Machine &a = machine(u"a"_s);
    add(a, local(2024, 1, 15, 9, 0), u"Jan"_s);
    QFile broken(m_remote + u"/2024-05.json"_s);
    QVERIFY(broken.open(QIODevice::WriteOnly));
    broken.write("{\"uid\": 1}");
    broken.close();
    const QStringList before = journal(a);
    for (int attempt = 0; attempt < 2; ++attempt) {
        RunResult result;
        run(a, result);
        QCOMPARE(result.status, int(BVSyncService::Failed));
        QCOMPARE(result.error, u"Failed to load json file. (null)"_s);
        QVERIFY(result.log.contains(u"Failed to merge data from file: 2024-05"_s));
        QVERIFY(!result.calls.filter(u"upload"_s).size());
        QCOMPARE(journal(a), before);
    }
}

void TestSyncService::twoMachinesConverge_data()
{
    QTest::addColumn<FakeSyncBackend::Callbacks>("callbacks");
    QTest::newRow("completions on the calling thread") << FakeSyncBackend::Callbacks::Direct;
    QTest::newRow("completions on another thread") << FakeSyncBackend::Callbacks::OtherThread;
}

void TestSyncService::twoMachinesConverge()
{
    QFETCH(FakeSyncBackend::Callbacks, callbacks);
    Machine &a = machine(u"a"_s);
    Machine &b = machine(u"b"_s);
    const QString shared = add(a, local(2024, 1, 31, 23, 0), u"Late January"_s);
    const QString aOnly = add(a, local(2024, 2, 1, 0, 10), u"Early February"_s);
    add(b, local(2024, 2, 14, 9, 0), u"Valentine"_s);
    const QString bRunning = add(b, local(2024, 3, 1, 9, 0), u"Running on b"_s);
    RunResult result;
    run(a, result, {}, std::nullopt, {}, callbacks);
    run(b, result, {}, std::nullopt, bRunning, callbacks);
    QCOMPARE(result.status, int(BVSyncService::Succeeded));

    edit(b, shared, u"Late January, edited"_s, local(2024, 3, 2, 9, 0));
    a.clock.set(local(2024, 3, 2, 10, 0));
    remove(a, aOnly);
    add(a, local(2024, 2, 20, 9, 0), u"New on a"_s);
    for (Machine *m : { &a, &b, &a }) {
        run(*m, result, {}, std::nullopt, m == &b ? bRunning : QString(), callbacks);
        QCOMPARE(result.status, int(BVSyncService::Succeeded));
    }
    QStringList onB = journal(b);
    onB.erase(std::remove_if(onB.begin(), onB.end(), [&](const QString &line) { return line.startsWith(bRunning); }),
        onB.end());
    QCOMPARE(journal(a), onB);
    QCOMPARE(onB.size(), 3);
    QVERIFY(onB.filter(u"Late January, edited"_s).size() == 1);
    QVERIFY(onB.filter(aOnly).isEmpty());
}

void TestSyncService::monthThirteenIsMergedAndFiledUnderItsRealMonth()
{
    // A month number past December names the months that follow: 2024-13 is January 2025.
    QFile thirteen(m_remote + u"/2024-13.json"_s);
    QVERIFY(thirteen.open(QIODevice::WriteOnly));
    thirteen.write(R"([{"uid":"M13","time_from":"2025-01-07T09:00:00","time_to":"2025-01-07T10:00:00",)"
                   R"("created_at":"2025-01-07T09:00:00","modified_at":"2025-01-07T10:00:00","is_invoiced":0,)"
                   R"("text":"@Acme new year"}])");
    thirteen.close();
    Machine &a = machine(u"a"_s);
    RunResult result;
    run(a, result);
    QCOMPARE(result.status, int(BVSyncService::Succeeded));
    QCOMPARE(journal(a).size(), 1);
    QVERIFY(journal(a).constFirst().startsWith(u"M13|2025-01-07T08:00:00Z|"_s));
    QVERIFY(remoteText(u"2025-01.json"_s).contains(u"M13"_s));
}

QTEST_GUILESS_MAIN(TestSyncService)
#include "testsyncservice.moc"
