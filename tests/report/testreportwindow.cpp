#include <QAbstractItemModelTester>
#include <QApplication>
#include <QCalendarWidget>
#include <QClipboard>
#include <QComboBox>
#include <QFileDialog>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QSplitter>
#include <QTableView>
#include <QTest>
#include <QToolButton>

#include "fakes/fakeclock.h"
#include "gui/report/bvdatepicker.h"
#include "gui/report/bvdatepickerpanelviewcontroller.h"
#include "gui/report/bvsegmentedcell.h"
#include "gui/report/bvsidebaroutlineview.h"
#include "gui/report/bvtableview.h"
#include "gui/report/reportchartview.h"
#include "gui/report/reportsidebarlionview.h"
#include "gui/report/reportwindowcontroller.h"
#include "model/activitymanager.h"
#include "model/storecontext.h"
#include "report/reportsidebaritemsmanager.h"
#include "report/reportsidebaroutlinemodel.h"
#include "report/reporttablemodel.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {
QDateTime local(const QString &text)
{
    return QDateTime::fromString(text, u"yyyy-MM-dd HH:mm"_s);
}
} // namespace

// The real report window offscreen, over a fresh store and settings, with the clock on Wednesday
// 13 March 2024, 10:00 in Berlin.
class TestReportWindow : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void opensOnTheWeekAndFollowsTheStore();
    void searchFiltersAsOneTypes();
    void steppingTheRangeAndPickingADay();
    void tickingASidebarItemNarrowsTheList();
    void tableKeysMoveToggleAndDelete();
    void contextMenuActsOnTheClickedActivity();
    void invoicedFilterCyclesWithCtrlI();
    void headerMenuFormatsAndHidesColumns();
    void copyFollowsTheHeaderTheSelectionAndTheFocus();
    void exportThroughTheDialog();
    void filterToolbarAndSidebarLayoutPersist();
    void smallWindowKeepsTheTextInView();
    void importingTwiceAddsNothing();
    void aFileTheReadingRefusesAddsNothingAndSaysNothing();
    void cancellingTheImportDialogClosesTheWindow();

private:
    QString add(const QString &text, const QString &from, const QString &to, bool invoiced = false);
    ReportWindowController *open();
    QStringList listedTexts() const;
    QString totals() const;
    QMessageBox *waitForAlert(ReportWindowController *window);
    QFileDialog *waitForDialog(ReportWindowController *window);
    int storedCount();

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock { local(u"2024-03-13 10:00"_s) };
    std::unique_ptr<Store> m_store;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
    std::unique_ptr<ActivityManager> m_manager;
    QPointer<ReportWindowController> m_window;
};

void TestReportWindow::init()
{
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    auto store = Store::open(options);
    QVERIFY(store);
    m_store = std::move(*store);
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale/Brimvale.conf"_s);
    QVERIFY(m_defaults->registerDefaultsFromResource());
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
    m_manager = std::make_unique<ActivityManager>(*m_store);
}

void TestReportWindow::cleanup()
{
    delete m_window;
    for (QWidget *widget : QApplication::topLevelWidgets())
        delete qobject_cast<ReportWindowController *>(widget);
    m_manager.reset();
    m_settings.reset();
    m_defaults.reset();
    m_store.reset();
    m_home.reset();
}

QString TestReportWindow::add(const QString &text, const QString &from, const QString &to, bool invoiced)
{
    auto context = m_store->newContext();
    ActivityPtr activity = context->insertActivity();
    activity->setText(text);
    activity->setTimeFrom(local(from));
    activity->setTimeTo(local(to));
    activity->setIsInvoiced(invoiced);
    if (!context->save())
        qFatal("cannot save");
    return activity->uid();
}

ReportWindowController *TestReportWindow::open()
{
    m_window = new ReportWindowController(*m_store, *m_manager, *m_settings);
    m_window->show();
    if (!QTest::qWaitForWindowExposed(m_window))
        qFatal("window not exposed");
    return m_window;
}

QStringList TestReportWindow::listedTexts() const
{
    QStringList texts;
    const ReportTableModel &model = m_window->model();
    for (int row = 0; row < model.rowCount(); ++row)
        texts.append(model.record(row).text);
    return texts;
}

QString TestReportWindow::totals() const
{
    return m_window->findChild<QLabel *>(u"totalsLabel"_s)->text();
}

QMessageBox *TestReportWindow::waitForAlert(ReportWindowController *window)
{
    if (!QTest::qWaitFor([window] { return window->alert() && window->alert()->isVisible(); }))
        return nullptr;
    return window->alert();
}

QFileDialog *TestReportWindow::waitForDialog(ReportWindowController *window)
{
    if (!QTest::qWaitFor([window] { return window->fileDialog() && window->fileDialog()->isVisible(); }))
        return nullptr;
    return window->fileDialog();
}

int TestReportWindow::storedCount()
{
    return int(*m_store->newContext()->countActivities());
}

void TestReportWindow::opensOnTheWeekAndFollowsTheStore()
{
    add(u"last week"_s, u"2024-03-08 09:00"_s, u"2024-03-08 10:00"_s);
    add(u"monday"_s, u"2024-03-11 09:00"_s, u"2024-03-11 10:30"_s);
    add(u"tuesday"_s, u"2024-03-12 09:00"_s, u"2024-03-12 09:30"_s);
    open();
    QAbstractItemModelTester tester(&m_window->model());
    QCOMPARE(m_window->rangeControl()->selectedSegment(), 2);
    QCOMPARE(m_window->datePicker()->dateValue().date(), QDate(2024, 3, 13));
    QCOMPARE(listedTexts(), (QStringList { u"tuesday"_s, u"monday"_s }));
    QCOMPARE(totals(), u"Total: 02:00:00"_s);

    // A commit elsewhere (tracking, sync, the command line) shows up without reopening.
    add(u"added elsewhere"_s, u"2024-03-13 08:00"_s, u"2024-03-13 09:00"_s);
    QTRY_COMPARE(listedTexts(), (QStringList { u"added elsewhere"_s, u"tuesday"_s, u"monday"_s }));
    QCOMPARE(totals(), u"Total: 03:00:00"_s);

    // The running activity's touch changes its row and the totals in place; the selection stays.
    m_clock.set(local(u"2024-03-13 09:30"_s));
    QCOMPARE(m_manager->startTrack(u"running"_s), QString());
    QTRY_COMPARE(listedTexts().size(), 4);
    // Whatever the start still has on its way to the window arrives before the touch is watched.
    QTest::qWait(1500);
    m_window->tableView().selectionModel()->select(
        QItemSelection(m_window->model().index(2, 0), m_window->model().index(3, 5)), QItemSelectionModel::Select);
    QSignalSpy reset(&m_window->model(), &QAbstractItemModel::modelReset);
    m_clock.set(local(u"2024-03-13 10:00"_s));
    m_manager->touchCurrentActivity();
    QTRY_COMPARE(totals(), u"Total: 02:00:00 / 03:30:00"_s);
    QCOMPARE(reset.count(), 0);
    QCOMPARE(m_window->tableView().selectedRowIndexes(), (QList<int> { 2, 3 }));
}

void TestReportWindow::searchFiltersAsOneTypes()
{
    add(u"xABy"_s, u"2024-03-12 09:00"_s, u"2024-03-12 10:00"_s);
    add(u"other"_s, u"2024-03-12 11:00"_s, u"2024-03-12 11:30"_s);
    add(u"cabin"_s, u"2024-03-11 11:00"_s, u"2024-03-11 11:15"_s);
    open();
    auto *search = m_window->findChild<QLineEdit *>(u"searchField"_s);
    QTest::keyClicks(search, u"a"_s);
    QCOMPARE(listedTexts(), (QStringList { u"xABy"_s, u"cabin"_s }));
    QTest::keyClicks(search, u"b"_s);
    QCOMPARE(listedTexts(), (QStringList { u"xABy"_s, u"cabin"_s }));
    QCOMPARE(totals(), u"Total: 01:15:00"_s);
    QTest::keyClick(search, Qt::Key_Backspace);
    QTest::keyClick(search, Qt::Key_Backspace);
    QCOMPARE(listedTexts().size(), 3);

    // Ctrl+F with the toolbar hidden opens the pop-up search, whose text filters the same way.
    m_window->toggleFilterToolbarShown();
    QTest::keyClick(m_window, Qt::Key_F, Qt::ControlModifier);
    auto *popup = m_window->findChild<QLineEdit *>(u"popupSearchField"_s);
    QVERIFY(popup->isVisible());
    QTest::keyClicks(popup, u"oth"_s);
    QCOMPARE(listedTexts(), QStringList { u"other"_s });
    // Hidden again (Ctrl+F in it), its text no longer filters.
    QTest::keyClick(popup, Qt::Key_F, Qt::ControlModifier);
    QVERIFY(!popup->isVisible());
    QCOMPARE(listedTexts().size(), 3);
}

void TestReportWindow::steppingTheRangeAndPickingADay()
{
    add(u"late"_s, u"2024-03-12 23:00"_s, u"2024-03-13 01:00"_s);
    add(u"wednesday"_s, u"2024-03-13 08:00"_s, u"2024-03-13 09:00"_s);
    add(u"february"_s, u"2024-02-13 08:00"_s, u"2024-02-13 09:00"_s);
    open();
    BvSegmentedCell *range = m_window->rangeControl();
    QTest::mouseClick(range, Qt::LeftButton, {}, range->segmentRect(1).center());
    QCOMPARE(listedTexts(), (QStringList { u"wednesday"_s, u"late"_s }));
    QTest::mouseClick(range, Qt::LeftButton, {}, range->segmentRect(0).center());
    QCOMPARE(m_window->datePicker()->dateValue().date(), QDate(2024, 3, 12));
    QCOMPARE(range->selectedSegment(), 1);
    QCOMPARE(listedTexts(), QStringList { u"late"_s });
    QTest::mouseClick(range, Qt::LeftButton, {}, range->segmentRect(3).center());
    QTest::mouseClick(range, Qt::LeftButton, {}, range->segmentRect(0).center());
    QCOMPARE(listedTexts(), QStringList { u"february"_s });
    QTest::mouseClick(range, Qt::LeftButton, {}, range->segmentRect(4).center());
    QCOMPARE(listedTexts().size(), 3);

    // A day clicked in the calendar (which opens on the picked 12 February) lists that day.
    QTest::mouseClick(range, Qt::LeftButton, {}, range->segmentRect(1).center());
    BvDatePicker *picker = m_window->datePicker();
    QTest::mouseClick(picker->calendarButton(), Qt::LeftButton);
    QTRY_VERIFY(picker->calendarPanel() && picker->calendarPanel()->isVisible());
    auto *days = picker->calendarPanel()->datePicker()->findChild<QTableView *>(u"qt_calendar_calendarview"_s);
    QVERIFY(days);
    // The first 13 from the top: the first row holds January's last days at most.
    QModelIndex thirteenth;
    for (int cell = 0; !thirteenth.isValid() && cell < days->model()->rowCount() * 7; ++cell) {
        const QModelIndex index = days->model()->index(cell / 7, cell % 7);
        if (index.data().toString() == u"13"_s)
            thirteenth = index;
    }
    QVERIFY(thirteenth.isValid());
    QTest::mouseClick(days->viewport(), Qt::LeftButton, {}, days->visualRect(thirteenth).center());
    QTRY_VERIFY(!picker->calendarPanel());
    QCOMPARE(listedTexts(), QStringList { u"february"_s });
}

void TestReportWindow::tickingASidebarItemNarrowsTheList()
{
    add(u"@Acme one"_s, u"2024-03-12 09:00"_s, u"2024-03-12 10:00"_s);
    add(u"@Globex two"_s, u"2024-03-12 11:00"_s, u"2024-03-12 11:30"_s);
    add(u"@Acme #call three"_s, u"2024-03-12 12:00"_s, u"2024-03-12 12:30"_s);
    open();
    ReportSidebarLionView *sidebar = m_window->sidebarView();
    QVERIFY(sidebar && sidebar->isVisible());
    ReportSidebarOutlineModel *model = sidebar->model();
    const QModelIndex acme = model->index(0, 0, model->groupIndex(ReportSidebarItemsManager::Group::Projects));
    BvSidebarOutlineView *outline = sidebar->sidebarView();
    QTest::mouseClick(outline->viewport(), Qt::LeftButton, {}, outline->visualRect(acme).center());
    QCOMPARE(listedTexts(), (QStringList { u"@Acme #call three"_s, u"@Acme one"_s }));
    QVERIFY(!outline->selectionModel()->hasSelection());
    const QModelIndex call = model->index(0, 0, model->groupIndex(ReportSidebarItemsManager::Group::Tasks));
    QTest::mouseClick(outline->viewport(), Qt::LeftButton, {}, outline->visualRect(call).center());
    QCOMPARE(listedTexts(), QStringList { u"@Acme #call three"_s });
    // A group row is not an item.
    const QModelIndex tasks = model->groupIndex(ReportSidebarItemsManager::Group::Tasks);
    QTest::mouseClick(outline->viewport(), Qt::LeftButton, {}, outline->visualRect(tasks).center());
    QCOMPARE(listedTexts(), QStringList { u"@Acme #call three"_s });

    // The keyboard: Space or Return on the current item ticks it, on a group row nothing.
    outline->setFocus();
    outline->setCurrentIndex(model->groupIndex(ReportSidebarItemsManager::Group::Projects));
    QTest::keyClick(outline, Qt::Key_Space);
    QCOMPARE(m_window->sidebarItemsManager()->selectedProjectIds().size(), 1);
    QTest::keyClick(outline, Qt::Key_Down);
    QCOMPARE(outline->currentIndex(), acme);
    QTest::keyClick(outline, Qt::Key_Space);
    QVERIFY(m_window->sidebarItemsManager()->selectedProjectIds().isEmpty());
    outline->setCurrentIndex(call);
    QTest::keyClick(outline, Qt::Key_Return);
    QCOMPARE(listedTexts().size(), 3);
}

void TestReportWindow::tableKeysMoveToggleAndDelete()
{
    add(u"one"_s, u"2024-03-12 09:00"_s, u"2024-03-12 10:00"_s);
    add(u"two"_s, u"2024-03-12 11:00"_s, u"2024-03-12 11:30"_s);
    add(u"three"_s, u"2024-03-12 12:00"_s, u"2024-03-12 12:30"_s);
    open();
    BvTableView &table = m_window->tableView();
    table.setFocus();
    table.selectOnlyRow(0);
    QTest::keyClick(&table, Qt::Key_J);
    QCOMPARE(table.selectedRowIndexes(), QList<int> { 1 });
    QTest::keyClick(&table, Qt::Key_J);
    QTest::keyClick(&table, Qt::Key_J);
    QCOMPARE(table.selectedRowIndexes(), QList<int> { 2 });
    QTest::keyClick(&table, Qt::Key_K);
    QCOMPARE(table.selectedRowIndexes(), QList<int> { 1 });

    QTest::keyClick(&table, Qt::Key_I);
    QVERIFY(m_window->model().record(1).isInvoiced);
    QCOMPARE(
        m_window->model().data(m_window->model().index(1, ReportTableModel::TextColumn), ReportTableModel::TagsRole),
        QVariant(QStringList { u"Invoiced"_s }));
    QCOMPARE(table.selectedRowIndexes(), QList<int> { 1 });
    QTest::keyClick(&table, Qt::Key_I);
    QVERIFY(!m_window->model().record(1).isInvoiced);

    QTest::keyClick(&table, Qt::Key_Delete);
    QMessageBox *alert = waitForAlert(m_window);
    QVERIFY(alert);
    QCOMPARE(alert->text(), u"Delete selected activities?"_s);
    QCOMPARE(alert->informativeText(), u"Deleted activities cannot be restored."_s);
    QTest::mouseClick(alert->button(QMessageBox::Cancel), Qt::LeftButton);
    QCOMPARE(listedTexts().size(), 3);
    QTest::keyClick(&table, Qt::Key_Delete);
    alert = waitForAlert(m_window);
    QVERIFY(alert);
    QTest::mouseClick(alert->button(QMessageBox::Ok), Qt::LeftButton);
    QCOMPARE(listedTexts(), (QStringList { u"three"_s, u"one"_s }));
    QCOMPARE(table.selectedRowIndexes(), QList<int> { 0 });
    const auto records = m_store->newContext()->fetchDeletedActivities();
    QCOMPARE(records->size(), 1);

    // Deleting everything leaves the running activity, which the window names to the deletion.
    QCOMPARE(m_manager->startTrack(u"running"_s), QString());
    QTRY_COMPARE(listedTexts().size(), 3);
    table.selectAll();
    QTest::keyClick(&table, Qt::Key_Delete);
    alert = waitForAlert(m_window);
    QVERIFY(alert);
    QTest::mouseClick(alert->button(QMessageBox::Ok), Qt::LeftButton);
    QCOMPARE(listedTexts(), QStringList { u"running"_s });
    QVERIFY(m_manager->isTracking());
}

// The titles and states are the core's; here: the mixed state's icon, and a right-click outside the
// selection acts on the clicked activity alone, even when a store change reloads the rows under the open menu.
void TestReportWindow::contextMenuActsOnTheClickedActivity()
{
    add(u"a"_s, u"2024-03-12 09:00"_s, u"2024-03-12 10:00"_s, true);
    add(u"b"_s, u"2024-03-12 11:00"_s, u"2024-03-12 11:30"_s);
    add(u"c"_s, u"2024-03-12 12:00"_s, u"2024-03-12 12:30"_s);
    const QString d = add(u"d"_s, u"2024-03-11 12:00"_s, u"2024-03-11 12:30"_s);
    open();
    BvTableView &table = m_window->tableView();
    table.selectionModel()->select(
        QItemSelection(m_window->model().index(0, 0), m_window->model().index(2, 5)), QItemSelectionModel::Select);
    QMenu *menu = m_window->actionMenu();
    Q_EMIT menu->aboutToShow();
    QAction *selected = m_window->menuAction(1);
    QVERIFY(!selected->isChecked() && !selected->icon().isNull());

    const QRect lastRow = table.visualRect(m_window->model().index(3, 0));
    QContextMenuEvent event(
        QContextMenuEvent::Mouse, lastRow.center(), table.viewport()->mapToGlobal(lastRow.center()));
    QApplication::sendEvent(table.viewport(), &event);
    QTRY_VERIFY(menu->isVisible());
    QCOMPARE(selected->text(), u"Mark as invoiced (selected activity)"_s);
    // Newer than all: every listed row moves down one.
    add(u"e"_s, u"2024-03-12 13:00"_s, u"2024-03-12 13:30"_s);
    QTRY_COMPARE(listedTexts().size(), 5);
    QCOMPARE(m_window->selectedActivityRows(), QList<int> { m_window->model().rowOfUid(d) });
    selected->trigger();
    menu->hide();
    QStringList invoiced;
    for (int row = 0; row < m_window->model().rowCount(); ++row) {
        if (m_window->model().record(row).isInvoiced)
            invoiced.append(m_window->model().record(row).text);
    }
    QCOMPARE(invoiced, (QStringList { u"a"_s, u"d"_s }));
}

void TestReportWindow::invoicedFilterCyclesWithCtrlI()
{
    add(u"invoiced"_s, u"2024-03-12 09:00"_s, u"2024-03-12 10:00"_s, true);
    add(u"open"_s, u"2024-03-12 11:00"_s, u"2024-03-12 11:30"_s);
    open();
    auto *popup = m_window->findChild<QComboBox *>(u"invoicedPopup"_s);
    QTest::keyClick(m_window, Qt::Key_I, Qt::ControlModifier);
    QCOMPARE(popup->currentData().toInt(), 1);
    QCOMPARE(listedTexts(), QStringList { u"invoiced"_s });
    QTest::keyClick(m_window, Qt::Key_I, Qt::ControlModifier);
    QCOMPARE(listedTexts(), QStringList { u"open"_s });
    QTest::keyClick(m_window, Qt::Key_I, Qt::ControlModifier);
    QCOMPARE(popup->currentData().toInt(), 0);
    QCOMPARE(listedTexts().size(), 2);
}

void TestReportWindow::headerMenuFormatsAndHidesColumns()
{
    add(u"a"_s, u"2024-03-12 09:00"_s, u"2024-03-12 10:13"_s);
    add(u"b"_s, u"2024-03-12 11:00"_s, u"2024-03-12 11:01"_s);
    open();
    QMenu *header = m_window->headerMenu();
    Q_EMIT header->aboutToShow();
    QAction *minutes = nullptr;
    QAction *projectColumn = nullptr;
    for (QAction *action : header->findChildren<QAction *>()) {
        if (action->data().toInt() == 33)
            projectColumn = action;
    }
    for (QAction *action : m_window->findChildren<QAction *>()) {
        if (action->data().toInt() == 42)
            minutes = action;
    }
    QVERIFY(minutes && projectColumn);
    minutes->trigger();
    QCOMPARE(m_settings->reportDurationFormat(), 1);
    QVERIFY(minutes->isChecked());
    QCOMPARE(m_window->model().data(m_window->model().index(0, ReportTableModel::DurationColumn)).toString(), u"1"_s);
    QCOMPARE(totals(), u"Total: 74"_s);
    QCOMPARE(m_window->model()
                 .data(m_window->model().index(0, ReportTableModel::DurationColumn), Qt::TextAlignmentRole)
                 .toInt(),
        int(Qt::AlignRight | Qt::AlignVCenter));
    QVERIFY(projectColumn->isChecked());
    projectColumn->trigger();
    QVERIFY(m_window->tableView().horizontalHeader()->isSectionHidden(ReportTableModel::ProjectColumn));
}

// The text's escaping and order are the model's; here: the header's order and hidden columns reach the
// clipboard, the selection's actions need a selection, and Copy is the table's only.
void TestReportWindow::copyFollowsTheHeaderTheSelectionAndTheFocus()
{
    add(u"@Acme #x first"_s, u"2024-03-12 09:00"_s, u"2024-03-12 10:00"_s);
    add(u"second"_s, u"2024-03-12 11:00"_s, u"2024-03-12 11:30"_s);
    open();
    const QStringList selectionActions { u"copyAction"_s, u"deleteAction"_s, u"exportSelectedAction"_s,
        u"editActivityAction"_s };
    const auto enabled = [this](const QStringList &names) {
        QList<bool> states;
        for (const QString &name : names)
            states.append(m_window->findChild<QAction *>(name)->isEnabled());
        return states;
    };
    QCOMPARE(enabled(selectionActions), QList<bool>(4, false));
    QVERIFY(m_window->findChild<QAction *>(u"exportAllAction"_s)->isEnabled());

    BvTableView &table = m_window->tableView();
    table.horizontalHeader()->setSectionHidden(ReportTableModel::TasksColumn, true);
    table.horizontalHeader()->moveSection(ReportTableModel::TextColumn, 0);
    table.selectAll();
    QCOMPARE(enabled(selectionActions), QList<bool>(4, true));
    QApplication::clipboard()->setText(u"before"_s);
    m_window->findChild<QLineEdit *>(u"searchField"_s)->setFocus();
    m_window->findChild<QAction *>(u"copyAction"_s)->trigger();
    QCOMPARE(QApplication::clipboard()->text(), u"before"_s);

    table.setFocus();
    m_window->findChild<QAction *>(u"copyAction"_s)->trigger();
    const QMimeData *data = QApplication::clipboard()->mimeData();
    const QString from = Activity::dateStr(local(u"2024-03-12 09:00"_s));
    const QString to = Activity::dateStr(local(u"2024-03-12 10:00"_s));
    QVERIFY(data->text().startsWith(u"second\t"_s));
    QVERIFY(data->text().endsWith(u"@Acme #x first\t"_s + from + u'\t' + to + u"\t01:00:00\tAcme\tx\t\n"_s));
    QVERIFY(data->html().contains(u"<td>Acme</td>"_s));
    table.clearSelection();
    QCOMPARE(enabled(selectionActions), QList<bool>(4, false));
}

void TestReportWindow::exportThroughTheDialog()
{
    add(u"one"_s, u"2024-03-12 09:00"_s, u"2024-03-12 10:00"_s);
    add(u"two"_s, u"2024-03-12 11:00"_s, u"2024-03-12 11:30"_s);
    m_settings->setDefaultActivityExportFormat(1);
    open();
    m_window->exportAll();
    QFileDialog *dialog = waitForDialog(m_window);
    QVERIFY(dialog);
    QCOMPARE(dialog->selectedNameFilter(), u"XML (*.xml)"_s);
    QCOMPARE(dialog->defaultSuffix(), u"xml"_s);
    dialog->selectNameFilter(u"CSV (*.csv)"_s);
    Q_EMIT dialog->filterSelected(u"CSV (*.csv)"_s);
    QCOMPARE(dialog->defaultSuffix(), u"csv"_s);
    const QString base = m_home->root() + u"/journal"_s;
    dialog->selectFile(base);
    QMetaObject::invokeMethod(dialog, "accept");
    QVERIFY(QFile::exists(base + u".csv"_s));
    QCOMPARE(m_settings->defaultActivityExportFormat(), 0);
    QFile file(base + u".csv"_s);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll().count("\r\n"), 1);

    m_window->tableView().selectOnlyRow(0);
    m_window->exportSelected();
    dialog = waitForDialog(m_window);
    QVERIFY(dialog);
    dialog->selectFile(m_home->root() + u"/missing/folder/x.csv"_s);
    QMetaObject::invokeMethod(dialog, "accept");
    QMessageBox *alert = waitForAlert(m_window);
    QVERIFY(alert);
    QCOMPARE(alert->text(), u"Export error!"_s);
    QVERIFY(alert->informativeText().startsWith(u"Failed to write CSV data to file!"_s));
}

void TestReportWindow::filterToolbarAndSidebarLayoutPersist()
{
    add(u"old"_s, u"2023-01-01 09:00"_s, u"2023-01-01 10:00"_s);
    add(u"new"_s, u"2024-03-12 09:00"_s, u"2024-03-12 10:00"_s);
    m_settings->setReportWindowSidebarCollapsed(false, 40);
    open();
    auto *splitter = m_window->findChild<QSplitter *>(u"splitter"_s);
    QCOMPARE(splitter->sizes().value(0), 150);
    QCOMPARE(listedTexts(), QStringList { u"new"_s });
    m_window->findChild<QLineEdit *>(u"searchField"_s)->setText(u"ne"_s);
    m_window->findChild<QAction *>(u"toggleFilterToolbarAction"_s)->trigger();
    QVERIFY(!m_settings->reportFilterToolbarVisible());
    QCOMPARE(m_window->rangeControl()->selectedSegment(), 4);
    QVERIFY(m_window->findChild<QLineEdit *>(u"searchField"_s)->text().isEmpty());
    QCOMPARE(listedTexts(), (QStringList { u"new"_s, u"old"_s }));
    QCOMPARE(m_window->findChild<QAction *>(u"toggleFilterToolbarAction"_s)->text(), u"Show Filter Toolbar"_s);

    m_window->findChild<QAction *>(u"chartAction"_s)->trigger();
    QVERIFY(m_settings->reportChartVisible());
    QVERIFY(m_window->chartView()->isVisible());

    m_window->resize(1100, 700);
    splitter->setSizes({ 230, 870 });
    QHeaderView *header = m_window->tableView().horizontalHeader();
    header->setSectionHidden(ReportTableModel::TasksColumn, true);
    header->moveSection(header->visualIndex(ReportTableModel::TextColumn), 0);
    header->resizeSection(ReportTableModel::FromColumn, 170);
    m_window->close();
    QCOMPARE(m_settings->reportWindowSidebarWidth(), 230.0);
    QVERIFY(!m_settings->reportWindowSidebarCollapsed());

    open();
    QVERIFY(!m_window->findChild<QWidget *>(u"filterToolbar"_s)->isVisible());
    QCOMPARE(m_window->rangeControl()->selectedSegment(), 4);
    QVERIFY(m_window->chartView()->isVisible());
    QCOMPARE(m_window->size(), QSize(1100, 700));
    header = m_window->tableView().horizontalHeader();
    QVERIFY(header->isSectionHidden(ReportTableModel::TasksColumn));
    QCOMPARE(header->visualIndex(ReportTableModel::TextColumn), 0);
    QCOMPARE(header->sectionSize(ReportTableModel::FromColumn), 170);
}

// At 640x420 the other columns give way so the text shows without scrolling sideways; widened again,
// they get their widths back.
void TestReportWindow::smallWindowKeepsTheTextInView()
{
    add(u"a text long enough to need its room"_s, u"2024-03-12 09:00"_s, u"2024-03-12 10:00"_s);
    open();
    BvTableView &table = m_window->tableView();
    QHeaderView *header = table.horizontalHeader();
    const int textMinimum = 14 * table.fontMetrics().averageCharWidth();
    m_window->resize(640, 420);
    QTRY_VERIFY(table.viewport()->width() < 500);
    QTRY_VERIFY(header->sectionSize(ReportTableModel::TextColumn) >= textMinimum);
    QVERIFY(header->sectionViewportPosition(ReportTableModel::TextColumn)
            + header->sectionSize(ReportTableModel::TextColumn)
        <= table.viewport()->width());
    QVERIFY(!table.horizontalScrollBar()->isVisible());

    m_window->resize(1280, 800);
    QTRY_COMPARE(header->sectionSize(ReportTableModel::FromColumn), 150);
    QCOMPARE(header->sectionSize(ReportTableModel::TasksColumn), 120);
}

void TestReportWindow::importingTwiceAddsNothing()
{
    const QString path = m_home->root() + u"/import.xml"_s;
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(
        "<activities>"
        "<activity uid=\"A1\" invoiced=\"1\" from=\"2024-03-01T09:00:00\" to=\"2024-03-01T10:00:00\">@Acme "
        "one</activity>"
        "<activity uid=\"A2\" invoiced=\"0\" from=\"2022-03-02T09:00:00\" to=\"2022-03-02T09:30:00\">two</activity>"
        "</activities>");
    file.close();

    for (int round = 0; round < 2; ++round) {
        ReportWindowController *window = ReportWindowController::initAsImport(*m_store, *m_manager, *m_settings);
        QPointer<ReportWindowController> guard(window);
        QCOMPARE(window->windowTitle(), u"Import activities"_s);
        QCOMPARE(window->rangeControl()->selectedSegment(), 4);
        QCOMPARE(window->tableView().contextMenuPolicy(), Qt::DefaultContextMenu);
        QVERIFY(window->sidebarView()->findChild<QWidget *>(u"sidebarActionsButton"_s)->isHidden());
        window->show();
        QFileDialog *dialog = waitForDialog(window);
        QVERIFY(dialog);
        auto *name = dialog->findChild<QLineEdit *>(u"fileNameEdit"_s);
        QVERIFY(name);
        name->setText(path);
        QTest::keyClick(name, Qt::Key_Return);
        QTRY_COMPARE(window->model().rowCount(), 2);
        QCOMPARE(window->sidebarItemsManager()->projects().size(), 1);
        auto *selected = window->findChild<QPushButton *>(u"importSelectedButton"_s);
        QVERIFY(!selected->isEnabled());
        window->tableView().selectOnlyRow(0);
        QCOMPARE(selected->text(), u"Import selected activity"_s);
        window->tableView().selectAll();
        QCOMPARE(selected->text(), u"Import selected activities"_s);
        QTest::mouseClick(window->findChild<QPushButton *>(u"importAllButton"_s), Qt::LeftButton);
        QMessageBox *alert = waitForAlert(window);
        QVERIFY(alert);
        QCOMPARE(alert->text(), u"Activity import!"_s);
        QCOMPARE(alert->informativeText(), u"Imported 2 activities"_s);
        QCOMPARE(storedCount(), 2);
        alert->accept();
        window->close();
        QTRY_VERIFY(!guard);
    }
}

void TestReportWindow::aFileTheReadingRefusesAddsNothingAndSaysNothing()
{
    const QString path = m_home->root() + u"/notes.xml"_s;
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("these are notes, not activities");
    file.close();
    QPointer<ReportWindowController> window = ReportWindowController::initAsImport(*m_store, *m_manager, *m_settings);
    window->show();
    QFileDialog *dialog = waitForDialog(window);
    QVERIFY(dialog);
    dialog->findChild<QLineEdit *>(u"fileNameEdit"_s)->setText(path);
    QTest::keyClick(dialog->findChild<QLineEdit *>(u"fileNameEdit"_s), Qt::Key_Return);
    QTRY_VERIFY(!dialog->isVisible());
    QTest::qWait(50);
    QVERIFY(window);
    QVERIFY(!window->alert());
    QCOMPARE(window->model().rowCount(), 0);
    QVERIFY(!window->findChild<QPushButton *>(u"importAllButton"_s)->isEnabled());
    QCOMPARE(storedCount(), 0);
    window->close();
    QTRY_VERIFY(!window);
}

void TestReportWindow::cancellingTheImportDialogClosesTheWindow()
{
    QPointer<ReportWindowController> window = ReportWindowController::initAsImport(*m_store, *m_manager, *m_settings);
    window->show();
    QFileDialog *dialog = waitForDialog(window);
    QVERIFY(dialog);
    dialog->reject();
    QTRY_VERIFY(!window);
}

QTEST_MAIN(TestReportWindow)
#include "testreportwindow.moc"
