#pragma once

#include <QDateTime>
#include <QString>
#include <QTimeZone>
#include <QtGlobal>

// One calendar month in the journal's sync zone (BVSyncTimeZoneFile), as the sync files divide the
// journal. A month
// beyond 12 (or 0) rolls over into the neighbouring year, as the calendar does: month 13 of 2024 spans
// January 2025 but keeps the name "2024-13". Immutable; any thread.
class BVMonthDateRange
{
public:
    BVMonthDateRange(uint year, uint month, const QTimeZone &zone);

    uint year() const { return m_year; }
    uint month() const { return m_month; }
    // The zone the month's bounds are read in.
    QTimeZone timeZone() const { return m_zone; }
    // Day 1 at 00:00:00 in the zone, as a UTC instant.
    QDateTime dateFrom() const { return m_dateFrom; }
    // The last day of the month at 23:59:59 in the zone, as a UTC instant. Invalid, like dateFrom, for a
    // year the calendar cannot hold (year 0).
    QDateTime dateTo() const { return m_dateTo; }
    // "%lu-%.2lu" of year and month.
    QString name() const;

    // By year, then month: -1, 0 or 1.
    int compare(const BVMonthDateRange &other) const;
    bool operator==(const BVMonthDateRange &other) const { return m_year == other.m_year && m_month == other.m_month; }
    bool operator<(const BVMonthDateRange &other) const { return compare(other) < 0; }

private:
    uint m_year;
    uint m_month;
    QTimeZone m_zone;
    QDateTime m_dateFrom;
    QDateTime m_dateTo;
};

// year * 100 + month.
size_t qHash(const BVMonthDateRange &range, size_t seed = 0);
