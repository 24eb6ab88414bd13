// The brimvale executable as a whole process on a journal of 100,000 activities over ten years: what a
// status bar script or a terminal user waits for. Where Timewarrior is installed, `timew export` of the
// same intervals runs beside `brimvale export` for comparison.
#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

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

void runProcess(benchmark::State &state, const QString &program, const QStringList &arguments,
    const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment())
{
    for (auto _ : state) {
        QProcess process;
        process.setProcessEnvironment(environment);
        process.setStandardOutputFile(QProcess::nullDevice());
        process.start(program, arguments);
        if (!process.waitForFinished(60000) || process.exitCode() != 0) {
            state.SkipWithError("the process failed");
            break;
        }
    }
}

void runBrimvale(benchmark::State &state, const QStringList &arguments)
{
    filledHome();
    runProcess(state, QStringLiteral(BRIMVALE_EXECUTABLE), arguments);
}

// The benchmark journal as a Timewarrior database: one file of intervals per month, the words of each
// text as its tags.
QString timewarriorDatabase()
{
    static const QString path = [] {
        const QString root = filledHome().root() + QStringLiteral("/timewarrior");
        QDir().mkpath(root + QStringLiteral("/data"));
        QFile(root + QStringLiteral("/timewarrior.cfg")).open(QIODevice::WriteOnly);
        const JournalGenerator &journal = BenchmarkJournal::generator();
        QFile month;
        for (int i = 0; i < journal.count(); ++i) {
            const QDateTime from = journal.timeFrom(i).toUTC();
            const QString name = root + from.toString(QStringLiteral("'/data/'yyyy-MM'.data'"));
            if (month.fileName() != name) {
                month.close();
                month.setFileName(name);
                if (!month.open(QIODevice::WriteOnly | QIODevice::Append))
                    qFatal("cannot write %s", qPrintable(name));
            }
            QString line = QStringLiteral("inc ") + from.toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"))
                + QStringLiteral(" - ") + journal.timeTo(i).toUTC().toString(QStringLiteral("yyyyMMdd'T'HHmmss'Z'"))
                + QStringLiteral(" #");
            for (const QString &word : journal.text(i).split(QLatin1Char(' ')))
                line += QStringLiteral(" \"") + word + QLatin1Char('"');
            month.write(line.toUtf8() + '\n');
        }
        return root;
    }();
    return path;
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

void BM_ExportCsv(benchmark::State &state)
{
    runBrimvale(state, { QStringLiteral("export"), QStringLiteral("--format"), QStringLiteral("csv") });
}
BENCHMARK(BM_ExportCsv)->Unit(benchmark::kMillisecond);

void BM_TimewExport(benchmark::State &state)
{
    const QString timew = QStandardPaths::findExecutable(QStringLiteral("timew"));
    if (timew.isEmpty()) {
        state.SkipWithError("timew is not installed (Debian package timewarrior)");
        return;
    }
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TIMEWARRIORDB"), timewarriorDatabase());
    // The first run builds Timewarrior's tag index; it is not part of an export.
    QProcess warmUp;
    warmUp.setProcessEnvironment(environment);
    warmUp.start(timew, { QStringLiteral("export") });
    warmUp.waitForFinished(120000);
    runProcess(state, timew, { QStringLiteral("export") }, environment);
}
BENCHMARK(BM_TimewExport)->Unit(benchmark::kMillisecond);

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
