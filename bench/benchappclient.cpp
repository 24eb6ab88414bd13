// `brimvale status` against a running app: the command line's round trip over the session bus to the app's
// interface, with the app (its tracking controller over a store, its bus interface) serving on a thread of
// its own as it serves on its main thread. The benchmark runs itself under dbus-run-session, so the bus is
// private and goes away with it.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <unistd.h>

#include <QCoreApplication>
#include <QProcess>
#include <QSemaphore>
#include <QThread>

#include "app/inprocessapp.h"
#include "cli/appclient.h"

namespace {

const char *const OnPrivateBus = "BRIMVALE_BENCH_PRIVATE_BUS";

class AppThread : public QThread
{
public:
    QSemaphore ready;

protected:
    void run() override
    {
        InProcessApp app;
        app.service->registerOnSessionBus();
        app.service->StartTrack(QStringLiteral("@Acme #design mock-ups"));
        ready.release();
        exec();
    }
};

void runningApp()
{
    static AppThread *thread = [] {
        auto *t = new AppThread;
        t->start();
        t->ready.acquire();
        return t;
    }();
    Q_UNUSED(thread);
}

// One call as `brimvale status` makes it, on a connection of the command line's own.
void BM_AppClientStatus(benchmark::State &state)
{
    runningApp();
    AppClient client(QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("bench-client")));
    for (auto _ : state) {
        const auto status = client.status();
        if (!status || !status->tracking) {
            state.SkipWithError("the app did not answer");
            break;
        }
        benchmark::DoNotOptimize(status->startSecs);
    }
}
BENCHMARK(BM_AppClientStatus)->Unit(benchmark::kMillisecond);

// The whole `brimvale status` process, start to exit, as a status bar script waits for it.
void BM_StatusProcess(benchmark::State &state)
{
    runningApp();
    for (auto _ : state) {
        QProcess process;
        process.setStandardOutputFile(QProcess::nullDevice());
        process.start(QStringLiteral(BRIMVALE_EXECUTABLE), { QStringLiteral("status"), QStringLiteral("--json") });
        if (!process.waitForFinished(10000) || process.exitCode() != 0) {
            state.SkipWithError("brimvale status failed");
            break;
        }
    }
}
BENCHMARK(BM_StatusProcess)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    if (!std::getenv(OnPrivateBus)) {
        ::setenv(OnPrivateBus, "1", 1);
        std::vector<char *> arguments { const_cast<char *>("dbus-run-session"), const_cast<char *>("--") };
        arguments.insert(arguments.end(), argv, argv + argc);
        arguments.push_back(nullptr);
        ::execvp("dbus-run-session", arguments.data());
        return 1;
    }
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // The app's thread holds a store and timers; the process ends without tearing it down.
    std::_Exit(0);
}
