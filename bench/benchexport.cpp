// Export and import at the size of ten years of heavy use: 100,000 activities, 50 projects, 300 tasks.
// Targets: CSV export 0.5 s, XML export 1 s, XML import (both stages) 4 s, 150 MB peak memory of an export.
#include <benchmark/benchmark.h>

#include <QElapsedTimer>
#include <QFileInfo>

#include <sys/resource.h>

#include "export/activityexport.h"
#include "export/activityimport.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/benchmarkjournal.h"
#include "support/isolatedhome.h"

namespace {

constexpr int kActivities = BenchmarkJournal::Activities;

double maxRssMiB()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0;
}

std::unique_ptr<Store> openStore(const QString &folder)
{
    return BenchmarkJournal::openStore(folder);
}

// The journal, its settings (default layouts) and the activities as the report hands them to export.
struct Journal
{
    IsolatedHome home;
    std::unique_ptr<Store> store;
    std::unique_ptr<StoreContext> context;
    std::unique_ptr<UserDefaults> defaults;
    std::unique_ptr<BvSettings> settings;
    QList<ActivityPtr> activities;
    QString xmlFile;

    Journal()
    {
        store = openStore(home.applicationFilesDirectory());
        context = store->newContext();
        BenchmarkJournal::generator().insertInto(*context);
        if (!context->save())
            qFatal("could not fill the store");
        ActivityQuery query;
        query.order = ActivityQuery::Order::TimeFromAscending;
        activities = *context->fetchActivities(query);
        defaults = std::make_unique<UserDefaults>(home.configHome() + QStringLiteral("/Brimvale/Brimvale.conf"));
        settings = std::make_unique<BvSettings>(defaults.get());
        xmlFile = home.root() + QStringLiteral("/journal.xml");
        if (!ActivityExport::exportActivities(activities, xmlFile, ActivityExport::XMLFormat, settings->view()).isNull())
            qFatal("could not write the XML file");
    }
};

Journal &journal()
{
    static Journal s_journal;
    return s_journal;
}

void exportBenchmark(benchmark::State &state, int format, const QString &name)
{
    Journal &data = journal();
    const QString path = data.home.root() + name;
    const double rssBefore = maxRssMiB();
    for (auto _ : state) {
        const QString failure = ActivityExport::exportActivities(data.activities, path, format, data.settings->view());
        if (!failure.isNull())
            state.SkipWithError(qPrintable(failure));
    }
    state.counters["file_MB"] = double(QFileInfo(path).size()) / (1024.0 * 1024.0);
    state.counters["max_rss_MB"] = maxRssMiB();
    state.counters["rss_growth_MB"] = maxRssMiB() - rssBefore;
    state.SetItemsProcessed(state.iterations() * kActivities);
}

void BM_ExportCSV(benchmark::State &state)
{
    exportBenchmark(state, ActivityExport::CSVFormat, QStringLiteral("/journal.csv"));
}
BENCHMARK(BM_ExportCSV)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_ExportXML(benchmark::State &state)
{
    exportBenchmark(state, ActivityExport::XMLFormat, QStringLiteral("/export.xml"));
}
BENCHMARK(BM_ExportXML)->Unit(benchmark::kMillisecond)->Iterations(5);

// Both stages: the file into the temporary store, then everything into an empty real store.
void BM_ImportXML(benchmark::State &state)
{
    Journal &data = journal();
    qsizetype readCount = 0;
    qint64 imported = 0;
    qint64 stage1Ms = 0;
    qint64 stage2Ms = 0;
    for (auto _ : state) {
        state.PauseTiming();
        IsolatedHome target;
        auto store = openStore(target.applicationFilesDirectory());
        state.ResumeTiming();

        QElapsedTimer timer;
        timer.start();
        ActivityImport import;
        auto read = import.importActivitiesFromURL(data.xmlFile);
        stage1Ms += timer.restart();
        if (!read) {
            state.SkipWithError(qPrintable(read.error().message()));
            break;
        }
        const ActivityImportResult result = ActivityImport::importActivities(*read, *store);
        stage2Ms += timer.elapsed();
        if (result.isError())
            state.SkipWithError(qPrintable(result.error->message()));
        readCount = read->size();
        imported = result.count;

        state.PauseTiming();
        store.reset();
        state.ResumeTiming();
    }
    state.counters["stage1_ms"] = benchmark::Counter(double(stage1Ms), benchmark::Counter::kAvgIterations);
    state.counters["stage2_ms"] = benchmark::Counter(double(stage2Ms), benchmark::Counter::kAvgIterations);
    state.counters["read"] = double(readCount);
    state.counters["imported"] = double(imported);
    state.counters["max_rss_MB"] = maxRssMiB();
    state.SetItemsProcessed(state.iterations() * kActivities);
}
BENCHMARK(BM_ImportXML)->Unit(benchmark::kMillisecond)->Iterations(2);

} // namespace
