#include "model/storeschema.h"

#include <algorithm>

#include <QHash>
#include <QList>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include "model/namekey.h"
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

std::expected<StoreSchema::Contents, BvError> StoreSchema::contents(QSqlDatabase &db)
{
    QSqlQuery query(db);
    Contents contents;
    if (!query.exec(QStringLiteral("PRAGMA user_version")) || !query.next())
        return std::unexpected(StoreErrors::fromSql(query));
    contents.version = query.value(0).toInt();
    if (!query.exec(QStringLiteral("SELECT EXISTS (SELECT 1 FROM sqlite_master)")) || !query.next())
        return std::unexpected(StoreErrors::fromSql(query));
    contents.hasTables = query.value(0).toBool();
    return contents;
}

QStringList StoreSchema::statements()
{
    QStringList list;
    for (const char *statement : kStatements)
        list.append(QString::fromLatin1(statement));
    return list;
}

std::expected<void, BvError> StoreSchema::create(QSqlDatabase &db)
{
    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("BEGIN IMMEDIATE")))
        return std::unexpected(StoreErrors::fromSql(query));
    // Several processes may open a new store at once (a script starting a dozen commands): the one that
    // waited for the write lock finds the schema made by the first.
    if (query.exec(QStringLiteral("PRAGMA user_version")) && query.next() && query.value(0).toInt() == Version) {
        query.finish();
        query.exec(QStringLiteral("ROLLBACK"));
        return {};
    }
    query.finish();
    for (const char *statement : kStatements) {
        if (!query.exec(QString::fromLatin1(statement))) {
            const BvError error = StoreErrors::fromSql(query);
            query.exec(QStringLiteral("ROLLBACK"));
            return std::unexpected(error);
        }
    }
    if (!query.exec(QStringLiteral("PRAGMA user_version = %1").arg(Version)) || !query.exec(QStringLiteral("COMMIT"))) {
        const BvError error = StoreErrors::fromSql(query);
        query.exec(QStringLiteral("ROLLBACK"));
        return std::unexpected(error);
    }
    return {};
}

namespace {

struct NamedRow
{
    qint64 id = 0;
    QString name;
    QString key;
    qint64 lastUsed = 0;
};

struct NameTable
{
    const char *table;
    // When an activity of the row was last modified; 0 when it has none.
    const char *lastUsed;
};

const NameTable kNameTables[] = {
    { "projects", "(SELECT max(a.modified_at) FROM activities a WHERE a.project_id = t.id)" },
    { "tasks",
        "(SELECT max(a.modified_at) FROM activity_tasks l JOIN activities a ON a.id = l.activity_id"
        " WHERE l.task_id = t.id)" },
};

// `lastUsed` costs a look at every activity, so only re-keying asks for it; the check on every open does not.
std::expected<QList<NamedRow>, BvError> namedRows(QSqlDatabase &db, const NameTable &table, bool withLastUsed)
{
    QSqlQuery query(db);
    query.setForwardOnly(true);
    if (!query.exec(QStringLiteral("SELECT t.id, t.name, t.name_key, %1 FROM %2 t")
                        .arg(withLastUsed ? QStringLiteral("coalesce(%1, 0)").arg(QLatin1String(table.lastUsed))
                                          : QStringLiteral("0"),
                            QLatin1String(table.table))))
        return std::unexpected(StoreErrors::fromSql(query));
    QList<NamedRow> rows;
    while (query.next())
        rows.append({ query.value(0).toLongLong(), query.value(1).toString(), query.value(2).toString(),
            query.value(3).toLongLong() });
    if (query.lastError().isValid())
        return std::unexpected(StoreErrors::fromSql(query));
    return rows;
}

bool anyStale(const QList<NamedRow> &rows)
{
    return std::any_of(
        rows.cbegin(), rows.cend(), [](const NamedRow &row) { return NameKey::fromName(row.name) != row.key; });
}

std::expected<void, BvError> rekey(QSqlDatabase &db, const NameTable &table)
{
    std::expected<QList<NamedRow>, BvError> rows = namedRows(db, table, true);
    if (!rows)
        return std::unexpected(rows.error());
    if (!anyStale(*rows))
        return {};

    // The row whose spelling was used last stands for all rows of its key.
    QHash<QString, NamedRow> keepers;
    for (const NamedRow &row : std::as_const(*rows)) {
        const QString key = NameKey::fromName(row.name);
        auto it = keepers.find(key);
        if (it == keepers.end())
            keepers.insert(key, row);
        else if (std::pair(row.lastUsed, row.id) > std::pair(it->lastUsed, it->id))
            *it = row;
    }

    const bool tasks = qstrcmp(table.table, "tasks") == 0;
    const QString name = QLatin1String(table.table);
    QSqlQuery query(db);
    auto run = [&](const QString &sql, const QVariantList &binds) -> std::expected<void, BvError> {
        if (!query.prepare(sql))
            return std::unexpected(StoreErrors::fromSql(query));
        for (const QVariant &bind : binds)
            query.addBindValue(bind);
        if (!query.exec())
            return std::unexpected(StoreErrors::fromSql(query));
        return {};
    };

    QList<NamedRow> renamed;
    for (const NamedRow &row : std::as_const(*rows)) {
        const QString key = NameKey::fromName(row.name);
        const qint64 keeper = keepers.value(key).id;
        if (keeper == row.id) {
            if (key != row.key)
                renamed.append({ row.id, row.name, key, row.lastUsed });
            continue;
        }
        std::expected<void, BvError> moved = tasks
            ? run(QStringLiteral("INSERT OR IGNORE INTO activity_tasks (activity_id, task_id)"
                                 " SELECT activity_id, ? FROM activity_tasks WHERE task_id = ?"),
                { keeper, row.id })
            : run(QStringLiteral("UPDATE activities SET project_id = ? WHERE project_id = ?"), { keeper, row.id });
        if (!moved)
            return moved;
        // Task links of the merged row go with it (ON DELETE CASCADE).
        if (auto removed = run(QStringLiteral("DELETE FROM %1 WHERE id = ?").arg(name), { row.id }); !removed)
            return removed;
    }
    // Every changed key is first set to one no name can have, so no new key meets an old one that is about
    // to change as well.
    for (const NamedRow &row : std::as_const(renamed)) {
        if (auto parked
            = run(QStringLiteral("UPDATE %1 SET name_key = char(1) || id WHERE id = ?").arg(name), { row.id });
            !parked)
            return parked;
    }
    for (const NamedRow &row : std::as_const(renamed)) {
        if (auto keyed = run(QStringLiteral("UPDATE %1 SET name_key = ? WHERE id = ?").arg(name), { row.key, row.id });
            !keyed)
            return keyed;
    }
    return {};
}

} // namespace

std::expected<void, BvError> StoreSchema::refreshNameKeys(QSqlDatabase &db)
{
    bool stale = false;
    for (const NameTable &table : kNameTables) {
        std::expected<QList<NamedRow>, BvError> rows = namedRows(db, table, false);
        if (!rows)
            return std::unexpected(rows.error());
        stale = stale || anyStale(*rows);
    }
    if (!stale)
        return {};

    // Another process may be re-keying too: the rows are read again inside the transaction.
    QSqlQuery control(db);
    if (!control.exec(QStringLiteral("BEGIN IMMEDIATE")))
        return std::unexpected(StoreErrors::fromSql(control));
    for (const NameTable &table : kNameTables) {
        if (std::expected<void, BvError> done = rekey(db, table); !done) {
            control.exec(QStringLiteral("ROLLBACK"));
            return done;
        }
    }
    if (!control.exec(QStringLiteral("COMMIT"))) {
        const BvError error = StoreErrors::fromSql(control);
        control.exec(QStringLiteral("ROLLBACK"));
        return std::unexpected(error);
    }
    return {};
}
