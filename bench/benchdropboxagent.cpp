// The Dropbox agent as a process against the local Dropbox server, on a private session bus: what a sync
// run with nothing changed costs in HTTP requests and time, and what the agent's memory holds after the
// first sync of a decade of heavy use (120 month files of about 830 activities each).
#include <benchmark/benchmark.h>

#include <memory>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QThread>

#include "fakes/fakedropbox.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int monthFiles = 120;
constexpr int activitiesPerMonth = 834;

// A bus of its own, the server with a decade of month files, and the agent: made once, kept for every run.
struct World
{
    QProcess bus;
    FakeDropbox fake;
    QProcess agent;
    QDBusConnection connection { u"bench"_s };
    QString cursor;
};

World *makeWorld()
{
    auto *world = new World;
    world->bus.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    world->bus.start(u"dbus-daemon"_s, { u"--session"_s, u"--nofork"_s, u"--print-address=1"_s });
    if (!world->bus.waitForReadyRead(10000) || !world->fake.start())
        return nullptr;
    const QString address = QString::fromUtf8(world->bus.readLine()).trimmed();
    world->connection = QDBusConnection::connectToBus(address, u"bench"_s);

    for (int month = 0; month < monthFiles; ++month) {
        QByteArray content = "[";
        for (int i = 0; i < activitiesPerMonth; ++i) {
            QByteArray activity
                = R"({"uid":"4F1C2A9E-%1","text":"@Acme #design #review mock-ups of the new report window",)"
                  R"("startDate":"2024-03-12T09:00:00","endDate":"2024-03-12T10:30:00","invoiced":false,)"
                  R"("modified":"2024-03-12T10:30:00"})";
            content += QByteArray(i ? "," : "") + activity.replace("%1", QByteArray::number(month * 1000 + i));
        }
        content += "]";
        world->fake.writeFile(
            u"/sync/%1-%2.json"_s.arg(2015 + month / 12).arg(month % 12 + 1, 2, 10, QChar(u'0')), content);
    }

    QProcessEnvironment environment = world->fake.agentEnvironment();
    environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, address);
    environment.insert(u"QT_LOGGING_RULES"_s, u"brimvale.agent.info=false"_s);
    world->agent.setProcessEnvironment(environment);
    world->agent.start(QStringLiteral(BRIMVALE_AGENT), {});
    if (!world->agent.waitForStarted(10000))
        return nullptr;
    QDeadlineTimer deadline(10000);
    while (!world->connection.interface()->isServiceRegistered(u"com.brimvaleapp.DropboxSyncService"_s)) {
        if (deadline.hasExpired())
            return nullptr;
        QThread::msleep(10);
    }
    return world;
}

std::unique_ptr<World> &shared()
{
    static std::unique_ptr<World> world;
    return world;
}

World *world()
{
    static const bool made = [] {
        shared().reset(makeWorld());
        return true;
    }();
    Q_UNUSED(made);
    return shared().get();
}

QDBusMessage call(World &w, const QString &method, const QVariantList &arguments = {})
{
    QDBusMessage message = QDBusMessage::createMethodCall(u"com.brimvaleapp.DropboxSyncService"_s,
        u"/com/brimvaleapp/DropboxSyncService"_s, u"com.brimvaleapp.DropboxSyncService1"_s, method);
    message.setArguments(arguments);
    return w.connection.call(message, QDBus::Block, 120000);
}

bool succeeded(const QDBusMessage &reply)
{
    return reply.type() == QDBusMessage::ReplyMessage && reply.arguments().last().toString().isEmpty();
}

qint64 agentResidentKb(const World &w)
{
    QFile status(u"/proc/%1/status"_s.arg(w.agent.processId()));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

// The first sync: the whole folder listed, every month file downloaded. Reports the agent's resident memory.
void BM_AgentFirstListingAndDownload(benchmark::State &state)
{
    World *w = world();
    if (!w) {
        state.SkipWithError("the bus, the server or the agent did not start");
        return;
    }
    call(*w, u"SyncInit"_s, { u"sync"_s, u"test-token"_s });
    qint64 bytes = 0;
    for (auto _ : state) {
        const QDBusMessage listing = call(*w, u"GetChanges"_s, { QString() });
        if (!succeeded(listing)) {
            state.SkipWithError("the listing failed");
            return;
        }
        w->cursor = listing.arguments().at(1).toString();
        for (const QJsonValue &entry : QJsonDocument::fromJson(listing.arguments().at(0).toString().toUtf8()).array()) {
            if (entry[u".tag"_s].toString() != u"file"_s)
                continue;
            const QDBusMessage file = call(*w, u"GetFile"_s, { entry[u"name"_s].toString() });
            if (!succeeded(file)) {
                state.SkipWithError("a download failed");
                return;
            }
            bytes += entry[u"size"_s].toInteger();
        }
    }
    state.SetBytesProcessed(bytes);
    state.counters["agent_rss_mb"] = double(agentResidentKb(*w)) / 1024.0;
}
BENCHMARK(BM_AgentFirstListingAndDownload)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

// A run with nothing changed asks the agent for the account and for the changes since its cursor.
void BM_AgentNoChangeRun(benchmark::State &state)
{
    World *w = world();
    if (!w || w->cursor.isEmpty()) {
        state.SkipWithError("needs the first listing");
        return;
    }
    w->fake.clearRequests();
    for (auto _ : state) {
        if (!succeeded(call(*w, u"GetAccountInfo"_s)) || !succeeded(call(*w, u"GetChanges"_s, { w->cursor }))) {
            state.SkipWithError("a call failed");
            return;
        }
    }
    state.counters["http_requests_per_run"] = double(w->fake.requests().size()) / double(state.iterations());
    state.counters["agent_rss_mb"] = double(agentResidentKb(*w)) / 1024.0;
}
BENCHMARK(BM_AgentNoChangeRun)->Unit(benchmark::kMillisecond)->UseRealTime();

// One GetChanges round trip with nothing changed: bus, agent, HTTP and back.
void BM_AgentNoChangeGetChanges(benchmark::State &state)
{
    World *w = world();
    if (!w || w->cursor.isEmpty()) {
        state.SkipWithError("needs the first listing");
        return;
    }
    for (auto _ : state) {
        if (!succeeded(call(*w, u"GetChanges"_s, { w->cursor }))) {
            state.SkipWithError("the call failed");
            return;
        }
    }
}
BENCHMARK(BM_AgentNoChangeGetChanges)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

// The processes end before the application object does, so nothing outlives the benchmark.
int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (World *w = shared().get()) {
        w->agent.terminate();
        w->agent.waitForFinished(5000);
        QDBusConnection::disconnectFromBus(u"bench"_s);
        w->bus.terminate();
        w->bus.waitForFinished(5000);
    }
    shared().reset();
    return 0;
}
