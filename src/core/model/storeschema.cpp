#include "model/storeschema.h"

#include <QSqlError>
#include <QSqlQuery>

#include "model/storeerrors.h"

namespace {

// Times are milliseconds since the Unix epoch, UTC. Names are unique by their case-folded key, the way
// projects and tasks are looked up.
const char *const kStatements[] = {
    "CREATE TABLE projects ("
    " id INTEGER PRIMARY KEY,"
    " name TEXT NOT NULL,"
    " name_key TEXT NOT NULL UNIQUE,"
    " position INTEGER,"
    " visible INTEGER NOT NULL DEFAULT 1)",
    "CREATE TABLE tasks ("
    " id INTEGER PRIMARY KEY,"
    " name TEXT NOT NULL,"
    " name_key TEXT NOT NULL UNIQUE,"
    " position INTEGER,"
    " visible INTEGER NOT NULL DEFAULT 1)",
    "CREATE INDEX projects_name ON projects(name)",
    "CREATE INDEX tasks_name ON tasks(name)",
    "CREATE TABLE activities ("
    " id INTEGER PRIMARY KEY,"
    " uid TEXT NOT NULL UNIQUE,"
    " text TEXT,"
    " time_from INTEGER NOT NULL,"
    " time_to INTEGER NOT NULL,"
    " created_at INTEGER NOT NULL,"
    " modified_at INTEGER NOT NULL,"
    " is_invoiced INTEGER NOT NULL DEFAULT 0,"
    " year_month INTEGER NOT NULL,"
    " project_id INTEGER REFERENCES projects(id) ON DELETE SET NULL)",
    "CREATE INDEX activities_time_from ON activities(time_from)",
    "CREATE INDEX activities_year_month ON activities(year_month)",
    "CREATE INDEX activities_project ON activities(project_id)",
    "CREATE INDEX activities_text ON activities(text)",
    "CREATE TABLE activity_tasks ("
    " activity_id INTEGER NOT NULL REFERENCES activities(id) ON DELETE CASCADE,"
    " task_id INTEGER NOT NULL REFERENCES tasks(id) ON DELETE CASCADE,"
    " PRIMARY KEY (activity_id, task_id)) WITHOUT ROWID",
    "CREATE INDEX activity_tasks_task ON activity_tasks(task_id)",
    // The longest span ever stored bounds overlap queries (see StoreContext, which raises it in the same
    // transaction as the activities it writes). It only grows: a deleted or shortened activity leaves it
    // as it was, which keeps the bound safe.
    "CREATE TABLE activity_bounds (max_span INTEGER NOT NULL)",
    "INSERT INTO activity_bounds (max_span) VALUES (0)",
    "CREATE TABLE deleted_activities ("
    " id INTEGER PRIMARY KEY,"
    " uid TEXT NOT NULL,"
    " deleted_at INTEGER NOT NULL,"
    " is_synced INTEGER NOT NULL DEFAULT 0)",
    "CREATE INDEX deleted_activities_uid ON deleted_activities(uid)",
    "CREATE INDEX deleted_activities_is_synced ON deleted_activities(is_synced)",
    "CREATE TABLE sync_files ("
    " id INTEGER PRIMARY KEY,"
    " name TEXT NOT NULL,"
    " revision TEXT,"
    " activity_hash TEXT)",
    "CREATE INDEX sync_files_name ON sync_files(name)",
};

} // namespace

std::expected<int, BvError> StoreSchema::storedVersion(QSqlDatabase &db)
{
    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("PRAGMA user_version")) || !query.next())
        return std::unexpected(StoreErrors::fromSql(query.lastError()));
    return query.value(0).toInt();
}

std::expected<void, BvError> StoreSchema::create(QSqlDatabase &db)
{
    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("BEGIN IMMEDIATE")))
        return std::unexpected(StoreErrors::fromSql(query.lastError()));
    for (const char *statement : kStatements) {
        if (!query.exec(QString::fromLatin1(statement))) {
            const BvError error = StoreErrors::fromSql(query.lastError());
            query.exec(QStringLiteral("ROLLBACK"));
            return std::unexpected(error);
        }
    }
    if (!query.exec(QStringLiteral("PRAGMA user_version = %1").arg(Version)) || !query.exec(QStringLiteral("COMMIT"))) {
        const BvError error = StoreErrors::fromSql(query.lastError());
        query.exec(QStringLiteral("ROLLBACK"));
        return std::unexpected(error);
    }
    return {};
}
