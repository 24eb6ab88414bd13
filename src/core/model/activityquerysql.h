#pragma once

#include <QDateTime>
#include <QString>
#include <QVariantList>

#include "model/activityquery.h"

class SqliteStatement;

// An ActivityQuery as SQL over `activities a`: the conditions with their values, and the order and limit.
// Shared by the unit of work's fetches and the stateless journal queries, so both select the same rows.
class ActivityQuerySql
{
public:
    explicit ActivityQuerySql(const ActivityQuery &query);

    // " WHERE ..." or empty, with one value per "?" in binds().
    const QString &where() const { return m_where; }
    const QVariantList &binds() const { return m_binds; }
    // " ORDER BY ... LIMIT ...", or empty when sortsInMemory(). With a text pattern the limit is left to
    // the caller, which matches texts outside SQL.
    QString tail() const;
    // Without a time range the start index would only order the rows, at the price of one table lookup
    // per row; reading the table in its own order and sorting the result is several times faster then.
    bool sortsInMemory() const { return m_sortsInMemory; }

    void bind(SqliteStatement &statement) const;
    // UTC milliseconds, or an integer NULL for an invalid instant.
    static QVariant msecs(const QDateTime &instant);

private:
    ActivityQuery::Order m_order;
    int m_limit;
    bool m_matchesTextOutside;
    QString m_where;
    QVariantList m_binds;
    bool m_sortsInMemory = false;
};
