#include "model/storecontext.h"

#include <algorithm>

#include <QSet>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QUuid>

#include "base/clock.h"
#include "base/logging.h"
#include "model/activityquerysql.h"
#include "model/likepattern.h"
#include "model/namekey.h"
#include "model/sqlitestatement.h"
#include "model/storeerrors.h"
#include "model/storewriter.h"
#include "model/tasklinks.h"

namespace {

QDateTime instant(const QVariant &value)
{
    return value.isNull() ? QDateTime() : QDateTime::fromMSecsSinceEpoch(value.toLongLong(), Qt::UTC);
}

bool prepareAndBind(QSqlQuery &query, const QString &sql, const QVariantList &binds)
{
    if (!query.prepare(sql))
        return false;
    for (const QVariant &value : binds)
        query.addBindValue(value);
    return true;
}

const auto kActivityColumns = QStringLiteral("SELECT a.id, a.uid, a.text, a.time_from, a.time_to, a.created_at, "
                                             "a.modified_at, a.is_invoiced, a.year_month, a.project_id "
                                             "FROM activities a");

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
    activity->markChanged(Activity::Field::Uid);
    return activity;
}

ProjectPtr StoreContext::insertProject()
{
    auto project = std::make_shared<Project>();
    project->m_context = this;
    m_projects.inserted.push_back(project);
    project->markChanged(SidebarItem::NameColumn);
    return project;
}

TaskPtr StoreContext::insertTask()
{
    auto task = std::make_shared<Task>();
    task->m_context = this;
    m_tasks.inserted.push_back(task);
    task->markChanged(SidebarItem::NameColumn);
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
        items.byKey.insert(NameKey::fromName(item->name()), item);
    for (const auto &item : items.inserted)
        items.byKey.insert(NameKey::fromName(item->name()), item);
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
    const QString key = NameKey::fromName(name);
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

void StoreContext::readActivity(Activity &activity, const SqliteStatement &row, Activity::Fields keep)
{
    using Field = Activity::Field;
    if (!keep.testFlag(Field::Uid))
        activity.m_uid = row.text(1);
    if (!keep.testFlag(Field::Text))
        activity.m_text = row.text(2);
    if (!keep.testFlag(Field::TimeFrom)) {
        activity.m_timeFrom = row.instant(3);
        activity.m_yearMonth = int(row.int64(8));
    }
    if (!keep.testFlag(Field::TimeTo))
        activity.m_timeTo = row.instant(4);
    if (!keep.testFlag(Field::CreatedAt))
        activity.m_createdAt = row.instant(5);
    if (!keep.testFlag(Field::ModifiedAt))
        activity.m_modifiedAt = row.instant(6);
    if (!keep.testFlag(Field::IsInvoiced))
        activity.m_isInvoiced = row.int64(7) != 0;
    if (!keep.testFlag(Field::Project))
        activity.m_project
            = row.isNull(9) ? ProjectPtr() : std::static_pointer_cast<Project>(item(row.int64(9), false));
    activity.calculateDuration();
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
    readActivity(*activity, row, {});
    activity->m_tasks.clear();
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
    if (std::expected<void, BvError> prepared = rows.prepare(handle, kActivityColumns + where + tail); !prepared)
        return std::unexpected(prepared.error());
    for (int i = 0; i < binds.size(); ++i) {
        const QVariant &value = binds.at(i);
        if (value.isNull())
            rows.bindNull(i + 1);
        else if (value.metaType() == QMetaType::fromType<QString>())
            rows.bindText(i + 1, value.toString());
        else
            rows.bindInt64(i + 1, value.toLongLong());
    }
    const std::optional<LikePattern> pattern
        = textLike ? std::optional<LikePattern>(LikePattern(*textLike)) : std::nullopt;
    QList<ActivityPtr> result;
    std::vector<qint64> ids;
    std::vector<Activity *> needTasks;
    while (rows.next()) {
        if (pattern && !pattern->matches(rows.text(2)))
            continue;
        if (limit > 0 && result.size() >= limit)
            break;
        ActivityPtr activity = activityFromRow(rows);
        if (!activity->m_pending) {
            ids.push_back(activity->m_id);
            needTasks.push_back(activity.get());
        }
        result.append(std::move(activity));
    }
    if (rows.failed())
        return std::unexpected(rows.error());

    QHash<qint64, TaskPtr> tasksById;
    tasksById.reserve(m_tasks.byId.size());
    for (auto it = m_tasks.byId.cbegin(); it != m_tasks.byId.cend(); ++it)
        tasksById.insert(it.key(), std::static_pointer_cast<Task>(it.value()));
    std::expected<void, BvError> linked = TaskLinks::read(handle, ids, [&](std::size_t index, qint64 taskId) {
        TaskPtr task = tasksById.value(taskId);
        if (!task) {
            // Another context or process made it since this one loaded its tasks.
            task = std::static_pointer_cast<Task>(item(taskId, true));
            if (task)
                tasksById.insert(taskId, task);
        }
        if (task)
            needTasks[index]->m_tasks.append(std::move(task));
    });
    if (!linked)
        return std::unexpected(linked.error());
    return result;
}

std::expected<QList<ActivityPtr>, BvError> StoreContext::fetchActivities(const ActivityQuery &query)
{
    const ActivityQuerySql sql(query);
    std::expected<QList<ActivityPtr>, BvError> rows = fetchActivityRows(
        sql.where(), sql.binds(), sql.tail(), query.textLike, sql.sortsInMemory() ? 0 : query.limit);
    if (!rows || !sql.sortsInMemory())
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

std::expected<QList<ActivityPtr>, BvError> StoreContext::fetchActivitiesWithIds(const QList<qint64> &ids)
{
    QList<ActivityPtr> activities;
    std::expected<void, BvError> read = TaskLinks::forEachBatch(
        ids, [&](const QList<qint64> &chunk, const QString &marks) -> std::expected<void, BvError> {
            std::expected<QList<ActivityPtr>, BvError> fetched
                = fetchActivityRows(QStringLiteral(" WHERE a.id IN (") + marks + QLatin1Char(')'),
                    QVariantList(chunk.cbegin(), chunk.cend()), QString(), std::nullopt, 0);
            if (!fetched)
                return std::unexpected(fetched.error());
            activities.append(*fetched);
            return {};
        });
    if (!read)
        return std::unexpected(read.error());
    return activities;
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
        std::expected<QList<ActivityPtr>, BvError> fetched = fetchActivitiesWithIds(ids);
        if (!fetched)
            return std::unexpected(fetched.error());
        QHash<QString, ActivityPtr> found;
        found.reserve(fetched->size());
        for (const ActivityPtr &activity : std::as_const(*fetched))
            found.insert(activity->uid(), activity);
        return found;
    };
    std::expected<QHash<QString, ActivityPtr>, BvError> found = fetch();
    probe.reset();
    if (std::expected<void, BvError> released = release.execute(); !released && found)
        return std::unexpected(released.error());
    return found;
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

    // willSave may find or create projects and tasks; those join the same transaction, where the writer
    // decides whether they are stored already.
    for (std::size_t i = 0; i < m_pendingActivities.size(); ++i) {
        const ActivityPtr activity = m_pendingActivities[i];
        if (!activity->m_deleted && (activity->m_id == 0 || activity->m_changedFields.testFlag(Activity::Field::Text)))
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
        return std::unexpected(*std::exchange(m_loadError, std::nullopt));

    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    StoreWriter writer(*this, SqliteStatement::handle(*db), m_store.hasChangeListeners());
    std::expected<StoreChanges, BvError> written = writer.run();
    if (!written) {
        // What was deleted elsewhere cannot be saved, now or later: it leaves this context so that the
        // next save writes the rest.
        for (const ActivityPtr &activity : writer.vanishedActivities())
            detachVanished(activity);
        qCWarning(lcStore).noquote() << QStringLiteral("Save failed: %1").arg(written.error().message());
        return std::unexpected(written.error());
    }
    finishSave();
    m_store.didCommit(*written);
    return {};
}

void StoreContext::finishSave()
{
    for (const ActivityPtr &activity : m_pendingActivities) {
        activity->m_pending = false;
        activity->m_changedFields = {};
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
        item->m_changed = 0;
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
    const std::expected<QList<ActivityPtr>, BvError> fetched = fetchActivitiesWithIds(ids);
    if (!fetched) {
        qCWarning(lcStore).noquote() << QStringLiteral("Refresh failed: %1").arg(fetched.error().message());
        return;
    }
    QSet<qint64> present;
    for (const ActivityPtr &activity : *fetched)
        present.insert(activity->m_id);
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

std::expected<bool, BvError> StoreContext::refreshObject(const ActivityPtr &activity, bool mergeChanges)
{
    Q_ASSERT(activity && activity->m_context == this);
    const Activity::Fields keep = mergeChanges ? activity->m_changedFields : Activity::Fields();
    const bool keepTasks = mergeChanges && activity->m_tasksChanged;
    if (!mergeChanges)
        forgetChanges(activity);
    if (activity->m_id == 0) {
        if (mergeChanges)
            return true;
        activity->m_context = nullptr;
        return false;
    }
    if (mergeChanges && activity->m_deleted)
        return true;

    if (std::expected<void, BvError> loaded = loadItems(); !loaded)
        return std::unexpected(loaded.error());
    std::expected<QSqlDatabase, BvError> db = m_store.database();
    if (!db)
        return std::unexpected(db.error());
    sqlite3 *handle = SqliteStatement::handle(*db);
    SqliteStatement row;
    if (auto prepared = row.prepare(handle, kActivityColumns + QStringLiteral(" WHERE a.id = ?")); !prepared)
        return std::unexpected(prepared.error());
    row.bindInt64(1, activity->m_id);
    if (!row.next()) {
        if (row.failed())
            return std::unexpected(row.error());
        detachVanished(activity);
        return false;
    }
    activity->m_deleted = false;
    readActivity(*activity, row, keep);
    if (!keepTasks) {
        activity->m_tasks.clear();
        std::expected<void, BvError> linked
            = TaskLinks::read(handle, { activity->m_id }, [&](std::size_t, qint64 taskId) {
                  if (TaskPtr task = std::static_pointer_cast<Task>(item(taskId, true)))
                      activity->m_tasks.append(std::move(task));
              });
        if (!linked)
            return std::unexpected(linked.error());
    }
    return true;
}

void StoreContext::forgetChanges(const ActivityPtr &activity)
{
    activity->m_changedFields = {};
    activity->m_tasksChanged = false;
    activity->m_deleted = false;
    if (std::exchange(activity->m_pending, false))
        std::erase(m_pendingActivities, activity);
}

void StoreContext::detachVanished(const ActivityPtr &activity)
{
    forgetChanges(activity);
    m_activities.remove(activity->m_id);
    activity->m_deleted = true;
    activity->m_context = nullptr;
}
