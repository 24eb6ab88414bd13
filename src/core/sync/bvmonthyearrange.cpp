#include "sync/bvmonthyearrange.h"

#include <algorithm>

namespace {
quint64 key(uint year, uint month)
{
    return (quint64(year) << 32) | month;
}
} // namespace

BVMonthYearRange::BVMonthYearRange(const QTimeZone &zone)
    : m_zone(zone)
{ }

void BVMonthYearRange::addYear(uint year, uint andMonth)
{
    if (m_keys.contains(key(year, andMonth)))
        return;
    m_keys.insert(key(year, andMonth));
    m_months.append(BVMonthDateRange(year, andMonth, m_zone));
}

std::optional<BVMonthDateRange> BVMonthYearRange::nextMonth()
{
    if (!m_sorted) {
        std::stable_sort(m_months.begin(), m_months.end());
        m_sorted = true;
    }
    if (m_months.isEmpty())
        return std::nullopt;
    const BVMonthDateRange first = m_months.takeFirst();
    m_keys.remove(key(first.year(), first.month()));
    return first;
}
