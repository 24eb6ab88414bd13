// The report sidebar over the journal of ten years: 100,000 activities, 50 projects, 300 tasks. A rebuild
// (one statement per group) runs whenever the range, the mode or a project or task changes, and the same
// reading decides whether an activity's change altered the lists.
#include <benchmark/benchmark.h>

#include "model/store.h"
#include "report/reportsidebaritemsmanager.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/benchmarkjournal.h"
#include "support/isolatedhome.h"

namespace {

struct Journal
{
    Journal()
    {
        store = BenchmarkJournal::openStore(home.applicationFilesDirectory());
        BenchmarkJournal::fill(*store);
        defaults = std::make_unique<UserDefaults>(home.configHome() + QStringLiteral("/Brimvale/Brimvale.conf"));
        settings = std::make_unique<BvSettings>(defaults.get());
    }

    IsolatedHome home;
    std::unique_ptr<Store> store;
    std::unique_ptr<UserDefaults> defaults;
    std::unique_ptr<BvSettings> settings;
};

Journal &journal()
{
    static Journal shared;
    return shared;
}

enum Mode { Normal, EditMode, DatedWeek, DatedMonth, DatedYear };

void BM_SidebarRebuild(benchmark::State &state)
{
    Journal &shared = journal();
    ReportSidebarItemsManager manager(*shared.store, *shared.settings);
    const QDateTime from(QDate(2020, 6, 8), QTime(0, 0));
    switch (state.range(0)) {
    case EditMode:
        manager.toggleEditMode();
        break;
    case DatedWeek:
        manager.filterItemsByDateFrom(from, from.addDays(7));
        break;
    case DatedMonth:
        manager.filterItemsByDateFrom(from, from.addMonths(1));
        break;
    case DatedYear:
        manager.filterItemsByDateFrom(from, from.addYears(1));
        break;
    default:
        break;
    }
    for (auto _ : state) {
        manager.reloadData();
        benchmark::DoNotOptimize(manager.tasks().size());
    }
    state.counters["projects"] = double(manager.projects().size());
    state.counters["tasks"] = double(manager.tasks().size());
}
BENCHMARK(BM_SidebarRebuild)
    ->ArgName("mode")
    ->Arg(Normal)
    ->Arg(EditMode)
    ->Arg(DatedWeek)
    ->Arg(DatedMonth)
    ->Arg(DatedYear)
    ->Unit(benchmark::kMillisecond);

} // namespace
