#include "model/storewriter.h"

#include <QStringList>

#include "model/bvsyncfile.h"
#include "model/deletedactivity.h"
#include "model/namekey.h"
#include "model/sidebaritem.h"
#include "model/storecontext.h"

namespace {

void bindOptional(SqliteStatement &statement, int index, const std::optional<qint64> &value)
{
    if (value)
        statement.bindInt64(index, *value);
    else
        statement.bindNull(index);
}

} // namespace

StoreWriter::StoreWriter(StoreContext &context, sqlite3 *db, bool collectUids)
    : m_context(context)
    , m_db(db)
    , m_collectUids(collectUids)
{ }

StoreWriter::~StoreWriter() = default;

BvError StoreWriter::activityNotFound()
{
    return BvError(QString::fromLatin1(BvErrorDomain::Cocoa), ActivityErrors::NotFoundCode,
        QString::fromLatin1(ActivityErrors::NotFoundText));
}

std::expected<void, BvError> StoreWriter::execute(const QString &sql)
{
    SqliteStatement statement;
    if (auto prepared = statement.prepare(m_db, sql); !prepared)
        return prepared;
    return statement.execute();
}

std::expected<StoreChanges, BvError> StoreWriter::run()
{
    // IMMEDIATE takes the write lock before anything is read, so what is read here stays true until the
    // commit: the busy timeout makes a second writer wait for it rather than fail.
    if (auto begun = execute(QStringLiteral("BEGIN IMMEDIATE")); !begun)
        return std::unexpected(begun.error());
    std::expected<void, BvError> written = writeItems(false);
    if (written)
        written = writeItems(true);
    if (written)
        written = writeActivities();
    if (written)
        written = writeTombstones();
    if (written)
        written = writeSyncFiles();
    m_updates.clear();
    if (written)
        written = execute(QStringLiteral("COMMIT"));
    if (!written) {
        execute(QStringLiteral("ROLLBACK"));
        undoAssignedIds();
        return std::unexpected(written.error());
    }
    m_assignedIds.clear();
    return m_changes;
}

void StoreWriter::undoAssignedIds()
{
    // The rolled-back rows never existed: a later save must insert (or find) these objects again.
    for (qint64 *id : m_assignedIds)
        *id = 0;
    m_assignedIds.clear();
}

std::expected<void, BvError> StoreWriter::writeItems(bool tasks)
{
    const QString table = tasks ? QStringLiteral("tasks") : QStringLiteral("projects");
    for (const auto &item : m_context.m_pendingItems) {
        if (item->isTask() != tasks)
            continue;
        if (item->m_id == 0) {
            if (auto done = adoptOrInsert(*item, tasks); !done)
                return done;
        } else if (item->m_changed) {
            QStringList columns;
            if (item->m_changed & SidebarItem::NameColumn)
                columns << QStringLiteral("name = ?1, name_key = ?2");
            if (item->m_changed & SidebarItem::PositionColumn)
                columns << QStringLiteral("position = ?3");
            if (item->m_changed & SidebarItem::VisibleColumn)
                columns << QStringLiteral("visible = ?4");
            SqliteStatement update;
            if (auto prepared = update.prepare(m_db,
                    QStringLiteral("UPDATE %1 SET %2 WHERE id = ?5").arg(table, columns.join(QStringLiteral(", "))));
                !prepared)
                return prepared;
            update.bindText(1, item->m_name);
            update.bindText(2, NameKey::fromName(item->m_name));
            bindOptional(update, 3, item->m_position);
            update.bindInt64(4, item->m_visible ? 1 : 0);
            update.bindInt64(5, item->m_id);
            if (auto done = update.execute(); !done)
                return done;
        }
        m_changes.addEntity(tasks ? StoreChanges::Entity::Task : StoreChanges::Entity::Project);
    }
    return {};
}

std::expected<void, BvError> StoreWriter::adoptOrInsert(SidebarItem &item, bool tasks)
{
    const QString table = tasks ? QStringLiteral("tasks") : QStringLiteral("projects");
    const QString key = NameKey::fromName(item.m_name);
    SqliteStatement find;
    if (auto prepared = find.prepare(
            m_db, QStringLiteral("SELECT id, name, position, visible FROM %1 WHERE name_key = ?").arg(table));
        !prepared)
        return prepared;
    find.bindText(1, key);
    if (find.next()) {
        // Another connection stored it since this context looked: the same project, not a second one.
        item.m_id = find.int64(0);
        m_assignedIds.push_back(&item.m_id);
        const QString storedName = find.text(1);
        item.m_position = find.isNull(2) ? std::nullopt : std::optional<qint64>(find.int64(2));
        item.m_visible = find.int64(3) != 0;
        find.reset();
        if (storedName == item.m_name)
            return {};
        // The spelling typed last wins for the whole store.
        SqliteStatement rename;
        if (auto prepared
            = rename.prepare(m_db, QStringLiteral("UPDATE %1 SET name = ?, name_key = ? WHERE id = ?").arg(table));
            !prepared)
            return prepared;
        rename.bindText(1, item.m_name);
        rename.bindText(2, key);
        rename.bindInt64(3, item.m_id);
        return rename.execute();
    }
    if (find.failed())
        return std::unexpected(find.error());
    find.reset();

    // A position given for a hand-ordered sidebar comes after every stored one, including those of other
    // connections this context has not read.
    const QString position = item.m_position
        ? QStringLiteral("(SELECT COALESCE(MAX(position) + 1, 0) FROM %1)").arg(table)
        : QStringLiteral("NULL");
    SqliteStatement insert;
    if (auto prepared = insert.prepare(m_db,
            QStringLiteral("INSERT INTO %1 (name, name_key, position, visible) VALUES (?, ?, %2, ?) RETURNING position")
                .arg(table, position));
        !prepared)
        return prepared;
    insert.bindText(1, item.m_name);
    insert.bindText(2, key);
    insert.bindInt64(3, item.m_visible ? 1 : 0);
    if (!insert.next())
        return std::unexpected(insert.error());
    item.m_position = insert.isNull(0) ? std::nullopt : std::optional<qint64>(insert.int64(0));
    insert.reset();
    item.m_id = SqliteStatement::lastInsertRowId(m_db);
    m_assignedIds.push_back(&item.m_id);
    return {};
}

std::expected<void, BvError> StoreWriter::writeActivities()
{
    SqliteStatement insertActivity;
    SqliteStatement deleteActivity;
    SqliteStatement clearTasks;
    SqliteStatement linkTask;
    for (auto [statement, sql] : { std::pair { &insertActivity,
                                       "INSERT INTO activities (uid, text, time_from, time_to, created_at, "
                                       "modified_at, is_invoiced, year_month, project_id) "
                                       "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)" },
             std::pair { &deleteActivity, "DELETE FROM activities WHERE id = ?" },
             std::pair { &clearTasks, "DELETE FROM activity_tasks WHERE activity_id = ?" },
             std::pair { &linkTask, "INSERT OR IGNORE INTO activity_tasks (activity_id, task_id) VALUES (?, ?)" } }) {
        if (auto prepared = statement->prepare(m_db, QString::fromLatin1(sql)); !prepared)
            return prepared;
    }

    qint64 longestSpan = 0;
    for (const ActivityPtr &activity : m_context.m_pendingActivities) {
        if (activity->m_deleted) {
            if (activity->m_id == 0)
                continue;
            deleteActivity.bindInt64(1, activity->m_id);
            if (auto done = deleteActivity.execute(); !done)
                return done;
            if (SqliteStatement::changes(m_db) == 0) {
                m_vanished.push_back(activity);
                return std::unexpected(activityNotFound());
            }
            if (m_collectUids)
                m_changes.addDeleted(activity->m_uid);
            m_changes.addEntity(StoreChanges::Entity::Activity);
            continue;
        }
        Q_ASSERT(!activity->m_project || activity->m_project->m_context == &m_context);
        const bool inserted = activity->m_id == 0;
        if (inserted) {
            insertActivity.bindText(1, activity->m_uid);
            insertActivity.bindText(2, activity->m_text);
            insertActivity.bindInstant(3, activity->m_timeFrom);
            insertActivity.bindInstant(4, activity->m_timeTo);
            insertActivity.bindInstant(5, activity->m_createdAt);
            insertActivity.bindInstant(6, activity->m_modifiedAt);
            insertActivity.bindInt64(7, activity->m_isInvoiced ? 1 : 0);
            insertActivity.bindInt64(8, activity->m_yearMonth);
            bindOptional(insertActivity, 9,
                activity->m_project ? std::optional<qint64>(activity->m_project->m_id) : std::nullopt);
            if (auto done = insertActivity.execute(); !done)
                return done;
            activity->m_id = SqliteStatement::lastInsertRowId(m_db);
            m_assignedIds.push_back(&activity->m_id);
            longestSpan = qMax(longestSpan, activity->m_timeFrom.msecsTo(activity->m_timeTo));
            if (m_collectUids)
                m_changes.addInserted(activity->m_uid);
        } else {
            if (auto done = updateActivity(*activity, longestSpan); !done)
                return done;
            if (m_collectUids)
                m_changes.addUpdated(activity->m_uid);
        }
        m_changes.addEntity(StoreChanges::Entity::Activity);
        if (activity->m_tasksChanged || inserted) {
            if (!inserted) {
                clearTasks.bindInt64(1, activity->m_id);
                if (auto done = clearTasks.execute(); !done)
                    return done;
            }
            for (const TaskPtr &task : std::as_const(activity->m_tasks)) {
                linkTask.bindInt64(1, activity->m_id);
                linkTask.bindInt64(2, task->m_id);
                if (auto done = linkTask.execute(); !done)
                    return done;
            }
        }
    }
    if (longestSpan > 0) {
        SqliteStatement raiseBound;
        if (auto prepared
            = raiseBound.prepare(m_db, QStringLiteral("UPDATE activity_bounds SET max_span = MAX(max_span, ?)"));
            !prepared)
            return prepared;
        raiseBound.bindInt64(1, longestSpan);
        if (auto done = raiseBound.execute(); !done)
            return done;
    }
    return {};
}

std::expected<void, BvError> StoreWriter::updateActivity(Activity &activity, qint64 &longestSpan)
{
    using Field = Activity::Field;
    const Activity::Fields fields = activity.m_changedFields;
    std::shared_ptr<SqliteStatement> &update = m_updates[fields.toInt()];
    if (!update) {
        QStringList columns;
        for (auto [field, column] : { std::pair { Field::Uid, "uid = ?1" }, std::pair { Field::Text, "text = ?2" },
                 std::pair { Field::TimeFrom, "time_from = ?3, year_month = ?8" },
                 std::pair { Field::TimeTo, "time_to = ?4" }, std::pair { Field::CreatedAt, "created_at = ?5" },
                 std::pair { Field::ModifiedAt, "modified_at = ?6" },
                 std::pair { Field::IsInvoiced, "is_invoiced = ?7" },
                 std::pair { Field::Project, "project_id = ?9" } }) {
            if (fields.testFlag(field))
                columns.append(QString::fromLatin1(column));
        }
        // A change of the tasks alone still has to find its row: "id = id" changes nothing else.
        if (columns.isEmpty())
            columns.append(QStringLiteral("id = id"));
        update = std::make_shared<SqliteStatement>();
        if (auto prepared = update->prepare(m_db,
                QStringLiteral("UPDATE activities SET %1 WHERE id = ?10 RETURNING time_to - time_from")
                    .arg(columns.join(QStringLiteral(", "))));
            !prepared)
            return prepared;
    }
    update->bindText(1, activity.m_uid);
    update->bindText(2, activity.m_text);
    update->bindInstant(3, activity.m_timeFrom);
    update->bindInstant(4, activity.m_timeTo);
    update->bindInstant(5, activity.m_createdAt);
    update->bindInstant(6, activity.m_modifiedAt);
    update->bindInt64(7, activity.m_isInvoiced ? 1 : 0);
    update->bindInt64(8, activity.m_yearMonth);
    bindOptional(*update, 9, activity.m_project ? std::optional<qint64>(activity.m_project->m_id) : std::nullopt);
    update->bindInt64(10, activity.m_id);
    const bool found = update->next();
    if (update->failed()) {
        const BvError error = update->error();
        update->reset();
        return std::unexpected(error);
    }
    // The span of the row as stored now: the other end may have been moved by another connection.
    if (found && (fields & (Field::TimeFrom | Field::TimeTo)))
        longestSpan = qMax(longestSpan, update->int64(0));
    update->reset();
    if (!found) {
        m_vanished.push_back(activity.shared_from_this());
        return std::unexpected(activityNotFound());
    }
    return {};
}

std::expected<void, BvError> StoreWriter::writeTombstones()
{
    for (const DeletedActivityPtr &tombstone : m_context.m_pendingDeletedActivities) {
        SqliteStatement statement;
        if (tombstone->m_deleted) {
            if (tombstone->m_id == 0)
                continue;
            if (auto prepared = statement.prepare(m_db, QStringLiteral("DELETE FROM deleted_activities WHERE id = ?"));
                !prepared)
                return prepared;
            statement.bindInt64(1, tombstone->m_id);
        } else {
            const bool inserted = tombstone->m_id == 0;
            if (auto prepared = statement.prepare(m_db,
                    inserted ? QStringLiteral("INSERT INTO deleted_activities (uid, deleted_at, is_synced) "
                                              "VALUES (?, ?, ?)")
                             : QStringLiteral("UPDATE deleted_activities SET uid = ?, deleted_at = ?, is_synced = ? "
                                              "WHERE id = ?"));
                !prepared)
                return prepared;
            statement.bindText(1, tombstone->m_uid);
            statement.bindInstant(2, tombstone->m_deletedAt);
            statement.bindInt64(3, tombstone->m_isSynced ? 1 : 0);
            if (!inserted)
                statement.bindInt64(4, tombstone->m_id);
        }
        if (auto done = statement.execute(); !done)
            return done;
        if (!tombstone->m_deleted && tombstone->m_id == 0) {
            tombstone->m_id = SqliteStatement::lastInsertRowId(m_db);
            m_assignedIds.push_back(&tombstone->m_id);
        }
        m_changes.addEntity(StoreChanges::Entity::DeletedActivity);
    }
    return {};
}

std::expected<void, BvError> StoreWriter::writeSyncFiles()
{
    for (const SyncFilePtr &file : m_context.m_pendingSyncFiles) {
        SqliteStatement statement;
        if (file->m_deleted) {
            if (file->m_id == 0)
                continue;
            if (auto prepared = statement.prepare(m_db, QStringLiteral("DELETE FROM sync_files WHERE id = ?"));
                !prepared)
                return prepared;
            statement.bindInt64(1, file->m_id);
        } else {
            const bool inserted = file->m_id == 0;
            if (auto prepared = statement.prepare(m_db,
                    inserted ? QStringLiteral("INSERT INTO sync_files (name, revision, activity_hash) VALUES (?, ?, ?)")
                             : QStringLiteral(
                                 "UPDATE sync_files SET name = ?, revision = ?, activity_hash = ? WHERE id = ?"));
                !prepared)
                return prepared;
            statement.bindText(1, file->m_name);
            statement.bindText(2, file->m_revision);
            statement.bindText(3, file->m_activityHash);
            if (!inserted)
                statement.bindInt64(4, file->m_id);
        }
        if (auto done = statement.execute(); !done)
            return done;
        if (!file->m_deleted && file->m_id == 0) {
            file->m_id = SqliteStatement::lastInsertRowId(m_db);
            m_assignedIds.push_back(&file->m_id);
        }
        m_changes.addEntity(StoreChanges::Entity::SyncFile);
    }
    return {};
}
