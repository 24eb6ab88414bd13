#include "gui/report/reportsidebarlionview.h"

#include <algorithm>

#include <QAction>
#include <QMenu>
#include <QToolButton>
#include <QVBoxLayout>

#include "gui/app/storeerroralert.h"
#include "gui/report/bvreportsidebarcellview.h"
#include "gui/report/bvsidebaroutlineview.h"
#include "report/reportsidebaroutlinemodel.h"
#include "settings/bvsettings.h"

using Group = ReportSidebarItemsManager::Group;

ReportSidebarLionView::ReportSidebarLionView(ReportSidebarItemsManager &manager, BvSettings &settings, QWidget *parent)
    : QWidget(parent)
    , m_manager(manager)
    , m_settings(settings)
{
    setObjectName(QStringLiteral("reportSidebar"));
    m_model = new ReportSidebarOutlineModel(m_manager, this);
    m_sidebarView = new BvSidebarOutlineView(this);
    m_sidebarView->setObjectName(QStringLiteral("sidebarView"));
    m_sidebarView->setItemDelegate(new BvReportSidebarCellView(m_sidebarView));
    m_sidebarView->setModel(m_model);
    m_sidebarView->setFrameShape(QFrame::NoFrame);

    m_actionsMenu = new QMenu(this);
    m_actionsMenu->setObjectName(QStringLiteral("sidebarActionsMenu"));
    const auto addItem = [this](int tag, const QString &title, auto handler) {
        QAction *action = m_actionsMenu->addAction(title, this, handler);
        action->setData(tag);
        return action;
    };
    addItem(EditModeTag, tr("Change visible items"), [this] { toggleEditMode(); });
    addItem(MarkProjectsVisibleTag, tr("Show all projects"), [this] { report(m_manager.markProjectsVisible()); });
    addItem(MarkProjectsHiddenTag, tr("Hide all projects"), [this] { report(m_manager.markProjectsHidden()); });
    addItem(MarkTasksVisibleTag, tr("Show all tasks"), [this] { report(m_manager.markTasksVisible()); });
    addItem(MarkTasksHiddenTag, tr("Hide all tasks"), [this] { report(m_manager.markTasksHidden()); });
    m_actionsMenu->addSeparator();
    addItem(ResetProjectsOrderTag, tr("Sort projects by name"), [this] { report(m_manager.resetProjectsOrder()); });
    addItem(ResetTasksOrderTag, tr("Sort tasks by name"), [this] { report(m_manager.resetTasksOrder()); });
    m_actionsMenu->addSeparator();
    addItem(DynamicItemsTag, tr("Only items in the date range"), [this] {
        m_settings.setReportSidebarDynamicItems(!m_settings.reportSidebarDynamicItems());
        Q_EMIT filterSidebarItemsRequested();
    })->setCheckable(true);
    connect(m_actionsMenu, &QMenu::aboutToShow, this, &ReportSidebarLionView::updateMenu);
    updateMenu();

    m_actionsButton = new QToolButton(this);
    m_actionsButton->setObjectName(QStringLiteral("sidebarActionsButton"));
    m_actionsButton->setText(tr("Actions"));
    m_actionsButton->setToolTip(tr("Visible items, order and date range of the sidebar"));
    m_actionsButton->setAutoRaise(true);
    m_actionsButton->setPopupMode(QToolButton::InstantPopup);
    m_actionsButton->setMenu(m_actionsMenu);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_sidebarView, 1);
    auto *bar = new QHBoxLayout;
    bar->setContentsMargins(4, 2, 4, 2);
    bar->addWidget(m_actionsButton);
    bar->addStretch(1);
    layout->addLayout(bar);

    connect(m_sidebarView, &BvSidebarOutlineView::itemClicked, this, &ReportSidebarLionView::onItemClicked);
    connect(
        m_sidebarView, &QTreeView::expanded, this, [this](const QModelIndex &index) { onGroupExpanded(index, true); });
    connect(m_sidebarView, &QTreeView::collapsed, this,
        [this](const QModelIndex &index) { onGroupExpanded(index, false); });
    connect(m_model, &QAbstractItemModel::modelReset, this, &ReportSidebarLionView::onContentChanged);
    expandGroups();
    m_selection = selectionSnapshot();
}

ReportSidebarLionView::~ReportSidebarLionView() = default;

void ReportSidebarLionView::setActionsButtonVisible(bool visible)
{
    m_actionsButton->setVisible(visible);
}

QAction *ReportSidebarLionView::menuItem(int tag)
{
    updateMenu();
    const QList<QAction *> actions = m_actionsMenu->actions();
    for (QAction *action : actions) {
        if (!action->isSeparator() && action->data().toInt() == tag)
            return action;
    }
    return nullptr;
}

void ReportSidebarLionView::toggleEditMode()
{
    m_selectionAnnounced = false;
    m_manager.toggleEditMode();
    // Visibility may have changed while editing, and the listed items with it.
    if (!m_manager.isEditMode() && !m_selectionAnnounced)
        Q_EMIT reportSidebarSelectionChanged();
}

QList<qint64> ReportSidebarLionView::selectionSnapshot() const
{
    QList<qint64> projects = m_manager.selectedProjectIds();
    QList<qint64> tasks = m_manager.selectedTaskIds();
    std::sort(projects.begin(), projects.end());
    std::sort(tasks.begin(), tasks.end());
    // Row ids of the two tables may coincide; the separator keeps the groups apart.
    return projects << -1 << tasks;
}

void ReportSidebarLionView::onContentChanged()
{
    // A rebuilt list closes every group; they open again as the user left them.
    expandGroups();
    // A ticked item that left the lists no longer filters the report, which must query again.
    const QList<qint64> selection = selectionSnapshot();
    if (selection != m_selection) {
        m_selection = selection;
        m_selectionAnnounced = true;
        Q_EMIT reportSidebarSelectionChanged();
    }
}

void ReportSidebarLionView::expandGroups()
{
    m_expanding = true;
    m_sidebarView->setExpanded(m_model->groupIndex(Group::Projects), m_settings.reportSidebarProjectsVisible());
    m_sidebarView->setExpanded(m_model->groupIndex(Group::Tasks), m_settings.reportSidebarTasksVisible());
    m_expanding = false;
}

void ReportSidebarLionView::onItemClicked(const QModelIndex &index)
{
    if (m_model->toggleItem(index)) {
        m_selection = selectionSnapshot();
        Q_EMIT reportSidebarSelectionChanged();
    }
}

void ReportSidebarLionView::onGroupExpanded(const QModelIndex &index, bool expanded)
{
    if (m_expanding || index.parent().isValid())
        return;
    if (m_model->groupOf(index) == Group::Tasks)
        m_settings.setReportSidebarTasksVisible(expanded);
    else
        m_settings.setReportSidebarProjectsVisible(expanded);
}

void ReportSidebarLionView::updateMenu()
{
    const bool editMode = m_manager.isEditMode();
    const QList<QAction *> actions = m_actionsMenu->actions();
    for (QAction *action : actions) {
        switch (action->data().toInt()) {
        case EditModeTag:
            action->setText(editMode ? tr("Done changing visible items") : tr("Change visible items"));
            break;
        case MarkProjectsVisibleTag:
        case MarkProjectsHiddenTag:
        case MarkTasksVisibleTag:
        case MarkTasksHiddenTag:
            action->setEnabled(editMode);
            break;
        case DynamicItemsTag:
            action->setChecked(m_settings.reportSidebarDynamicItems());
            break;
        default:
            break;
        }
    }
}

void ReportSidebarLionView::report(const std::expected<void, BvError> &done)
{
    if (!done)
        (new StoreErrorAlert(done.error(), window()))->open();
}
