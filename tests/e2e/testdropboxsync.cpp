// Machines syncing through the real Dropbox agent and the local Dropbox server, on a private session bus.
// Each "machine" has its own store, cache folder, settings and keyring; the agent is started by the client
// from the build tree, as the app starts it where the bus cannot. Runs in Europe/Berlin.
#include <QtTest>

#include <QDBusConnectionInterface>
#include <QDir>
#include <QSignalSpy>
#include <csignal>

#include "fakes/fakeclock.h"
#include "fakes/fakedropbox.h"
#include "fakes/fakekeychain.h"
#include "model/activity.h"
#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "platform/dropboxagentclient.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"
#include "sync/bvdropboxsettings.h"
#include "sync/bvdropboxsyncbackend.h"
#include "sync/bvsyncservice.h"

using namespace Qt::StringLiterals;

namespace {

QDateTime local(int y, int mo, int d, int h, int mi)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi), Qt::LocalTime).toUTC();
}

struct Machine
{
    QString root;
    FakeClock clock;
    std::unique_ptr<Store> store;
    std::unique_ptr<UserDefaults> defaults;
    std::unique_ptr<BVDropboxSettings> settings;
    FakeKeychain keychain;
};

// A backend that lets the test act between this machine's listing and its first upload, as another
// machine uploading at that moment would.
class InterleavedBackend : public BVDropboxSyncBackend
{
public:
    using BVDropboxSyncBackend::BVDropboxSyncBackend;
    std::function<void()> beforeFirstUpload;

    void uploadFile(
        const QString &file, const std::optional<BVTmpSyncFile> &withRevision, UploadBlock andBlock) override
    {
        if (auto hook = std::exchange(beforeFirstUpload, {}))
            hook();
        BVDropboxSyncBackend::uploadFile(file, withRevision, std::move(andBlock));
    }
};

struct Outcome
{
    int status = -1;
    QString error;
};

} // namespace

class TestDropboxSync : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void twoMachinesConverge();
    void threeMachinesConvergeWithDeletions();
    void conflictingUploadFailsThenMerges();
    void expiredTokenIsRefreshed();
    void revokedTokenAsksToReconnect();
    void agentKilledMidUploadLosesNothing_data();
    void agentKilledMidUploadLosesNothing();

private:
    Machine &machine(const QString &name);
    Outcome run(Machine &m, std::function<void()> beforeFirstUpload = {});
    QString add(Machine &m, const QDateTime &from, const QString &text);
    QStringList journal(Machine &m);

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<FakeDropbox> m_fake;
    std::unique_ptr<DropboxAgentClient> m_agent;
    std::map<QString, std::unique_ptr<Machine>> m_machines;
};

void TestDropboxSync::initTestCase()
{
    QVERIFY2(QDBusConnection::sessionBus().isConnected(), "the test needs a session bus");
}

void TestDropboxSync::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_fake = std::make_unique<FakeDropbox>(QStringList { u"test-token"_s });
    QVERIFY2(m_fake->start(), qPrintable(m_fake->errorString()));
    // The agent alone reads these; it inherits them when the client starts it.
    const QProcessEnvironment environment = m_fake->agentEnvironment(QProcessEnvironment());
    for (const QString &key : environment.keys())
        qputenv(key.toLocal8Bit(), environment.value(key).toLocal8Bit());
    // A new agent per test, pointing at this test's server.
    if (QDBusConnection::sessionBus().interface()->isServiceRegistered(
            QString::fromLatin1(DropboxAgentClient::ServiceName))) {
        const uint pid = QDBusConnection::sessionBus().interface()->servicePid(
            QString::fromLatin1(DropboxAgentClient::ServiceName));
        ::kill(pid_t(pid), SIGTERM);
        QTRY_VERIFY(!QDBusConnection::sessionBus().interface()->isServiceRegistered(
            QString::fromLatin1(DropboxAgentClient::ServiceName)));
    }
    m_agent = std::make_unique<DropboxAgentClient>(
        QDBusConnection::sessionBus(), QStringList { QStringLiteral(BRIMVALE_AGENT) });
}

void TestDropboxSync::cleanup()
{
    m_machines.clear();
    m_agent.reset();
    m_fake.reset();
    m_home.reset();
}

Machine &TestDropboxSync::machine(const QString &name)
{
    std::unique_ptr<Machine> &slot = m_machines[name];
    if (!slot) {
        slot = std::make_unique<Machine>();
        slot->root = m_home->root() + u"/"_s + name;
        StoreOptions options;
        options.applicationFilesDirectory = slot->root + u"/data"_s;
        options.clock = &slot->clock;
        auto store = Store::open(options);
        if (!store)
            qFatal("cannot open the store of machine %s", qPrintable(name));
        slot->store = std::move(*store);
        slot->defaults = std::make_unique<UserDefaults>(slot->root + u"/config/Brimvale.conf"_s);
        slot->settings = std::make_unique<BVDropboxSettings>(*slot->defaults);
        slot->keychain.set(u"oauth2_token"_s, u"test-token"_s);
    }
    return *slot;
}

Outcome TestDropboxSync::run(Machine &m, std::function<void()> beforeFirstUpload)
{
    qputenv("XDG_CACHE_HOME", (m.root + u"/cache"_s).toLocal8Bit());
    auto backend = std::make_unique<InterleavedBackend>(
        BVDropboxServices { m_agent.get(), &m.keychain, m.settings.get(), &m.clock });
    backend->beforeFirstUpload = std::move(beforeFirstUpload);
    BVSyncService service(std::move(backend), std::nullopt);
    service.setMOC(*m.store);
    QSignalSpy finished(&service, &BVSyncService::syncServiceFinish);
    QSignalSpy errors(&service, &BVSyncService::syncServiceError);
    service.sync();
    Outcome outcome;
    if (!QTest::qWaitFor([&] { return finished.count() + errors.count() > 0; }, 60000))
        return outcome;
    outcome.status = service.syncStatus();
    outcome.error = errors.isEmpty() ? QString() : errors.constFirst().constFirst().toString();
    return outcome;
}

QString TestDropboxSync::add(Machine &m, const QDateTime &from, const QString &text)
{
    m.clock.set(from.addSecs(3600));
    auto context = m.store->newContext();
    ActivityPtr activity = context->insertActivity();
    activity->setTimeFrom(from);
    activity->setTimeTo(from.addSecs(1800));
    activity->setText(text);
    if (!context->save())
        QTest::qFail("cannot save an activity", __FILE__, __LINE__);
    return activity->uid();
}

QStringList TestDropboxSync::journal(Machine &m)
{
    auto context = m.store->newContext();
    auto activities = context->fetchActivities();
    QStringList lines;
    if (!activities)
        return { u"fetch failed"_s };
    for (const ActivityPtr &a : std::as_const(*activities))
        lines.append(a->uid() + u'|' + a->timeFrom().toString(Qt::ISODate) + u'|' + a->text());
    lines.sort();
    return lines;
}

void TestDropboxSync::twoMachinesConverge()
{
    Machine &a = machine(u"a"_s);
    Machine &b = machine(u"b"_s);
    add(a, local(2024, 1, 31, 23, 0), u"Late January"_s);
    add(b, local(2024, 2, 14, 9, 0), u"Valentine, café"_s);
    for (Machine *m : { &a, &b, &a }) {
        const Outcome outcome = run(*m);
        QCOMPARE(outcome.error, QString());
        QCOMPARE(outcome.status, int(BVSyncService::Succeeded));
    }
    QCOMPARE(journal(a).size(), 2);
    QCOMPARE(journal(a), journal(b));
    const QStringList files = m_fake->files().keys();
    QVERIFY2(files.contains(u"/sync/2024-01.json"_s) && files.contains(u"/sync/2024-02.json"_s)
            && files.contains(u"/sync/timezone.json"_s),
        qPrintable(files.join(u", "_s)));
    // The account was recorded on each machine, and the cursor kept for the next run.
    QCOMPARE(b.settings->dropboxAccountID().isEmpty(), false);
    QVERIFY(!a.settings->dropboxHash().isEmpty());

    // A run with nothing changed lists from the cursor and uploads nothing.
    m_fake->clearRequests();
    QCOMPARE(run(b).status, int(BVSyncService::Succeeded));
    QCOMPARE(m_fake->requests(u"files/upload"_s).size(), 0);
    QCOMPARE(m_fake->requests(u"files/list_folder"_s).size(), 0);
}

void TestDropboxSync::threeMachinesConvergeWithDeletions()
{
    Machine &a = machine(u"a"_s);
    Machine &b = machine(u"b"_s);
    Machine &c = machine(u"c"_s);
    const QString doomed = add(a, local(2024, 3, 1, 9, 0), u"To be deleted"_s);
    add(b, local(2024, 3, 2, 9, 0), u"From b"_s);
    add(c, local(2024, 4, 2, 9, 0), u"From c"_s);
    for (Machine *m : { &a, &b, &c })
        QCOMPARE(run(*m).error, QString());
    {
        auto context = c.store->newContext();
        auto activity = context->activityWithUid(doomed);
        QVERIFY(activity && *activity);
        c.clock.set(local(2024, 4, 3, 9, 0));
        DeletedActivity::deleteActivity(*activity, *context);
        QVERIFY(context->save());
    }
    for (Machine *m : { &c, &a, &b })
        QCOMPARE(run(*m).error, QString());
    QCOMPARE(journal(a).size(), 2);
    QCOMPARE(journal(a), journal(b));
    QCOMPARE(journal(b), journal(c));
    QVERIFY(!journal(a).join(u'\n').contains(u"To be deleted"_s));
}

void TestDropboxSync::conflictingUploadFailsThenMerges()
{
    Machine &a = machine(u"a"_s);
    Machine &b = machine(u"b"_s);
    add(a, local(2024, 3, 1, 9, 0), u"Shared start"_s);
    QCOMPARE(run(a).error, QString());
    QCOMPARE(run(b).error, QString());
    add(a, local(2024, 3, 5, 9, 0), u"Written on a"_s);
    add(b, local(2024, 3, 6, 9, 0), u"Written on b"_s);

    // a uploads March after b has listed and merged, before b's upload.
    const Outcome failed = run(b, [&] {
        QMetaObject::invokeMethod(
            this, [&] { QCOMPARE(run(a).error, QString()); }, Qt::BlockingQueuedConnection);
    });
    QCOMPARE(failed.status, int(BVSyncService::Failed));
    QVERIFY2(failed.error.endsWith(u"\n\nPlease retry sync"_s), qPrintable(failed.error));
    // The refused upload forgot the cursor: the next run lists from scratch and merges a's file first.
    QVERIFY(b.settings->dropboxHash().isEmpty());
    QCOMPARE(run(b).error, QString());
    QCOMPARE(run(a).error, QString());
    QCOMPARE(journal(a).size(), 3);
    QCOMPARE(journal(a), journal(b));
}

void TestDropboxSync::expiredTokenIsRefreshed()
{
    Machine &a = machine(u"a"_s);
    add(a, local(2024, 3, 1, 9, 0), u"Before expiry"_s);
    m_fake->control(u"tokens"_s, { { u"refresh_token"_s, u"refresh-1"_s }, { u"client_id"_s, u"q4mzk8ewtdrn2ya"_s } });
    a.keychain.set(u"oauth2_refresh_token"_s, u"refresh-1"_s);
    m_fake->setToken(u"test-token"_s, u"expired"_s);
    const Outcome outcome = run(a);
    QCOMPARE(outcome.error, QString());
    QCOMPARE(outcome.status, int(BVSyncService::Succeeded));
    const QString refreshed = a.keychain.value(u"oauth2_token"_s);
    QVERIFY(refreshed != u"test-token"_s && !refreshed.isEmpty());
    QVERIFY(a.keychain.value(u"oauth2_token_expiry"_s).endsWith(u'Z'));
    QVERIFY(m_fake->files().contains(u"/sync/2024-03.json"_s));
}

void TestDropboxSync::revokedTokenAsksToReconnect()
{
    Machine &a = machine(u"a"_s);
    add(a, local(2024, 3, 1, 9, 0), u"Never leaves"_s);
    m_fake->setToken(u"test-token"_s, u"invalid"_s);
    const Outcome outcome = run(a);
    QCOMPARE(outcome.status, int(BVSyncService::Failed));
    QVERIFY2(outcome.error.endsWith(u"Please connect Dropbox again in preferences"_s), qPrintable(outcome.error));
    QVERIFY(!m_fake->files().contains(u"/sync/2024-03.json"_s));
}

void TestDropboxSync::agentKilledMidUploadLosesNothing_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<int>("kills");

    // The client sends the upload once more, to a new agent: the same content goes up.
    QTest::newRow("before Dropbox stored the upload") << "hold" << 1;
    // Dropbox has the file but its answer never came: the same content sent again is no conflict.
    QTest::newRow("after Dropbox stored the upload") << "hold_after" << 1;
    // The second agent dies too: the run gives up, and the next one uploads.
    QTest::newRow("on the second try as well") << "hold" << 2;
}

void TestDropboxSync::agentKilledMidUploadLosesNothing()
{
    QFETCH(QString, fault);
    QFETCH(int, kills);

    Machine &a = machine(u"a"_s);
    Machine &b = machine(u"b"_s);
    add(a, local(2024, 3, 1, 9, 0), u"Survives the agent"_s);
    QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    const QString name = QString::fromLatin1(DropboxAgentClient::ServiceName);
    QList<uint> killed;
    std::unique_ptr<QThread> killer;
    // Dropbox keeps the month's upload open; meanwhile the agent dies, as a crash would end it.
    const Outcome outcome = run(a, [&] {
        m_fake->injectFault({ { u"route"_s, u"files/upload"_s }, { u"kind"_s, fault }, { u"count"_s, kills } });
        killer.reset(QThread::create([&] {
            for (int i = 0; i < kills; ++i) {
                while (m_fake->read(u"held"_s).toObject().value(u"count"_s).toInt() == 0)
                    QThread::msleep(10);
                const uint agent = bus->servicePid(name).value();
                killed.append(agent);
                ::kill(pid_t(agent), SIGKILL);
                while (bus->servicePid(name).value() == agent)
                    QThread::msleep(10);
                m_fake->control(u"release"_s);
            }
        }));
        killer->start();
    });
    QVERIFY(killer);
    QVERIFY(killer->wait(60000));
    QCOMPARE(killed.size(), kills);
    // Each try met an agent of its own.
    QVERIFY(!killed.contains(0u));
    QCOMPARE(QSet<uint>(killed.cbegin(), killed.cend()).size(), kills);
    if (kills > 1) {
        QCOMPARE(outcome.status, int(BVSyncService::Failed));
        QVERIFY2(outcome.error.endsWith(u"\n\nPlease retry sync"_s), qPrintable(outcome.error));
        QVERIFY(!m_fake->files().contains(u"/sync/2024-03.json"_s));
        QCOMPARE(run(a).error, QString());
    } else {
        QCOMPARE(outcome.error, QString());
        QCOMPARE(m_fake->requests(u"files/upload"_s).last().toObject().value(u"status"_s).toInt(), 200);
    }
    QVERIFY(m_fake->files()
                .value(u"/sync/2024-03.json"_s)
                .toObject()
                .value(u"content"_s)
                .toString()
                .contains(u"Survives the agent"_s));
    QCOMPARE(run(b).error, QString());
    QCOMPARE(journal(b), journal(a));
    QCOMPARE(journal(a).size(), 1);
}

QTEST_GUILESS_MAIN(TestDropboxSync)
#include "testdropboxsync.moc"
