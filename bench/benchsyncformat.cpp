// The sync files at the size of ten years of heavy use: 100,000 activities in 120 month files.
#include <benchmark/benchmark.h>

#include <QDir>
#include <QTimeZone>

#include "model/store.h"
#include "model/storecontext.h"
#include "support/benchmarkjournal.h"
#include "support/isolatedhome.h"
#include "sync/bvmonthdaterange.h"
#include "sync/bvmonthfile.h"
#include "sync/bvtmpsyncfile.h"

namespace {

constexpr int kActivities = BenchmarkJournal::Activities;
const JournalGenerator &kJournal = BenchmarkJournal::generator();

std::unique_ptr<Store> openStore(const QString &folder)
{
    return BenchmarkJournal::openStore(folder);
}

// The journal's sync zone: the zone the benchmark runs in.
const QTimeZone kZone = QTimeZone::systemTimeZone();

QList<BVMonthDateRange> allMonths()
{
    QList<BVMonthDateRange> months;
    for (uint year = 2015; year <= 2024; ++year) {
        for (uint month = 1; month <= 12; ++month)
            months.append(BVMonthDateRange(year, month, kZone));
    }
    return months;
}

struct Journal
{
    IsolatedHome home;
    std::unique_ptr<Store> store;
    QString files;
};

// One filled store and its 120 month files, shared by the benchmarks.
Journal &journal()
{
    static Journal *shared = [] {
        auto *j = new Journal;
        j->store = openStore(j->home.applicationFilesDirectory());
        auto context = j->store->newContext();
        kJournal.insertInto(*context);
        if (!context->save())
            qFatal("could not fill the store");
        j->files = j->home.root() + QStringLiteral("/files");
        QDir().mkpath(j->files);
        for (const BVMonthDateRange &month : allMonths()) {
            auto activities = BVMonthFile::activitiesForMonth(*context, month, QString());
            if (!activities
                || !BVMonthFile::write(
                    *activities, j->files + QLatin1Char('/') + month.name() + QStringLiteral(".json"), kZone))
                qFatal("could not write the month files");
        }
        return j;
    }();
    return *shared;
}

void BM_WriteAllMonths(benchmark::State &state)
{
    Journal &j = journal();
    const QString folder = j.home.root() + QStringLiteral("/written");
    QDir().mkpath(folder);
    qsizetype written = 0;
    for (auto _ : state) {
        auto context = j.store->newContext();
        written = 0;
        for (const BVMonthDateRange &month : allMonths()) {
            auto activities = BVMonthFile::activitiesForMonth(*context, month, QString());
            if (!activities) {
                state.SkipWithError("fetch failed");
                return;
            }
            benchmark::DoNotOptimize(BVMonthFile::hashForActivities(*activities, kZone));
            if (!BVMonthFile::write(
                    *activities, folder + QLatin1Char('/') + month.name() + QStringLiteral(".json"), kZone)) {
                state.SkipWithError("write failed");
                return;
            }
            written += activities->size();
        }
    }
    state.counters["activities"] = double(written);
}
BENCHMARK(BM_WriteAllMonths)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_MergeAllMonthsIntoEmptyStore(benchmark::State &state)
{
    Journal &j = journal();
    for (auto _ : state) {
        state.PauseTiming();
        IsolatedHome home;
        auto store = openStore(home.applicationFilesDirectory());
        auto context = store->newContext();
        state.ResumeTiming();

        for (const BVMonthDateRange &month : allMonths()) {
            BVTmpSyncFile file(month.year(), month.month(), 1, QStringLiteral("rev"));
            auto merged = BVMonthFile::merge(*context, j.files + QLatin1Char('/') + file.fileName(), file, kZone);
            if (!merged) {
                state.SkipWithError(qPrintable(merged.error().description()));
                return;
            }
        }

        state.PauseTiming();
        if (*context->countActivities() != kActivities)
            state.SkipWithError("not every activity arrived");
        context.reset();
        store.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kActivities);
}
BENCHMARK(BM_MergeAllMonthsIntoEmptyStore)->Unit(benchmark::kMillisecond)->Iterations(2);

void BM_HashMonth(benchmark::State &state)
{
    Journal &j = journal();
    auto context = j.store->newContext();
    auto activities = BVMonthFile::activitiesForMonth(*context, BVMonthDateRange(2020, 6, kZone), QString());
    for (auto _ : state)
        benchmark::DoNotOptimize(BVMonthFile::hashForActivities(*activities, kZone));
    state.counters["activities"] = double(activities->size());
}
BENCHMARK(BM_HashMonth)->Unit(benchmark::kMicrosecond);

void BM_FetchAndHashMonth(benchmark::State &state)
{
    Journal &j = journal();
    for (auto _ : state) {
        auto context = j.store->newContext();
        auto activities = BVMonthFile::activitiesForMonth(*context, BVMonthDateRange(2020, 6, kZone), QString());
        benchmark::DoNotOptimize(BVMonthFile::hashForActivities(*activities, kZone));
    }
}
BENCHMARK(BM_FetchAndHashMonth)->Unit(benchmark::kMillisecond);

} // namespace
