#include "gui/report/reportwindowcontroller.h"

#include <QActionGroup>
#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QLoggingCategory>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPainter>
#include <QPushButton>
#include <QSplitter>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

#include "base/clock.h"
#include "export/activityexport.h"
#include "export/activityimport.h"
#include "gui/app/bvtaggedtextfieldcell.h"
#include "gui/report/bvdatepicker.h"
#include "gui/report/bvsegmentedcell.h"
#include "gui/report/bvtableview.h"
#include "gui/report/reportchartview.h"
#include "gui/report/reporteditingcontroller.h"
#include "gui/report/reportsidebarlionview.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "report/activitychange.h"
#include "report/activityinvoicing.h"
#include "report/bvfileexportformatcollection.h"
#include "report/reportchartdata.h"
#include "report/reportlayout.h"
#include "report/reportquery.h"
#include "report/reportselection.h"
#include "report/reportsidebaritemsmanager.h"
#include "report/reporttablemodel.h"
#include "report/reporttotals.h"
#include "settings/bvsettings.h"

Q_LOGGING_CATEGORY(lcReport, "brimvale.report")

static_assert(ReportTableModel::TagsRole == BvTaggedTextFieldCell::TagsRole);

namespace {
constexpr int SidebarMinimumWidth = 150;
constexpr int TableMinimumWidth = 360;
constexpr int DurationFormatMenuTag = 40;
constexpr int DurationFormatTagBase = 41;

QAction *addTagged(QMenu *menu, const QString &title, int tag, const QString &objectName)
{
    QAction *action = menu->addAction(title);
    action->setData(tag);
    action->setObjectName(objectName);
    return action;
}

// A dash in place of the check mark: some, not all, of the activities are invoiced.
QIcon mixedStateIcon(const QWidget *widget)
{
    const int side = widget->style()->pixelMetric(QStyle::PM_SmallIconSize);
    QPixmap pixmap(side, side);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setPen(QPen(widget->palette().color(QPalette::WindowText), 2));
    painter.drawLine(side / 4, side / 2, side * 3 / 4, side / 2);
    return QIcon(pixmap);
}
} // namespace

ReportWindowController::ReportWindowController(
    Store &store, ActivityManager &activityManager, BvSettings &settings, QWidget *parent)
    : ReportWindowController(Mode::Report, store, activityManager, settings, parent)
{ }

ReportWindowController *ReportWindowController::initAsImport(
    Store &store, ActivityManager &activityManager, BvSettings &settings, QWidget *parent)
{
    return new ReportWindowController(Mode::Import, store, activityManager, settings, parent);
}

ReportWindowController::ReportWindowController(
    Mode mode, Store &store, ActivityManager &activityManager, BvSettings &settings, QWidget *parent)
    : QMainWindow(parent)
    , m_mode(mode)
    , m_store(store)
    , m_activityManager(activityManager)
    , m_settings(settings)
{
    setObjectName(isImport() ? QStringLiteral("importWindow") : QStringLiteral("reportWindow"));
    setWindowTitle(isImport() ? tr("Import activities") : tr("Report"));
    setAttribute(Qt::WA_DeleteOnClose);
    resize(1000, 640);
    if (mode == Mode::Report && !settings.reportWindowGeometry().isEmpty())
        restoreGeometry(settings.reportWindowGeometry());

    std::optional<BvError> importError;
    if (isImport()) {
        m_import = std::make_unique<ActivityImport>();
        if (const auto made = m_import->ensurePersistentStore(); !made)
            importError = made.error();
        m_showOpenPanel = !importError;
    }
    m_model = std::make_unique<ReportTableModel>(listedStore());
    if (!importError)
        m_sidebarManager = std::make_unique<ReportSidebarItemsManager>(listedStore(), m_settings);
    m_model->setDurationFormat(m_settings.reportDurationFormat());

    // Today on the store's clock, which tests set.
    m_pickedDate = (m_store.clock() ? m_store.clock()->now() : QDateTime::currentDateTimeUtc()).toLocalTime();
    m_rangeMode = isImport() ? ReportQuery::AllSegment : ReportQuery::WeekSegment;
    m_filterToolbarVisible = isImport() || m_settings.reportFilterToolbarVisible();
    if (!m_filterToolbarVisible)
        m_rangeMode = ReportQuery::AllSegment;

    if (!isImport())
        m_editing = new ReportEditingController(m_store, m_activityManager, *this);
    buildMenus();
    buildToolbar();
    buildCentre();
    buildSidebar();
    buildActionMenu();
    buildHeaderMenu();
    applyLayoutSettings();
    updateToggleTitles();
    updateSelectionActions();

    connect(&listedStore(), &Store::changed, this, &ReportWindowController::onStoreChanged);
    if (importError) {
        QTimer::singleShot(0, this, [this, text = importError->message()] {
            showAlert(tr("Import activities"), text, true);
            connect(m_alert, &QMessageBox::finished, this, &QWidget::close);
        });
        return;
    }
    filterSidebarItems();
    performQuery();
}

ReportWindowController::~ReportWindowController()
{
    // The model goes before the table: its columns leaving must not reach the column fitting.
    m_table->horizontalHeader()->disconnect(this);
    m_table->viewport()->removeEventFilter(this);
}

Store &ReportWindowController::listedStore() const
{
    if (m_import && m_import->temporaryStore())
        return *m_import->temporaryStore();
    return m_store;
}

void ReportWindowController::buildMenus()
{
    QMenuBar *bar = menuBar();
    bar->setObjectName(QStringLiteral("reportMenuBar"));

    QMenu *file = bar->addMenu(tr("&File"));
    file->setObjectName(QStringLiteral("fileMenu"));
    if (!isImport()) {
        QAction *exportSelected = file->addAction(tr("Export Selected Activities..."));
        exportSelected->setObjectName(QStringLiteral("exportSelectedAction"));
        connect(exportSelected, &QAction::triggered, this, &ReportWindowController::exportSelected);
        m_selectionActions.append(exportSelected);
        QAction *exportAll = file->addAction(tr("Export All Activities..."));
        exportAll->setObjectName(QStringLiteral("exportAllAction"));
        connect(exportAll, &QAction::triggered, this, &ReportWindowController::exportAll);
    }
    QAction *importAction = file->addAction(tr("Import activities..."));
    importAction->setObjectName(QStringLiteral("importAction"));
    connect(importAction, &QAction::triggered, this, [this] {
        if (isImport())
            showOpenPanel();
        else
            Q_EMIT importRequested();
    });
    file->addSeparator();
    QAction *closeAction = file->addAction(tr("Close"));
    closeAction->setObjectName(QStringLiteral("closeAction"));
    closeAction->setShortcut(QKeySequence::Close);
    connect(closeAction, &QAction::triggered, this, &QWidget::close);

    QMenu *edit = bar->addMenu(tr("&Edit"));
    edit->setObjectName(QStringLiteral("editMenu"));
    if (m_editing) {
        edit->addActions({ m_editing->undoAction(), m_editing->redoAction() });
        edit->addSeparator();
    }
    QAction *copyAction = edit->addAction(tr("Copy"));
    copyAction->setObjectName(QStringLiteral("copyAction"));
    copyAction->setShortcut(QKeySequence::Copy);
    connect(copyAction, &QAction::triggered, this, &ReportWindowController::copy);
    m_selectionActions.append(copyAction);
    if (!isImport()) {
        QAction *deleteAction = edit->addAction(tr("Delete"));
        deleteAction->setObjectName(QStringLiteral("deleteAction"));
        connect(deleteAction, &QAction::triggered, this, &ReportWindowController::deleteSelectedActivity);
        m_selectionActions.append(deleteAction);
        QAction *editAction = edit->addAction(tr("Edit Activity..."));
        editAction->setObjectName(QStringLiteral("editActivityAction"));
        // The editing rule already asks for a selection, and leaves out the running activity.
        editAction->setEnabled(m_editing->canEdit());
        connect(m_editing, &ReportEditingController::canEditChanged, editAction, &QAction::setEnabled);
        connect(editAction, &QAction::triggered, this, &ReportWindowController::editSelectedActivity);
        QAction *newAction = edit->addAction(tr("New Activity..."));
        newAction->setObjectName(QStringLiteral("newActivityAction"));
        newAction->setShortcut(QKeySequence::New);
        connect(newAction, &QAction::triggered, this, &ReportWindowController::newActivity);
    }
    QAction *selectAll = edit->addAction(tr("Select All"));
    selectAll->setObjectName(QStringLiteral("selectAllAction"));
    selectAll->setShortcut(QKeySequence::SelectAll);
    connect(selectAll, &QAction::triggered, this, [this] { m_table->selectAll(); });

    QMenu *view = bar->addMenu(tr("&View"));
    view->setObjectName(QStringLiteral("viewMenu"));
    m_toggleFilterToolbar = view->addAction(QString());
    m_toggleFilterToolbar->setObjectName(QStringLiteral("toggleFilterToolbarAction"));
    m_toggleFilterToolbar->setVisible(!isImport());
    connect(m_toggleFilterToolbar, &QAction::triggered, this, &ReportWindowController::toggleFilterToolbarShown);
    m_toggleFilter = view->addAction(QString());
    m_toggleFilter->setObjectName(QStringLiteral("toggleFilterAction"));
    m_toggleFilter->setVisible(!isImport());
    connect(m_toggleFilter, &QAction::triggered, this, &ReportWindowController::toggleFilterShown);
    m_chartAction = view->addAction(tr("Chart"));
    m_chartAction->setObjectName(QStringLiteral("chartAction"));
    m_chartAction->setCheckable(true);
    m_chartAction->setChecked(m_settings.reportChartVisible());
    m_chartAction->setVisible(!isImport());
    connect(m_chartAction, &QAction::triggered, this, &ReportWindowController::toggleChartShown);
    QAction *find = view->addAction(tr("Find"));
    find->setObjectName(QStringLiteral("findAction"));
    find->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_F));
    connect(find, &QAction::triggered, this, &ReportWindowController::focusSearch);
    m_popupSearchAction = view->addAction(tr("Pop-up Search"));
    m_popupSearchAction->setObjectName(QStringLiteral("popupSearchAction"));
    m_popupSearchAction->setCheckable(true);
    connect(m_popupSearchAction, &QAction::triggered, this, &ReportWindowController::togglePopupSearch);
    QAction *cycle = view->addAction(tr("Next Invoiced Filter"));
    cycle->setObjectName(QStringLiteral("cycleFilterStatusAction"));
    cycle->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_I));
    connect(cycle, &QAction::triggered, this, &ReportWindowController::cycleFilterStatus);

    m_durationMenu = new QMenu(tr("Duration Format"), this);
    m_durationMenu->setObjectName(QStringLiteral("durationFormatMenu"));
    m_durationMenu->menuAction()->setData(DurationFormatMenuTag);
    m_durationGroup = new QActionGroup(this);
    const QStringList formats { tr("Formatted"), tr("In Minutes"), tr("Decimal Hours") };
    for (int format = 0; format < formats.size(); ++format) {
        QAction *action = addTagged(m_durationMenu, formats[format], DurationFormatTagBase + format,
            QStringLiteral("durationFormat%1Action").arg(format));
        action->setCheckable(true);
        action->setChecked(format == m_model->durationTransformer().format());
        m_durationGroup->addAction(action);
        connect(action, &QAction::triggered, this, [this, format] { setDurationFormat(format); });
    }
    view->addSeparator();
    view->addMenu(m_durationMenu);

    QMenu *window = bar->addMenu(tr("&Window"));
    window->setObjectName(QStringLiteral("windowMenu"));
    QAction *minimize = window->addAction(tr("Minimize"));
    minimize->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_M));
    connect(minimize, &QAction::triggered, this, &QWidget::showMinimized);
    QAction *zoom = window->addAction(tr("Zoom"));
    connect(zoom, &QAction::triggered, this, [this] { isMaximized() ? showNormal() : showMaximized(); });
    window->addSeparator();
    QAction *mainWindow = window->addAction(tr("Brimvale"));
    mainWindow->setObjectName(QStringLiteral("mainWindowAction"));
    connect(mainWindow, &QAction::triggered, this, &ReportWindowController::mainWindowRequested);
}

void ReportWindowController::buildToolbar()
{
    m_filterToolbar = new QToolBar(tr("Filter"), this);
    m_filterToolbar->setObjectName(QStringLiteral("filterToolbar"));
    m_filterToolbar->setMovable(false);
    m_filterToolbar->setFloatable(false);
    m_filterToolbar->toggleViewAction()->setVisible(false);
    setContextMenuPolicy(Qt::NoContextMenu);
    addToolBar(Qt::TopToolBarArea, m_filterToolbar);

    m_rangeControl = new BvSegmentedCell(m_filterToolbar);
    m_rangeControl->setObjectName(QStringLiteral("rangeControl"));
    m_rangeControl->setSegmentCount(ReportQuery::SegmentCount);
    m_rangeControl->setSegmentIcon(ReportQuery::PreviousSegment, style()->standardIcon(QStyle::SP_ArrowLeft));
    m_rangeControl->setSegmentToolTip(ReportQuery::PreviousSegment, tr("Previous"));
    m_rangeControl->setSegmentText(ReportQuery::DaySegment, tr("Day"));
    m_rangeControl->setSegmentText(ReportQuery::WeekSegment, tr("Week"));
    m_rangeControl->setSegmentText(ReportQuery::MonthSegment, tr("Month"));
    m_rangeControl->setSegmentText(ReportQuery::AllSegment, tr("All"));
    m_rangeControl->setSegmentIcon(ReportQuery::NextSegment, style()->standardIcon(QStyle::SP_ArrowRight));
    m_rangeControl->setSegmentToolTip(ReportQuery::NextSegment, tr("Next"));
    showRangeMode();
    m_filterToolbar->addWidget(m_rangeControl);
    connect(m_rangeControl, &BvSegmentedCell::segmentClicked, this, &ReportWindowController::onSegmentClicked);

    m_datePicker = new BvDatePicker(m_filterToolbar);
    m_datePicker->setObjectName(QStringLiteral("datePicker"));
    m_datePicker->setDisplayFormat(QLocale().dateFormat(QLocale::ShortFormat));
    if (m_store.clock())
        m_datePicker->setClock(*m_store.clock());
    m_datePicker->updateDateValue(m_pickedDate);
    m_filterToolbar->addWidget(m_datePicker);
    connect(
        m_datePicker, &BvDatePicker::dateSelected, this, [this] { onReportDateChanged(m_datePicker->dateValue()); });

    QWidget *spacer = new QWidget(m_filterToolbar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    m_filterToolbar->addWidget(spacer);

    m_searchField = new QLineEdit(m_filterToolbar);
    m_searchField->setObjectName(QStringLiteral("searchField"));
    m_searchField->setPlaceholderText(tr("Search"));
    m_searchField->setClearButtonEnabled(true);
    m_searchField->setMinimumWidth(120);
    m_searchField->setMaximumWidth(260);
    m_filterToolbar->addWidget(m_searchField);
    connect(m_searchField, &QLineEdit::textChanged, this, &ReportWindowController::performQuery);

    m_invoicedPopup = new QComboBox(m_filterToolbar);
    m_invoicedPopup->setObjectName(QStringLiteral("invoicedPopup"));
    m_invoicedPopup->addItem(tr("All activities"), int(ReportQuery::AllActivities));
    m_invoicedPopup->addItem(tr("Invoiced"), int(ReportQuery::OnlyInvoiced));
    m_invoicedPopup->addItem(tr("Not invoiced"), int(ReportQuery::OnlyNotInvoiced));
    m_filterToolbar->addWidget(m_invoicedPopup);
    connect(m_invoicedPopup, &QComboBox::activated, this,
        [this](int index) { setFilterStatus(m_invoicedPopup->itemData(index).toInt()); });
}

void ReportWindowController::buildCentre()
{
    m_splitter = new QSplitter(Qt::Horizontal, this);
    m_splitter->setObjectName(QStringLiteral("splitter"));
    m_splitter->setChildrenCollapsible(true);

    m_sidebarPane = new QWidget(m_splitter);
    m_sidebarPane->setObjectName(QStringLiteral("sidebarPane"));
    m_sidebarPane->setMinimumWidth(SidebarMinimumWidth);
    auto *sidebarLayout = new QVBoxLayout(m_sidebarPane);
    sidebarLayout->setContentsMargins(0, 0, 0, 0);

    m_tablePane = new QWidget(m_splitter);
    m_tablePane->setObjectName(QStringLiteral("tablePane"));
    m_tablePane->setMinimumWidth(TableMinimumWidth);
    auto *tableLayout = new QVBoxLayout(m_tablePane);
    tableLayout->setContentsMargins(0, 0, 0, 0);
    tableLayout->setSpacing(0);

    m_popupSearchField = new QLineEdit(m_tablePane);
    m_popupSearchField->setObjectName(QStringLiteral("popupSearchField"));
    m_popupSearchField->setPlaceholderText(tr("Search"));
    m_popupSearchField->setClearButtonEnabled(true);
    m_popupSearchField->hide();
    tableLayout->addWidget(m_popupSearchField);
    connect(m_popupSearchField, &QLineEdit::textChanged, this, &ReportWindowController::performQuery);

    m_table = new BvTableView(m_tablePane);
    m_table->setObjectName(QStringLiteral("activitiesTable"));
    m_table->setModel(m_model.get());
    m_table->setItemDelegateForColumn(ReportTableModel::TextColumn, new BvTaggedTextFieldCell(m_table));
    QHeaderView *header = m_table->horizontalHeader();
    m_wishedColumnWidths = { 150, 150, 80, 120, 120 };
    for (int column = 0; column < m_wishedColumnWidths.size(); ++column)
        header->resizeSection(column, m_wishedColumnWidths[column]);
    // The text takes what is left, wherever it was moved; the others give way down to their minimums.
    header->setStretchLastSection(false);
    header->setSectionResizeMode(ReportTableModel::TextColumn, QHeaderView::Stretch);
    if (!isImport() && header->restoreState(m_settings.reportTableHeaderState())) {
        for (int column = 0; column < m_wishedColumnWidths.size(); ++column)
            m_wishedColumnWidths[column] = header->sectionSize(column);
    }
    connect(header, &QHeaderView::sectionResized, this, [this](int column, int, int size) {
        if (!m_fittingColumns && column >= 0 && column < m_wishedColumnWidths.size() && size > 0)
            m_wishedColumnWidths[column] = size;
    });
    m_table->viewport()->installEventFilter(this);
    m_tableSplitter = new QSplitter(Qt::Vertical, m_tablePane);
    m_tableSplitter->setObjectName(QStringLiteral("tableSplitter"));
    m_tableSplitter->setChildrenCollapsible(false);
    m_tableSplitter->addWidget(m_table);
    m_chartView = new ReportChartView(m_tableSplitter);
    m_chartView->setObjectName(QStringLiteral("chartView"));
    m_chartView->setDurationFormat(m_model->durationTransformer().format());
    m_chartView->setVisible(!isImport() && m_settings.reportChartVisible());
    m_tableSplitter->addWidget(m_chartView);
    m_tableSplitter->setStretchFactor(0, 3);
    m_tableSplitter->setStretchFactor(1, 2);
    tableLayout->addWidget(m_tableSplitter, 1);
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        updateTotals();
        updateImportButtons();
        updateSelectionActions();
    });
    connect(m_table, &BvTableView::toggleKeyPressed, this, &ReportWindowController::onTableViewToggle);
    connect(m_table, &BvTableView::deleteKeyPressed, this, &ReportWindowController::deleteSelectedActivity);
    connect(m_table, &BvTableView::editKeyPressed, this, &ReportWindowController::editRequested);
    connect(this, &ReportWindowController::editRequested, this, &ReportWindowController::editSelectedActivity);
    connect(m_table, &QAbstractItemView::doubleClicked, this, &ReportWindowController::editSelectedActivity);
    if (!isImport()) {
        m_table->setContextMenuPolicy(Qt::CustomContextMenu);
        connect(m_table, &QWidget::customContextMenuRequested, this, &ReportWindowController::onTableContextMenu);
    }

    auto *bottom = new QWidget(m_tablePane);
    bottom->setObjectName(QStringLiteral("bottomBar"));
    auto *bottomLayout = new QHBoxLayout(bottom);
    bottomLayout->setContentsMargins(8, 4, 8, 4);
    m_totalsLabel = new QLabel(ReportTotals::labelText(std::nullopt, std::nullopt, m_model->durationTransformer()));
    m_totalsLabel->setObjectName(QStringLiteral("totalsLabel"));
    m_totalsLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    bottomLayout->addWidget(m_totalsLabel, 1);
    if (m_editing) {
        auto *newButton = new QToolButton(bottom);
        newButton->setObjectName(QStringLiteral("newActivityButton"));
        newButton->setText(QStringLiteral("+"));
        newButton->setToolTip(tr("New activity"));
        connect(newButton, &QToolButton::clicked, this, &ReportWindowController::newActivity);
        auto *editButton = new QToolButton(bottom);
        editButton->setObjectName(QStringLiteral("editActivityButton"));
        editButton->setText(tr("Edit"));
        editButton->setToolTip(tr("Edit the selected activity"));
        editButton->setEnabled(m_editing->canEdit());
        connect(editButton, &QToolButton::clicked, this, &ReportWindowController::editSelectedActivity);
        connect(m_editing, &ReportEditingController::canEditChanged, editButton, &QWidget::setEnabled);
        connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, m_editing, [this] {
            const QList<int> rows = selectedActivityRows();
            m_editing->setSelectedUid(rows.isEmpty() ? QString() : m_model->uid(rows.first()));
        });
        bottomLayout->addWidget(newButton);
        bottomLayout->addWidget(editButton);
    }
    m_actionButton = new QToolButton(bottom);
    m_actionButton->setObjectName(QStringLiteral("actionButton"));
    m_actionButton->setText(tr("Activity Actions"));
    m_actionButton->setPopupMode(QToolButton::InstantPopup);
    m_actionButton->setToolButtonStyle(Qt::ToolButtonTextOnly);
    m_actionButton->setVisible(!isImport());
    bottomLayout->addWidget(m_actionButton);
    if (isImport()) {
        m_importSelectedButton = new QPushButton(ReportActionMenu::importSelectedTitle(0), bottom);
        m_importSelectedButton->setObjectName(QStringLiteral("importSelectedButton"));
        connect(m_importSelectedButton, &QPushButton::clicked, this, [this] { importOnlySelectedActivities(true); });
        m_importAllButton = new QPushButton(tr("Import all activities"), bottom);
        m_importAllButton->setObjectName(QStringLiteral("importAllButton"));
        connect(m_importAllButton, &QPushButton::clicked, this, [this] { importOnlySelectedActivities(false); });
        bottomLayout->addWidget(m_importSelectedButton);
        bottomLayout->addWidget(m_importAllButton);
    }
    tableLayout->addWidget(bottom);

    m_splitter->setStretchFactor(0, 0);
    m_splitter->setStretchFactor(1, 1);
    setCentralWidget(m_splitter);
}

void ReportWindowController::buildSidebar()
{
    if (!m_sidebarManager)
        return;
    m_sidebarView = new ReportSidebarLionView(*m_sidebarManager, m_settings, m_sidebarPane);
    m_sidebarView->setActionsButtonVisible(!isImport());
    m_sidebarPane->layout()->addWidget(m_sidebarView);
    connect(m_sidebarView, &ReportSidebarLionView::reportSidebarSelectionChanged, this,
        &ReportWindowController::performQuery);
    connect(m_sidebarView, &ReportSidebarLionView::filterSidebarItemsRequested, this,
        &ReportWindowController::filterSidebarItems);
}

void ReportWindowController::buildActionMenu()
{
    m_actionMenu = new QMenu(this);
    m_actionMenu->setObjectName(QStringLiteral("actionMenu"));
    using T = ReportActionMenu::Tag;
    connect(addTagged(m_actionMenu, QString(), T::Merge, QStringLiteral("mergeAction")), &QAction::triggered, this,
        &ReportWindowController::onMergeSelectedActivities);
    m_actionMenu->addSeparator();
    connect(addTagged(m_actionMenu, QString(), T::InvoicedSelected, QStringLiteral("invoicedSelectedAction")),
        &QAction::triggered, this, [this] {
            setInvoicedSelected(Qt::CheckState(menuAction(T::InvoicedSelected)->property("checkState").toInt()));
        });
    connect(addTagged(m_actionMenu, QString(), T::InvoicedAll, QStringLiteral("invoicedAllAction")),
        &QAction::triggered, this,
        [this] { setInvoicedAll(Qt::CheckState(menuAction(T::InvoicedAll)->property("checkState").toInt())); });
    m_actionMenu->addSeparator();
    connect(addTagged(m_actionMenu, QString(), T::ExportSelected, QStringLiteral("menuExportSelectedAction")),
        &QAction::triggered, this, &ReportWindowController::exportSelected);
    connect(addTagged(m_actionMenu, QString(), T::ExportAll, QStringLiteral("menuExportAllAction")),
        &QAction::triggered, this, &ReportWindowController::exportAll);
    m_actionMenu->addSeparator();
    connect(addTagged(m_actionMenu, QString(), T::DeleteSelected, QStringLiteral("menuDeleteAction")),
        &QAction::triggered, this, &ReportWindowController::deleteSelectedActivity);
    connect(m_actionMenu, &QMenu::aboutToShow, this, &ReportWindowController::updateActionMenu);
    // The button's menu acts on the selection; a context-menu click sets its row just before opening.
    connect(m_actionMenu, &QMenu::aboutToHide, this,
        [this] { QTimer::singleShot(0, this, [this] { m_clickedUid.clear(); }); });
    m_actionButton->setMenu(m_actionMenu);
    updateActionMenu();
}

void ReportWindowController::buildHeaderMenu()
{
    m_headerMenu = new QMenu(this);
    m_headerMenu->setObjectName(QStringLiteral("headerMenu"));
    QHeaderView *header = m_table->horizontalHeader();
    for (int column = ReportTableModel::FromColumn; column < ReportTableModel::TextColumn; ++column) {
        const int tag = ReportTableModel::columnTag(column);
        QAction *action = addTagged(m_headerMenu, m_model->headerData(column, Qt::Horizontal).toString(), tag,
            QStringLiteral("column%1Action").arg(tag));
        action->setCheckable(true);
        connect(action, &QAction::toggled, this, [this, tag](bool shown) { onToggleActivityColumn(tag, shown); });
    }
    m_headerMenu->addSeparator();
    m_headerMenu->addMenu(m_durationMenu);
    connect(m_headerMenu, &QMenu::aboutToShow, this, [this, header] {
        for (QAction *action : m_headerMenu->actions()) {
            const int column = ReportTableModel::columnForTag(action->data().toInt());
            if (column >= 0 && action->isCheckable()) {
                const QSignalBlocker blocker(action);
                action->setChecked(!header->isSectionHidden(column));
            }
        }
    });
    header->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(header, &QWidget::customContextMenuRequested, this,
        [this, header](const QPoint &position) { m_headerMenu->popup(header->mapToGlobal(position)); });
}

void ReportWindowController::applyLayoutSettings()
{
    m_filterToolbar->setVisible(m_filterToolbarVisible);
    if (isImport())
        return;
    const bool filterVisible = m_settings.reportFilterVisible();
    const int width = ReportLayout::sidebarWidth(
        m_settings.reportWindowSidebarWidth(), SidebarMinimumWidth, this->width(), TableMinimumWidth);
    if (m_settings.reportWindowSidebarCollapsed())
        m_splitter->setSizes({ 0, this->width() });
    else
        m_splitter->setSizes({ width, this->width() - width });
    m_sidebarPane->setVisible(filterVisible && !m_settings.reportWindowSidebarCollapsed());
}

void ReportWindowController::updateToggleTitles()
{
    m_toggleFilterToolbar->setText(ReportLayout::toggleFilterToolbarTitle(m_filterToolbarVisible));
    m_toggleFilter->setText(ReportLayout::toggleFilterTitle(!m_sidebarPane->isHidden()));
}

bool ReportWindowController::popupSearchVisible() const
{
    return !m_popupSearchField->isHidden();
}

void ReportWindowController::performQuery()
{
    if (m_import && !m_import->temporaryStore())
        return;
    ReportQuery::Filter filter;
    filter.range = currentRange();
    if (m_sidebarManager) {
        filter.projectIds = m_sidebarManager->selectedProjectIds();
        filter.taskIds = m_sidebarManager->selectedTaskIds();
    }
    filter.searchText = ReportQuery::searchText(
        m_filterToolbarVisible, m_searchField->text(), popupSearchVisible(), m_popupSearchField->text());
    filter.filterStatus = m_filterStatus;

    QStringList selected;
    for (int row : m_table->selectedRowIndexes())
        selected.append(m_model->uid(row));
    const QModelIndex current = m_table->currentIndex();
    const QString currentUid = current.isValid() ? m_model->uid(current.row()) : QString();
    if (const auto loaded = m_model->load(ReportQuery::activityQuery(filter)); !loaded) {
        qCWarning(lcReport) << "Could not list the activities:" << loaded.error().message();
        return;
    }
    reselect(selected, currentUid);
    m_totalSeconds = m_model->totalSeconds();
    updateTotals();
    updateImportButtons();
    updateChart();
}

ReportQuery::Range ReportWindowController::currentRange() const
{
    return ReportQuery::filterDateRange(m_rangeMode, m_pickedDate.date(), m_filterToolbarVisible);
}

void ReportWindowController::updateChart()
{
    if (!m_chartView || m_chartView->isHidden())
        return;
    const ReportQuery::Range range = currentRange();
    m_chartView->setChartData(ReportChartData(m_model->listedRecords(), range.from, range.to));
}

void ReportWindowController::toggleChartShown()
{
    if (isImport())
        return;
    const bool shown = m_chartView->isHidden();
    m_settings.setReportChartVisible(shown);
    m_chartView->setVisible(shown);
    m_chartAction->setChecked(shown);
    updateChart();
}

void ReportWindowController::filterSidebarItems()
{
    if (!m_sidebarManager)
        return;
    if (m_settings.reportSidebarDynamicItems()) {
        const ReportQuery::Range range = currentRange();
        m_sidebarManager->filterItemsByDateFrom(range.from, range.to);
    } else {
        m_sidebarManager->filterItemsByDateFrom(std::nullopt, std::nullopt);
    }
}

void ReportWindowController::showRangeMode()
{
    const QSignalBlocker blocker(m_rangeControl);
    m_rangeControl->setSelectedSegment(m_rangeMode);
}

void ReportWindowController::reselect(const QStringList &uids, const QString &currentUid)
{
    if (uids.isEmpty())
        return;
    QList<int> rows;
    for (const QString &uid : uids) {
        if (const int row = m_model->rowOfUid(uid); row >= 0)
            rows.append(row);
    }
    std::sort(rows.begin(), rows.end());
    QItemSelection selection;
    const int lastColumn = m_model->columnCount() - 1;
    for (qsizetype i = 0; i < rows.size();) {
        qsizetype j = i;
        while (j + 1 < rows.size() && rows[j + 1] == rows[j] + 1)
            ++j;
        selection.select(m_model->index(rows[i], 0), m_model->index(rows[j], lastColumn));
        i = j + 1;
    }
    const int currentRow = m_model->rowOfUid(currentUid);
    if (currentRow >= 0)
        m_table->selectionModel()->setCurrentIndex(m_model->index(currentRow, 0), QItemSelectionModel::NoUpdate);
    m_table->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
}

void ReportWindowController::updateTotals()
{
    const QList<int> selected = m_table->selectedRowIndexes();
    const auto selectedTotal = ReportTotals::selectedTotal(int(selected.size()), m_model->totalSeconds(selected));
    m_totalsLabel->setText(ReportTotals::labelText(m_totalSeconds, selectedTotal, m_model->durationTransformer()));
}

void ReportWindowController::updateSelectionActions()
{
    const bool any = m_table->selectionModel()->hasSelection();
    for (QAction *action : std::as_const(m_selectionActions))
        action->setEnabled(any);
}

int ReportWindowController::minimumColumnWidth(int column) const
{
    const int em = m_table->fontMetrics().averageCharWidth();
    switch (column) {
    case ReportTableModel::FromColumn:
    case ReportTableModel::ToColumn:
        return 9 * em;
    case ReportTableModel::TextColumn:
        return 14 * em;
    default:
        return 6 * em;
    }
}

void ReportWindowController::fitColumns()
{
    const QHeaderView *header = m_table->horizontalHeader();
    QList<int> columns;
    QList<int> wished;
    QList<int> minimum;
    for (int column = 0; column < m_wishedColumnWidths.size(); ++column) {
        if (header->isSectionHidden(column))
            continue;
        columns.append(column);
        wished.append(m_wishedColumnWidths[column]);
        minimum.append(std::min(minimumColumnWidth(column), m_wishedColumnWidths[column]));
    }
    const QList<int> widths = ReportLayout::fittedColumnWidths(
        wished, minimum, m_table->viewport()->width() - minimumColumnWidth(ReportTableModel::TextColumn));
    m_fittingColumns = true;
    for (qsizetype i = 0; i < columns.size(); ++i)
        m_table->horizontalHeader()->resizeSection(columns[i], widths[i]);
    m_fittingColumns = false;
}

bool ReportWindowController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_table->viewport() && event->type() == QEvent::Resize)
        fitColumns();
    return QMainWindow::eventFilter(watched, event);
}

void ReportWindowController::updateImportButtons()
{
    if (!isImport())
        return;
    const int selected = int(m_table->selectedRowIndexes().size());
    m_importSelectedButton->setText(ReportActionMenu::importSelectedTitle(selected));
    m_importSelectedButton->setEnabled(selected > 0);
    m_importAllButton->setEnabled(m_model->rowCount() > 0);
}

QList<int> ReportWindowController::selectedActivityRows() const
{
    if (m_clickedUid.isEmpty())
        return ReportSelection::actionRows(m_table->selectedRowIndexes(), -1);
    // The clicked activity left the list while the menu was open: act on nothing rather than on another.
    const int clickedRow = m_model->rowOfUid(m_clickedUid);
    if (clickedRow < 0)
        return {};
    return ReportSelection::actionRows(m_table->selectedRowIndexes(), clickedRow);
}

QAction *ReportWindowController::menuAction(int tag) const
{
    for (QAction *action : m_actionMenu->actions()) {
        if (!action->isSeparator() && action->data().toInt() == tag)
            return action;
    }
    return nullptr;
}

void ReportWindowController::updateActionMenu()
{
    const QList<int> rows = selectedActivityRows();
    const auto items = ReportActionMenu::items(
        { int(rows.size()), m_model->invoicedCount(rows), m_model->rowCount(), m_model->invoicedCount() });
    for (auto item = items.cbegin(); item != items.cend(); ++item) {
        QAction *action = menuAction(item.key());
        if (!action)
            continue;
        action->setText(item->title);
        action->setEnabled(item->enabled);
        action->setProperty("checkState", int(item->state));
        const bool invoicedItem
            = item.key() == ReportActionMenu::InvoicedSelected || item.key() == ReportActionMenu::InvoicedAll;
        action->setCheckable(invoicedItem && item->state == Qt::Checked);
        action->setChecked(item->state == Qt::Checked);
        action->setIcon(item->state == Qt::PartiallyChecked ? mixedStateIcon(this) : QIcon());
    }
}

void ReportWindowController::onTableContextMenu(const QPoint &position)
{
    const QModelIndex index = m_table->indexAt(position);
    m_clickedUid = index.isValid() ? m_model->uid(index.row()) : QString();
    m_actionMenu->popup(m_table->viewport()->mapToGlobal(position));
}

void ReportWindowController::scheduleQuery()
{
    if (m_queryScheduled)
        return;
    m_queryScheduled = true;
    QTimer::singleShot(0, this, [this] {
        m_queryScheduled = false;
        performQuery();
    });
}

void ReportWindowController::onStoreChanged(const StoreChanges &changes)
{
    if (!changes.isEverything() && !changes.contains(StoreChanges::Entity::Activity)
        && !changes.contains(StoreChanges::Entity::Project) && !changes.contains(StoreChanges::Entity::Task))
        return;
    // Only updates of listed activities (the running one's end every half minute): those rows alone are
    // read again, unless a full read is already due.
    // A write that names no activity (a bulk one) may have changed any: that reads again.
    const bool onlyUpdates = !changes.isEverything() && !changes.updatedUids().isEmpty()
        && changes.insertedUids().isEmpty() && changes.deletedUids().isEmpty()
        && !changes.contains(StoreChanges::Entity::Project) && !changes.contains(StoreChanges::Entity::Task);
    if (onlyUpdates && !m_queryScheduled) {
        m_refreshUids.unite(changes.updatedUids());
        scheduleRefresh();
        return;
    }
    m_refreshUids.clear();
    m_model->invalidate();
    scheduleQuery();
}

void ReportWindowController::scheduleRefresh()
{
    if (m_refreshScheduled)
        return;
    m_refreshScheduled = true;
    QTimer::singleShot(0, this, [this] {
        m_refreshScheduled = false;
        const QSet<QString> uids = std::exchange(m_refreshUids, {});
        if (m_queryScheduled || uids.isEmpty())
            return;
        const auto refreshed = m_model->refreshRecords(uids);
        if (!refreshed || !*refreshed) {
            if (!refreshed)
                qCWarning(lcReport) << "Could not read the changed activities:" << refreshed.error().message();
            m_model->invalidate();
            performQuery();
            return;
        }
        m_totalSeconds = m_model->totalSeconds();
        updateTotals();
        updateChart();
    });
}

void ReportWindowController::onSegmentClicked(int segment)
{
    if (segment > ReportQuery::PreviousSegment && segment < ReportQuery::NextSegment) {
        m_rangeMode = segment;
    } else {
        m_pickedDate = ReportQuery::steppedDate(segment, m_rangeMode, m_pickedDate);
        m_datePicker->updateDateValue(m_pickedDate);
    }
    filterSidebarItems();
    performQuery();
}

void ReportWindowController::onReportDateChanged(const QDateTime &date)
{
    m_pickedDate = date;
    filterSidebarItems();
    performQuery();
}

void ReportWindowController::setFilterStatus(int filterStatus)
{
    m_filterStatus = filterStatus;
    const int index = m_invoicedPopup->findData(filterStatus);
    if (index >= 0)
        m_invoicedPopup->setCurrentIndex(index);
    performQuery();
}

void ReportWindowController::cycleFilterStatus()
{
    setFilterStatus(ReportQuery::nextFilterStatus(m_filterStatus));
}

void ReportWindowController::toggleFilterToolbarShown()
{
    if (isImport())
        return;
    m_filterToolbarVisible = !m_filterToolbarVisible;
    m_settings.setReportFilterToolbarVisible(m_filterToolbarVisible);
    if (m_filterToolbarVisible) {
        if (popupSearchVisible())
            togglePopupSearch();
    } else {
        const QSignalBlocker blocker(m_searchField);
        m_searchField->clear();
        m_rangeMode = ReportQuery::AllSegment;
        showRangeMode();
        filterSidebarItems();
    }
    m_filterToolbar->setVisible(m_filterToolbarVisible);
    updateToggleTitles();
    performQuery();
}

void ReportWindowController::toggleFilterShown()
{
    if (isImport())
        return;
    const bool shown = m_sidebarPane->isHidden();
    m_sidebarPane->setVisible(shown);
    if (shown && m_splitter->sizes().value(0) == 0) {
        const int width = ReportLayout::sidebarWidth(
            m_settings.reportWindowSidebarWidth(), SidebarMinimumWidth, this->width(), TableMinimumWidth);
        m_splitter->setSizes({ width, this->width() - width });
    }
    m_settings.setReportFilterVisible(shown);
    updateToggleTitles();
}

void ReportWindowController::togglePopupSearch()
{
    const bool show = !popupSearchVisible();
    m_popupSearchField->setVisible(show);
    m_popupSearchAction->setChecked(show);
    if (show)
        m_popupSearchField->setFocus(Qt::ShortcutFocusReason);
    if (!m_popupSearchField->text().isEmpty())
        performQuery();
}

void ReportWindowController::focusSearch()
{
    if (m_filterToolbarVisible) {
        m_searchField->setFocus(Qt::ShortcutFocusReason);
        m_searchField->selectAll();
    } else if (popupSearchVisible() && !m_popupSearchField->hasFocus()) {
        m_popupSearchField->setFocus(Qt::ShortcutFocusReason);
    } else {
        togglePopupSearch();
    }
}

void ReportWindowController::setDurationFormat(int format)
{
    m_settings.setReportDurationFormat(format);
    m_model->setDurationFormat(format);
    m_chartView->setDurationFormat(format);
    for (QAction *action : m_durationGroup->actions())
        action->setChecked(action->data().toInt() == DurationFormatTagBase + format);
    updateTotals();
}

void ReportWindowController::onToggleActivityColumn(int tag, bool shown)
{
    const int column = ReportTableModel::columnForTag(tag);
    if (column >= 0) {
        m_table->horizontalHeader()->setSectionHidden(column, !shown);
        fitColumns();
    }
}

void ReportWindowController::setInvoicedSelected(Qt::CheckState clickedItemState)
{
    const QList<int> rows = selectedActivityRows();
    if (rows.isEmpty())
        return;
    if (const auto done = ActivityInvoicing(m_store).setInvoiced(
            m_model->uids(rows), ReportActionMenu::invoicedValueFor(clickedItemState));
        !done)
        qCWarning(lcReport) << "Could not mark the activities:" << done.error().message();
    m_model->invalidate();
    performQuery();
}

void ReportWindowController::setInvoicedAll(Qt::CheckState clickedItemState)
{
    QList<int> rows;
    for (int row = 0; row < m_model->rowCount(); ++row)
        rows.append(row);
    if (rows.isEmpty())
        return;
    if (const auto done = ActivityInvoicing(m_store).setInvoiced(
            m_model->uids(rows), ReportActionMenu::invoicedValueFor(clickedItemState));
        !done)
        qCWarning(lcReport) << "Could not mark the activities:" << done.error().message();
    m_model->invalidate();
    performQuery();
}

void ReportWindowController::onTableViewToggle()
{
    if (isImport())
        return;
    const QList<int> rows = m_table->selectedRowIndexes();
    if (rows.size() != 1)
        return;
    const bool invoiced = m_model->record(rows.first()).isInvoiced;
    if (const auto done = ActivityInvoicing(m_store).setInvoiced({ m_model->uid(rows.first()) }, !invoiced); !done)
        qCWarning(lcReport) << "Could not mark the activity:" << done.error().message();
    m_model->invalidate();
    performQuery();
}

void ReportWindowController::deleteSelectedActivity()
{
    if (isImport() || (m_alert && m_alert->isVisible()))
        return;
    const QList<int> rows = selectedActivityRows();
    if (rows.isEmpty())
        return;
    const QStringList uids = m_model->uids(rows);
    const QList<int> selected = m_table->selectedRowIndexes();
    const int firstRow = selected.isEmpty() ? rows.first() : selected.first();
    auto *box = new QMessageBox(QMessageBox::Warning, tr("Delete selected activities?"),
        tr("Delete selected activities?"), QMessageBox::Ok | QMessageBox::Cancel, this);
    box->setObjectName(QStringLiteral("deleteAlert"));
    box->setInformativeText(tr("Deleted activities cannot be restored."));
    box->button(QMessageBox::Ok)->setText(tr("OK"));
    box->button(QMessageBox::Cancel)->setText(tr("Cancel"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    m_alert = box;
    connect(box, &QMessageBox::finished, this, [this, box, uids, firstRow] {
        if (box->standardButton(box->clickedButton()) != QMessageBox::Ok)
            return;
        const QString running = m_activityManager.isTracking() ? m_activityManager.currentActivity()->uid() : QString();
        if (const auto deleted = ActivityChange::deleteActivities(m_store, uids, running); !deleted)
            qCWarning(lcReport) << "Could not delete the activities:" << deleted.error().message();
        else
            m_editing->recordDeletion(*deleted);
        m_table->clearSelection();
        m_model->invalidate();
        performQuery();
        if (const auto row = ReportSelection::rowAfterDeletion(firstRow, m_model->rowCount()))
            m_table->selectOnlyRow(*row);
    });
    box->open();
}

void ReportWindowController::editSelectedActivity()
{
    const QList<int> rows = selectedActivityRows();
    if (m_editing && !rows.isEmpty())
        m_editing->editActivity(m_model->uid(rows.first()));
}

void ReportWindowController::newActivity()
{
    if (m_editing)
        m_editing->newActivity();
}

void ReportWindowController::onMergeSelectedActivities()
{
    const QList<int> rows = selectedActivityRows();
    if (m_editing && rows.size() >= 2)
        m_editing->mergeActivities(m_model->uids(rows), m_model->durationTransformer().format());
}

QList<int> ReportWindowController::columnOrder() const
{
    const QHeaderView *header = m_table->horizontalHeader();
    QList<int> columns;
    for (int visual = 0; visual < header->count(); ++visual)
        columns.append(header->logicalIndex(visual));
    return columns;
}

void ReportWindowController::copy()
{
    // Copy is the table's: with the focus elsewhere the selection is not what the user means.
    const QList<int> rows = m_table->selectedRowIndexes();
    if (rows.isEmpty() || !m_table->hasFocus())
        return;
    auto *mime = new QMimeData;
    mime->setText(m_model->plainText(rows, columnOrder()));
    mime->setHtml(m_model->htmlText(rows, columnOrder()));
    QApplication::clipboard()->setMimeData(mime);
}

void ReportWindowController::exportSelected()
{
    openExportDialog(true);
}

void ReportWindowController::exportAll()
{
    openExportDialog(false);
}

void ReportWindowController::openExportDialog(bool onlySelected)
{
    if ((m_fileDialog && m_fileDialog->isVisible()) || isImport())
        return;
    QList<int> rows = onlySelected ? selectedActivityRows() : QList<int>();
    if (!onlySelected) {
        for (int row = 0; row < m_model->rowCount(); ++row)
            rows.append(row);
    }
    if (rows.isEmpty())
        return;
    const QStringList uids = m_model->uids(rows);

    auto *dialog = new QFileDialog(this, onlySelected ? tr("Export Selected Activities") : tr("Export All Activities"));
    dialog->setObjectName(QStringLiteral("exportDialog"));
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setFileMode(QFileDialog::AnyFile);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowModality(Qt::WindowModal);
    QStringList filters;
    for (const BVFixedCollectionItem &item : BVFileExportFormatCollection::items())
        filters.append(BVFileExportFormatCollection::nameFilter(item));
    dialog->setNameFilters(filters);
    const int format = m_settings.defaultActivityExportFormat();
    for (const BVFixedCollectionItem &item : BVFileExportFormatCollection::items()) {
        if (item.value == format)
            dialog->selectNameFilter(BVFileExportFormatCollection::nameFilter(item));
    }
    dialog->setDefaultSuffix(BVFileExportFormatCollection::fileType(format));
    connect(dialog, &QFileDialog::filterSelected, dialog, [dialog](const QString &filter) {
        dialog->setDefaultSuffix(
            BVFileExportFormatCollection::fileType(BVFileExportFormatCollection::formatOfNameFilter(filter)));
    });
    connect(dialog, &QFileDialog::accepted, this, [this, dialog, uids] {
        const int chosen = BVFileExportFormatCollection::formatOfNameFilter(dialog->selectedNameFilter());
        const QString path = dialog->selectedFiles().value(0);
        if (chosen < 0 || path.isEmpty())
            return;
        m_settings.setDefaultActivityExportFormat(chosen);
        writeExport(uids, path, chosen);
    });
    m_fileDialog = dialog;
    dialog->open();
}

void ReportWindowController::writeExport(const QStringList &uids, const QString &path, int format)
{
    std::vector<ActivityRecord> records;
    records.reserve(std::size_t(uids.size()));
    for (const QString &uid : uids) {
        if (const int row = m_model->rowOfUid(uid); row >= 0)
            records.push_back(m_model->record(row));
    }
    const QString error = ActivityExport::exportRecords(records, path, format, m_settings.view());
    if (!error.isNull())
        showAlert(tr("Export error!"), error, true);
}

void ReportWindowController::showAlert(const QString &title, const QString &text, bool critical)
{
    auto *box = new QMessageBox(
        critical ? QMessageBox::Critical : QMessageBox::Information, title, title, QMessageBox::Ok, this);
    box->setObjectName(QStringLiteral("reportAlert"));
    box->setInformativeText(text);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    m_alert = box;
    box->open();
}

void ReportWindowController::showEvent(QShowEvent *event)
{
    QMainWindow::showEvent(event);
    if (m_showOpenPanel) {
        m_showOpenPanel = false;
        QTimer::singleShot(0, this, [this] { showOpenPanel(true); });
    }
}

void ReportWindowController::showOpenPanel(bool closeOnCancel)
{
    if (m_fileDialog && m_fileDialog->isVisible())
        return;
    auto *dialog = new QFileDialog(this, tr("Import activities"));
    dialog->setObjectName(QStringLiteral("importDialog"));
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setAcceptMode(QFileDialog::AcceptOpen);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setNameFilters({ tr("XML (*.xml)"), tr("All files (*)") });
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowModality(Qt::WindowModal);
    connect(dialog, &QFileDialog::rejected, this, [this, closeOnCancel] {
        if (closeOnCancel)
            close();
    });
    connect(dialog, &QFileDialog::accepted, this, [this, dialog] {
        const QString path = dialog->selectedFiles().value(0);
        // A file the reading refuses adds nothing, and the list simply stays as it was.
        if (const auto read = m_import->importActivitiesFromURL(path); !read)
            qCInfo(lcReport) << "Not imported:" << read.error().message();
        if (m_sidebarManager)
            m_sidebarManager->forceDataReload();
        m_model->invalidate();
        performQuery();
    });
    m_fileDialog = dialog;
    dialog->open();
}

void ReportWindowController::importOnlySelectedActivities(bool onlySelected)
{
    if (!m_import || !m_import->temporaryContext())
        return;
    QList<int> rows = onlySelected ? m_table->selectedRowIndexes() : QList<int>();
    if (!onlySelected) {
        for (int row = 0; row < m_model->rowCount(); ++row)
            rows.append(row);
    }
    if (rows.isEmpty())
        return;
    const QStringList uids = m_model->uids(rows);
    const auto found = m_import->temporaryContext()->activitiesWithUids(uids);
    ActivityImportResult result;
    if (!found) {
        result.error = found.error();
    } else {
        QList<ActivityPtr> activities;
        for (const QString &uid : uids) {
            if (const ActivityPtr activity = found->value(uid))
                activities.append(activity);
        }
        result = ActivityImport::importActivities(activities, m_store);
    }
    showAlert(ActivityImportResult::title(), result.text(), result.isError());
}

void ReportWindowController::closeEvent(QCloseEvent *event)
{
    if (!isImport()) {
        m_settings.setReportWindowGeometry(saveGeometry());
        m_settings.setReportTableHeaderState(m_table->horizontalHeader()->saveState());
    }
    if (!isImport() && !m_sidebarPane->isHidden()) {
        const int width = m_splitter->sizes().value(0);
        m_settings.setReportWindowSidebarCollapsed(
            width == 0, width == 0 ? m_settings.reportWindowSidebarWidth() : width);
    }
    QMainWindow::closeEvent(event);
    if (event->isAccepted())
        Q_EMIT closed();
}
