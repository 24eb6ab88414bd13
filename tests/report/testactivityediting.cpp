// The edit and merge sheets' units of work and the undo history, on a real store with a fake clock.
#include <QtTest>

#include "fakes/fakeclock.h"
#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "report/activityeditor.h"
#include "report/activitymerge.h"
#include "report/activityundohistory.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {

// One activity to store: start (UTC, on 2024-03-12), length, text, invoiced mark.
struct Seed
{
    QTime start;
    qint64 seconds = 0;
    QString text;
    bool invoiced = false;
};

// The message a save was refused with, null when it was not refused.
template<typename Result> QString refusal(const Result &result)
{
    return result ? QString() : result.error();
}

QDateTime at(QTime time)
{
    return QDateTime(QDate(2024, 3, 12), time, Qt::UTC);
}

} // namespace

Q_DECLARE_METATYPE(QList<Seed>)

class TestActivityEditing : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void getTextHash_data();
    void getTextHash();
    void mergeJoinsIntoTheLatestStart_data();
    void mergeJoinsIntoTheLatestStart();
    void mergeRefusedWhenLoading_data();
    void mergeRefusedWhenLoading();
    void undoneMergeLeavesOneDeletedElsewhereDeleted();

    void editReachesTheStoreOnlyOnSave();
    void newActivityIsAddedOnSave();

    void undoAndRedoEachStep_data();
    void undoAndRedoEachStep();
    void undoneDeleteWinsOverAnAlreadySyncedDeletion();

private:
    QString add(const Seed &seed);
    // Every stored activity as "uid|text|from|to|invoiced", sorted.
    QStringList journal();
    QStringList deletionRecords();
    ActivityPtr stored(const QString &uid);

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock;
    std::unique_ptr<Store> m_store;
};

void TestActivityEditing::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_clock.set(at(QTime(18, 0)));
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    auto store = Store::open(options);
    QVERIFY(store);
    m_store = std::move(*store);
}

void TestActivityEditing::cleanup()
{
    m_store.reset();
    m_home.reset();
}

QString TestActivityEditing::add(const Seed &seed)
{
    auto context = m_store->newContext();
    ActivityPtr activity = context->insertActivity();
    activity->setTimeFrom(at(seed.start));
    activity->setTimeTo(at(seed.start).addSecs(seed.seconds));
    activity->setText(seed.text);
    activity->setIsInvoiced(seed.invoiced);
    [&] { QVERIFY(context->save()); }();
    return activity->uid();
}

QStringList TestActivityEditing::journal()
{
    auto context = m_store->newContext();
    const QList<ActivityPtr> activities = context->fetchActivities().value();
    QStringList lines;
    for (const ActivityPtr &activity : activities) {
        lines.append(QStringList { activity->uid(), activity->text(), activity->timeFrom().toString(Qt::ISODate),
            activity->timeTo().toString(Qt::ISODate), activity->isInvoiced() ? u"invoiced"_s : u"-"_s }
                         .join(u'|'));
    }
    lines.sort();
    return lines;
}

QStringList TestActivityEditing::deletionRecords()
{
    auto context = m_store->newContext();
    const QList<DeletedActivityPtr> records = context->fetchDeletedActivities().value();
    QStringList uids;
    for (const DeletedActivityPtr &record : records)
        uids.append(record->uid());
    uids.sort();
    return uids;
}

ActivityPtr TestActivityEditing::stored(const QString &uid)
{
    auto context = m_store->newContext();
    auto found = context->activityWithUid(uid);
    return found ? *found : nullptr;
}

void TestActivityEditing::getTextHash_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("hash");
    QTest::newRow("case and spaces") << u" fix   BUG "_s << u"fix bug"_s;
    QTest::newRow("tabs and line breaks") << u"\tFix\n\nbug\r\n"_s << u"fix bug"_s;
    QTest::newRow("words stay apart") << u"fixbug"_s << u"fixbug"_s;
    QTest::newRow("blank only") << u"  \n "_s << QString();
}

void TestActivityEditing::getTextHash()
{
    QFETCH(QString, text);
    QFETCH(QString, hash);
    QCOMPARE(ActivityMerge::getTextHash(text), hash);
}

void TestActivityEditing::mergeJoinsIntoTheLatestStart_data()
{
    QTest::addColumn<QList<Seed>>("seeds");
    QTest::addColumn<QTime>("from");
    QTest::addColumn<QTime>("to");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("project");

    QTest::newRow("gap dropped: 10 min at 09:00 and 20 min at 11:00")
        << QList<Seed> { { QTime(9, 0), 600, u"@Acme draft"_s }, { QTime(11, 0), 1200, u"@Acme review"_s } }
        << QTime(10, 50) << QTime(11, 20) << u"@Acme review\n\n@Acme draft"_s << u"Acme"_s;
    QTest::newRow("same text in other case and spacing kept once, the later one's")
        << QList<Seed> { { QTime(9, 0), 600, u"Fix bug"_s }, { QTime(11, 0), 1200, u" fix   BUG "_s } } << QTime(10, 50)
        << QTime(11, 20) << u" fix   BUG "_s << QString();
    QTest::newRow("newest first, empty texts add nothing, first project wins")
        << QList<Seed> { { QTime(8, 0), 60, u"@Beta a"_s }, { QTime(9, 0), 60, QString() },
               { QTime(10, 0), 60, u"@Gamma c"_s }, { QTime(9, 30), 60, u"b"_s } }
        << QTime(10, 0).addSecs(-180) << QTime(10, 1) << u"@Gamma c\n\nb\n\n@Beta a"_s << u"Gamma"_s;
    QTest::newRow("overlap counts twice")
        << QList<Seed> { { QTime(9, 0), 3600, u"x"_s }, { QTime(9, 30), 3600, u"x"_s } } << QTime(8, 30)
        << QTime(10, 30) << u"x"_s << QString();
}

void TestActivityEditing::mergeJoinsIntoTheLatestStart()
{
    QFETCH(QList<Seed>, seeds);
    QFETCH(QTime, from);
    QFETCH(QTime, to);
    QFETCH(QString, text);
    QFETCH(QString, project);

    QStringList uids;
    QString survivorUid;
    QTime latest;
    for (const Seed &seed : std::as_const(seeds)) {
        uids.append(add(seed));
        if (!latest.isValid() || seed.start > latest) {
            latest = seed.start;
            survivorUid = uids.constLast();
        }
    }
    ActivityMerge merge(*m_store, uids);
    QVERIFY(!merge.loadError());
    QCOMPARE(merge.activity()->uid(), survivorUid);
    QCOMPARE(merge.activity()->durationSecs(), at(from).secsTo(at(to)));
    QCOMPARE(merge.invoicedState(), ActivityMerge::NotInvoiced);
    QVERIFY(!merge.offersMixedState());
    QCOMPARE(journal().size(), seeds.size()); // nothing stored before saving

    m_clock.advance(5000);
    const ActivityMerge::Result saved = merge.save();
    QVERIFY(saved && *saved);
    QCOMPARE(saved->value().kind(), ActivityChange::Kind::Merge);

    const ActivityPtr survivor = stored(survivorUid);
    QVERIFY(survivor);
    QCOMPARE(journal().size(), 1);
    QCOMPARE(survivor->timeFrom(), at(from));
    QCOMPARE(survivor->timeTo(), at(to));
    QCOMPARE(survivor->text(), text);
    QCOMPARE(survivor->project() ? survivor->project()->name() : QString(), project);
    QCOMPARE(survivor->modifiedAt(), m_clock.now());
    QStringList away = uids;
    away.removeOne(survivorUid);
    away.sort();
    QCOMPARE(deletionRecords(), away);
}

void TestActivityEditing::mergeRefusedWhenLoading_data()
{
    QTest::addColumn<bool>("stored");
    QTest::addColumn<int>("running");
    QTest::addColumn<QString>("error");
    QTest::newRow("no longer stored") << false << -1 << u"Failed to load data ..."_s;
    QTest::newRow("running one the survivor")
        << true << 1 << u"The running activity cannot be merged; stop it first."_s;
    QTest::newRow("running one the older") << true << 0 << u"The running activity cannot be merged; stop it first."_s;
}

void TestActivityEditing::mergeRefusedWhenLoading()
{
    QFETCH(bool, stored);
    QFETCH(int, running);
    QFETCH(QString, error);
    const QStringList uids = stored
        ? QStringList { add({ QTime(9, 0), 600, u"a"_s }), add({ QTime(11, 0), 600, u"b"_s }) }
        : QStringList { u"00000000-0000-0000-0000-000000000001"_s };
    const QStringList before = journal();
    ActivityMerge merge(*m_store, uids, running < 0 ? QString() : uids.at(running));
    QCOMPARE(merge.loadError(), error);
    QVERIFY(!merge.activity());
    QVERIFY(!merge.save().value()); // nothing to save, no step
    QCOMPARE(journal(), before);
}

void TestActivityEditing::undoneMergeLeavesOneDeletedElsewhereDeleted()
{
    const QString a = add({ QTime(9, 0), 600, u"a"_s });
    const QString b = add({ QTime(10, 0), 600, u"b"_s });
    const QString c = add({ QTime(11, 0), 600, u"c"_s });
    const QStringList before = journal();
    ActivityMerge merge(*m_store, { a, b, c });
    {
        // Deleted by a sync or in a terminal while the sheet was open.
        auto context = m_store->newContext();
        DeletedActivity::deleteActivity(*context->activityWithUid(a), *context);
        QVERIFY(context->save());
    }
    const ActivityMerge::Result merged = merge.save();
    QVERIFY(merged && *merged);
    QCOMPARE((*merged)->entries().size(), 2);
    m_clock.advance(1000);
    QVERIFY((*merged)->undo(*m_store));
    QStringList expected = before;
    expected.removeIf([&a](const QString &row) { return row.startsWith(a); });
    QCOMPARE(journal(), expected);
    QCOMPARE(deletionRecords(), QStringList { a });
}

void TestActivityEditing::editReachesTheStoreOnlyOnSave()
{
    const QString uid = add({ QTime(9, 0), 600, u"@Acme draft"_s });
    const QStringList before = journal();
    {
        ActivityEditor editor(*m_store, uid);
        QVERIFY(!editor.isNewActivity());
        editor.setText(u"@Beta other"_s);
        editor.setTimeTo(at(QTime(12, 0)));
        QCOMPARE(journal(), before);
        editor.cancel();
    }
    QCOMPARE(journal(), before);

    ActivityEditor editor(*m_store, uid);
    editor.setText(u"@Beta other #ops"_s);
    editor.setTimeTo(at(QTime(12, 0)));
    m_clock.advance(1000);
    const ActivityEditor::Result saved = editor.save();
    QVERIFY(saved && *saved);
    const ActivityPtr activity = stored(uid);
    QCOMPARE(activity->text(), u"@Beta other #ops"_s);
    QCOMPARE(activity->project()->name(), u"Beta"_s);
    QCOMPARE(activity->tasksStr(), u"ops"_s);
    QCOMPARE(activity->timeTo(), at(QTime(12, 0)));
    QCOMPARE(activity->modifiedAt(), m_clock.now());
}

void TestActivityEditing::newActivityIsAddedOnSave()
{
    ActivityEditor editor(*m_store, std::nullopt);
    QVERIFY(editor.isNewActivity());
    QCOMPARE(editor.activity()->timeFrom(), m_clock.now());
    QCOMPARE(editor.activity()->timeTo(), m_clock.now());
    // Saved as opened, it lasts no time and is refused like any other.
    QVERIFY(!editor.save());
    QVERIFY(journal().isEmpty());

    editor.setText(u"@Acme earlier"_s);
    editor.setTimeFrom(at(QTime(7, 0)));
    editor.setTimeTo(at(QTime(8, 0)));
    const ActivityEditor::Result saved = editor.save();
    QVERIFY(saved && *saved);
    QCOMPARE(saved->value().kind(), ActivityChange::Kind::New);
    const ActivityPtr activity = stored(editor.activity()->uid());
    QVERIFY(activity);
    QCOMPARE(activity->project()->name(), u"Acme"_s);
    QCOMPARE(activity->durationSecs(), 3600);
}

void TestActivityEditing::undoAndRedoEachStep_data()
{
    QTest::addColumn<QString>("step");
    QTest::newRow("edit") << u"edit"_s;
    QTest::newRow("new") << u"new"_s;
    QTest::newRow("delete from the sheet") << u"delete"_s;
    QTest::newRow("merge") << u"merge"_s;
}

void TestActivityEditing::undoAndRedoEachStep()
{
    QFETCH(QString, step);
    const QString a = add({ QTime(9, 0), 600, u"@Acme a"_s, true });
    const QString b = add({ QTime(11, 0), 1200, u"@Beta b"_s, false });
    const QStringList before = journal();

    ActivityUndoHistory history(*m_store);
    QSignalSpy historyChanged(&history, &ActivityUndoHistory::historyChanged);
    m_clock.advance(1000);
    std::expected<std::optional<ActivityChange>, QString> done;
    if (step == u"edit"_s || step == u"new"_s || step == u"delete"_s) {
        ActivityEditor editor(*m_store, step == u"new"_s ? std::nullopt : std::optional<QString>(a));
        editor.setText(u"@Gamma edited"_s);
        editor.setTimeFrom(at(QTime(6, 0)));
        editor.setTimeTo(at(QTime(7, 0)));
        done = step == u"delete"_s ? editor.deleteActivity() : editor.save();
    } else {
        ActivityMerge merge(*m_store, { a, b });
        merge.setInvoicedState(ActivityMerge::NotInvoiced);
        done = merge.save();
    }
    QVERIFY(done && *done);
    history.record(**done);
    const QStringList after = journal();
    const QStringList recordsAfter = deletionRecords();
    QVERIFY(after != before);
    QVERIFY(history.canUndo());
    QVERIFY(!history.canRedo());
    QCOMPARE(history.undoTitle(), (*done)->title());

    // Undoing a new activity deletes it, which other machines must learn of as of any deletion.
    QStringList recordsUndone;
    QStringList touched;
    for (const ActivityChange::Entry &entry : (*done)->entries()) {
        touched.append(entry.uid);
        if (!entry.before)
            recordsUndone.append(entry.uid);
    }
    for (int round = 0; round < 2; ++round) {
        m_clock.advance(300);
        QVERIFY(history.undo());
        QCOMPARE(journal(), before);
        // What came back has no deletion record left: a sync never deletes it on another machine.
        QCOMPARE(deletionRecords(), recordsUndone);
        QVERIFY(!history.canUndo());
        QCOMPARE(history.redoTitle(), (*done)->title());

        m_clock.advance(300);
        QVERIFY(history.redo());
        QCOMPARE(journal(), after);
        QCOMPARE(deletionRecords(), recordsAfter);
        QVERIFY(!history.canRedo());
    }
    QCOMPARE(historyChanged.count(), 5);

    // Each step back or forth is a change of its own for sync: stamped in a later second than the last.
    auto context = m_store->newContext();
    const QList<ActivityPtr> activities = context->fetchActivities().value();
    for (const ActivityPtr &activity : activities) {
        if (touched.contains(activity->uid()))
            QVERIFY2(activity->modifiedAt() > at(QTime(18, 0, 1)), qPrintable(activity->uid()));
    }
}

void TestActivityEditing::undoneDeleteWinsOverAnAlreadySyncedDeletion()
{
    const QString uid = add({ QTime(9, 0), 600, u"draft"_s });
    ActivityEditor editor(*m_store, uid);
    const ActivityEditor::Result deleted = editor.deleteActivity();
    QVERIFY(deleted && *deleted);
    {
        // A sync passed the deletion on before the user took it back.
        auto context = m_store->newContext();
        const QList<DeletedActivityPtr> records = *context->fetchDeletedActivities(uid);
        QCOMPARE(records.size(), 1);
        records.constFirst()->setIsSynced(true);
        QVERIFY(context->save());
    }
    const QDateTime deletedAt = m_clock.now();
    m_clock.advance(400); // the same second
    QVERIFY((*deleted)->undo(*m_store));
    const ActivityPtr restored = stored(uid);
    QVERIFY(restored);
    QVERIFY(deletionRecords().isEmpty());
    // Other machines keep the deletion only for activities not modified after its second.
    QCOMPARE(restored->modifiedAt(), QDateTime::fromSecsSinceEpoch(deletedAt.toSecsSinceEpoch() + 1, Qt::UTC));
}

QTEST_GUILESS_MAIN(TestActivityEditing)
#include "testactivityediting.moc"
