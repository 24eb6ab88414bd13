#pragma once

#include <QWidget>

#include "report/reportsidebaritemsmanager.h"

class BvSettings;
class BvSidebarOutlineView;
class QAction;
class QMenu;
class QToolButton;
class ReportSidebarOutlineModel;

// The report window's sidebar: the outline of projects and tasks over a ReportSidebarItemsManager and,
// under it, the actions button with its menu. A click on an item ticks or unticks it; items are dragged
// within their group to order them by hand; in edit mode a check box on each item sets its visibility.
// The groups open as the settings "reportSidebarProjectsVisible" / "reportSidebarTasksVisible" say and
// store them when the user opens or closes one.
class ReportSidebarLionView : public QWidget
{
    Q_OBJECT
public:
    // The tags (QAction::data) of the actions menu's items.
    enum MenuTag {
        EditModeTag = 20,
        MarkProjectsVisibleTag = 21,
        MarkProjectsHiddenTag = 22,
        MarkTasksVisibleTag = 23,
        MarkTasksHiddenTag = 24,
        DynamicItemsTag = 25,
        ResetProjectsOrderTag = 26,
        ResetTasksOrderTag = 27,
    };

    ReportSidebarLionView(ReportSidebarItemsManager &manager, BvSettings &settings, QWidget *parent = nullptr);
    ~ReportSidebarLionView() override;

    BvSidebarOutlineView *sidebarView() const { return m_sidebarView; }
    ReportSidebarOutlineModel *model() const { return m_model; }
    // Hidden in import mode.
    void setActionsButtonVisible(bool visible);
    QMenu *actionsMenu() const { return m_actionsMenu; }
    // The menu item with this tag, titled and enabled as the menu shows it now.
    QAction *menuItem(int tag);

    // Enters or leaves edit mode; leaving it makes the report query again.
    void toggleEditMode();
    // Opens the group rows whose setting says so.
    void expandGroups();

Q_SIGNALS:
    // An item was ticked or unticked, a ticked item left the lists, or edit mode was left: the report
    // queries again.
    void reportSidebarSelectionChanged();
    // The dynamic-items switch was flipped: the report hands its range to the manager again.
    void filterSidebarItemsRequested();

private:
    void onItemClicked(const QModelIndex &index);
    void onGroupExpanded(const QModelIndex &index, bool expanded);
    void onContentChanged();
    // The ticked ids of both groups, sorted, to notice a selection that a rebuild pruned.
    QList<qint64> selectionSnapshot() const;
    void updateMenu();
    void report(const std::expected<void, BvError> &done);

    ReportSidebarItemsManager &m_manager;
    BvSettings &m_settings;
    ReportSidebarOutlineModel *m_model = nullptr;
    BvSidebarOutlineView *m_sidebarView = nullptr;
    QToolButton *m_actionsButton = nullptr;
    QMenu *m_actionsMenu = nullptr;
    bool m_expanding = false;
    QList<qint64> m_selection;
    bool m_selectionAnnounced = false;
};
