#include <QAction>
#include <QMimeData>
#include <QtTest>

#include "gui/report/bvreportsidebarcellview.h"
#include "gui/report/bvsidebaroutlineview.h"
#include "gui/report/reportsidebarlionview.h"
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

} // namespace

class TestReportSidebarLionView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void prunedTickMakesTheReportQueryAgain();
    void dropInTheOutline_data();
    void dropInTheOutline();
    void editModeCheckBoxesWriteVisibility();
    void dynamicItemsSwitch();
    void groupsOpenAsTheSettingsSay();
    void deleteKeysRunTheDeleteAction();

private:
    void makeView();
    QModelIndex itemIndex(Group group, int row) const;
    QPoint centreOf(const QModelIndex &index) const;

    std::unique_ptr<SidebarFixture> m_fixture;
    std::unique_ptr<ReportSidebarItemsManager> m_manager;
    std::unique_ptr<ReportSidebarLionView> m_view;
};

void TestReportSidebarLionView::init()
{
    m_fixture = std::make_unique<SidebarFixture>();
    m_fixture->add(u"@Alpha #design"_s, at(u"2026-03-03 10:00"_s), at(u"2026-03-03 11:00"_s));
    m_fixture->add(u"@Beta #review"_s, at(u"2026-03-04 10:00"_s), at(u"2026-03-04 11:00"_s));
    m_fixture->add(u"@Gamma"_s, at(u"2026-03-05 10:00"_s), at(u"2026-03-05 11:00"_s));
}

void TestReportSidebarLionView::cleanup()
{
    m_view.reset();
    m_manager.reset();
    m_fixture.reset();
}

void TestReportSidebarLionView::makeView()
{
    m_manager = std::make_unique<ReportSidebarItemsManager>(m_fixture->store(), m_fixture->settings());
    m_view = std::make_unique<ReportSidebarLionView>(*m_manager, m_fixture->settings());
    m_view->resize(240, 400);
    m_view->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_view.get()));
}

QModelIndex TestReportSidebarLionView::itemIndex(Group group, int row) const
{
    ReportSidebarOutlineModel *model = m_view->model();
    return model->index(row, 0, model->groupIndex(group));
}

QPoint TestReportSidebarLionView::centreOf(const QModelIndex &index) const
{
    return m_view->sidebarView()->visualRect(index).center();
}

void TestReportSidebarLionView::prunedTickMakesTheReportQueryAgain()
{
    const QString delta = m_fixture->add(u"@Delta"_s, at(u"2026-03-06 10:00"_s), at(u"2026-03-06 11:00"_s));
    makeView();
    QSignalSpy selectionChanged(m_view.get(), &ReportSidebarLionView::reportSidebarSelectionChanged);
    QTest::mouseClick(m_view->sidebarView()->viewport(), Qt::LeftButton, {}, centreOf(itemIndex(Group::Projects, 2)));
    QCOMPARE(selectionChanged.count(), 1);
    QCOMPARE(titles(m_manager->projects()).at(2), u"Delta"_s);

    // A rebuild that keeps the ticked item says nothing; one that drops it does.
    m_fixture->add(u"@Epsilon"_s, at(u"2026-03-06 12:00"_s), at(u"2026-03-06 13:00"_s));
    QTRY_COMPARE(m_manager->projects().size(), 5);
    QCOMPARE(selectionChanged.count(), 1);
    m_fixture->remove(delta);
    QTRY_COMPARE(selectionChanged.count(), 2);
    QVERIFY(m_manager->selectedProjectIds().isEmpty());
}

void TestReportSidebarLionView::dropInTheOutline_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QStringList>("projects");

    // "Gamma" is dragged; the outline turns the drop position into a place between rows or refuses it.
    QTest::newRow("upper edge of the first project")
        << u"first project"_s << QStringList { u"Gamma"_s, u"Alpha"_s, u"Beta"_s };
    QTest::newRow("lower edge of the first project")
        << u"below first project"_s << QStringList { u"Alpha"_s, u"Gamma"_s, u"Beta"_s };
    QTest::newRow("refused: onto a task") << u"task"_s << QStringList { u"Alpha"_s, u"Beta"_s, u"Gamma"_s };
    QTest::newRow("refused: onto the tasks group row")
        << u"tasks group"_s << QStringList { u"Alpha"_s, u"Beta"_s, u"Gamma"_s };
}

void TestReportSidebarLionView::dropInTheOutline()
{
    QFETCH(QString, target);
    QFETCH(QStringList, projects);

    makeView();
    BvSidebarOutlineView *outline = m_view->sidebarView();
    QPoint pos;
    if (target == u"first project"_s)
        pos = outline->visualRect(itemIndex(Group::Projects, 0)).topLeft() + QPoint(40, 1);
    else if (target == u"below first project"_s)
        pos = outline->visualRect(itemIndex(Group::Projects, 0)).bottomLeft() + QPoint(40, -1);
    else if (target == u"task"_s)
        pos = centreOf(itemIndex(Group::Tasks, 0));
    else
        pos = centreOf(m_view->model()->groupIndex(Group::Tasks));

    // What the outline's drag start hands to the drag.
    std::unique_ptr<QMimeData> dragged(m_view->model()->mimeData({ itemIndex(Group::Projects, 2) }));
    QDragEnterEvent enter(pos, Qt::MoveAction, dragged.get(), Qt::LeftButton, {});
    QCoreApplication::sendEvent(outline->viewport(), &enter);
    QDragMoveEvent move(pos, Qt::MoveAction, dragged.get(), Qt::LeftButton, {});
    QCoreApplication::sendEvent(outline->viewport(), &move);
    const bool accepted = titles(m_manager->projects()) != projects;
    QCOMPARE(move.isAccepted(), accepted);
    QDropEvent drop(pos, Qt::MoveAction, dragged.get(), Qt::LeftButton, {});
    QCoreApplication::sendEvent(outline->viewport(), &drop);

    QCOMPARE(titles(m_manager->projects()), projects);
    QCOMPARE(m_fixture->settings().reportSidebarProjectsOrdered(), accepted);
    if (accepted)
        QCOMPARE(m_fixture->storedPosition(projects.first(), false), 0);
    // The stored order survives the rebuild the store's change brings.
    QTest::qWait(50);
    QCOMPARE(titles(m_manager->projects()), projects);
}

void TestReportSidebarLionView::editModeCheckBoxesWriteVisibility()
{
    makeView();
    BvSidebarOutlineView *outline = m_view->sidebarView();
    QSignalSpy selectionChanged(m_view.get(), &ReportSidebarLionView::reportSidebarSelectionChanged);
    QAction *editMode = m_view->menuItem(ReportSidebarLionView::EditModeTag);
    QCOMPARE(editMode->text(), u"Change visible items"_s);
    for (int tag = 21; tag <= 24; ++tag)
        QVERIFY(!m_view->menuItem(tag)->isEnabled());

    editMode->trigger();
    QCOMPARE(m_view->menuItem(ReportSidebarLionView::EditModeTag)->text(), u"Done changing visible items"_s);
    for (int tag = 21; tag <= 24; ++tag)
        QVERIFY(m_view->menuItem(tag)->isEnabled());
    const QRect alpha = outline->visualRect(itemIndex(Group::Projects, 0));
    QTest::mouseClick(outline->viewport(), Qt::LeftButton, {}, BvReportSidebarCellView::checkBoxRect(alpha).center());
    QVERIFY(!m_fixture->storedVisible(u"Alpha"_s, false));
    QCOMPARE(selectionChanged.count(), 0);
    QVERIFY(m_manager->selectedProjectIds().isEmpty());
    QTRY_COMPARE(itemIndex(Group::Projects, 0).data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Unchecked);

    // Outside the box the row ticks as usual, in edit mode too.
    QTest::mouseClick(outline->viewport(), Qt::LeftButton, {}, centreOf(itemIndex(Group::Projects, 1)));
    QCOMPARE(selectionChanged.count(), 1);
    QVERIFY(m_fixture->storedVisible(u"Beta"_s, false));

    m_view->menuItem(ReportSidebarLionView::EditModeTag)->trigger();
    QCOMPARE(selectionChanged.count(), 2);
    QCOMPARE(titles(m_manager->projects()), (QStringList { u"Beta"_s, u"Gamma"_s }));
    QVERIFY(!itemIndex(Group::Projects, 0).data(Qt::CheckStateRole).isValid());
}

void TestReportSidebarLionView::dynamicItemsSwitch()
{
    makeView();
    QSignalSpy filterRequested(m_view.get(), &ReportSidebarLionView::filterSidebarItemsRequested);
    QAction *dynamicItems = m_view->menuItem(ReportSidebarLionView::DynamicItemsTag);
    QVERIFY(dynamicItems->isCheckable() && !dynamicItems->isChecked());
    dynamicItems->trigger();
    QVERIFY(m_fixture->settings().reportSidebarDynamicItems());
    QCOMPARE(filterRequested.count(), 1);
    QVERIFY(m_view->menuItem(ReportSidebarLionView::DynamicItemsTag)->isChecked());
    m_view->menuItem(ReportSidebarLionView::DynamicItemsTag)->trigger();
    QVERIFY(!m_fixture->settings().reportSidebarDynamicItems());
    QCOMPARE(filterRequested.count(), 2);
}

void TestReportSidebarLionView::groupsOpenAsTheSettingsSay()
{
    m_fixture->settings().setReportSidebarProjectsVisible(false);
    makeView();
    BvSidebarOutlineView *outline = m_view->sidebarView();
    const QModelIndex projects = m_view->model()->groupIndex(Group::Projects);
    const QModelIndex tasks = m_view->model()->groupIndex(Group::Tasks);
    QVERIFY(!outline->isExpanded(projects));
    QVERIFY(outline->isExpanded(tasks));

    outline->collapse(tasks);
    QVERIFY(!m_fixture->settings().reportSidebarTasksVisible());
    outline->expand(projects);
    QVERIFY(m_fixture->settings().reportSidebarProjectsVisible());
    // A rebuild keeps them as the user left them.
    m_manager->forceDataReload();
    QVERIFY(outline->isExpanded(m_view->model()->groupIndex(Group::Projects)));
    QVERIFY(!outline->isExpanded(m_view->model()->groupIndex(Group::Tasks)));
}

void TestReportSidebarLionView::deleteKeysRunTheDeleteAction()
{
    BvOutlineView outline;
    int deletes = 0;
    QTest::keyClick(&outline, Qt::Key_Delete);
    outline.setDeleteAction([&](BvOutlineView &view) {
        QCOMPARE(&view, &outline);
        ++deletes;
    });
    QTest::keyClick(&outline, Qt::Key_Delete);
    QTest::keyClick(&outline, Qt::Key_Backspace);
    QTest::keyClick(&outline, Qt::Key_D);
    QCOMPARE(deletes, 2);
}

QTEST_MAIN(TestReportSidebarLionView)
#include "testreportsidebarlionview.moc"
