#include "model/journalqueries.h"

#include <algorithm>

#include <QHash>
#include <QSet>
#include <QSqlDatabase>

#include "model/activityquerysql.h"
#include "model/likepattern.h"
#include "model/sqlitestatement.h"
#include "model/store.h"
#include "model/tasklinks.h"

namespace {

std::expected<sqlite3 *, BvError> connection(Store &store)
{
    std::expected<QSqlDatabase, BvError> db = store.database();
    if (!db)
        return std::unexpected(db.error());
    return SqliteStatement::handle(*db);
}

std::expected<QHash<qint64, QString>, BvError> names(sqlite3 *db, bool tasks)
{
    SqliteStatement rows;
    if (auto prepared = rows.prepare(
            db, tasks ? QStringLiteral("SELECT id, name FROM tasks") : QStringLiteral("SELECT id, name FROM projects"));
        !prepared)
        return std::unexpected(prepared.error());
    QHash<qint64, QString> byId;
    while (rows.next())
        byId.insert(rows.int64(0), rows.text(1));
    if (rows.failed())
        return std::unexpected(rows.error());
    return byId;
}

// Puts records read in table order into the query's order (start, then row id).
void sortRecords(std::vector<ActivityRecord> &records, const std::vector<qint64> &ids, const ActivityQuery &query)
{
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

// Runs `read` inside one read transaction (or the one already open), so that the statements it runs see
// one state of the store even while other processes commit.
template<typename Result, typename Read> std::expected<Result, BvError> inOneRead(sqlite3 *db, Read read)
{
    SqliteStatement begin;
    SqliteStatement release;
    if (auto prepared = begin.prepare(db, QStringLiteral("SAVEPOINT journal_query")); !prepared)
        return std::unexpected(prepared.error());
    if (auto prepared = release.prepare(db, QStringLiteral("RELEASE journal_query")); !prepared)
        return std::unexpected(prepared.error());
    if (auto begun = begin.execute(); !begun)
        return std::unexpected(begun.error());
    std::expected<Result, BvError> result = read();
    if (auto released = release.execute(); !released && result)
        return std::unexpected(released.error());
    return result;
}

} // namespace

std::expected<std::vector<ActivityRecord>, BvError> JournalQueries::fetchActivityRecords(
    const ActivityQuery &query, bool withTasks) const
{
    const std::expected<sqlite3 *, BvError> db = connection(m_store);
    if (!db)
        return std::unexpected(db.error());
    return inOneRead<std::vector<ActivityRecord>>(*db, [&]() -> std::expected<std::vector<ActivityRecord>, BvError> {
        const auto projectNames = names(*db, false);
        if (!projectNames)
            return std::unexpected(projectNames.error());
        const ActivityQuerySql sql(query);
        SqliteStatement rows;
        if (auto prepared = rows.prepare(*db,
                QStringLiteral("SELECT a.id, a.uid, a.text, a.time_from, a.time_to, a.created_at, "
                               "a.modified_at, a.is_invoiced, a.project_id FROM activities a")
                    + sql.where() + sql.tail());
            !prepared)
            return std::unexpected(prepared.error());
        sql.bind(rows);
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
            if (!rows.isNull(8))
                record.project = projectNames->value(rows.int64(8));
            ids.push_back(rows.int64(0));
            records.push_back(std::move(record));
        }
        if (rows.failed())
            return std::unexpected(rows.error());
        if (withTasks && !records.empty()) {
            const auto taskNames = names(*db, true);
            if (!taskNames)
                return std::unexpected(taskNames.error());
            // A link is unique and so is a task's name: no name can come twice.
            auto linked = TaskLinks::read(*db, ids, [&](std::size_t index, qint64 taskId) {
                if (const auto found = taskNames->constFind(taskId); found != taskNames->cend())
                    records[index].tasks.append(*found);
            });
            if (!linked)
                return std::unexpected(linked.error());
            for (ActivityRecord &record : records) {
                if (record.tasks.size() > 1)
                    record.tasks.sort();
            }
        }
        if (sql.sortsInMemory())
            sortRecords(records, ids, query);
        return records;
    });
}

std::expected<std::vector<ActivityStamp>, BvError> JournalQueries::fetchActivityStamps(const ActivityQuery &query) const
{
    Q_ASSERT(!query.textLike);
    const std::expected<sqlite3 *, BvError> db = connection(m_store);
    if (!db)
        return std::unexpected(db.error());
    const ActivityQuerySql sql(query);
    SqliteStatement rows;
    if (auto prepared
        = rows.prepare(*db, QStringLiteral("SELECT a.uid, a.modified_at FROM activities a") + sql.where());
        !prepared)
        return std::unexpected(prepared.error());
    sql.bind(rows);
    std::vector<ActivityStamp> stamps;
    while (rows.next())
        stamps.push_back({ rows.text(0), rows.int64(1) });
    if (rows.failed())
        return std::unexpected(rows.error());
    return stamps;
}

std::expected<qint64, BvError> JournalQueries::countActivities(const ActivityQuery &query) const
{
    const std::expected<sqlite3 *, BvError> db = connection(m_store);
    if (!db)
        return std::unexpected(db.error());
    const ActivityQuerySql sql(query);
    SqliteStatement rows;
    if (auto prepared = rows.prepare(*db,
            (query.textLike ? QStringLiteral("SELECT a.text FROM activities a")
                            : QStringLiteral("SELECT COUNT(*) FROM activities a"))
                + sql.where());
        !prepared)
        return std::unexpected(prepared.error());
    sql.bind(rows);
    qint64 count = 0;
    if (query.textLike) {
        const LikePattern pattern(*query.textLike);
        while (rows.next())
            count += pattern.matches(rows.text(0)) ? 1 : 0;
    } else if (rows.next()) {
        count = rows.int64(0);
    }
    if (rows.failed())
        return std::unexpected(rows.error());
    return count;
}

std::expected<QStringList, BvError> JournalQueries::fetchDistinctTexts(
    TextOrder order, bool onlyNotInvoiced, int limit) const
{
    const std::expected<sqlite3 *, BvError> db = connection(m_store);
    if (!db)
        return std::unexpected(db.error());
    const QString filter = onlyNotInvoiced ? QStringLiteral(" AND is_invoiced = 0") : QString();
    QStringList texts;
    SqliteStatement rows;
    if (order == TextOrder::TextDescending) {
        if (auto prepared = rows.prepare(*db,
                QStringLiteral("SELECT DISTINCT text FROM activities WHERE text IS NOT NULL") + filter
                    + QStringLiteral(" ORDER BY text DESC LIMIT %1").arg(limit));
            !prepared)
            return std::unexpected(prepared.error());
        while (rows.next())
            texts.append(rows.text(0));
    } else {
        // Walks the start index from the newest activity and stops once enough distinct texts are seen,
        // so the usual case reads a handful of rows however large the journal is.
        if (auto prepared = rows.prepare(*db,
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

std::expected<QList<int>, BvError> JournalQueries::distinctYearMonths() const
{
    const std::expected<sqlite3 *, BvError> db = connection(m_store);
    if (!db)
        return std::unexpected(db.error());
    SqliteStatement rows;
    if (auto prepared
        = rows.prepare(*db, QStringLiteral("SELECT DISTINCT year_month FROM activities ORDER BY year_month"));
        !prepared)
        return std::unexpected(prepared.error());
    QList<int> months;
    while (rows.next())
        months.append(int(rows.int64(0)));
    if (rows.failed())
        return std::unexpected(rows.error());
    return months;
}

std::expected<QList<JournalQueries::ItemTotal>, BvError> JournalQueries::itemTotals(bool tasks) const
{
    const std::expected<sqlite3 *, BvError> db = connection(m_store);
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
    if (auto prepared = rows.prepare(*db, sql); !prepared)
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
