#include <QtTest>

#include "fakes/fakeclock.h"
#include "model/activity.h"
#include "model/bvsyncfile.h"
#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

// Runs in America/New_York (see CMakeLists.txt) so that local and UTC months can differ.
class TestActivity : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void durationTruncatesBothInstants_data();
    void durationTruncatesBothInstants();
    void yearMonthFollowsLocalCalendar_data();
    void yearMonthFollowsLocalCalendar();
    void newActivityGetsCanonicalUidAndTimes();
    void tasksStrSortsCaseSensitively();
    void shortActivityIsRefusedWithDurationError();
    void earlierErrorsAreCombined();
    void saveLinksProjectAndTasksFromText_data();
    void saveLinksProjectAndTasksFromText();
    void sameNameInOtherCaseKeepsProjectObject_data();
    void sameNameInOtherCaseKeepsProjectObject();
    void namesEqualUnderFullCaseFoldingAreOne_data();
    void namesEqualUnderFullCaseFoldingAreOne();
    void newProjectsGetNextPositionOnlyWhenOrdered();
    void deleteActivityLeavesTombstone();
    void syncFileYearMonth_data();
    void syncFileYearMonth();
    void revisionPrefix_data();
    void revisionPrefix();

private:
    ActivityPtr saved(const QString &text, const QDateTime &from, const QDateTime &to);

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<StoreContext> m_context;
};

void TestActivity::init()
{
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    auto store = Store::open(options);
    QVERIFY2(store, qPrintable(store ? QString() : store.error().message()));
    m_store = std::move(*store);
    m_context = m_store->newContext();
}

void TestActivity::cleanup()
{
    m_context.reset();
    m_store.reset();
    m_home.reset();
}

ActivityPtr TestActivity::saved(const QString &text, const QDateTime &from, const QDateTime &to)
{
    ActivityPtr activity = m_context->insertActivity();
    activity->setText(text);
    activity->setTimeFrom(from);
    activity->setTimeTo(to);
    const auto result = m_context->save();
    if (!result)
        qWarning() << result.error().message();
    return activity;
}

void TestActivity::durationTruncatesBothInstants_data()
{
    QTest::addColumn<QTime>("from");
    QTest::addColumn<QTime>("to");
    QTest::addColumn<qint64>("secs");
    QTest::addColumn<qint64>("mins");

    QTest::newRow("0.9 to 1.1 is one second") << QTime(10, 0, 0, 900) << QTime(10, 0, 1, 100) << 1LL << 1LL;
    QTest::newRow("0.1 to 0.9 is nothing") << QTime(10, 0, 0, 100) << QTime(10, 0, 0, 900) << 0LL << 0LL;
    QTest::newRow("60 s is one minute") << QTime(10, 0) << QTime(10, 1) << 60LL << 1LL;
    QTest::newRow("61 s is two minutes") << QTime(10, 0) << QTime(10, 1, 1) << 61LL << 2LL;
    QTest::newRow("end before start") << QTime(10, 0, 5) << QTime(10, 0) << -5LL << 0LL;
}

void TestActivity::durationTruncatesBothInstants()
{
    QFETCH(QTime, from);
    QFETCH(QTime, to);
    QFETCH(qint64, secs);
    QFETCH(qint64, mins);
    ActivityPtr activity = m_context->insertActivity();
    activity->setTimeFrom(QDateTime(QDate(2024, 3, 12), from));
    activity->setTimeTo(QDateTime(QDate(2024, 3, 12), to));
    QCOMPARE(activity->durationSecs(), secs);
    QCOMPARE(activity->durationMins(), mins);
}

void TestActivity::yearMonthFollowsLocalCalendar_data()
{
    QTest::addColumn<QDateTime>("start");
    QTest::addColumn<int>("yearMonth");

    QTest::newRow("late evening, already April in UTC") << QDateTime(QDate(2024, 3, 31), QTime(23, 30)) << 202403;
    QTest::newRow("first minute of the month") << QDateTime(QDate(2024, 4, 1), QTime(0, 0)) << 202404;
    QTest::newRow("given in UTC, local is December") << QDateTime(QDate(2025, 1, 1), QTime(2, 0), Qt::UTC) << 202412;
}

void TestActivity::yearMonthFollowsLocalCalendar()
{
    QFETCH(QDateTime, start);
    QFETCH(int, yearMonth);
    ActivityPtr activity = saved(QStringLiteral("x"), start, start.addSecs(600));
    QCOMPARE(activity->yearMonth(), yearMonth);

    auto fresh = m_store->newContext();
    auto fetched = fresh->activityWithUid(activity->uid());
    QVERIFY(fetched && *fetched);
    QCOMPARE((*fetched)->yearMonth(), yearMonth);
    QCOMPARE((*fetched)->timeFrom(), start.toUTC());
}

void TestActivity::newActivityGetsCanonicalUidAndTimes()
{
    ActivityPtr first = m_context->insertActivity();
    ActivityPtr second = m_context->insertActivity();
    static const QRegularExpression canonical(
        QStringLiteral("^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$"));
    QVERIFY2(canonical.match(first->uid()).hasMatch(), qPrintable(first->uid()));
    QVERIFY(first->uid() != second->uid());
    QCOMPARE(first->createdAt(), m_clock.now());
    QCOMPARE(first->modifiedAt(), m_clock.now());
}

void TestActivity::tasksStrSortsCaseSensitively()
{
    ActivityPtr activity = m_context->insertActivity();
    QList<TaskPtr> tasks;
    for (const QString &name : { u"b"_s, u"B"_s, u"a"_s, u"b"_s }) {
        TaskPtr task = m_context->insertTask();
        task->setName(name);
        tasks.append(task);
    }
    activity->setTasks(tasks);
    QCOMPARE(activity->tasksStr(), u"B, a, b"_s);
    activity->setTasks({});
    QVERIFY(activity->tasksStr().isNull());
}

void TestActivity::shortActivityIsRefusedWithDurationError()
{
    ActivityPtr activity = m_context->insertActivity();
    activity->setText(QStringLiteral("@Acme too short"));
    activity->setTimeFrom(QDateTime(QDate(2024, 3, 12), QTime(10, 0, 0, 100)));
    activity->setTimeTo(QDateTime(QDate(2024, 3, 12), QTime(10, 0, 0, 900)));
    const auto result = m_context->save();
    QVERIFY(!result);
    QCOMPARE(result.error().domain(), QStringLiteral("activity_duration"));
    QCOMPARE(result.error().code(), 1550);
    QCOMPARE(result.error().failureReason(), QStringLiteral("Duration must be atleast one second long"));

    // Nothing reached the store, not even the project the text names.
    auto fresh = m_store->newContext();
    QCOMPARE(*fresh->countActivities(), 0);
    QVERIFY(fresh->projects()->isEmpty());
}

void TestActivity::earlierErrorsAreCombined()
{
    ActivityPtr activity = m_context->insertActivity();
    const BvError earlier(QStringLiteral("NSCocoaErrorDomain"), 1570, QStringLiteral("text is missing"));
    const auto once = activity->validateActivity(earlier);
    QVERIFY(!once);
    QCOMPARE(once.error().code(), 1560);
    QCOMPARE(once.error().detailedErrors().size(), 2);
    QCOMPARE(once.error().detailedErrors().at(0), earlier);
    QCOMPARE(once.error().detailedErrors().at(1).code(), 1550);

    // A combined error is extended, not nested.
    const auto twice = activity->validateActivity(once.error());
    QVERIFY(!twice);
    QCOMPARE(twice.error().code(), 1560);
    QCOMPARE(twice.error().detailedErrors().size(), 3);

    activity->setTimeFrom(QDateTime(QDate(2024, 3, 12), QTime(10, 0)));
    activity->setTimeTo(QDateTime(QDate(2024, 3, 12), QTime(11, 0)));
    const auto valid = activity->validateActivity(earlier);
    QVERIFY(!valid);
    QCOMPARE(valid.error(), earlier);
}

void TestActivity::saveLinksProjectAndTasksFromText_data()
{
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("second");
    QTest::addColumn<QString>("project");
    QTest::addColumn<QStringList>("tasks");
    QTest::addColumn<bool>("sameTaskObjects");

    QTest::newRow("no project clears it") << "@Acme #x work"
                                          << "#x work" << QString() << QStringList { u"x"_s } << true;
    QTest::newRow("no task clears them") << "@Acme #x work"
                                         << "@Acme work"
                                         << "Acme" << QStringList {} << false;
    QTest::newRow("task in other case keeps the set") << "@Acme #Design x"
                                                      << "@Acme #design x"
                                                      << "Acme" << QStringList { u"Design"_s } << true;
    QTest::newRow("added task rebuilds the set") << "@Acme #design"
                                                 << "@Acme #design #review"
                                                 << "Acme" << QStringList { u"design"_s, u"review"_s } << false;
    QTest::newRow("removed task rebuilds the set") << "@Acme #design #review"
                                                   << "@Acme #review"
                                                   << "Acme" << QStringList { u"review"_s } << false;
    QTest::newRow("other project") << "@Acme x"
                                   << "@Globex x"
                                   << "Globex" << QStringList {} << false;
}

void TestActivity::saveLinksProjectAndTasksFromText()
{
    QFETCH(QString, first);
    QFETCH(QString, second);
    QFETCH(QString, project);
    QFETCH(QStringList, tasks);
    QFETCH(bool, sameTaskObjects);

    const QDateTime from(QDate(2024, 3, 12), QTime(9, 0));
    ActivityPtr activity = saved(first, from, from.addSecs(3600));
    const QList<TaskPtr> before = activity->tasks();
    activity->setText(second);
    QVERIFY(m_context->save());

    auto fresh = m_store->newContext();
    ActivityPtr stored = *fresh->activityWithUid(activity->uid());
    QVERIFY(stored);
    QCOMPARE(stored->project() ? stored->project()->name() : QString(), project);
    QStringList names;
    for (const TaskPtr &task : stored->tasks())
        names.append(task->name());
    names.sort();
    QCOMPARE(names, tasks);
    if (sameTaskObjects)
        QCOMPARE(activity->tasks(), before);
}

void TestActivity::sameNameInOtherCaseKeepsProjectObject_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("retyped");
    QTest::newRow("ASCII") << u"acme"_s << u"Acme"_s;
    QTest::newRow("sharp s") << u"Straße"_s << u"STRASSE"_s;
    QTest::newRow("dotted capital I") << u"İstanbul"_s << u"istanbul"_s;
}

void TestActivity::sameNameInOtherCaseKeepsProjectObject()
{
    QFETCH(QString, stored);
    QFETCH(QString, retyped);
    const QDateTime from(QDate(2024, 3, 12), QTime(9, 0));
    ActivityPtr activity = saved(u"@%1 #%1 x"_s.arg(stored), from, from.addSecs(60));
    const ProjectPtr project = activity->project();
    const QList<TaskPtr> tasks = activity->tasks();
    activity->setText(u"@%1 #%1 x"_s.arg(retyped));
    QVERIFY(m_context->save());
    QCOMPARE(activity->project(), project);
    QCOMPARE(activity->tasks(), tasks);
    // Re-typing in another case in the same activity leaves the stored spelling alone.
    QCOMPARE(project->name(), stored);
    QCOMPARE(tasks.constFirst()->name(), stored);
}

void TestActivity::namesEqualUnderFullCaseFoldingAreOne_data()
{
    QTest::addColumn<QStringList>("spellings");
    QTest::addColumn<int>("names");

    QTest::newRow("ASCII") << QStringList { u"Acme"_s, u"ACME"_s, u"acme"_s } << 1;
    QTest::newRow("sharp s") << QStringList { u"Straße"_s, u"STRASSE"_s, u"strasse"_s } << 1;
    QTest::newRow("capital sharp s") << QStringList { u"GROẞ"_s, u"groß"_s, u"GROSS"_s } << 1;
    QTest::newRow("dotted capital I") << QStringList { u"İstanbul"_s, u"istanbul"_s, u"ISTANBUL"_s } << 1;
    QTest::newRow("final sigma") << QStringList { u"Σίσυφος"_s, u"ΣΊΣΥΦΟΣ"_s } << 1;
    QTest::newRow("accents composed or combining") << QStringList { u"été"_s, u"e\u0301te\u0301"_s, u"ÉTÉ"_s } << 1;
    QTest::newRow("ligature") << QStringList { u"ﬁle"_s, u"FILE"_s } << 1;
    QTest::newRow("dotless i is a letter of its own") << QStringList { u"ıstanbul"_s, u"istanbul"_s } << 2;
    QTest::newRow("different names") << QStringList { u"Acme"_s, u"Acne"_s } << 2;
}

void TestActivity::namesEqualUnderFullCaseFoldingAreOne()
{
    QFETCH(QStringList, spellings);
    QFETCH(int, names);

    // Each spelling comes in through a context of its own, so the stored keys decide, not only the objects
    // one context holds.
    for (const QString &spelling : std::as_const(spellings)) {
        auto context = m_store->newContext();
        context->findProject(spelling);
        context->findTask(spelling);
        QVERIFY(context->save());
    }
    auto fresh = m_store->newContext();
    const auto projects = fresh->projects();
    QCOMPARE(projects->size(), names);
    QCOMPARE(fresh->tasks()->size(), names);
    if (names == 1) {
        // The spelling typed last wins for the whole store.
        QCOMPARE(projects->constFirst()->name(), spellings.constLast());
        QCOMPARE(fresh->findProject(spellings.constFirst()), projects->constFirst());
    }
}

void TestActivity::newProjectsGetNextPositionOnlyWhenOrdered()
{
    const QDateTime from(QDate(2024, 3, 12), QTime(9, 0));
    ActivityPtr unordered = saved(u"@One #tt x"_s, from, from.addSecs(60));
    QVERIFY(!unordered->project()->position().has_value());
    QVERIFY(!unordered->tasks().constFirst()->position().has_value());

    m_store->setSidebarOrderedByHand(true, false);
    auto context = m_store->newContext();
    // No project has a position yet: the first one gets 0, the next one follows it.
    ProjectPtr two = context->findProject(u"Two"_s);
    QCOMPARE(two->position(), std::optional<qint64>(0));
    ProjectPtr three = context->findProject(u"Three"_s);
    QCOMPARE(three->position(), std::optional<qint64>(1));
    QVERIFY(!context->findTask(u"task"_s)->position().has_value());
    QVERIFY(context->save());
    // An existing project keeps its place when it is found again.
    QVERIFY(!m_store->newContext()->findProject(u"one"_s)->position().has_value());

    // A sync run creates projects on its own thread and reads the choice made on the owner's.
    m_store->setSidebarOrderedByHand(false, true);
    std::optional<qint64> projectPosition { -1 };
    std::optional<qint64> taskPosition;
    QThread *worker = QThread::create([&] {
        auto later = m_store->newContext();
        projectPosition = later->findProject(u"Four"_s)->position();
        taskPosition = later->findTask(u"other"_s)->position();
    });
    worker->start();
    QVERIFY(worker->wait(10000));
    delete worker;
    QCOMPARE(projectPosition, std::nullopt);
    QCOMPARE(taskPosition, std::optional<qint64>(0));
}

void TestActivity::deleteActivityLeavesTombstone()
{
    const QDateTime from(QDate(2024, 3, 12), QTime(9, 0));
    ActivityPtr activity = saved(QStringLiteral("@Acme #x gone"), from, from.addSecs(60));
    const QString uid = activity->uid();
    m_clock.advance(5000);
    DeletedActivity::deleteActivity(activity, *m_context);
    QVERIFY(activity->text().isNull());
    QVERIFY(!activity->project());
    QVERIFY(activity->tasks().isEmpty());
    QVERIFY(m_context->save());

    auto fresh = m_store->newContext();
    QVERIFY(!*fresh->activityWithUid(uid));
    const auto tombstones = fresh->fetchDeletedActivities(uid);
    QCOMPARE(tombstones->size(), 1);
    QCOMPARE(tombstones->constFirst()->deletedAt(), m_clock.now());
    QVERIFY(!tombstones->constFirst()->isSynced());
    QCOMPARE(fresh->fetchDeletedActivities(std::nullopt, false)->size(), 1);
    // The project and task stay; only the activity went.
    QCOMPARE(fresh->projects()->size(), 1);
}

void TestActivity::syncFileYearMonth_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<uint>("year");
    QTest::addColumn<uint>("month");

    QTest::newRow("month file") << "2024-03" << true << 2024u << 3u;
    QTest::newRow("year only") << "2024" << false << 0u << 0u;
    QTest::newRow("three parts") << "2024-03-01" << false << 0u << 0u;
    QTest::newRow("not numbers") << "abc-de" << true << 0u << 0u;
}

void TestActivity::syncFileYearMonth()
{
    QFETCH(QString, name);
    QFETCH(bool, valid);
    SyncFilePtr file = m_context->insertSyncFile();
    file->setName(name);
    QCOMPARE(file->hasYearMonth(), valid);
    if (valid) {
        QTEST(file->year(), "year");
        QTEST(file->month(), "month");
    }
}

void TestActivity::revisionPrefix_data()
{
    QTest::addColumn<QString>("revision");
    QTest::addColumn<QString>("prefix");
    QTest::addColumn<bool>("result");

    QTest::newRow("matching family") << "x:abc"
                                     << "x" << true;
    QTest::newRow("other family") << "y:abc"
                                  << "x" << false;
    QTest::newRow("no colon") << "abc"
                              << "abc" << false;
    QTest::newRow("first colon counts") << "x:y:z"
                                        << "x:y" << false;
    QTest::newRow("empty family") << ":abc"
                                  << "" << true;
    QTest::newRow("null prefix") << "x:abc" << QString() << false;
    QTest::newRow("prefix is longer") << "x:abc"
                                      << "xx" << false;
}

void TestActivity::revisionPrefix()
{
    QFETCH(QString, revision);
    QFETCH(QString, prefix);
    SyncFilePtr file = m_context->insertSyncFile();
    file->setRevision(revision);
    QTEST(file->hasRevisionPrefix(prefix), "result");
}

QTEST_GUILESS_MAIN(TestActivity)
#include "testactivity.moc"
