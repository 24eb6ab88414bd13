// The report's chart over ten years of heavy use: 100,000 activities, 50 projects. The chart is rebuilt
// on every re-query of the report, so building it from the listed records must stay well inside the
// 50 ms a keystroke in the search field may take.
#include <benchmark/benchmark.h>

#include "model/store.h"
#include "model/storecontext.h"
#include "report/reportchartdata.h"
#include "support/benchmarkjournal.h"
#include "support/isolatedhome.h"

namespace {

// The whole journal as the report lists it: newest first, with project names.
const std::vector<ActivityRecord> &listed()
{
    static const std::vector<ActivityRecord> s_records = [] {
        IsolatedHome home;
        auto store = BenchmarkJournal::openStore(home.applicationFilesDirectory());
        BenchmarkJournal::fill(*store);
        ActivityQuery query;
        query.order = ActivityQuery::Order::TimeFromDescending;
        auto records = store->newContext()->fetchActivityRecords(query, false);
        if (!records)
            qFatal("%s", qPrintable(records.error().message()));
        return std::move(*records);
    }();
    return s_records;
}

// Range 0: "all", no bounds (ten years, yearly bars). Range 1: the same records clipped to one year
// (weekly bars), the clipping path for every record.
void BM_ReportChartData(benchmark::State &state)
{
    const auto &records = listed();
    std::optional<QDateTime> from;
    std::optional<QDateTime> to;
    if (state.range(0) == 1) {
        from = QDateTime(QDate(2020, 1, 1), QTime(0, 0));
        to = QDateTime(QDate(2021, 1, 1), QTime(0, 0));
    }
    qint64 bars = 0;
    for (auto _ : state) {
        const ReportChartData data(records, from, to);
        bars = qint64(data.buckets().size());
        benchmark::DoNotOptimize(data.totalSeconds());
    }
    state.counters["records"] = double(records.size());
    state.counters["bars"] = double(bars);
    state.SetItemsProcessed(state.iterations() * qint64(records.size()));
}
BENCHMARK(BM_ReportChartData)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace
