// Whole sync runs through a folder at the size of ten years of heavy use: 100,000 activities, 120 month
// files. Each run is the real thing: service, store, cache folder and folder backend.
#include <benchmark/benchmark.h>

#include <sys/stat.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QThread>

#include "model/activity.h"
#include "model/activityquery.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/benchmarkjournal.h"
#include "support/isolatedhome.h"
#include "sync/bvfoldersyncbackend.h"
#include "sync/bvsyncservice.h"

namespace {

// A machine: its store and its cache folder.
struct Machine
{
    QString root;
    std::unique_ptr<Store> store;
};

IsolatedHome &home()
{
    static IsolatedHome *shared = new IsolatedHome;
    return *shared;
}

int counter = 0;

QString freshFolder(const QString &name)
{
    const QString path = home().root() + QStringLiteral("/%1-%2").arg(name).arg(++counter);
    QDir().mkpath(path);
    return path;
}

// The filled journal, made once and copied for every machine that needs it: filling takes longer than
// any run measured here.
QString templateStore()
{
    static const QString path = [] {
        const QString folder = home().root() + QStringLiteral("/template");
        {
            std::unique_ptr<Store> store = BenchmarkJournal::openStore(folder);
            BenchmarkJournal::fill(*store);
        }
        return folder;
    }();
    return path;
}

Machine machine(bool filled)
{
    Machine m;
    m.root = freshFolder(QStringLiteral("machine"));
    if (filled) {
        QDir().mkpath(m.root + QStringLiteral("/data/db"));
        if (!QFile::copy(templateStore() + QStringLiteral("/db/storedata"), m.root + QStringLiteral("/data/db/storedata")))
            qFatal("could not copy the journal");
    }
    m.store = BenchmarkJournal::openStore(m.root + QStringLiteral("/data"));
    return m;
}

// One run; the seconds it took.
double sync(Machine &m, const QString &folder)
{
    qputenv("XDG_CACHE_HOME", (m.root + QStringLiteral("/cache")).toLocal8Bit());
    QElapsedTimer timer;
    timer.start();
    BVSyncService service(std::make_unique<BVFolderSyncBackend>(folder), std::nullopt);
    service.setMOC(*m.store);
    QEventLoop loop;
    QObject::connect(&service, &BVSyncService::syncServiceFinish, &loop, [&] { loop.quit(); });
    QObject::connect(&service, &BVSyncService::syncServiceError, &loop, [&](const QString &details) {
        qFatal("sync failed: %s", qPrintable(details));
    });
    service.sync();
    loop.exec();
    return double(timer.nsecsElapsed()) / 1e9;
}

// Runs are minutes apart in use; a file younger than the file system's time step is hashed again on
// every look (see BVFolderRevisions), which a run right after the last would measure instead of the run.
void settle()
{
    QThread::msleep(2100);
}

// File name → inode, to count what a run rewrote: every write puts a new file in place.
QHash<QString, qint64> stamps(const QString &folder)
{
    QHash<QString, qint64> result;
    for (const QString &name : QDir(folder).entryList(QDir::Files)) {
        struct stat info {};
        if (::stat(QFile::encodeName(folder + QLatin1Char('/') + name).constData(), &info) == 0)
            result.insert(name, qint64(info.st_ino));
    }
    return result;
}

void BM_FirstSyncIntoEmptyFolder(benchmark::State &state)
{
    for (auto _ : state) {
        Machine m = machine(true);
        const QString folder = freshFolder(QStringLiteral("sync"));
        state.SetIterationTime(sync(m, folder));
        state.counters["files"] = double(QDir(folder).entryList(QDir::Files).size());
    }
}
BENCHMARK(BM_FirstSyncIntoEmptyFolder)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(2);

void BM_SecondRunNothingChanged(benchmark::State &state)
{
    Machine m = machine(true);
    const QString folder = freshFolder(QStringLiteral("sync"));
    sync(m, folder);
    settle();
    int written = 0;
    for (auto _ : state) {
        const QHash<QString, qint64> before = stamps(folder);
        state.SetIterationTime(sync(m, folder));
        written += stamps(folder) != before ? 1 : 0;
    }
    state.counters["runs_that_wrote"] = written;
}
BENCHMARK(BM_SecondRunNothingChanged)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(20);

void BM_RunAfterOneEdit(benchmark::State &state)
{
    Machine m = machine(true);
    const QString folder = freshFolder(QStringLiteral("sync"));
    sync(m, folder);
    settle();
    int rewritten = 0;
    int step = 0;
    for (auto _ : state) {
        {
            // One activity of a different month each time.
            auto context = m.store->newContext();
            ActivityQuery query;
            query.startsFrom = QDateTime(QDate(2016 + step % 8, 1 + step % 12, 10), QTime(0, 0));
            query.limit = 1;
            auto found = context->fetchActivities(query);
            if (!found || found->isEmpty())
                qFatal("no activity to edit");
            found->constFirst()->setText(found->constFirst()->text() + QStringLiteral(" (edited)"));
            found->constFirst()->setModifiedAt(context->now().addSecs(++step));
            if (!context->save())
                qFatal("could not save the edit");
        }
        const QHash<QString, qint64> before = stamps(folder);
        state.SetIterationTime(sync(m, folder));
        const QHash<QString, qint64> after = stamps(folder);
        for (auto it = after.cbegin(); it != after.cend(); ++it)
            rewritten += before.value(it.key()) != it.value() ? 1 : 0;
    }
    state.counters["files_rewritten_per_run"] = benchmark::Counter(rewritten, benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_RunAfterOneEdit)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(5);

void BM_NewMachineMergesEveryMonth(benchmark::State &state)
{
    Machine first = machine(true);
    const QString folder = freshFolder(QStringLiteral("sync"));
    sync(first, folder);
    for (auto _ : state) {
        Machine m = machine(false);
        state.SetIterationTime(sync(m, folder));
    }
}
BENCHMARK(BM_NewMachineMergesEveryMonth)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(2);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("brimvale.*=false"));
    home();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
