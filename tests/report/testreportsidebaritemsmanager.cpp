#include <QAbstractItemModelTester>
#include <QMimeData>
#include <QtTest>

#include "model/storecontext.h"
#include "report/reportsidebaritemsmanager.h"
#include "report/reportsidebaroutlinemodel.h"
#include "sidebarfixture.h"

using namespace Qt::StringLiterals;
using Group = ReportSidebarItemsManager::Group;

namespace {

QDateTime at(const QString &local)
{
    return QDateTime::fromString(local, u"yyyy-MM-dd HH:mm"_s);
}

QStringList titles(const QList<ReportSidebarItem> &items)
{
    QStringList result;
    for (const ReportSidebarItem &item : items)
        result << item.title;
    return result;
}

qint64 idOf(const QList<ReportSidebarItem> &items, const QString &title)
{
    for (const ReportSidebarItem &item : items)
        if (item.title == title)
            return item.managedObjectID;
    return 0;
}

// The week the dynamic lists follow: Monday 2 March 2026 to the next Monday, local time.
const auto WeekFrom = u"2026-03-02 00:00"_s;
const auto WeekTo = u"2026-03-09 00:00"_s;

} // namespace

class TestReportSidebarItemsManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void listedItemsPerMode_data();
    void listedItemsPerMode();
    void selectionIsPrunedWhenItemLeaves_data();
    void selectionIsPrunedWhenItemLeaves();
    void rebuildsOnlyWhenListsCanChange_data();
    void rebuildsOnlyWhenListsCanChange();
    void sameDateFilterChangesNothing();
    void handOrderAfterOneDrag();
    void dropsStayWithinTheirGroup_data();
    void dropsStayWithinTheirGroup();
    void editModeWritesVisibility();

private:
    // Waits until the store has announced the commits made so far.
    void settle();

    std::unique_ptr<SidebarFixture> m_fixture;
    std::unique_ptr<ReportSidebarItemsManager> m_manager;
};

void TestReportSidebarItemsManager::init()
{
    m_fixture = std::make_unique<SidebarFixture>();
}

void TestReportSidebarItemsManager::cleanup()
{
    m_manager.reset();
    m_fixture.reset();
}

void TestReportSidebarItemsManager::settle()
{
    // Commits reach listeners on the next turn of the event loop; one more turn flushes them.
    QSignalSpy changed(&m_fixture->store(), &Store::changed);
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
}

void TestReportSidebarItemsManager::listedItemsPerMode_data()
{
    QTest::addColumn<bool>("editMode");
    QTest::addColumn<bool>("dated");
    QTest::addColumn<QStringList>("projects");
    QTest::addColumn<QStringList>("tasks");

    // Case does not sort: "alpine" between "Alpha" and "Edge". A project whose activities are all gone is
    // never listed; a hidden one only in edit mode and in the dated lists.
    QTest::newRow("normal: visible projects with activities")
        << false << false << QStringList { u"After"_s, u"Alpha"_s, u"alpine"_s, u"Edge"_s, u"Night"_s, u"Old"_s }
        << QStringList { u"archive"_s, u"boundary"_s, u"design"_s, u"late"_s, u"later"_s };
    QTest::newRow("edit mode: hidden ones too")
        << true << false
        << QStringList { u"After"_s, u"Alpha"_s, u"alpine"_s, u"Edge"_s, u"Hidden"_s, u"Night"_s, u"Old"_s }
        << QStringList { u"archive"_s, u"boundary"_s, u"design"_s, u"late"_s, u"later"_s, u"secret"_s };
    QTest::newRow("edit mode ignores the dates")
        << true << true
        << QStringList { u"After"_s, u"Alpha"_s, u"alpine"_s, u"Edge"_s, u"Hidden"_s, u"Night"_s, u"Old"_s }
        << QStringList { u"archive"_s, u"boundary"_s, u"design"_s, u"late"_s, u"later"_s, u"secret"_s };
    // Overlap: ending exactly at the start counts, starting exactly at the end does not; a night across
    // the start counts; hidden or not.
    QTest::newRow("dated: overlapping the range, hidden or not")
        << false << true << QStringList { u"Alpha"_s, u"alpine"_s, u"Edge"_s, u"Hidden"_s, u"Night"_s }
        << QStringList { u"boundary"_s, u"design"_s, u"late"_s, u"secret"_s };
}

void TestReportSidebarItemsManager::listedItemsPerMode()
{
    QFETCH(bool, editMode);
    QFETCH(bool, dated);
    QFETCH(QStringList, projects);
    QFETCH(QStringList, tasks);

    m_fixture->add(u"@Alpha #design sketches"_s, at(u"2026-03-03 10:00"_s), at(u"2026-03-03 11:00"_s));
    m_fixture->add(u"@alpine"_s, at(u"2026-03-04 10:00"_s), at(u"2026-03-04 11:00"_s));
    m_fixture->add(u"@Hidden #secret"_s, at(u"2026-03-05 10:00"_s), at(u"2026-03-05 11:00"_s));
    m_fixture->add(u"@Old #archive"_s, at(u"2025-01-10 10:00"_s), at(u"2025-01-10 11:00"_s));
    m_fixture->add(u"@Night #late"_s, at(u"2026-03-01 23:00"_s), at(u"2026-03-02 01:00"_s));
    m_fixture->add(u"@Edge #boundary"_s, at(u"2026-03-01 22:00"_s), at(WeekFrom));
    m_fixture->add(u"@After #later"_s, at(WeekTo), at(u"2026-03-09 01:00"_s));
    m_fixture->remove(m_fixture->add(u"@Empty #none"_s, at(u"2026-03-03 12:00"_s), at(u"2026-03-03 13:00"_s)));
    m_fixture->setStoredVisible(u"Hidden"_s, false, false);
    m_fixture->setStoredVisible(u"secret"_s, true, false);

    m_manager = std::make_unique<ReportSidebarItemsManager>(m_fixture->store(), m_fixture->settings());
    if (editMode)
        m_manager->toggleEditMode();
    if (dated)
        m_manager->filterItemsByDateFrom(at(WeekFrom), at(WeekTo));

    QCOMPARE(titles(m_manager->projects()), projects);
    QCOMPARE(titles(m_manager->tasks()), tasks);
    for (const auto &items : { m_manager->projects(), m_manager->tasks() }) {
        for (const ReportSidebarItem &item : items)
            QCOMPARE(item.visible, item.title != u"Hidden"_s && item.title != u"secret"_s);
    }
}

void TestReportSidebarItemsManager::selectionIsPrunedWhenItemLeaves_data()
{
    QTest::addColumn<bool>("task");
    QTest::addColumn<QString>("how");

    for (bool task : { false, true }) {
        const char *group = task ? "task" : "project";
        QTest::addRow("%s: its last activity deleted", group) << task << u"delete"_s;
        QTest::addRow("%s: hidden", group) << task << u"hide"_s;
        QTest::addRow("%s: outside the new date range", group) << task << u"range"_s;
    }
}

void TestReportSidebarItemsManager::selectionIsPrunedWhenItemLeaves()
{
    QFETCH(bool, task);
    QFETCH(QString, how);

    const QString gone = m_fixture->add(u"@Gone #gone"_s, at(u"2026-03-03 10:00"_s), at(u"2026-03-03 11:00"_s));
    m_fixture->add(u"@Stays #stays"_s, at(u"2026-04-03 10:00"_s), at(u"2026-04-03 11:00"_s));
    m_manager = std::make_unique<ReportSidebarItemsManager>(m_fixture->store(), m_fixture->settings());
    const Group group = task ? Group::Tasks : Group::Projects;
    const QString name = task ? u"gone"_s : u"Gone"_s;
    const QString other = task ? u"stays"_s : u"Stays"_s;
    QVERIFY(m_manager->toggleItem(group, idOf(m_manager->items(group), name)));
    QVERIFY(m_manager->toggleItem(group, idOf(m_manager->items(group), other)));
    const auto selected = [&] { return task ? m_manager->selectedTaskIds() : m_manager->selectedProjectIds(); };
    QCOMPARE(selected().size(), 2);

    QSignalSpy contentChanged(m_manager.get(), &ReportSidebarItemsManager::contentChanged);
    if (how == u"delete"_s)
        m_fixture->remove(gone);
    else if (how == u"hide"_s)
        m_fixture->setStoredVisible(name, task, false);
    else
        m_manager->filterItemsByDateFrom(at(u"2026-04-01 00:00"_s), at(u"2026-05-01 00:00"_s));
    QTRY_COMPARE(contentChanged.count(), 1);

    QCOMPARE(titles(m_manager->items(group)), QStringList { other });
    QCOMPARE(selected(), QList<qint64> { idOf(m_manager->items(group), other) });
    QVERIFY(m_manager->items(group).first().selected);
    if (how == u"range"_s) {
        // Back in the list, it is not ticked again: the report was no longer filtered by it.
        m_manager->filterItemsByDateFrom(std::nullopt, std::nullopt);
        QCOMPARE(titles(m_manager->items(group)), (QStringList { name, other }));
        QVERIFY(!m_manager->items(group).first().selected);
    }
}

void TestReportSidebarItemsManager::rebuildsOnlyWhenListsCanChange_data()
{
    QTest::addColumn<bool>("dated");
    QTest::addColumn<QString>("change");
    QTest::addColumn<bool>("rebuilt");
    QTest::addColumn<QStringList>("projects");

    QTest::newRow("times only") << false << u"times"_s << false << QStringList { u"Alpha"_s, u"Beta"_s };
    QTest::newRow("text, same project and tasks")
        << false << u"words"_s << false << QStringList { u"Alpha"_s, u"Beta"_s };
    QTest::newRow("invoiced only") << false << u"invoiced"_s << false << QStringList { u"Alpha"_s, u"Beta"_s };
    QTest::newRow("another project in the text")
        << false << u"project"_s << true << QStringList { u"Beta"_s, u"Gamma"_s };
    QTest::newRow("another task in the text") << false << u"task"_s << true << QStringList { u"Alpha"_s, u"Beta"_s };
    QTest::newRow("a project renamed") << false << u"rename"_s << true << QStringList { u"ALPHA"_s, u"Beta"_s };
    QTest::newRow("a commit of another process")
        << false << u"external"_s << true << QStringList { u"Alpha"_s, u"Beta"_s };
    // The dated lists depend on the times: moving the only activity out of the range drops the project.
    QTest::newRow("dated: times move it out of the range") << true << u"times"_s << true << QStringList { u"Beta"_s };
}

void TestReportSidebarItemsManager::rebuildsOnlyWhenListsCanChange()
{
    QFETCH(bool, dated);
    QFETCH(QString, change);
    QFETCH(bool, rebuilt);
    QFETCH(QStringList, projects);

    const QString alpha = m_fixture->add(u"@Alpha #design"_s, at(u"2026-03-03 10:00"_s), at(u"2026-03-03 11:00"_s));
    m_fixture->add(u"@Beta #design"_s, at(u"2026-03-04 10:00"_s), at(u"2026-03-04 11:00"_s));
    m_manager = std::make_unique<ReportSidebarItemsManager>(m_fixture->store(), m_fixture->settings());
    if (dated)
        m_manager->filterItemsByDateFrom(at(WeekFrom), at(WeekTo));
    settle();
    QSignalSpy contentChanged(m_manager.get(), &ReportSidebarItemsManager::contentChanged);
    QSignalSpy storeChanged(&m_fixture->store(), &Store::changed);

    if (change == u"times"_s) {
        m_fixture->setTimes(alpha, at(u"2026-02-03 10:00"_s), at(u"2026-02-03 12:30"_s));
    } else if (change == u"words"_s) {
        m_fixture->setText(alpha, u"@Alpha #design more sketches"_s);
    } else if (change == u"invoiced"_s) {
        auto context = m_fixture->store().newContext();
        (*context->activityWithUid(alpha))->setIsInvoiced(true);
        QVERIFY(context->save());
    } else if (change == u"project"_s) {
        m_fixture->setText(alpha, u"@Gamma #design"_s);
    } else if (change == u"task"_s) {
        m_fixture->setText(alpha, u"@Alpha #design #review"_s);
    } else if (change == u"rename"_s) {
        auto context = m_fixture->store().newContext();
        context->findProject(u"ALPHA"_s);
        QVERIFY(context->save());
    } else if (change == u"external"_s) {
        m_fixture->store().checkForExternalChanges();
        StoreOptions options;
        options.applicationFilesDirectory = m_fixture->applicationFilesDirectory();
        auto other = Store::open(options);
        QVERIFY(other);
        auto context = (*other)->newContext();
        ActivityPtr activity = context->insertActivity();
        activity->setText(u"@Alpha"_s);
        activity->setTimeFrom(at(u"2026-03-05 10:00"_s));
        activity->setTimeTo(at(u"2026-03-05 11:00"_s));
        QVERIFY(context->save());
        QVERIFY(m_fixture->store().checkForExternalChanges());
    }
    QTRY_COMPARE(storeChanged.count(), 1);

    QCOMPARE(contentChanged.count(), rebuilt ? 1 : 0);
    QCOMPARE(titles(m_manager->projects()), projects);
    if (change == u"task"_s)
        QCOMPARE(titles(m_manager->tasks()), (QStringList { u"design"_s, u"review"_s }));
}

void TestReportSidebarItemsManager::sameDateFilterChangesNothing()
{
    m_manager = std::make_unique<ReportSidebarItemsManager>(m_fixture->store(), m_fixture->settings());
    QSignalSpy contentChanged(m_manager.get(), &ReportSidebarItemsManager::contentChanged);
    m_manager->filterItemsByDateFrom(std::nullopt, std::nullopt);
    QCOMPARE(contentChanged.count(), 0);
    m_manager->filterItemsByDateFrom(at(WeekFrom), at(WeekTo));
    QCOMPARE(contentChanged.count(), 1);
    // The same instants in another zone are the same dates.
    m_manager->filterItemsByDateFrom(at(WeekFrom).toUTC(), at(WeekTo).toUTC());
    QCOMPARE(contentChanged.count(), 1);
    m_manager->filterItemsByDateFrom(at(WeekFrom), at(u"2026-03-03 00:00"_s));
    QCOMPARE(contentChanged.count(), 2);
    m_manager->filterItemsByDateFrom(at(WeekFrom), std::nullopt);
    QCOMPARE(contentChanged.count(), 3);
}

void TestReportSidebarItemsManager::handOrderAfterOneDrag()
{
    const QDateTime from = at(u"2026-03-03 10:00"_s);
    const QDateTime to = at(u"2026-03-03 11:00"_s);
    m_fixture->add(u"@P #charlie #Bravo #alpha"_s, from, to);
    // Two tasks known to the store but not listed when the user drags: they keep no position.
    const QString zeta = m_fixture->add(u"@P #zeta #yak"_s, from, to);
    m_fixture->remove(zeta);
    m_manager = std::make_unique<ReportSidebarItemsManager>(m_fixture->store(), m_fixture->settings());
    ReportSidebarOutlineModel model(*m_manager);
    QCOMPARE(titles(m_manager->tasks()), (QStringList { u"alpha"_s, u"Bravo"_s, u"charlie"_s }));

    // "alpha" dropped after the last child.
    const QModelIndex tasks = model.groupIndex(Group::Tasks);
    std::unique_ptr<QMimeData> dragged(model.mimeData({ model.index(0, 0, tasks) }));
    QVERIFY(model.dropMimeData(dragged.get(), Qt::MoveAction, 3, 0, tasks));
    QCOMPARE(titles(m_manager->tasks()), (QStringList { u"Bravo"_s, u"charlie"_s, u"alpha"_s }));
    QCOMPARE(m_fixture->storedPosition(u"Bravo"_s, true), 0);
    QCOMPARE(m_fixture->storedPosition(u"charlie"_s, true), 1);
    QCOMPARE(m_fixture->storedPosition(u"alpha"_s, true), 2);
    QCOMPARE(m_fixture->storedPosition(u"zeta"_s, true), std::nullopt);
    QVERIFY(m_fixture->settings().reportSidebarTasksOrdered());
    QVERIFY(!m_fixture->settings().reportSidebarProjectsOrdered());
    // The store now gives a new task the next place, wherever it is created.
    QVERIFY(m_fixture->store().sidebarOrderedByHand(true));

    m_fixture->add(u"@P #delta"_s, from, to);
    m_fixture->add(u"@P #zeta #yak"_s, from, to);
    QTRY_COMPARE(m_manager->tasks().size(), 6);
    QCOMPARE(m_fixture->storedPosition(u"delta"_s, true), 3);
    // Without a position first, as SQLite sorts NULL, then by name.
    QCOMPARE(titles(m_manager->tasks()),
        (QStringList { u"yak"_s, u"zeta"_s, u"Bravo"_s, u"charlie"_s, u"alpha"_s, u"delta"_s }));

    QVERIFY(m_manager->resetTasksOrder());
    QTRY_COMPARE(titles(m_manager->tasks()),
        (QStringList { u"alpha"_s, u"Bravo"_s, u"charlie"_s, u"delta"_s, u"yak"_s, u"zeta"_s }));
    QCOMPARE(m_fixture->storedPosition(u"Bravo"_s, true), std::nullopt);
    QVERIFY(!m_fixture->settings().reportSidebarTasksOrdered());
    QVERIFY(!m_fixture->store().sidebarOrderedByHand(true));
}

void TestReportSidebarItemsManager::dropsStayWithinTheirGroup_data()
{
    QTest::addColumn<bool>("dragTask");
    QTest::addColumn<int>("from");
    QTest::addColumn<QString>("onto");
    QTest::addColumn<int>("row");
    QTest::addColumn<QStringList>("projects");

    const QStringList unchanged { u"A"_s, u"B"_s, u"C"_s };
    QTest::newRow("down to the end") << false << 0 << u"projects"_s << 3 << QStringList { u"B"_s, u"C"_s, u"A"_s };
    QTest::newRow("down by one") << false << 0 << u"projects"_s << 2 << QStringList { u"B"_s, u"A"_s, u"C"_s };
    QTest::newRow("onto its own place") << false << 1 << u"projects"_s << 1 << unchanged;
    QTest::newRow("just below itself") << false << 1 << u"projects"_s << 2 << unchanged;
    QTest::newRow("refused: task into projects") << true << 0 << u"projects"_s << 0 << QStringList();
    QTest::newRow("refused: onto an item") << false << 0 << u"item"_s << -1 << QStringList();
    QTest::newRow("refused: onto the group row") << false << 0 << u"projects"_s << -1 << QStringList();
    QTest::newRow("refused: among the groups") << false << 0 << u"root"_s << 1 << QStringList();
}

void TestReportSidebarItemsManager::dropsStayWithinTheirGroup()
{
    QFETCH(bool, dragTask);
    QFETCH(int, from);
    QFETCH(QString, onto);
    QFETCH(int, row);
    QFETCH(QStringList, projects);

    for (const auto *name : { "A", "B", "C" })
        m_fixture->add(u"@%1 #t%1"_s.arg(QLatin1String(name)), at(u"2026-03-03 10:00"_s), at(u"2026-03-03 11:00"_s));
    m_manager = std::make_unique<ReportSidebarItemsManager>(m_fixture->store(), m_fixture->settings());
    ReportSidebarOutlineModel model(*m_manager);
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest);

    const QModelIndex projectsRow = model.groupIndex(Group::Projects);
    const QModelIndex dragGroup = model.groupIndex(dragTask ? Group::Tasks : Group::Projects);
    std::unique_ptr<QMimeData> dragged(model.mimeData({ model.index(from, 0, dragGroup) }));
    QVERIFY(dragged && dragged->hasFormat(u"adfadasdfasfd"_s));
    QModelIndex parent;
    if (onto == u"projects"_s)
        parent = projectsRow;
    else if (onto == u"tasks"_s)
        parent = model.groupIndex(Group::Tasks);
    else if (onto == u"item"_s)
        parent = model.index(1, 0, projectsRow);
    const bool accepted = !projects.isEmpty();

    QCOMPARE(model.canDropMimeData(dragged.get(), Qt::MoveAction, row, 0, parent), accepted);
    QCOMPARE(model.dropMimeData(dragged.get(), Qt::MoveAction, row, 0, parent), accepted);
    QCOMPARE(titles(m_manager->projects()), (accepted ? projects : QStringList { u"A"_s, u"B"_s, u"C"_s }));
    QCOMPARE(m_fixture->settings().reportSidebarProjectsOrdered(), accepted);
    for (int i = 0; i < projects.size(); ++i)
        QCOMPARE(m_fixture->storedPosition(projects.at(i), false), i);
    QVERIFY(!m_fixture->settings().reportSidebarTasksOrdered());
}

// The view's test ticks a project's box; here: no box outside edit mode, and the group-wide marks.
void TestReportSidebarItemsManager::editModeWritesVisibility()
{
    m_fixture->add(u"@Alpha #design #review"_s, at(u"2026-03-03 10:00"_s), at(u"2026-03-03 11:00"_s));
    m_manager = std::make_unique<ReportSidebarItemsManager>(m_fixture->store(), m_fixture->settings());
    ReportSidebarOutlineModel model(*m_manager);
    const QModelIndex alpha = model.index(0, 0, model.groupIndex(Group::Projects));
    QVERIFY(!model.data(alpha, Qt::CheckStateRole).isValid());
    QVERIFY(!(model.flags(alpha) & Qt::ItemIsUserCheckable));
    QVERIFY(!model.setData(alpha, Qt::Unchecked, Qt::CheckStateRole));

    m_manager->toggleEditMode();
    QVERIFY(m_manager->markTasksHidden());
    QVERIFY(!m_fixture->storedVisible(u"design"_s, true));
    QVERIFY(!m_fixture->storedVisible(u"review"_s, true));
    settle();
    // Still listed while editing, so that they can be shown again.
    QCOMPARE(m_manager->tasks().size(), 2);
    m_manager->toggleEditMode();
    QVERIFY(m_manager->tasks().isEmpty());
    m_manager->toggleEditMode();
    QVERIFY(m_manager->markTasksVisible());
    m_manager->toggleEditMode();
    QTRY_COMPARE(m_manager->tasks().size(), 2);
}

QTEST_GUILESS_MAIN(TestReportSidebarItemsManager)
#include "testreportsidebaritemsmanager.moc"
