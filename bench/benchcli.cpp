// The brimvale executable as a whole process on a journal of 100,000 activities over ten years: what a
// status bar script or a terminal user waits for.
#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QProcess>

#include "model/store.h"
#include "support/benchmarkjournal.h"
#include "support/isolatedhome.h"

namespace {

// The child processes inherit this HOME through the environment.
IsolatedHome &filledHome()
{
    static IsolatedHome *home = [] {
        auto *h = new IsolatedHome;
        BenchmarkJournal::fill(*BenchmarkJournal::openStore(h->applicationFilesDirectory()));
        return h;
    }();
    return *home;
}

void runBrimvale(benchmark::State &state, const QStringList &arguments)
{
    filledHome();
    for (auto _ : state) {
        QProcess process;
        process.setStandardOutputFile(QProcess::nullDevice());
        process.start(QStringLiteral(BRIMVALE_EXECUTABLE), arguments);
        if (!process.waitForFinished(60000) || process.exitCode() != 0) {
            state.SkipWithError("brimvale failed");
            break;
        }
    }
}

void BM_ListWeek(benchmark::State &state)
{
    runBrimvale(state,
        { QStringLiteral("list"), QStringLiteral("--from"), QStringLiteral("2020-06-08"), QStringLiteral("--to"),
            QStringLiteral("2020-06-14") });
}
BENCHMARK(BM_ListWeek)->Unit(benchmark::kMillisecond);

void BM_ListAll(benchmark::State &state)
{
    runBrimvale(state, { QStringLiteral("list") });
}
BENCHMARK(BM_ListAll)->Unit(benchmark::kMillisecond);

void BM_ListAllJson(benchmark::State &state)
{
    runBrimvale(state, { QStringLiteral("list"), QStringLiteral("--json") });
}
BENCHMARK(BM_ListAllJson)->Unit(benchmark::kMillisecond);

void BM_Add(benchmark::State &state)
{
    runBrimvale(state,
        { QStringLiteral("add"), QStringLiteral("@Project07 #task12 added from the shell"), QStringLiteral("--from"),
            QStringLiteral("2026-01-05T09:00"), QStringLiteral("--to"), QStringLiteral("2026-01-05T09:45") });
}
BENCHMARK(BM_Add)->Unit(benchmark::kMillisecond);

void BM_Help(benchmark::State &state)
{
    runBrimvale(state, { QStringLiteral("--help") });
}
BENCHMARK(BM_Help)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
