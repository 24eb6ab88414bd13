#include "model/storecontext.h"

#include <algorithm>

#include <QSet>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QUuid>

#include "base/clock.h"
#include "base/logging.h"
#include "model/likepattern.h"
#include "model/namekey.h"
#include "model/sqlitestatement.h"
#include "model/storeerrors.h"

namespace {

// Above this many fetched activities, reading the whole link table beats one lookup per activity.
constexpr qsizetype kScanTaskLinksAbove = 2000;
constexpr qsizetype kIdsPerStatement = 500;

QVariant msecs(const QDateTime &instant)
{
    return instant.isValid() ? QVariant(instant.toMSecsSinceEpoch()) : QVariant(QMetaType::fromType<qint64>());
}

QDateTime instant(const QVariant &value)
{
    return value.isNull() ? QDateTime() : QDateTime::fromMSecsSinceEpoch(value.toLongLong(), Qt::UTC);
}

QVariant optionalInteger(const std::optional<qint64> &value)
{
    return value ? QVariant(*value) : QVariant(QMetaType::fromType<qint64>());
}

QString nameKey(const QString &name)
{
    return NameKey::fromName(name);
}

struct Where
{
    QString sql;
    QVariantList binds;
};

Where whereClause(const ActivityQuery &query)
{
    QStringList conditions;
    Where where;
    auto add = [&](const char *condition, const QVariant &value) {
        conditions.append(QString::fromLatin1(condition));
        where.binds.append(value);
    };
    if (query.startsFrom)
        add("a.time_from >= ?", msecs(*query.startsFrom));
    if (query.startsUntil)
        add("a.time_from <= ?", msecs(*query.startsUntil));
    if (query.overlapsFrom) {
        add("a.time_to >= ?", msecs(*query.overlapsFrom));
        // No activity is longer than the longest ever stored, so this bound lets the time_from index
        // narrow an overlap query to the range instead of everything before it.
        add("a.time_from >= ? - (SELECT max_span FROM activity_bounds)", msecs(*query.overlapsFrom));
    }
    if (query.overlapsUntil)
        add("a.time_from < ?", msecs(*query.overlapsUntil));
    if (query.endsUntil)
        add("a.time_to <= ?", msecs(*query.endsUntil));
    if (query.yearMonth)
        add("a.year_month = ?", *query.yearMonth);
    if (query.isInvoiced)
        add("a.is_invoiced = ?", *query.isInvoiced ? 1 : 0);
    if (query.uid)
        add("a.uid = ?", *query.uid);
    auto idList = [](const QList<qint64> &ids) {
        QStringList numbers;
        numbers.reserve(ids.size());
        for (qint64 id : ids)
            numbers.append(QString::number(id));
        return numbers.isEmpty() ? QStringLiteral("NULL") : numbers.join(QLatin1Char(','));
    };
    if (query.projectIds)
        conditions.append(QStringLiteral("a.project_id IN (%1)").arg(idList(*query.projectIds)));
    if (query.taskIds)
        conditions.append(QStringLiteral("EXISTS (SELECT 1 FROM activity_tasks t WHERE t.activity_id = a.id "
                                         "AND t.task_id IN (%1))")
                              .arg(idList(*query.taskIds)));
    if (!conditions.isEmpty())
        where.sql = QStringLiteral(" WHERE ") + conditions.join(QStringLiteral(" AND "));
    return where;
}

QString orderAndLimit(const ActivityQuery &query)
{
    QString tail;
    switch (query.order) {
    case ActivityQuery::Order::Unordered:
        break;
    case ActivityQuery::Order::TimeFromAscending:
        tail = QStringLiteral(" ORDER BY a.time_from ASC, a.id ASC");
        break;
    case ActivityQuery::Order::TimeFromDescending:
        tail = QStringLiteral(" ORDER BY a.time_from DESC, a.id DESC");
        break;
    }
    // With a text pattern the limit applies after matching, which happens outside SQL.
    if (query.limit > 0 && !query.textLike)
        tail += QStringLiteral(" LIMIT %1").arg(query.limit);
    return tail;
}

void bindAll(SqliteStatement &statement, const QVariantList &binds)
{
    for (int i = 0; i < binds.size(); ++i) {
        const QVariant &value = binds.at(i);
        if (value.isNull())
            statement.bindNull(i + 1);
        else if (value.metaType() == QMetaType::fromType<QString>())
            statement.bindText(i + 1, value.toString());
        else
            statement.bindInt64(i + 1, value.toLongLong());
    }
}

bool prepareAndBind(QSqlQuery &query, const QString &sql, const QVariantList &binds)
{
    if (!query.prepare(sql))
        return false;
    for (const QVariant &value : binds)
        query.addBindValue(value);
    return true;
}

// Puts records read in table order into the query's order (start, then row id), when SQL did not.
void sortRecords(
    std::vector<ActivityRecord> &records, const std::vector<qint64> &ids, const ActivityQuery &query, bool sortHere)
{
    if (!sortHere)
        return;
    const bool ascending = query.order == ActivityQuery::Order::TimeFromAscending;
    std::vector<std::size_t> order(records.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        if (records[a].timeFrom != records[b].timeFrom)
            return ascending ? records[a].timeFrom < records[b].timeFrom : records[a].timeFrom > records[b].timeFrom;
        return ascending ? ids[a] < ids[b] : ids[a] > ids[b];
    });
    std::vector<ActivityRecord> sorted;
    sorted.reserve(records.size());
    for (std::size_t i : order)
        sorted.push_back(std::move(records[i]));
    records = std::move(sorted);
}

} // namespace

StoreContext::StoreContext(Store &store)
    : m_store(store)
{ }

StoreContext::~StoreContext()
{
    detachAll();
}

void StoreContext::detachAll()
{
    // Objects that outlive their context (or its reset) become detached values: nothing may record
    // changes into a context that no longer holds them.
    for (const auto &weak : std::as_const(m_activities)) {
        if (ActivityPtr activity = weak.lock())
            activity->m_context = nullptr;
    }
    for (const ActivityPtr &activity : m_pendingActivities) {
        activity->m_context = nullptr;
        activity->m_pending = false;
    }
    for (ItemIndex *items : { &m_projects, &m_tasks }) {
        for (const auto &item : std::as_const(items->byId))
            item->m_context = nullptr;
        for (const auto &item : items->inserted)
            item->m_context = nullptr;
    }
    for (const auto &item : m_pendingItems)
        item->m_pending = false;
    for (const auto &weak : std::as_const(m_deletedActivities)) {
        if (DeletedActivityPtr tombstone = weak.lock())
            tombstone->m_context = nullptr;
    }
    for (const DeletedActivityPtr &tombstone : m_pendingDeletedActivities) {
        tombstone->m_context = nullptr;
        tombstone->m_pending = false;
    }
    for (const auto &weak : std::as_const(m_syncFiles)) {
        if (SyncFilePtr file = weak.lock())
            file->m_context = nullptr;
    }
    for (const SyncFilePtr &file : m_pendingSyncFiles) {
        file->m_context = nullptr;
        file->m_pending = false;
    }
}

void StoreContext::reset()
{
    detachAll();
    m_projects = ItemIndex();
    m_tasks = ItemIndex();
    m_itemsLoaded = false;
    m_loadError.reset();
    m_assignedIds.clear();
    m_activities.clear();
    m_deletedActivities.clear();
    m_syncFiles.clear();
    m_pendingActivities.clear();
    m_pendingItems.clear();
    m_pendingDeletedActivities.clear();
    m_pendingSyncFiles.clear();
}

QDateTime StoreContext::now() const
{
    return m_store.clock()->now();
}

ActivityPtr StoreContext::insertActivity()
{
    return insertActivity(QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
}

ActivityPtr StoreContext::insertActivity(const QString &uid)
{
    auto activity = std::make_shared<Activity>();
    const QDateTime created = now();
    activity->m_uid = uid;
    activity->m_createdAt = created;
    activity->m_modifiedAt = created;
    activity->m_context = this;
    activity->markChanged();
    return activity;
}

ProjectPtr StoreContext::insertProject()
{
    auto project = std::make_shared<Project>();
    project->m_context = this;
    m_projects.inserted.push_back(project);
    project->markChanged();
    return project;
}

TaskPtr StoreContext::insertTask()
{
    auto task = std::make_shared<Task>();
    task->m_context = this;
    m_tasks.inserted.push_back(task);
    task->markChanged();
    return task;
}

DeletedActivityPtr StoreContext::insertDeletedActivity()
{
    auto tombstone = std::make_shared<DeletedActivity>();
    tombstone->m_context = this;
    tombstone->markChanged();
    return tombstone;
}

SyncFilePtr StoreContext::insertSyncFile()
{
    auto file = std::make_shared<BVSyncFile>();
    file->m_context = this;
    file->markChanged();
    return file;
}

void StoreContext::deleteObject(const ActivityPtr &activity)
{
    Q_ASSERT(activity && activity->m_context == this);
    activity->prepareForDeletion();
    activity->m_deleted = true;
    activityChanged(activity.get());
}

void StoreContext::deleteObject(const DeletedActivityPtr &deletedActivity)
{
    Q_ASSERT(deletedActivity && deletedActivity->m_context == this);
    deletedActivity->m_deleted = true;
    deletedActivityChanged(deletedActivity.get());
}

void StoreContext::deleteObject(const SyncFilePtr &syncFile)
{
    Q_ASSERT(syncFile && syncFile->m_context == this);
    syncFile->m_deleted = true;
    syncFileChanged(syncFile.get());
}

void StoreContext::activityChanged(Activity *activity)
{
    if (activity->m_pending)
        return;
    activity->m_pending = true;
    m_pendingActivities.push_back(activity->shared_from_this());
}

void StoreContext::itemChanged(SidebarItem *item, bool renamed)
{
    if (renamed)
        index(item->isTask()).keysStale = true;
    if (item->m_pending)
        return;
    item->m_pending = true;
    m_pendingItems.push_back(item->shared_from_this());
}

void StoreContext::deletedActivityChanged(DeletedActivity *deletedActivity)
{
    if (deletedActivity->m_pending)
        return;
    deletedActivity->m_pending = true;
    m_pendingDeletedActivities.push_back(deletedActivity->shared_from_this());
}

void StoreContext::syncFileChanged(BVSyncFile *syncFile)
{
    if (syncFile->m_pending)
        return;
    syncFile->m_pending = true;
    m_pendingSyncFiles.push_back(syncFile->shared_from_this());
}

bool StoreContext::hasChanges() const
{
    return !m_pendingActivities.empty() || !m_pendingItems.empty() || !m_pendingDeletedActivities.empty()
        || !m_pendingSyncFiles.empty();
}

std::expected<void, BvError> StoreContext::loadItems(bool reload)
{
    if (m_itemsLoaded && !reload)
        return {};
    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    for (const bool tasks : { false, true }) {
        ItemIndex &items = index(tasks);
        QSqlQuery query(*db);
        query.setForwardOnly(true);
        const QString table = tasks ? QStringLiteral("tasks") : QStringLiteral("projects");
        if (!query.exec(QStringLiteral("SELECT id, name, position, visible FROM ") + table))
            return std::unexpected(StoreErrors::fromSql(query));
        QHash<qint64, std::shared_ptr<SidebarItem>> seen;
        while (query.next()) {
            const qint64 id = query.value(0).toLongLong();
            std::shared_ptr<SidebarItem> item = items.byId.value(id);
            if (!item) {
                if (tasks)
                    item = std::make_shared<Task>();
                else
                    item = std::make_shared<Project>();
                item->m_id = id;
                item->m_context = this;
            }
            if (!item->m_pending) {
                item->m_name = query.value(1).toString();
                item->m_position
                    = query.value(2).isNull() ? std::nullopt : std::optional<qint64>(query.value(2).toLongLong());
                item->m_visible = query.value(3).toBool();
            }
            seen.insert(id, item);
        }
        items.byId = std::move(seen);
        rebuildKeys(items);
    }
    m_itemsLoaded = true;
    return {};
}

void StoreContext::rebuildKeys(ItemIndex &items)
{
    items.byKey.clear();
    for (const auto &item : std::as_const(items.byId))
        items.byKey.insert(nameKey(item->name()), item);
    for (const auto &item : items.inserted)
        items.byKey.insert(nameKey(item->name()), item);
    items.keysStale = false;
}

std::expected<QList<ProjectPtr>, BvError> StoreContext::projects()
{
    if (std::expected<void, BvError> loaded = loadItems(); !loaded)
        return std::unexpected(loaded.error());
    QList<ProjectPtr> result;
    for (const auto &item : std::as_const(m_projects.byId))
        result.append(std::static_pointer_cast<Project>(item));
    for (const auto &item : m_projects.inserted)
        result.append(std::static_pointer_cast<Project>(item));
    return result;
}

std::expected<QList<TaskPtr>, BvError> StoreContext::tasks()
{
    if (std::expected<void, BvError> loaded = loadItems(); !loaded)
        return std::unexpected(loaded.error());
    QList<TaskPtr> result;
    for (const auto &item : std::as_const(m_tasks.byId))
        result.append(std::static_pointer_cast<Task>(item));
    for (const auto &item : m_tasks.inserted)
        result.append(std::static_pointer_cast<Task>(item));
    return result;
}

std::shared_ptr<SidebarItem> StoreContext::findItem(const QString &name, bool task)
{
    if (std::expected<void, BvError> loaded = loadItems(); !loaded && !m_loadError)
        m_loadError = loaded.error();
    ItemIndex &items = index(task);
    if (items.keysStale)
        rebuildKeys(items);
    const QString key = nameKey(name);
    if (std::shared_ptr<SidebarItem> found = items.byKey.value(key)) {
        // The spelling typed last wins for the whole store.
        if (found->name() != name) {
            found->setName(name);
            items.keysStale = false;
        }
        return found;
    }
    std::shared_ptr<SidebarItem> created;
    if (task)
        created = insertTask();
    else
        created = insertProject();
    created->setInitialPosition();
    created->setName(name);
    items.byKey.insert(key, created);
    items.keysStale = false;
    return created;
}

ProjectPtr StoreContext::findProject(const QString &name)
{
    return std::static_pointer_cast<Project>(findItem(name, false));
}

TaskPtr StoreContext::findTask(const QString &name)
{
    return std::static_pointer_cast<Task>(findItem(name, true));
}

bool StoreContext::sidebarOrderedByHand(bool tasks) const
{
    return m_store.sidebarOrderedByHand(tasks);
}

std::optional<qint64> StoreContext::highestSidebarPosition(bool tasks)
{
    if (std::expected<void, BvError> loaded = loadItems(); !loaded)
        return std::nullopt;
    std::optional<qint64> highest;
    const ItemIndex &items = index(tasks);
    auto consider = [&](const std::shared_ptr<SidebarItem> &item) {
        if (item->m_position && (!highest || *item->m_position > *highest))
            highest = item->m_position;
    };
    for (const auto &item : items.byId)
        consider(item);
    for (const auto &item : items.inserted)
        consider(item);
    return highest;
}

std::shared_ptr<SidebarItem> StoreContext::item(qint64 id, bool task)
{
    if (std::shared_ptr<SidebarItem> found = index(task).byId.value(id))
        return found;
    // Another context or process made it since this one loaded its projects and tasks.
    if (std::expected<void, BvError> reloaded = loadItems(true); !reloaded)
        return nullptr;
    return index(task).byId.value(id);
}

std::expected<QStringList, BvError> StoreContext::fetchDistinctTexts(TextOrder order, bool onlyNotInvoiced, int limit)
{
    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    const QString filter = onlyNotInvoiced ? QStringLiteral(" AND is_invoiced = 0") : QString();
    QStringList texts;
    SqliteStatement rows;
    if (order == TextOrder::TextDescending) {
        if (auto prepared = rows.prepare(SqliteStatement::handle(*db),
                QStringLiteral("SELECT DISTINCT text FROM activities WHERE text IS NOT NULL") + filter
                    + QStringLiteral(" ORDER BY text DESC LIMIT %1").arg(limit));
            !prepared)
            return std::unexpected(prepared.error());
        while (rows.next())
            texts.append(rows.text(0));
    } else {
        // Walks the start index from the newest activity and stops once enough distinct texts are seen,
        // so the usual case reads a handful of rows however large the journal is.
        if (auto prepared = rows.prepare(SqliteStatement::handle(*db),
                QStringLiteral("SELECT text FROM activities WHERE text IS NOT NULL") + filter
                    + QStringLiteral(" ORDER BY time_from DESC"));
            !prepared)
            return std::unexpected(prepared.error());
        QSet<QString> seen;
        while (texts.size() < limit && rows.next()) {
            QString text = rows.text(0);
            if (!seen.contains(text)) {
                seen.insert(text);
                texts.append(std::move(text));
            }
        }
    }
    if (rows.failed())
        return std::unexpected(rows.error());
    return texts;
}

std::expected<QList<int>, BvError> StoreContext::distinctYearMonths()
{
    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    SqliteStatement rows;
    if (auto prepared = rows.prepare(SqliteStatement::handle(*db),
            QStringLiteral("SELECT DISTINCT year_month FROM activities ORDER BY year_month"));
        !prepared)
        return std::unexpected(prepared.error());
    QList<int> months;
    while (rows.next())
        months.append(int(rows.int64(0)));
    if (rows.failed())
        return std::unexpected(rows.error());
    return months;
}

std::expected<QList<StoreContext::ItemTotal>, BvError> StoreContext::itemTotals(bool tasks)
{
    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    // Each duration truncates both instants to whole seconds, as an activity's own duration does.
    const QString sql = tasks
        ? QStringLiteral("SELECT t.name, COUNT(a.id), COALESCE(SUM(a.time_to / 1000 - a.time_from / 1000), 0) "
                         "FROM tasks t LEFT JOIN activity_tasks l ON l.task_id = t.id "
                         "LEFT JOIN activities a ON a.id = l.activity_id GROUP BY t.id")
        : QStringLiteral("SELECT p.name, COUNT(a.id), COALESCE(SUM(a.time_to / 1000 - a.time_from / 1000), 0) "
                         "FROM projects p LEFT JOIN activities a ON a.project_id = p.id GROUP BY p.id");
    SqliteStatement rows;
    if (auto prepared = rows.prepare(SqliteStatement::handle(*db), sql); !prepared)
        return std::unexpected(prepared.error());
    QList<ItemTotal> totals;
    while (rows.next())
        totals.append(ItemTotal { rows.text(0), rows.int64(1), rows.int64(2) });
    if (rows.failed())
        return std::unexpected(rows.error());
    std::sort(totals.begin(), totals.end(),
        [](const ItemTotal &a, const ItemTotal &b) { return a.name.compare(b.name, Qt::CaseInsensitive) < 0; });
    return totals;
}

ActivityPtr StoreContext::activityFromRow(const SqliteStatement &row)
{
    const qint64 id = row.int64(0);
    ActivityPtr activity = m_activities.value(id).lock();
    if (activity && activity->m_pending)
        return activity; // unsaved changes here win over the stored row
    if (!activity) {
        activity = std::make_shared<Activity>();
        activity->m_id = id;
        activity->m_context = this;
        m_activities.insert(id, activity);
    }
    activity->m_uid = row.text(1);
    activity->m_text = row.text(2);
    activity->m_timeFrom = row.instant(3);
    activity->m_timeTo = row.instant(4);
    activity->m_createdAt = row.instant(5);
    activity->m_modifiedAt = row.instant(6);
    activity->m_isInvoiced = row.int64(7) != 0;
    activity->m_yearMonth = int(row.int64(8));
    activity->m_project = row.isNull(9) ? ProjectPtr() : std::static_pointer_cast<Project>(item(row.int64(9), false));
    activity->m_tasks.clear();
    activity->calculateDuration();
    return activity;
}

std::expected<QList<ActivityPtr>, BvError> StoreContext::fetchActivityRows(const QString &where,
    const QVariantList &binds, const QString &tail, const std::optional<QString> &textLike, int limit)
{
    if (std::expected<void, BvError> loaded = loadItems(); !loaded)
        return std::unexpected(loaded.error());
    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    sqlite3 *handle = SqliteStatement::handle(*db);

    SqliteStatement rows;
    const QString sql = QStringLiteral("SELECT a.id, a.uid, a.text, a.time_from, a.time_to, a.created_at, "
                                       "a.modified_at, a.is_invoiced, a.year_month, a.project_id "
                                       "FROM activities a")
        + where + tail;
    if (std::expected<void, BvError> prepared = rows.prepare(handle, sql); !prepared)
        return std::unexpected(prepared.error());
    bindAll(rows, binds);
    const std::optional<LikePattern> pattern
        = textLike ? std::optional<LikePattern>(LikePattern(*textLike)) : std::nullopt;
    QList<ActivityPtr> result;
    std::vector<std::pair<qint64, Activity *>> needTasks;
    while (rows.next()) {
        if (pattern && !pattern->matches(rows.text(2)))
            continue;
        if (limit > 0 && result.size() >= limit)
            break;
        ActivityPtr activity = activityFromRow(rows);
        if (!activity->m_pending)
            needTasks.emplace_back(activity->m_id, activity.get());
        result.append(std::move(activity));
    }
    if (rows.failed())
        return std::unexpected(rows.error());
    if (needTasks.empty())
        return result;

    // Row ids are dense, so a plain vector finds the activity of a link row faster than a hash when the
    // fetch covers most of the journal.
    qint64 highestId = 0;
    for (const auto &[id, activity] : needTasks)
        highestId = qMax(highestId, id);
    std::vector<Activity *> byId;
    QHash<qint64, Activity *> sparse;
    if (highestId < 4 * qint64(needTasks.size()) + 1024) {
        byId.assign(std::size_t(highestId) + 1, nullptr);
        for (const auto &[id, activity] : needTasks)
            byId[std::size_t(id)] = activity;
    } else {
        sparse.reserve(qsizetype(needTasks.size()));
        for (const auto &[id, activity] : needTasks)
            sparse.insert(id, activity);
    }
    QHash<qint64, TaskPtr> tasksById;
    tasksById.reserve(m_tasks.byId.size());
    for (auto it = m_tasks.byId.cbegin(); it != m_tasks.byId.cend(); ++it)
        tasksById.insert(it.key(), std::static_pointer_cast<Task>(it.value()));

    SqliteStatement links;
    auto linkAll = [&]() -> std::expected<void, BvError> {
        while (links.next()) {
            const qint64 activityId = links.int64(0);
            Activity *activity = nullptr;
            if (!byId.empty())
                activity
                    = activityId >= 0 && activityId < qint64(byId.size()) ? byId[std::size_t(activityId)] : nullptr;
            else
                activity = sparse.value(activityId);
            if (!activity)
                continue;
            const qint64 taskId = links.int64(1);
            TaskPtr task = tasksById.value(taskId);
            if (!task) {
                task = std::static_pointer_cast<Task>(item(taskId, true));
                if (task)
                    tasksById.insert(taskId, task);
            }
            if (task)
                activity->m_tasks.append(std::move(task));
        }
        if (links.failed())
            return std::unexpected(links.error());
        return {};
    };
    if (qsizetype(needTasks.size()) > kScanTaskLinksAbove) {
        if (std::expected<void, BvError> prepared
            = links.prepare(handle, QStringLiteral("SELECT activity_id, task_id FROM activity_tasks"));
            !prepared)
            return std::unexpected(prepared.error());
        if (std::expected<void, BvError> linked = linkAll(); !linked)
            return std::unexpected(linked.error());
        return result;
    }
    QList<qint64> ids;
    ids.reserve(qsizetype(needTasks.size()));
    for (const auto &[id, activity] : needTasks)
        ids.append(id);
    for (qsizetype start = 0; start < ids.size(); start += kIdsPerStatement) {
        const QList<qint64> chunk = ids.mid(start, kIdsPerStatement);
        const QStringList marks(chunk.size(), QStringLiteral("?"));
        const QString linkSql = QStringLiteral("SELECT activity_id, task_id FROM activity_tasks WHERE activity_id IN (")
            + marks.join(QLatin1Char(',')) + QLatin1Char(')');
        if (std::expected<void, BvError> prepared = links.prepare(handle, linkSql); !prepared)
            return std::unexpected(prepared.error());
        for (int i = 0; i < chunk.size(); ++i)
            links.bindInt64(i + 1, chunk.at(i));
        if (std::expected<void, BvError> linked = linkAll(); !linked)
            return std::unexpected(linked.error());
    }
    return result;
}

std::expected<QList<ActivityPtr>, BvError> StoreContext::fetchActivities(const ActivityQuery &query)
{
    const Where where = whereClause(query);
    // Without a time range the start index would only order the rows, at the price of one table lookup per
    // row; reading the table in its own order and sorting here is several times faster for a whole journal.
    const bool sortHere = query.order != ActivityQuery::Order::Unordered && query.limit == 0 && !query.startsFrom
        && !query.startsUntil && !query.overlapsFrom && !query.overlapsUntil;
    if (!sortHere)
        return fetchActivityRows(where.sql, where.binds, orderAndLimit(query), query.textLike, query.limit);

    std::expected<QList<ActivityPtr>, BvError> rows
        = fetchActivityRows(where.sql, where.binds, QString(), query.textLike, 0);
    if (!rows)
        return rows;
    const bool ascending = query.order == ActivityQuery::Order::TimeFromAscending;
    std::sort(rows->begin(), rows->end(), [ascending](const ActivityPtr &a, const ActivityPtr &b) {
        const qint64 from = a->m_timeFrom.toMSecsSinceEpoch();
        const qint64 otherFrom = b->m_timeFrom.toMSecsSinceEpoch();
        if (from != otherFrom)
            return ascending ? from < otherFrom : from > otherFrom;
        return ascending ? a->m_id < b->m_id : a->m_id > b->m_id;
    });
    return rows;
}

std::expected<std::vector<ActivityStamp>, BvError> StoreContext::fetchActivityStamps(const ActivityQuery &query)
{
    Q_ASSERT(!query.textLike);
    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    const Where where = whereClause(query);
    SqliteStatement rows;
    if (auto prepared = rows.prepare(SqliteStatement::handle(*db),
            QStringLiteral("SELECT a.uid, a.modified_at FROM activities a") + where.sql);
        !prepared)
        return std::unexpected(prepared.error());
    bindAll(rows, where.binds);
    std::vector<ActivityStamp> stamps;
    while (rows.next())
        stamps.push_back({ rows.text(0), rows.int64(1) });
    if (rows.failed())
        return std::unexpected(rows.error());
    return stamps;
}

std::expected<std::vector<ActivityRecord>, BvError> StoreContext::fetchActivityRecords(
    const ActivityQuery &query, bool withTasks)
{
    if (std::expected<void, BvError> loaded = loadItems(true); !loaded)
        return std::unexpected(loaded.error());
    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    sqlite3 *handle = SqliteStatement::handle(*db);
    const Where where = whereClause(query);
    const bool sortHere = query.order != ActivityQuery::Order::Unordered && query.limit == 0 && !query.startsFrom
        && !query.startsUntil && !query.overlapsFrom && !query.overlapsUntil;
    SqliteStatement rows;
    if (auto prepared = rows.prepare(handle,
            QStringLiteral("SELECT a.id, a.uid, a.text, a.time_from, a.time_to, a.created_at, "
                           "a.modified_at, a.is_invoiced, a.project_id FROM activities a")
                + where.sql + (sortHere ? QString() : orderAndLimit(query)));
        !prepared)
        return std::unexpected(prepared.error());
    bindAll(rows, where.binds);
    const std::optional<LikePattern> pattern
        = query.textLike ? std::optional<LikePattern>(LikePattern(*query.textLike)) : std::nullopt;
    std::vector<ActivityRecord> records;
    std::vector<qint64> ids;
    while (rows.next()) {
        if (pattern && !pattern->matches(rows.text(2)))
            continue;
        if (query.limit > 0 && qsizetype(records.size()) >= query.limit)
            break;
        ActivityRecord record;
        record.uid = rows.text(1);
        record.text = rows.text(2);
        record.timeFrom = rows.int64(3);
        record.timeTo = rows.int64(4);
        record.createdAt = rows.int64(5);
        record.modifiedAt = rows.int64(6);
        record.isInvoiced = rows.int64(7) != 0;
        if (!rows.isNull(8)) {
            if (const auto project = m_projects.byId.value(rows.int64(8)))
                record.project = project->name();
        }
        ids.push_back(rows.int64(0));
        records.push_back(std::move(record));
    }
    if (rows.failed())
        return std::unexpected(rows.error());
    if (records.empty())
        return records;
    if (!withTasks) {
        sortRecords(records, ids, query, sortHere);
        return records;
    }

    // Task names through the link table, read whole and matched by row id: ids are dense, so a vector
    // indexed by id maps a link to its record.
    const qint64 highestId = *std::max_element(ids.cbegin(), ids.cend());
    if (highestId < 4 * qint64(ids.size()) + 1024 || records.size() > std::size_t(kScanTaskLinksAbove)) {
        std::vector<qint32> recordOf;
        QHash<qint64, qint32> sparse;
        const bool dense = highestId < 4 * qint64(ids.size()) + 1024;
        if (dense)
            recordOf.assign(std::size_t(highestId) + 1, -1);
        for (std::size_t i = 0; i < ids.size(); ++i) {
            if (dense)
                recordOf[std::size_t(ids[i])] = qint32(i);
            else
                sparse.insert(ids[i], qint32(i));
        }
        SqliteStatement links;
        if (auto prepared = links.prepare(handle, QStringLiteral("SELECT activity_id, task_id FROM activity_tasks"));
            !prepared)
            return std::unexpected(prepared.error());
        while (links.next()) {
            const qint64 activityId = links.int64(0);
            qint32 index = -1;
            if (dense)
                index = activityId >= 0 && activityId <= highestId ? recordOf[std::size_t(activityId)] : -1;
            else
                index = sparse.value(activityId, -1);
            if (index < 0)
                continue;
            // A link is unique and so is a task's name: no name can come twice.
            if (const auto task = m_tasks.byId.value(links.int64(1)))
                records[std::size_t(index)].tasks.append(task->name());
        }
        if (links.failed())
            return std::unexpected(links.error());
    } else {
        SqliteStatement links;
        if (auto prepared
            = links.prepare(handle, QStringLiteral("SELECT task_id FROM activity_tasks WHERE activity_id = ?"));
            !prepared)
            return std::unexpected(prepared.error());
        for (std::size_t i = 0; i < ids.size(); ++i) {
            links.bindInt64(1, ids[i]);
            while (links.next()) {
                if (const auto task = m_tasks.byId.value(links.int64(0)))
                    records[i].tasks.append(task->name());
            }
            if (links.failed())
                return std::unexpected(links.error());
            links.reset();
        }
    }
    for (ActivityRecord &record : records) {
        if (record.tasks.size() > 1)
            record.tasks.sort();
    }

    sortRecords(records, ids, query, sortHere);
    return records;
}

std::expected<ActivityPtr, BvError> StoreContext::activityWithUid(const QString &uid)
{
    ActivityQuery query;
    query.uid = uid;
    query.limit = 1;
    std::expected<QList<ActivityPtr>, BvError> found = fetchActivities(query);
    if (!found)
        return std::unexpected(found.error());
    return found->isEmpty() ? ActivityPtr() : found->constFirst();
}

std::expected<QHash<QString, ActivityPtr>, BvError> StoreContext::activitiesWithUids(const QStringList &uids)
{
    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    sqlite3 *handle = SqliteStatement::handle(*db);
    // A sync asks for every uid of a month file, and on a first sync none of them is stored yet. One
    // prepared statement probes the uid index for each, and only the activities found are read whole.
    // The savepoint makes all of it one read transaction (or part of the one already open): on its own
    // every probe would open and close a transaction, which costs more than the probe.
    SqliteStatement begin;
    SqliteStatement release;
    SqliteStatement probe;
    for (auto [statement, sql] : { std::pair { &begin, "SAVEPOINT activities_with_uids" },
             std::pair { &release, "RELEASE activities_with_uids" },
             std::pair { &probe, "SELECT id FROM activities WHERE uid = ?" } }) {
        if (std::expected<void, BvError> prepared = statement->prepare(handle, QString::fromLatin1(sql)); !prepared)
            return std::unexpected(prepared.error());
    }
    if (std::expected<void, BvError> begun = begin.execute(); !begun)
        return std::unexpected(begun.error());
    auto fetch = [&]() -> std::expected<QHash<QString, ActivityPtr>, BvError> {
        QList<qint64> ids;
        for (const QString &uid : uids) {
            probe.bindText(1, uid);
            if (probe.next())
                ids.append(probe.int64(0));
            if (probe.failed())
                return std::unexpected(probe.error());
            probe.reset();
        }
        QHash<QString, ActivityPtr> found;
        found.reserve(ids.size());
        for (qsizetype start = 0; start < ids.size(); start += kIdsPerStatement) {
            const QList<qint64> chunk = ids.mid(start, kIdsPerStatement);
            const QStringList marks(chunk.size(), QStringLiteral("?"));
            QVariantList binds;
            binds.reserve(chunk.size());
            for (qint64 id : chunk)
                binds.append(id);
            std::expected<QList<ActivityPtr>, BvError> fetched = fetchActivityRows(
                QStringLiteral(" WHERE a.id IN (") + marks.join(QLatin1Char(',')) + QLatin1Char(')'), binds, QString(),
                std::nullopt, 0);
            if (!fetched)
                return std::unexpected(fetched.error());
            for (const ActivityPtr &activity : std::as_const(*fetched))
                found.insert(activity->uid(), activity);
        }
        return found;
    };
    std::expected<QHash<QString, ActivityPtr>, BvError> found = fetch();
    probe.reset();
    if (std::expected<void, BvError> released = release.execute(); !released && found)
        return std::unexpected(released.error());
    return found;
}

std::expected<qint64, BvError> StoreContext::countActivities(const ActivityQuery &query)
{
    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    const Where where = whereClause(query);
    if (query.textLike) {
        SqliteStatement texts;
        if (auto prepared = texts.prepare(
                SqliteStatement::handle(*db), QStringLiteral("SELECT a.text FROM activities a") + where.sql);
            !prepared)
            return std::unexpected(prepared.error());
        bindAll(texts, where.binds);
        const LikePattern pattern(*query.textLike);
        qint64 count = 0;
        while (texts.next())
            count += pattern.matches(texts.text(0)) ? 1 : 0;
        if (texts.failed())
            return std::unexpected(texts.error());
        return count;
    }
    QSqlQuery sql(*db);
    if (!prepareAndBind(sql, QStringLiteral("SELECT COUNT(*) FROM activities a") + where.sql, where.binds)
        || !sql.exec() || !sql.next())
        return std::unexpected(StoreErrors::fromSql(sql));
    return sql.value(0).toLongLong();
}

std::expected<QList<DeletedActivityPtr>, BvError> StoreContext::fetchDeletedActivities(
    const std::optional<QString> &uid, const std::optional<bool> &isSynced)
{
    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    QStringList conditions;
    QVariantList binds;
    if (uid) {
        conditions.append(QStringLiteral("uid = ?"));
        binds.append(*uid);
    }
    if (isSynced) {
        conditions.append(QStringLiteral("is_synced = ?"));
        binds.append(*isSynced ? 1 : 0);
    }
    QString sql = QStringLiteral("SELECT id, uid, deleted_at, is_synced FROM deleted_activities");
    if (!conditions.isEmpty())
        sql += QStringLiteral(" WHERE ") + conditions.join(QStringLiteral(" AND "));
    sql += QStringLiteral(" ORDER BY id");
    QSqlQuery query(*db);
    query.setForwardOnly(true);
    if (!prepareAndBind(query, sql, binds) || !query.exec())
        return std::unexpected(StoreErrors::fromSql(query));
    QList<DeletedActivityPtr> result;
    while (query.next()) {
        const qint64 id = query.value(0).toLongLong();
        DeletedActivityPtr tombstone = m_deletedActivities.value(id).lock();
        if (!tombstone) {
            tombstone = std::make_shared<DeletedActivity>();
            tombstone->m_id = id;
            tombstone->m_context = this;
            m_deletedActivities.insert(id, tombstone);
        }
        if (!tombstone->m_pending) {
            tombstone->m_uid = query.value(1).toString();
            tombstone->m_deletedAt = instant(query.value(2));
            tombstone->m_isSynced = query.value(3).toBool();
        }
        result.append(tombstone);
    }
    return result;
}

std::expected<QList<SyncFilePtr>, BvError> StoreContext::fetchSyncFiles(const std::optional<QString> &name)
{
    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    QString sql = QStringLiteral("SELECT id, name, revision, activity_hash FROM sync_files");
    QVariantList binds;
    if (name) {
        sql += QStringLiteral(" WHERE name = ?");
        binds.append(*name);
    }
    sql += QStringLiteral(" ORDER BY id");
    QSqlQuery query(*db);
    query.setForwardOnly(true);
    if (!prepareAndBind(query, sql, binds) || !query.exec())
        return std::unexpected(StoreErrors::fromSql(query));
    QList<SyncFilePtr> result;
    while (query.next()) {
        const qint64 id = query.value(0).toLongLong();
        SyncFilePtr file = m_syncFiles.value(id).lock();
        if (!file) {
            file = std::make_shared<BVSyncFile>();
            file->m_id = id;
            file->m_context = this;
            m_syncFiles.insert(id, file);
        }
        if (!file->m_pending) {
            if (file->m_name != query.value(1).toString()) {
                file->m_yearMonthComputed = false;
                file->m_year.reset();
                file->m_month.reset();
            }
            file->m_name = query.value(1).toString();
            file->m_revision = query.value(2).toString();
            file->m_activityHash = query.value(3).toString();
        }
        result.append(file);
    }
    return result;
}

std::expected<void, BvError> StoreContext::save()
{
    if (!hasChanges())
        return {};

    // willSave may find or create projects and tasks; those join the same transaction.
    for (std::size_t i = 0; i < m_pendingActivities.size(); ++i) {
        const ActivityPtr activity = m_pendingActivities[i];
        if (!activity->m_deleted)
            activity->willSave(*this);
    }
    std::optional<BvError> invalid;
    for (const ActivityPtr &activity : m_pendingActivities) {
        if (activity->m_deleted)
            continue;
        if (std::expected<void, BvError> valid = activity->validateActivity(); !valid)
            invalid = invalid ? Activity::errorFromOriginalError(*invalid, valid.error()) : valid.error();
    }
    if (invalid)
        return std::unexpected(*invalid);
    if (m_loadError)
        return std::unexpected(*m_loadError);

    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    QSqlQuery control(*db);
    if (!control.exec(QStringLiteral("BEGIN IMMEDIATE")))
        return std::unexpected(StoreErrors::fromSql(control));
    Store::Entities written;
    std::expected<void, BvError> result = writeChanges(*db, written);
    if (result && !control.exec(QStringLiteral("COMMIT")))
        result = std::unexpected(StoreErrors::fromSql(control));
    if (!result) {
        control.exec(QStringLiteral("ROLLBACK"));
        discardFailedInserts();
        qCWarning(lcStore).noquote() << QStringLiteral("Save failed: %1").arg(result.error().message());
        return result;
    }
    finishSave();
    m_store.didCommit(written);
    return {};
}

std::expected<void, BvError> StoreContext::writeChanges(const QSqlDatabase &db, Store::Entities &written)
{
    m_assignedIds.clear();
    auto fail = [](const QSqlQuery &query) { return std::unexpected(StoreErrors::fromSql(query)); };
    auto run = [](QSqlQuery &query, const QVariantList &binds) {
        for (int i = 0; i < binds.size(); ++i)
            query.bindValue(i, binds.at(i));
        return query.exec();
    };

    for (const bool tasks : { false, true }) {
        const QString table = tasks ? QStringLiteral("tasks") : QStringLiteral("projects");
        QSqlQuery insert(db);
        QSqlQuery update(db);
        if (!insert.prepare(
                QStringLiteral("INSERT INTO %1 (name, name_key, position, visible) VALUES (?, ?, ?, ?)").arg(table))
            || !update.prepare(
                QStringLiteral("UPDATE %1 SET name = ?, name_key = ?, position = ?, visible = ? WHERE id = ?")
                    .arg(table)))
            return fail(insert);
        for (const auto &item : m_pendingItems) {
            if (item->isTask() != tasks)
                continue;
            const QVariantList values { item->m_name, nameKey(item->m_name), optionalInteger(item->m_position),
                item->m_visible ? 1 : 0 };
            if (item->m_id == 0) {
                if (!run(insert, values))
                    return fail(insert);
                item->m_id = insert.lastInsertId().toLongLong();
                m_assignedIds.push_back(&item->m_id);
            } else if (!run(update, values + QVariantList { item->m_id })) {
                return fail(update);
            }
            written |= tasks ? Store::Entity::Task : Store::Entity::Project;
        }
    }

    sqlite3 *handle = SqliteStatement::handle(db);
    SqliteStatement insertActivity;
    SqliteStatement updateActivity;
    SqliteStatement deleteActivity;
    SqliteStatement clearTasks;
    SqliteStatement linkTask;
    for (auto [statement, sql] :
        { std::pair { &insertActivity,
              "INSERT INTO activities (uid, text, time_from, time_to, created_at, modified_at, "
              "is_invoiced, year_month, project_id) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)" },
            std::pair { &updateActivity,
                "UPDATE activities SET uid = ?, text = ?, time_from = ?, time_to = ?, "
                "created_at = ?, modified_at = ?, is_invoiced = ?, year_month = ?, "
                "project_id = ? WHERE id = ?" },
            std::pair { &deleteActivity, "DELETE FROM activities WHERE id = ?" },
            std::pair { &clearTasks, "DELETE FROM activity_tasks WHERE activity_id = ?" },
            std::pair { &linkTask, "INSERT OR IGNORE INTO activity_tasks (activity_id, task_id) VALUES (?, ?)" } }) {
        if (std::expected<void, BvError> prepared = statement->prepare(handle, QString::fromLatin1(sql)); !prepared)
            return prepared;
    }
    auto bindActivity = [](SqliteStatement &statement, const Activity &activity) {
        statement.bindText(1, activity.m_uid);
        statement.bindText(2, activity.m_text);
        statement.bindInstant(3, activity.m_timeFrom);
        statement.bindInstant(4, activity.m_timeTo);
        statement.bindInstant(5, activity.m_createdAt);
        statement.bindInstant(6, activity.m_modifiedAt);
        statement.bindInt64(7, activity.m_isInvoiced ? 1 : 0);
        statement.bindInt64(8, activity.m_yearMonth);
        if (activity.m_project)
            statement.bindInt64(9, activity.m_project->m_id);
        else
            statement.bindNull(9);
    };

    qint64 longestSpan = 0;
    for (const ActivityPtr &activity : m_pendingActivities) {
        if (activity->m_deleted) {
            if (activity->m_id == 0)
                continue;
            deleteActivity.bindInt64(1, activity->m_id);
            if (std::expected<void, BvError> done = deleteActivity.execute(); !done)
                return done;
            written |= Store::Entity::Activity;
            continue;
        }
        Q_ASSERT(!activity->m_project || activity->m_project->m_context == this);
        const bool inserted = activity->m_id == 0;
        if (inserted) {
            bindActivity(insertActivity, *activity);
            if (std::expected<void, BvError> done = insertActivity.execute(); !done)
                return done;
            activity->m_id = SqliteStatement::lastInsertRowId(handle);
            m_assignedIds.push_back(&activity->m_id);
        } else {
            bindActivity(updateActivity, *activity);
            updateActivity.bindInt64(10, activity->m_id);
            if (std::expected<void, BvError> done = updateActivity.execute(); !done)
                return done;
        }
        if (activity->m_tasksChanged || inserted) {
            if (!inserted) {
                clearTasks.bindInt64(1, activity->m_id);
                if (std::expected<void, BvError> done = clearTasks.execute(); !done)
                    return done;
            }
            for (const TaskPtr &task : std::as_const(activity->m_tasks)) {
                linkTask.bindInt64(1, activity->m_id);
                linkTask.bindInt64(2, task->m_id);
                if (std::expected<void, BvError> done = linkTask.execute(); !done)
                    return done;
            }
        }
        longestSpan = qMax(longestSpan, activity->m_timeFrom.msecsTo(activity->m_timeTo));
        written |= Store::Entity::Activity;
    }
    if (longestSpan > 0) {
        SqliteStatement raiseBound;
        if (auto prepared
            = raiseBound.prepare(handle, QStringLiteral("UPDATE activity_bounds SET max_span = MAX(max_span, ?)"));
            !prepared)
            return prepared;
        raiseBound.bindInt64(1, longestSpan);
        if (std::expected<void, BvError> done = raiseBound.execute(); !done)
            return done;
    }

    QSqlQuery tombstones(db);
    for (const DeletedActivityPtr &tombstone : m_pendingDeletedActivities) {
        bool ok = true;
        if (tombstone->m_deleted) {
            if (tombstone->m_id == 0)
                continue;
            ok = prepareAndBind(
                     tombstones, QStringLiteral("DELETE FROM deleted_activities WHERE id = ?"), { tombstone->m_id })
                && tombstones.exec();
        } else if (tombstone->m_id == 0) {
            ok = prepareAndBind(tombstones,
                     QStringLiteral("INSERT INTO deleted_activities (uid, deleted_at, is_synced) "
                                    "VALUES (?, ?, ?)"),
                     { tombstone->m_uid, msecs(tombstone->m_deletedAt), tombstone->m_isSynced ? 1 : 0 })
                && tombstones.exec();
            if (ok) {
                tombstone->m_id = tombstones.lastInsertId().toLongLong();
                m_assignedIds.push_back(&tombstone->m_id);
            }
        } else {
            ok = prepareAndBind(tombstones,
                     QStringLiteral("UPDATE deleted_activities SET uid = ?, deleted_at = ?, is_synced = ? "
                                    "WHERE id = ?"),
                     { tombstone->m_uid, msecs(tombstone->m_deletedAt), tombstone->m_isSynced ? 1 : 0,
                         tombstone->m_id })
                && tombstones.exec();
        }
        if (!ok)
            return fail(tombstones);
        written |= Store::Entity::DeletedActivity;
    }

    QSqlQuery files(db);
    for (const SyncFilePtr &file : m_pendingSyncFiles) {
        bool ok = true;
        if (file->m_deleted) {
            if (file->m_id == 0)
                continue;
            ok = prepareAndBind(files, QStringLiteral("DELETE FROM sync_files WHERE id = ?"), { file->m_id })
                && files.exec();
        } else if (file->m_id == 0) {
            ok = prepareAndBind(files,
                     QStringLiteral("INSERT INTO sync_files (name, revision, activity_hash) VALUES (?, ?, ?)"),
                     { file->m_name, file->m_revision, file->m_activityHash })
                && files.exec();
            if (ok) {
                file->m_id = files.lastInsertId().toLongLong();
                m_assignedIds.push_back(&file->m_id);
            }
        } else {
            ok = prepareAndBind(files,
                     QStringLiteral("UPDATE sync_files SET name = ?, revision = ?, activity_hash = ? "
                                    "WHERE id = ?"),
                     { file->m_name, file->m_revision, file->m_activityHash, file->m_id })
                && files.exec();
        }
        if (!ok)
            return fail(files);
        written |= Store::Entity::SyncFile;
    }
    return {};
}

void StoreContext::discardFailedInserts()
{
    // The rolled-back rows never existed: a later save must insert these objects again.
    for (qint64 *id : m_assignedIds)
        *id = 0;
    m_assignedIds.clear();
}

void StoreContext::finishSave()
{
    m_assignedIds.clear();
    for (const ActivityPtr &activity : m_pendingActivities) {
        activity->m_pending = false;
        activity->m_changed = false;
        activity->m_tasksChanged = false;
        if (activity->m_deleted) {
            m_activities.remove(activity->m_id);
            activity->m_context = nullptr;
        } else {
            m_activities.insert(activity->m_id, activity);
        }
    }
    m_pendingActivities.clear();

    for (const auto &item : m_pendingItems) {
        item->m_pending = false;
        item->m_changed = false;
        ItemIndex &items = index(item->isTask());
        items.byId.insert(item->m_id, item);
        std::erase(items.inserted, item);
    }
    m_pendingItems.clear();

    for (const DeletedActivityPtr &tombstone : m_pendingDeletedActivities) {
        tombstone->m_pending = false;
        tombstone->m_changed = false;
        if (tombstone->m_deleted) {
            m_deletedActivities.remove(tombstone->m_id);
            tombstone->m_context = nullptr;
        } else {
            m_deletedActivities.insert(tombstone->m_id, tombstone);
        }
    }
    m_pendingDeletedActivities.clear();

    for (const SyncFilePtr &file : m_pendingSyncFiles) {
        file->m_pending = false;
        file->m_changed = false;
        if (file->m_deleted) {
            m_syncFiles.remove(file->m_id);
            file->m_context = nullptr;
        } else {
            m_syncFiles.insert(file->m_id, file);
        }
    }
    m_pendingSyncFiles.clear();
}

void StoreContext::refreshObjects()
{
    if (std::expected<void, BvError> loaded = loadItems(true); !loaded) {
        qCWarning(lcStore).noquote() << QStringLiteral("Refresh failed: %1").arg(loaded.error().message());
        return;
    }
    QList<qint64> ids;
    for (auto it = m_activities.begin(); it != m_activities.end();) {
        ActivityPtr activity = it.value().lock();
        if (!activity) {
            it = m_activities.erase(it);
            continue;
        }
        if (!activity->m_pending)
            ids.append(it.key());
        ++it;
    }
    QSet<qint64> present;
    for (qsizetype start = 0; start < ids.size(); start += kIdsPerStatement) {
        const QList<qint64> chunk = ids.mid(start, kIdsPerStatement);
        QStringList marks(chunk.size(), QStringLiteral("?"));
        QVariantList binds;
        for (qint64 id : chunk)
            binds.append(id);
        std::expected<QList<ActivityPtr>, BvError> fetched
            = fetchActivityRows(QStringLiteral(" WHERE a.id IN (") + marks.join(QLatin1Char(',')) + QLatin1Char(')'),
                binds, QString(), std::nullopt, 0);
        if (!fetched) {
            qCWarning(lcStore).noquote() << QStringLiteral("Refresh failed: %1").arg(fetched.error().message());
            return;
        }
        for (const ActivityPtr &activity : std::as_const(*fetched))
            present.insert(activity->m_id);
    }
    // Rows that are gone were deleted elsewhere; their objects become detached.
    for (qint64 id : std::as_const(ids)) {
        if (present.contains(id))
            continue;
        if (ActivityPtr activity = m_activities.take(id).lock()) {
            activity->m_deleted = true;
            activity->m_context = nullptr;
        }
    }
}
