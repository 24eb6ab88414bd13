// Two machines sync through one folder while the user merges, deletes and takes a deletion back on one of
// them: what the report's sheets and undo history store must reach the other machine as the user meant it.
#include <QtTest>

#include <QDir>
#include <QLoggingCategory>

#include "fakes/fakeclock.h"
#include "model/activity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "report/activityeditor.h"
#include "report/activitymerge.h"
#include "report/activityundohistory.h"
#include "support/isolatedhome.h"
#include "sync/bvfoldersyncbackend.h"
#include "sync/bvsyncservice.h"

using namespace Qt::StringLiterals;

namespace {

struct Machine
{
    QString cacheHome;
    std::unique_ptr<Store> store;
};

QDateTime at(QTime time)
{
    return QDateTime(QDate(2024, 3, 12), time, Qt::UTC);
}

} // namespace

class TestEditingSync : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void mergeArrivesAsOneActivity();
    void undoneDeleteIsNeverDeletedElsewhere_data();
    void undoneDeleteIsNeverDeletedElsewhere();

private:
    bool sync(Machine &m);
    QString add(Machine &m, const QString &text, QTime from, qint64 seconds);
    // "uid|text|from|to" of every activity, sorted.
    QStringList journal(Machine &m);

    std::unique_ptr<IsolatedHome> m_home;
    QString m_folder;
    FakeClock m_clock;
    Machine m_anna;
    Machine m_ben;
};

void TestEditingSync::init()
{
    QLoggingCategory::setFilterRules(u"brimvale.sync.info=false"_s);
    m_home = std::make_unique<IsolatedHome>();
    m_folder = m_home->root() + u"/Sync"_s;
    QVERIFY(QDir().mkpath(m_folder));
    m_clock.set(at(QTime(18, 0)));
    for (auto [machine, name] : { std::pair { &m_anna, u"anna"_s }, std::pair { &m_ben, u"ben"_s } }) {
        machine->cacheHome = m_home->root() + u"/"_s + name + u"/cache"_s;
        StoreOptions options;
        options.applicationFilesDirectory = m_home->root() + u"/"_s + name + u"/data"_s;
        options.clock = &m_clock;
        auto store = Store::open(options);
        QVERIFY(store);
        machine->store = std::move(*store);
    }
}

void TestEditingSync::cleanup()
{
    m_anna.store.reset();
    m_ben.store.reset();
    m_home.reset();
}

bool TestEditingSync::sync(Machine &m)
{
    // The service and backend take the cache folder from the environment when they are made.
    qputenv("XDG_CACHE_HOME", m.cacheHome.toLocal8Bit());
    BVSyncService service(std::make_unique<BVFolderSyncBackend>(m_folder), std::nullopt);
    service.setMOC(*m.store);
    QSignalSpy finished(&service, &BVSyncService::syncServiceFinish);
    QSignalSpy errors(&service, &BVSyncService::syncServiceError);
    service.sync();
    if (!QTest::qWaitFor([&] { return finished.count() + errors.count() > 0; }, 60000) || !errors.isEmpty()) {
        qWarning("sync failed: %s", qPrintable(service.activityLog()));
        return false;
    }
    m_clock.advance(1000);
    return true;
}

QString TestEditingSync::add(Machine &m, const QString &text, QTime from, qint64 seconds)
{
    auto context = m.store->newContext();
    ActivityPtr activity = context->insertActivity();
    activity->setText(text);
    activity->setTimeFrom(at(from));
    activity->setTimeTo(at(from).addSecs(seconds));
    [&] { QVERIFY(context->save()); }();
    m_clock.advance(1000);
    return activity->uid();
}

QStringList TestEditingSync::journal(Machine &m)
{
    auto context = m.store->newContext();
    const QList<ActivityPtr> activities = context->fetchActivities().value();
    QStringList lines;
    for (const ActivityPtr &activity : activities) {
        lines.append(QStringList { activity->uid(), activity->text(), activity->timeFrom().toString(Qt::ISODate),
            activity->timeTo().toString(Qt::ISODate) }
                         .join(u'|'));
    }
    lines.sort();
    return lines;
}

void TestEditingSync::mergeArrivesAsOneActivity()
{
    const QString draft = add(m_anna, u"@Acme draft"_s, QTime(9, 0), 600);
    const QString review = add(m_anna, u"@Acme review"_s, QTime(11, 0), 1200);
    const QString other = add(m_anna, u"other"_s, QTime(13, 0), 600);
    QVERIFY(sync(m_anna));
    QVERIFY(sync(m_ben));
    QCOMPARE(journal(m_ben).size(), 3);

    ActivityMerge merge(*m_anna.store, { draft, review });
    QVERIFY(merge.save());
    m_clock.advance(1000);
    QVERIFY(sync(m_anna));
    QVERIFY(sync(m_ben));

    const QStringList expected { review + u"|@Acme review\n\n@Acme draft|2024-03-12T10:50:00Z|2024-03-12T11:20:00Z"_s,
        other + u"|other|2024-03-12T13:00:00Z|2024-03-12T13:10:00Z"_s };
    QStringList sorted = expected;
    sorted.sort();
    QCOMPARE(journal(m_anna), sorted);
    QCOMPARE(journal(m_ben), sorted);
}

void TestEditingSync::undoneDeleteIsNeverDeletedElsewhere_data()
{
    QTest::addColumn<int>("syncsBeforeUndo");
    QTest::newRow("taken back before any sync") << 0;
    QTest::newRow("taken back after the deletion reached the folder") << 1;
    QTest::newRow("taken back after the other machine deleted it too") << 2;
}

void TestEditingSync::undoneDeleteIsNeverDeletedElsewhere()
{
    QFETCH(int, syncsBeforeUndo);
    const QString uid = add(m_anna, u"@Acme draft"_s, QTime(9, 0), 600);
    add(m_anna, u"other"_s, QTime(13, 0), 600);
    QVERIFY(sync(m_anna));
    QVERIFY(sync(m_ben));
    const QStringList both = journal(m_anna);
    QCOMPARE(journal(m_ben), both);

    ActivityUndoHistory history(*m_anna.store);
    ActivityEditor editor(*m_anna.store, uid);
    const ActivityEditor::Result deleted = editor.deleteActivity();
    QVERIFY(deleted && *deleted);
    history.record(**deleted);
    if (syncsBeforeUndo >= 1)
        QVERIFY(sync(m_anna));
    if (syncsBeforeUndo >= 2) {
        QVERIFY(sync(m_ben));
        QCOMPARE(journal(m_ben).size(), 1);
    }
    QVERIFY(history.undo());

    for (int pass = 0; pass < 2; ++pass) {
        QVERIFY(sync(m_anna));
        QVERIFY(sync(m_ben));
    }
    QCOMPARE(journal(m_anna), both);
    QCOMPARE(journal(m_ben), both);
}

QTEST_GUILESS_MAIN(TestEditingSync)
#include "testeditingsync.moc"
