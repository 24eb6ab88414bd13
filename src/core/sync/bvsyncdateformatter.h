#pragma once

#include <QDate>
#include <QDateTime>
#include <QLatin1StringView>
#include <QString>
#include <QTime>
#include <QTimeZone>

#include "base/datehelpers.h"

// The date text of the sync files: the wall-clock time of the journal's sync zone (the zone every machine
// of the journal agreed on, BVSyncTimeZoneFile) in the pattern "yyy-MM-dd'T'HH:mm:ss" — the year with at
// least three digits, everything else two, no fraction and no zone. Because every machine reads and
// writes in that one zone, a machine's own zone never shifts a file. Conversions go through DateHelpers
// with the sync zone, so bulk conversions cost a few integer operations each. A plain value; any thread.
class BVSyncDateFormatter
{
public:
    // Which instant a wall time names when the clocks were set back and it occurs twice.
    using Reading = DateHelpers::RepeatedTime;

    // `zone` must be valid; an invalid one reads and writes UTC.
    explicit BVSyncDateFormatter(const QTimeZone &zone);

    QTimeZone timeZone() const { return m_zone; }

    // "2024-03-12T09:30:05" for the wall time of `date` in the zone, the fraction of a second dropped
    // (rounded down). A null string for an invalid date.
    QString stringFromDate(const QDateTime &date) const;

    // The instant (in UTC) the text names in the zone; invalid unless the whole text has the form
    // <year>-<month>-<day>T<hour>:<minute>:<second> with ASCII digits (a year of 1 to 6 digits, the other
    // fields of 1 or 2), and names a real day (year 1 or later) and a time of 00:00:00 to 23:59:59. A
    // repeated wall time gives the instant `reading` asks for; a skipped one moves forward by the gap, as
    // the clocks did (02:30 on a night that skips 02:00-03:00 gives 03:30).
    QDateTime dateFromString(const QString &text, Reading reading = Reading::Later) const;
    // The same for text held as Latin-1 bytes, read without building a QString first.
    QDateTime dateFromString(QLatin1StringView text, Reading reading = Reading::Later) const;

    // The instant at which the zone's clocks show `date` `time`, resolved as dateFromString does.
    // Invalid for an invalid date or time.
    QDateTime instantFromWall(const QDate &date, const QTime &time, Reading reading = Reading::Later) const;
    // The zone's wall-clock date and time of `instant` (milliseconds kept). False for an invalid instant.
    bool wallFromInstant(const QDateTime &instant, QDate *date, QTime *time) const;

private:
    QTimeZone m_zone;
};
