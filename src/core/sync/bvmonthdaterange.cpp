#include "sync/bvmonthdaterange.h"

#include <QHashFunctions>

#include "sync/bvsyncdateformatter.h"
#include "sync/bvsyncfilename.h"

BVMonthDateRange::BVMonthDateRange(uint year, uint month, const QTimeZone &zone)
    : m_year(year)
    , m_month(month)
    , m_zone(zone)
{
    // QDate has no year 0; the calendar's lenient month arithmetic is addMonths from January.
    const QDate january(int(year), 1, 1);
    if (!january.isValid())
        return;
    const QDate first = january.addMonths(int(month) - 1);
    const QDate last = first.addDays(first.daysInMonth() - 1);
    const BVSyncDateFormatter dates(zone);
    m_dateFrom = dates.instantFromWall(first, QTime(0, 0, 0));
    m_dateTo = dates.instantFromWall(last, QTime(23, 59, 59));
}

QString BVMonthDateRange::name() const
{
    return BVSyncFileName::monthName(m_year, m_month);
}

int BVMonthDateRange::compare(const BVMonthDateRange &other) const
{
    if (m_year != other.m_year)
        return m_year < other.m_year ? -1 : 1;
    if (m_month != other.m_month)
        return m_month < other.m_month ? -1 : 1;
    return 0;
}

size_t qHash(const BVMonthDateRange &range, size_t seed)
{
    return qHash(quint64(range.year()) * 100 + range.month(), seed);
}
