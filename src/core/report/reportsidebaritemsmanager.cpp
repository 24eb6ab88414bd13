#include "report/reportsidebaritemsmanager.h"

#include <algorithm>

#include <QLoggingCategory>

#include "model/sqlitestatement.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "settings/bvsettings.h"

namespace {

Q_LOGGING_CATEGORY(lcSidebar, "brimvale.report.sidebar")

using Group = ReportSidebarItemsManager::Group;

// One statement per group and mode. Existence is asked through the activity indexes (project, task
// link, start), so a list is read in a few milliseconds even over a journal of a hundred thousand
// activities. The dated form deliberately has no visibility test: with the lists following the report's
// range, everything with an activity in that range is listed, hidden or not.
QString itemsSql(Group group, bool editMode, bool dated)
{
    const bool tasks = group == Group::Tasks;
    const QString select = tasks ? QStringLiteral("SELECT i.id, i.name, i.position, i.visible FROM tasks i WHERE ")
                                 : QStringLiteral("SELECT i.id, i.name, i.position, i.visible FROM projects i WHERE ");
    const QString hasActivity = tasks ? QStringLiteral("EXISTS (SELECT 1 FROM activity_tasks l WHERE l.task_id = i.id)")
                                      : QStringLiteral("EXISTS (SELECT 1 FROM activities a WHERE a.project_id = i.id)");
    if (editMode)
        return select + hasActivity;
    if (dated) {
        // The longest stored span bounds how long before the range an overlapping activity can start,
        // which lets the start index narrow the scan to the range.
        const QString overlapping = QStringLiteral("a.time_to >= ?1 AND a.time_from < ?2 "
                                                   "AND a.time_from >= ?1 - (SELECT max_span FROM activity_bounds)");
        return select
            + (tasks ? QStringLiteral("i.id IN (SELECT l.task_id FROM activities a "
                                      "JOIN activity_tasks l ON l.activity_id = a.id WHERE %1)")
                     : QStringLiteral("i.id IN (SELECT a.project_id FROM activities a WHERE %1)"))
                  .arg(overlapping);
    }
    return select + QStringLiteral("i.visible = 1 AND ") + hasActivity;
}

std::expected<QList<ReportSidebarItem>, BvError> errorOf(const std::expected<void, BvError> &failed)
{
    return std::unexpected(failed.error());
}

template<typename Items> std::shared_ptr<SidebarItem> findById(const Items &items, qint64 objectId)
{
    const auto found = std::find_if(
        items.cbegin(), items.cend(), [objectId](const auto &item) { return item->objectId() == objectId; });
    return found == items.cend() ? nullptr : *found;
}

// Every project (task) of a fresh unit of work, for writing their visibility or position.
std::expected<QList<std::shared_ptr<SidebarItem>>, BvError> allItems(StoreContext &context, Group group)
{
    QList<std::shared_ptr<SidebarItem>> items;
    if (group == Group::Tasks) {
        auto tasks = context.tasks();
        if (!tasks)
            return std::unexpected(tasks.error());
        for (const TaskPtr &task : std::as_const(*tasks))
            items.append(task);
    } else {
        auto projects = context.projects();
        if (!projects)
            return std::unexpected(projects.error());
        for (const ProjectPtr &project : std::as_const(*projects))
            items.append(project);
    }
    return items;
}

std::expected<void, BvError> saveIfChanged(StoreContext &context)
{
    if (!context.hasChanges())
        return {};
    auto saved = context.save();
    if (!saved)
        qCWarning(lcSidebar) << "could not store the sidebar's change:" << saved.error().message();
    return saved;
}

} // namespace

ReportSidebarItemsManager::ReportSidebarItemsManager(Store &store, BvSettings &settings, QObject *parent)
    : QObject(parent)
    , m_store(store)
    , m_settings(settings)
{
    connect(&m_store, &Store::changed, this, &ReportSidebarItemsManager::onStoreChanged);
    reloadData();
}

void ReportSidebarItemsManager::reloadData()
{
    for (Group group : { Group::Projects, Group::Tasks }) {
        auto items = fetchItems(group);
        if (!items) {
            qCWarning(lcSidebar) << "could not read the sidebar's items:" << items.error().message();
            continue;
        }
        adopt(group, std::move(*items));
    }
}

void ReportSidebarItemsManager::forceDataReload()
{
    reloadData();
    Q_EMIT contentChanged();
}

void ReportSidebarItemsManager::onStoreChanged(const StoreChanges &changes)
{
    if (changes.isEverything() || changes.contains(StoreChanges::Entity::Project)
        || changes.contains(StoreChanges::Entity::Task)) {
        forceDataReload();
        return;
    }
    if (!changes.contains(StoreChanges::Entity::Activity))
        return;
    // The store does not say whether a changed activity moved to another project or task, gained its
    // first or lost its last: the lists are read again and taken only when they differ, so a new end time
    // every half minute never disturbs the sidebar, while deleting a project's last activity drops it.
    bool differs = false;
    QList<ReportSidebarItem> fresh[2];
    for (Group group : { Group::Projects, Group::Tasks }) {
        auto items = fetchItems(group);
        if (!items) {
            qCWarning(lcSidebar) << "could not read the sidebar's items:" << items.error().message();
            return;
        }
        fresh[int(group)] = std::move(*items);
        QList<ReportSidebarItem> current = this->items(group);
        for (ReportSidebarItem &item : current)
            item.selected = false;
        differs = differs || fresh[int(group)] != current;
    }
    if (!differs)
        return;
    adopt(Group::Projects, std::move(fresh[0]));
    adopt(Group::Tasks, std::move(fresh[1]));
    Q_EMIT contentChanged();
}

std::expected<QList<ReportSidebarItem>, BvError> ReportSidebarItemsManager::fetchItems(Group group) const
{
    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    const bool dated = m_filterDateFrom && m_filterDateTo;
    SqliteStatement rows;
    if (auto prepared = rows.prepare(SqliteStatement::handle(*db), itemsSql(group, m_editMode, dated)); !prepared)
        return errorOf(prepared);
    if (dated && !m_editMode) {
        rows.bindInstant(1, *m_filterDateFrom);
        rows.bindInstant(2, *m_filterDateTo);
    }
    QList<ReportSidebarItem> items;
    while (rows.next()) {
        ReportSidebarItem item;
        item.managedObjectID = rows.int64(0);
        item.title = rows.text(1);
        if (!rows.isNull(2))
            item.position = rows.int64(2);
        item.visible = rows.int64(3) != 0;
        item.itemType = group == Group::Tasks ? ReportSidebarItem::TaskItem : ReportSidebarItem::ProjectItem;
        items.append(item);
    }
    if (rows.failed())
        return std::unexpected(rows.error());

    const bool ordered = isOrdered(group);
    std::sort(items.begin(), items.end(), [ordered](const ReportSidebarItem &a, const ReportSidebarItem &b) {
        // SQLite sorts NULL before every number, and the hand-made order keeps that.
        if (ordered && a.position != b.position)
            return !a.position || (b.position && *a.position < *b.position);
        if (const int byName = a.title.compare(b.title, Qt::CaseInsensitive))
            return byName < 0;
        return a.managedObjectID < b.managedObjectID;
    });
    return items;
}

void ReportSidebarItemsManager::adopt(Group group, QList<ReportSidebarItem> items)
{
    QSet<qint64> &selected = selection(group);
    QSet<qint64> listed;
    for (ReportSidebarItem &item : items) {
        item.selected = selected.contains(item.managedObjectID);
        listed.insert(item.managedObjectID);
    }
    // A ticked item that is no longer listed must stop filtering the report: the user could not untick it.
    selected.intersect(listed);
    list(group) = std::move(items);
}

void ReportSidebarItemsManager::filterItemsByDateFrom(
    const std::optional<QDateTime> &from, const std::optional<QDateTime> &dateTo)
{
    if (from == m_filterDateFrom && dateTo == m_filterDateTo)
        return;
    m_filterDateFrom = from;
    m_filterDateTo = dateTo;
    forceDataReload();
}

bool ReportSidebarItemsManager::toggleItem(Group group, qint64 objectId)
{
    QList<ReportSidebarItem> &items = list(group);
    const auto found = std::find_if(items.begin(), items.end(),
        [objectId](const ReportSidebarItem &item) { return item.managedObjectID == objectId; });
    if (found == items.end())
        return false;
    found->selected = !found->selected;
    if (found->selected)
        selection(group).insert(objectId);
    else
        selection(group).remove(objectId);
    return true;
}

void ReportSidebarItemsManager::moveItem(Group group, int fromRow, int toChildIndex)
{
    QList<ReportSidebarItem> &items = list(group);
    if (fromRow < 0 || fromRow >= items.size())
        return;
    int to = std::clamp(toChildIndex, 0, int(items.size()));
    if (to > fromRow)
        --to;
    items.move(fromRow, to);
}

bool ReportSidebarItemsManager::isOrdered(Group group) const
{
    return group == Group::Tasks ? m_settings.reportSidebarTasksOrdered() : m_settings.reportSidebarProjectsOrdered();
}

void ReportSidebarItemsManager::setOrdered(Group group, bool ordered)
{
    if (isOrdered(group) != ordered) {
        if (group == Group::Tasks)
            m_settings.setReportSidebarTasksOrdered(ordered);
        else
            m_settings.setReportSidebarProjectsOrdered(ordered);
    }
    // New projects and tasks take the next position only while their group is ordered by hand; the store
    // decides that when it creates them, on whichever thread.
    m_store.setSidebarOrderedByHand(m_settings.reportSidebarProjectsOrdered(), m_settings.reportSidebarTasksOrdered());
}

std::expected<void, BvError> ReportSidebarItemsManager::updateOrder(Group group)
{
    setOrdered(group, true);
    auto context = m_store.newContext();
    auto stored = allItems(*context, group);
    if (!stored)
        return std::unexpected(stored.error());
    QList<ReportSidebarItem> &items = list(group);
    for (qsizetype i = 0; i < items.size(); ++i) {
        items[i].position = i;
        if (const auto item = findById(*stored, items[i].managedObjectID))
            item->setPosition(i);
    }
    return saveIfChanged(*context);
}

std::expected<void, BvError> ReportSidebarItemsManager::resetProjectsOrder()
{
    setOrdered(Group::Projects, false);
    auto context = m_store.newContext();
    auto stored = allItems(*context, Group::Projects);
    if (!stored)
        return std::unexpected(stored.error());
    for (const auto &item : *stored)
        item->setPosition(std::nullopt);
    return saveIfChanged(*context);
}

std::expected<void, BvError> ReportSidebarItemsManager::resetTasksOrder()
{
    setOrdered(Group::Tasks, false);
    auto context = m_store.newContext();
    auto stored = allItems(*context, Group::Tasks);
    if (!stored)
        return std::unexpected(stored.error());
    for (const auto &item : *stored)
        item->setPosition(std::nullopt);
    return saveIfChanged(*context);
}

void ReportSidebarItemsManager::toggleEditMode()
{
    m_editMode = !m_editMode;
    forceDataReload();
}

std::expected<void, BvError> ReportSidebarItemsManager::setVisible(Group group, qint64 objectId, bool visible)
{
    auto context = m_store.newContext();
    auto stored = allItems(*context, group);
    if (!stored)
        return std::unexpected(stored.error());
    if (const auto item = findById(*stored, objectId))
        item->setVisible(visible);
    auto saved = saveIfChanged(*context);
    if (saved) {
        for (ReportSidebarItem &item : list(group)) {
            if (item.managedObjectID == objectId)
                item.visible = visible;
        }
    }
    return saved;
}

std::expected<void, BvError> ReportSidebarItemsManager::setAllVisible(Group group, bool visible)
{
    auto context = m_store.newContext();
    auto stored = allItems(*context, group);
    if (!stored)
        return std::unexpected(stored.error());
    for (const auto &item : *stored)
        item->setVisible(visible);
    return saveIfChanged(*context);
}

std::expected<void, BvError> ReportSidebarItemsManager::setProjectsVisible(bool visible)
{
    return setAllVisible(Group::Projects, visible);
}

std::expected<void, BvError> ReportSidebarItemsManager::setTasksVisible(bool visible)
{
    return setAllVisible(Group::Tasks, visible);
}
