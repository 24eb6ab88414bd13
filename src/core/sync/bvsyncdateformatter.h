#pragma once

#include <QDateTime>
#include <QLatin1StringView>
#include <QString>

// The date text of the sync files: the user's wall-clock time in the pattern "yyy-MM-dd'T'HH:mm:ss" —
// the year with at least three digits, everything else two, no fraction and no zone. A file written in
// one zone and read in another therefore shifts by the difference, as intended. Any thread.
class BVSyncDateFormatter
{
public:
    // "2024-03-12T09:30:05" for the local time of `date`, the fraction of a second dropped (rounded
    // down). A null string for an invalid date.
    static QString stringFromDate(const QDateTime &date);

    // The instant (in UTC) the text names in the user's zone; invalid unless the whole text has the form
    // <year>-<month>-<day>T<hour>:<minute>:<second> with ASCII digits (a year of 1 to 6 digits, the other
    // fields of 1 or 2), and names a real day (year 1 or later) and a time of 00:00:00 to 23:59:59. Wall
    // times that a change of clocks repeats or skips resolve as in DateHelpers::instantFromLocal.
    static QDateTime dateFromString(const QString &text);
    // The same for text held as Latin-1 bytes, read without building a QString first.
    static QDateTime dateFromString(QLatin1StringView text);
};
