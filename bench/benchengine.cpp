// The tracking engine on a journal of 100,000 activities: starting and stopping the running activity,
// and the recent-activities list that menus read.
#include <benchmark/benchmark.h>


#include "model/activitymanager.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/benchmarkjournal.h"
#include "support/isolatedhome.h"

namespace {

struct Journal
{
    IsolatedHome home;
    std::unique_ptr<Store> store;
    std::unique_ptr<ActivityManager> manager;
};

Journal &journal()
{
    static Journal *filled = [] {
        auto *j = new Journal;
        j->store = BenchmarkJournal::openStore(j->home.applicationFilesDirectory());
        BenchmarkJournal::fill(*j->store);
        j->manager = std::make_unique<ActivityManager>(*j->store);
        return j;
    }();
    return *filled;
}

void BM_StartTrack(benchmark::State &state)
{
    ActivityManager &manager = *journal().manager;
    for (auto _ : state) {
        if (!manager.startTrack(QStringLiteral("@Project07 #task12 #task99 benchmarking")).isNull())
            state.SkipWithError("start failed");
        state.PauseTiming();
        manager.stopTrack();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_StartTrack)->Unit(benchmark::kMillisecond);

void BM_StopTrack(benchmark::State &state)
{
    ActivityManager &manager = *journal().manager;
    for (auto _ : state) {
        state.PauseTiming();
        manager.startTrack(QStringLiteral("@Project07 #task12 benchmarking"));
        state.ResumeTiming();
        manager.stopTrack();
    }
}
BENCHMARK(BM_StopTrack)->Unit(benchmark::kMillisecond);

void BM_RecentActivities(benchmark::State &state)
{
    ActivityManager &manager = *journal().manager;
    for (auto _ : state) {
        const QList<RecentActivityItem> items = manager.recentActivities();
        if (items.size() != 10)
            state.SkipWithError("expected ten recent items");
        benchmark::DoNotOptimize(items.data());
    }
}
BENCHMARK(BM_RecentActivities)->Unit(benchmark::kMicrosecond);

} // namespace
