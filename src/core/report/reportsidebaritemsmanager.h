#pragma once

#include <expected>
#include <optional>

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QSet>

#include "base/bverror.h"
#include "report/reportsidebaritem.h"

class BvSettings;
class Store;
class StoreChanges;

// The report sidebar's lists: the projects and the tasks that have activities, which of them the user
// ticked as report filters, whether each is visible in the sidebar at all, and the order the user gave
// them by hand. Main thread; reads and writes through the store's connection of that thread.
//
// Which projects are listed depends on the mode: in edit mode every project with an activity (hidden ones
// too, so they can be made visible again); with a date filter every project with an activity overlapping
// the range, hidden or not; otherwise the visible projects with an activity. Tasks alike.
class ReportSidebarItemsManager : public QObject
{
    Q_OBJECT
public:
    enum class Group { Projects, Tasks };
    // The group rows' titles.
    static QString projectsNodeTitle() { return QStringLiteral("@Projects"); }
    static QString tasksNodeTitle() { return QStringLiteral("#Tasks"); }

    // Reads both lists at once and follows the store's changes from then on.
    ReportSidebarItemsManager(Store &store, BvSettings &settings, QObject *parent = nullptr);

    // The listed items in the sidebar's order: by hand (position, then name regardless of case; items
    // without a position first, where SQLite puts nulls) when the group is ordered by hand, else by name
    // regardless of case.
    const QList<ReportSidebarItem> &projects() const { return m_projects; }
    const QList<ReportSidebarItem> &tasks() const { return m_tasks; }
    const QList<ReportSidebarItem> &items(Group group) const { return group == Group::Tasks ? m_tasks : m_projects; }

    // The row ids of the ticked projects and tasks, all of them listed.
    QList<qint64> selectedProjectIds() const { return m_selectedProjectIds.values(); }
    QList<qint64> selectedTaskIds() const { return m_selectedTaskIds.values(); }

    // Rebuilds both lists from the store and drops from the selection what is no longer listed. Does not
    // announce it; the callers that change what is shown emit contentChanged.
    void reloadData();
    // Rebuilds and announces it, whatever changed.
    void forceDataReload();

    // Restricts the lists to the projects and tasks with an activity overlapping [from, dateTo) when both
    // are given; with either missing, the lists are unrestricted. The same dates again change nothing.
    void filterItemsByDateFrom(const std::optional<QDateTime> &from, const std::optional<QDateTime> &dateTo);
    std::optional<QDateTime> filterDateFrom() const { return m_filterDateFrom; }
    std::optional<QDateTime> filterDateTo() const { return m_filterDateTo; }

    // Ticks or unticks the listed item; false when no listed item has this id.
    bool toggleItem(Group group, qint64 objectId);

    // Moves the item at `fromRow` to the child index `toChildIndex` counted before it is taken out (as a
    // drop between rows names it). Only the list changes; updateOrder stores it.
    void moveItem(Group group, int fromRow, int toChildIndex);
    // Marks the group as ordered by hand and stores positions 0, 1, 2, ... in the listed order.
    std::expected<void, BvError> updateOrder(Group group);
    // Back to alphabetical order: the group is no longer ordered by hand and no project (task) keeps a
    // position.
    std::expected<void, BvError> resetProjectsOrder();
    std::expected<void, BvError> resetTasksOrder();

    bool isEditMode() const { return m_editMode; }
    void toggleEditMode();

    // Whether a project (task) shows in the sidebar outside edit mode; stored at once.
    std::expected<void, BvError> setVisible(Group group, qint64 objectId, bool visible);
    std::expected<void, BvError> markProjectsVisible() { return setProjectsVisible(true); }
    std::expected<void, BvError> markProjectsHidden() { return setProjectsVisible(false); }
    std::expected<void, BvError> markTasksVisible() { return setTasksVisible(true); }
    std::expected<void, BvError> markTasksHidden() { return setTasksVisible(false); }
    std::expected<void, BvError> setProjectsVisible(bool visible);
    std::expected<void, BvError> setTasksVisible(bool visible);

Q_SIGNALS:
    // What the lists hold has changed (items, their order, the selection after pruning, or the mode); a
    // view shows them afresh.
    void contentChanged();

private:
    void onStoreChanged(const StoreChanges &changes);
    std::expected<QList<ReportSidebarItem>, BvError> fetchItems(Group group) const;
    // Takes freshly read items as the group's list, ticks the selected ones and prunes the selection.
    void adopt(Group group, QList<ReportSidebarItem> items);
    bool isOrdered(Group group) const;
    void setOrdered(Group group, bool ordered);
    std::expected<void, BvError> setAllVisible(Group group, bool visible);
    QList<ReportSidebarItem> &list(Group group) { return group == Group::Tasks ? m_tasks : m_projects; }
    QSet<qint64> &selection(Group group) { return group == Group::Tasks ? m_selectedTaskIds : m_selectedProjectIds; }

    Store &m_store;
    BvSettings &m_settings;
    QList<ReportSidebarItem> m_projects;
    QList<ReportSidebarItem> m_tasks;
    QSet<qint64> m_selectedProjectIds;
    QSet<qint64> m_selectedTaskIds;
    bool m_editMode = false;
    std::optional<QDateTime> m_filterDateFrom;
    std::optional<QDateTime> m_filterDateTo;
};
