// Whole sync runs through the real Dropbox agent and the local Dropbox server, at the size of ten years of
// heavy use: 100,000 activities, 120 month files. Needs a session bus; without one the benchmark runs
// itself again inside dbus-run-session.
#include <benchmark/benchmark.h>

#include <csignal>
#include <unistd.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QThread>

#include "base/clock.h"
#include "fakes/fakedropbox.h"
#include "fakes/fakekeychain.h"
#include "model/store.h"
#include "platform/dropboxagentclient.h"
#include "settings/userdefaults.h"
#include "support/benchmarkjournal.h"
#include "support/isolatedhome.h"
#include "sync/bvdropboxsettings.h"
#include "sync/bvdropboxsyncbackend.h"
#include "sync/bvsyncservice.h"

namespace {

IsolatedHome &home()
{
    static IsolatedHome *shared = new IsolatedHome;
    return *shared;
}

int counter = 0;

QString templateStore()
{
    static const QString path = [] {
        const QString folder = home().root() + QStringLiteral("/template");
        std::unique_ptr<Store> store = BenchmarkJournal::openStore(folder);
        BenchmarkJournal::fill(*store);
        return folder;
    }();
    return path;
}

// A machine with the filled journal, its settings, keyring and cache folder.
struct Machine
{
    explicit Machine(bool filled)
    {
        root = home().root() + QStringLiteral("/machine-%1").arg(++counter);
        if (filled) {
            QDir().mkpath(root + QStringLiteral("/data/db"));
            if (!QFile::copy(
                    templateStore() + QStringLiteral("/db/storedata"), root + QStringLiteral("/data/db/storedata")))
                qFatal("could not copy the journal");
        }
        store = BenchmarkJournal::openStore(root + QStringLiteral("/data"));
        defaults = std::make_unique<UserDefaults>(root + QStringLiteral("/Brimvale.conf"));
        settings = std::make_unique<BVDropboxSettings>(*defaults);
        keychain.set(QStringLiteral("oauth2_token"), QStringLiteral("bench-token"));
    }

    QString root;
    std::unique_ptr<Store> store;
    std::unique_ptr<UserDefaults> defaults;
    std::unique_ptr<BVDropboxSettings> settings;
    FakeKeychain keychain;
};

// A server and a fresh agent pointing at it.
struct Remote
{
    Remote()
        : fake({ QStringLiteral("bench-token") })
    {
        if (!fake.start())
            qFatal("the local Dropbox server did not start: %s", qPrintable(fake.errorString()));
        const QProcessEnvironment environment = fake.agentEnvironment(QProcessEnvironment());
        for (const QString &key : environment.keys())
            qputenv(key.toLocal8Bit(), environment.value(key).toLocal8Bit());
        stopAgent();
        agent = std::make_unique<DropboxAgentClient>(
            QDBusConnection::sessionBus(), QStringList { QStringLiteral(BRIMVALE_AGENT) });
    }
    ~Remote() { stopAgent(); }

    static uint agentPid()
    {
        return QDBusConnection::sessionBus()
            .interface()
            ->servicePid(QString::fromLatin1(DropboxAgentClient::ServiceName))
            .value();
    }
    static void stopAgent()
    {
        if (const uint pid = agentPid()) {
            ::kill(pid_t(pid), SIGTERM);
            while (agentPid())
                QThread::msleep(10);
        }
    }
    // The agent's resident memory in MB.
    static double agentRssMb()
    {
        QFile status(QStringLiteral("/proc/%1/status").arg(agentPid()));
        if (!status.open(QIODevice::ReadOnly))
            return -1;
        for (const QByteArray &line : status.readAll().split('\n'))
            if (line.startsWith("VmRSS:"))
                return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
        return -1;
    }

    FakeDropbox fake;
    std::unique_ptr<DropboxAgentClient> agent;
};

double sync(Machine &m, Remote &remote)
{
    qputenv("XDG_CACHE_HOME", (m.root + QStringLiteral("/cache")).toLocal8Bit());
    QElapsedTimer timer;
    timer.start();
    BVSyncService service(std::make_unique<BVDropboxSyncBackend>(
                              BVDropboxServices { remote.agent.get(), &m.keychain, m.settings.get(), Clock::system() }),
        std::nullopt);
    service.setMOC(*m.store);
    QEventLoop loop;
    QObject::connect(&service, &BVSyncService::syncServiceFinish, &loop, [&] { loop.quit(); });
    QObject::connect(&service, &BVSyncService::syncServiceError, &loop,
        [&](const QString &details) { qFatal("sync failed: %s", qPrintable(details)); });
    service.sync();
    loop.exec();
    return double(timer.nsecsElapsed()) / 1e9;
}

void BM_DropboxFirstSync(benchmark::State &state)
{
    for (auto _ : state) {
        Remote remote;
        Machine m(true);
        // The agent's start is part of a first run, as it is for a user.
        state.SetIterationTime(sync(m, remote));
        state.counters["files"] = double(remote.fake.files().size());
        state.counters["agent_rss_mb"] = Remote::agentRssMb();
    }
}
BENCHMARK(BM_DropboxFirstSync)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(2);

void BM_DropboxNothingChanged(benchmark::State &state)
{
    Remote remote;
    Machine m(true);
    sync(m, remote);
    double requests = 0;
    for (auto _ : state) {
        remote.fake.clearRequests();
        state.SetIterationTime(sync(m, remote));
        requests += double(remote.fake.requests().size());
    }
    state.counters["http_requests_per_run"] = benchmark::Counter(requests, benchmark::Counter::kAvgIterations);
    state.counters["agent_rss_mb"] = Remote::agentRssMb();
}
BENCHMARK(BM_DropboxNothingChanged)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(10);

void BM_DropboxNewMachineMergesEveryMonth(benchmark::State &state)
{
    Remote remote;
    Machine first(true);
    sync(first, remote);
    for (auto _ : state) {
        Machine m(false);
        state.SetIterationTime(sync(m, remote));
    }
    state.counters["agent_rss_mb"] = Remote::agentRssMb();
}
BENCHMARK(BM_DropboxNewMachineMergesEveryMonth)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(2);

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS") && qEnvironmentVariableIsEmpty("BRIMVALE_BENCH_BUS")) {
        qputenv("BRIMVALE_BENCH_BUS", "1");
        std::vector<char *> arguments { const_cast<char *>("dbus-run-session"), const_cast<char *>("--") };
        arguments.insert(arguments.end(), argv, argv + argc);
        arguments.push_back(nullptr);
        ::execvp("dbus-run-session", arguments.data());
        qFatal("dbus-run-session could not be started");
    }
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("brimvale.*=false"));
    home();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
