#pragma once

#include <memory>
#include <optional>

#include <QDateTime>
#include <QFileDialog>
#include <QMainWindow>
#include <QMessageBox>
#include <QPointer>

#include "model/storechanges.h"
#include "report/reportactionmenu.h"
#include "report/reportquery.h"

class ActivityImport;
class ActivityManager;
class BvSettings;
class BvTableView;
class QAction;
class QActionGroup;
class QComboBox;
class QFileDialog;
class QLabel;
class QLineEdit;
class QMenu;
class QMessageBox;
class QPushButton;
class QSplitter;
class QToolBar;
class QToolButton;
class BvDatePicker;
class BvSegmentedCell;
class ReportChartView;
class ReportEditingController;
class ReportSidebarItemsManager;
class ReportSidebarLionView;
class ReportTableModel;
class Store;

// The report window: the journal of a day, week, month or all time, newest first, searched as one types,
// narrowed to the sidebar's ticked projects and tasks and to invoiced or not, with the totals under the
// table. From it the user marks activities invoiced, deletes, copies and exports them. In import mode
// (initAsImport) it lists the activities of an XML file read into a private temporary store and copies
// the chosen ones into the journal.
//
// Every rule lives in the widget-free classes of core/report; this class holds the window's state, builds
// the widgets and follows the store: any commit (tracking, sync, `brimvale add`) re-queries once. Dialogs
// open as sheets (open()). Main thread.
class ReportWindowController : public QMainWindow
{
    Q_OBJECT
public:
    enum class Mode { Report, Import };

    // init: the report over `store`. None of the collaborators is owned; all outlive the window.
    ReportWindowController(
        Store &store, ActivityManager &activityManager, BvSettings &settings, QWidget *parent = nullptr);
    ~ReportWindowController() override;
    // initAsImport: the window in import mode, which lists a temporary store and writes into `store`.
    static ReportWindowController *initAsImport(
        Store &store, ActivityManager &activityManager, BvSettings &settings, QWidget *parent = nullptr);

    bool isImport() const { return m_mode == Mode::Import; }

    // The query state.
    int rangeMode() const { return m_rangeMode; }
    QDateTime pickedDate() const { return m_pickedDate; }
    int filterStatus() const { return m_filterStatus; }
    bool filterToolbarVisible() const { return m_filterToolbarVisible; }
    bool popupSearchVisible() const;
    // totalSeconds: none before the first computation.
    std::optional<double> totalSeconds() const { return m_totalSeconds; }
    ReportTableModel &model() const { return *m_model; }
    BvSegmentedCell *rangeControl() const { return m_rangeControl; }
    BvDatePicker *datePicker() const { return m_datePicker; }
    // Null in an import window whose temporary store could not be made.
    ReportSidebarItemsManager *sidebarItemsManager() const { return m_sidebarManager.get(); }
    ReportSidebarLionView *sidebarView() const { return m_sidebarView; }
    ReportChartView *chartView() const { return m_chartView; }
    BvTableView &tableView() const { return *m_table; }

    // performQuery: rebuilds the query from the state and lists its activities, keeping the selection of
    // rows that stay listed.
    void performQuery();
    // onSegmentClicked: a click on a segment of the range control; the arrows step the picked date, the
    // others choose the mode.
    void onSegmentClicked(int segment);
    // onReportDateChanged: the picker's date was chosen.
    void onReportDateChanged(const QDateTime &date);
    // filterStatusChanged: the invoiced pop-up's tag (0 all, 1 invoiced, 2 not invoiced).
    void setFilterStatus(int filterStatus);
    // The rows the row actions apply to (selectedActivities), as table rows.
    QList<int> selectedActivityRows() const;

    // The actions.
    void toggleFilterToolbarShown();
    void toggleFilterShown();
    void toggleChartShown();
    // filterSidebarItems: the sidebar lists what the range holds when its dynamic items are on.
    void filterSidebarItems();
    void togglePopupSearch();
    // Ctrl+F and Ctrl+I.
    void focusSearch();
    void cycleFilterStatus();
    void setDurationFormat(int format);
    void onToggleActivityColumn(int tag, bool shown);
    void setInvoicedSelected(Qt::CheckState clickedItemState);
    void setInvoicedAll(Qt::CheckState clickedItemState);
    void onTableViewToggle();
    void deleteSelectedActivity();
    // The editing sheets (not in import mode): the first selected activity, a new earlier one, the selected
    // activities merged. The running activity is not edited here.
    void editSelectedActivity();
    void newActivity();
    void onMergeSelectedActivities();
    // The sheets and the undo history of what they and the deletions stored; null in import mode.
    ReportEditingController *editing() const { return m_editing; }
    void copy();
    void exportSelected();
    void exportAll();
    // Import mode: the import buttons (importOnlySelectedActivities: with YES, with NO).
    void importOnlySelectedActivities(bool onlySelected);

    // The open sheet or alert, or null.
    QFileDialog *fileDialog() const { return m_fileDialog; }
    QMessageBox *alert() const { return m_alert; }
    QMenu *actionMenu() const { return m_actionMenu; }
    QMenu *headerMenu() const { return m_headerMenu; }
    QAction *menuAction(int tag) const;

Q_SIGNALS:
    // Return on a row: the editing sheet's seam.
    void editRequested();
    // File > Import in the report: the owner opens an import window (it must not outlive the store).
    void importRequested();
    // The Window menu's item for the main window.
    void mainWindowRequested();
    // The window was closed (it deletes itself afterwards).
    void closed();

protected:
    void showEvent(QShowEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    ReportWindowController(
        Mode mode, Store &store, ActivityManager &activityManager, BvSettings &settings, QWidget *parent);
    void buildMenus();
    void buildToolbar();
    void buildCentre();
    void buildActionMenu();
    void buildHeaderMenu();
    void applyLayoutSettings();
    void updateActionMenu();
    void updateTotals();
    void updateImportButtons();
    // Copy, Delete, Export Selected and Edit need a selection.
    void updateSelectionActions();
    // The columns other than the text shrink towards their minimums so the text keeps its room.
    void fitColumns();
    int minimumColumnWidth(int column) const;
    void updateToggleTitles();
    void buildSidebar();
    void updateChart();
    ReportQuery::Range currentRange() const;
    void showRangeMode();
    void scheduleQuery();
    void scheduleRefresh();
    void onStoreChanged(const StoreChanges &changes);
    void onTableContextMenu(const QPoint &position);
    void openExportDialog(bool onlySelected);
    void writeExport(const QStringList &uids, const QString &path, int format);
    // The open dialog of import mode; cancelling the first one closes the window.
    void showOpenPanel(bool closeOnCancel = false);
    void showAlert(const QString &title, const QString &text, bool critical);
    void reselect(const QStringList &uids, const QString &currentUid);
    QList<int> columnOrder() const;
    Store &listedStore() const;

    const Mode m_mode;
    Store &m_store;
    ActivityManager &m_activityManager;
    BvSettings &m_settings;
    std::unique_ptr<ActivityImport> m_import;
    std::unique_ptr<ReportTableModel> m_model;
    ReportEditingController *m_editing = nullptr;
    std::unique_ptr<ReportSidebarItemsManager> m_sidebarManager;

    int m_rangeMode = 2;
    QDateTime m_pickedDate;
    int m_filterStatus = 0;
    bool m_filterToolbarVisible = true;
    std::optional<double> m_totalSeconds;
    // The activity a context-menu click was on, by uid: a store change may reload the rows while the menu
    // is open. Empty for none.
    QString m_clickedUid;
    bool m_queryScheduled = false;
    bool m_refreshScheduled = false;
    // Updated activities to read again in place (see onStoreChanged).
    QSet<QString> m_refreshUids;
    bool m_showOpenPanel = false;

    QToolBar *m_filterToolbar = nullptr;
    BvSegmentedCell *m_rangeControl = nullptr;
    BvDatePicker *m_datePicker = nullptr;
    ReportSidebarLionView *m_sidebarView = nullptr;
    ReportChartView *m_chartView = nullptr;
    QSplitter *m_tableSplitter = nullptr;
    QAction *m_chartAction = nullptr;
    QLineEdit *m_searchField = nullptr;
    QLineEdit *m_popupSearchField = nullptr;
    QComboBox *m_invoicedPopup = nullptr;
    QToolButton *m_actionButton = nullptr;
    QSplitter *m_splitter = nullptr;
    QWidget *m_sidebarPane = nullptr;
    QWidget *m_tablePane = nullptr;
    BvTableView *m_table = nullptr;
    QLabel *m_totalsLabel = nullptr;
    QPushButton *m_importSelectedButton = nullptr;
    QPushButton *m_importAllButton = nullptr;
    QMenu *m_actionMenu = nullptr;
    QMenu *m_headerMenu = nullptr;
    QMenu *m_durationMenu = nullptr;
    QActionGroup *m_durationGroup = nullptr;
    QAction *m_toggleFilterToolbar = nullptr;
    QAction *m_toggleFilter = nullptr;
    QAction *m_popupSearchAction = nullptr;
    QList<QAction *> m_selectionActions;
    // The widths the user gave the columns before the text (set on opening and by dragging).
    QList<int> m_wishedColumnWidths;
    bool m_fittingColumns = false;
    QPointer<QFileDialog> m_fileDialog;
    QPointer<QMessageBox> m_alert;
};
