#pragma once

#include <optional>

#include <QList>
#include <QSet>
#include <QTimeZone>

#include "sync/bvmonthdaterange.h"

// The set of months a sync run exports, without duplicates. The months come out earliest first: the set
// is sorted once, at the first nextMonth(); a month added after that comes out after the sorted ones, in
// the order of adding. The sync service fills the set completely before it takes the first month. One
// thread.
class BVMonthYearRange
{
public:
    // Months of the sync zone `zone`; a default range has UTC months.
    explicit BVMonthYearRange(const QTimeZone &zone = QTimeZone::utc());

    // Adds the month unless the set holds it already.
    void addYear(uint year, uint andMonth);
    bool hasItems() const { return !m_months.isEmpty(); }
    // Removes and returns the first month; nothing when the set is empty.
    std::optional<BVMonthDateRange> nextMonth();

private:
    QTimeZone m_zone;
    QList<BVMonthDateRange> m_months;
    QSet<quint64> m_keys;
    bool m_sorted = false;
};
