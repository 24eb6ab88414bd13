// The journal store at the size of ten years of heavy use: 100,000 activities, 50 projects, 300 tasks.
#include <benchmark/benchmark.h>

#include <QFileInfo>
#include <QSqlQuery>

#include "model/store.h"
#include "model/storecontext.h"
#include "support/benchmarkjournal.h"
#include "support/isolatedhome.h"

namespace {

constexpr int kActivities = BenchmarkJournal::Activities;

std::unique_ptr<Store> openStore(const IsolatedHome &home)
{
    return BenchmarkJournal::openStore(home.applicationFilesDirectory());
}

// One filled store shared by the read benchmarks.
Store &filledStore()
{
    static IsolatedHome home;
    static std::unique_ptr<Store> store = [] {
        auto opened = openStore(home);
        BenchmarkJournal::fill(*opened);
        return opened;
    }();
    return *store;
}

void BM_BulkInsert(benchmark::State &state)
{
    for (auto _ : state) {
        state.PauseTiming();
        IsolatedHome home;
        auto store = openStore(home);
        state.ResumeTiming();

        auto context = store->newContext();
        BenchmarkJournal::generator().insertInto(*context);
        if (!context->save())
            state.SkipWithError("save failed");

        state.PauseTiming();
        QSqlQuery(*store->database()).exec(QStringLiteral("PRAGMA wal_checkpoint(TRUNCATE)"));
        const qint64 bytes
            = QFileInfo(store->storePath()).size() + QFileInfo(store->storePath() + QStringLiteral("-wal")).size();
        state.counters["store_MB"] = double(bytes) / (1024.0 * 1024.0);
        context.reset();
        store.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kActivities);
}
BENCHMARK(BM_BulkInsert)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_FetchWeek(benchmark::State &state)
{
    Store &store = filledStore();
    ActivityQuery week;
    week.overlapsFrom = QDateTime(QDate(2020, 6, 8), QTime(0, 0));
    week.overlapsUntil = QDateTime(QDate(2020, 6, 15), QTime(0, 0));
    week.order = ActivityQuery::Order::TimeFromDescending;
    qsizetype found = 0;
    for (auto _ : state) {
        auto context = store.newContext();
        auto activities = context->fetchActivities(week);
        found = activities->size();
        qint64 withTasks = 0;
        for (const ActivityPtr &activity : *activities)
            withTasks += activity->tasks().size() + (activity->project() ? 1 : 0);
        benchmark::DoNotOptimize(withTasks);
    }
    state.counters["activities"] = double(found);
}
BENCHMARK(BM_FetchWeek)->Unit(benchmark::kMicrosecond);

void BM_FetchAllAndSumDurations(benchmark::State &state)
{
    Store &store = filledStore();
    for (auto _ : state) {
        auto context = store.newContext();
        auto activities = context->fetchActivities();
        qint64 total = 0;
        for (const ActivityPtr &activity : *activities)
            total += activity->durationSecs();
        benchmark::DoNotOptimize(total);
        if (activities->size() != kActivities)
            state.SkipWithError("wrong count");
        // Freeing 100,000 objects happens once the list is no longer shown, not while the user waits.
        state.PauseTiming();
        activities->clear();
        context.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_FetchAllAndSumDurations)->Unit(benchmark::kMillisecond);

} // namespace
