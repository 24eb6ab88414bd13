#include "model/activityquerysql.h"

#include <QStringList>

#include "model/sqlitestatement.h"

namespace {

QString idList(const QList<qint64> &ids)
{
    QStringList numbers;
    numbers.reserve(ids.size());
    for (qint64 id : ids)
        numbers.append(QString::number(id));
    return numbers.isEmpty() ? QStringLiteral("NULL") : numbers.join(QLatin1Char(','));
}

} // namespace

ActivityQuerySql::ActivityQuerySql(const ActivityQuery &query)
    : m_order(query.order)
    , m_limit(query.limit)
    , m_matchesTextOutside(query.textLike.has_value())
{
    QStringList conditions;
    auto add = [&](const char *condition, const QVariant &value) {
        conditions.append(QString::fromLatin1(condition));
        m_binds.append(value);
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
    if (query.projectIds)
        conditions.append(QStringLiteral("a.project_id IN (%1)").arg(idList(*query.projectIds)));
    if (query.taskIds)
        conditions.append(QStringLiteral("EXISTS (SELECT 1 FROM activity_tasks t WHERE t.activity_id = a.id "
                                         "AND t.task_id IN (%1))")
                              .arg(idList(*query.taskIds)));
    if (!conditions.isEmpty())
        m_where = QStringLiteral(" WHERE ") + conditions.join(QStringLiteral(" AND "));
    m_sortsInMemory = query.order != ActivityQuery::Order::Unordered && query.limit == 0 && !query.startsFrom
        && !query.startsUntil && !query.overlapsFrom && !query.overlapsUntil;
}

QString ActivityQuerySql::tail() const
{
    if (m_sortsInMemory)
        return {};
    QString tail;
    switch (m_order) {
    case ActivityQuery::Order::Unordered:
        break;
    case ActivityQuery::Order::TimeFromAscending:
        tail = QStringLiteral(" ORDER BY a.time_from ASC, a.id ASC");
        break;
    case ActivityQuery::Order::TimeFromDescending:
        tail = QStringLiteral(" ORDER BY a.time_from DESC, a.id DESC");
        break;
    }
    if (m_limit > 0 && !m_matchesTextOutside)
        tail += QStringLiteral(" LIMIT %1").arg(m_limit);
    return tail;
}

void ActivityQuerySql::bind(SqliteStatement &statement) const
{
    for (int i = 0; i < m_binds.size(); ++i) {
        const QVariant &value = m_binds.at(i);
        if (value.isNull())
            statement.bindNull(i + 1);
        else if (value.metaType() == QMetaType::fromType<QString>())
            statement.bindText(i + 1, value.toString());
        else
            statement.bindInt64(i + 1, value.toLongLong());
    }
}

QVariant ActivityQuerySql::msecs(const QDateTime &instant)
{
    return instant.isValid() ? QVariant(instant.toMSecsSinceEpoch()) : QVariant(QMetaType::fromType<qint64>());
}
