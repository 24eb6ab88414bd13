#pragma once

#include <QDate>
#include <QDateTime>
#include <QTime>
#include <QTimeZone>

// Comparing instants in whole seconds, and turning the user's wall-clock times into instants and back.
// The local conversions use LocalZone (the user's current zone) and keep a per-thread cache of the
// current offset period, so that bulk conversions cost a few integer operations each. Any thread.
class DateHelpers
{
public:
    // Compares `date` with `other` after rounding each down to a whole second: -1 when `date` lies in an
    // earlier second, 0 in the same second, 1 in a later one. An invalid date counts as earlier than any
    // valid one and equal to another invalid one. Every sync decision between two times uses this.
    static int compareBySeconds(const QDateTime &date, const QDateTime &other);

    // Seconds since 1970-01-01T00:00:00Z, rounded towards minus infinity.
    static qint64 floorSeconds(const QDateTime &instant);

    // The instant at which the user's clock shows `date` `time`, in UTC. Every conversion of a wall-clock
    // time to an instant goes through here. A wall time that occurs twice (clocks set back) gives the
    // later instant; one that does not occur (clocks set forward) is read with the offset in force before
    // the change, so it moves forward by the gap as the clock did (02:30 on a night that skips
    // 02:00-03:00 gives 03:30). Invalid for an invalid date or time.
    static QDateTime instantFromLocal(const QDate &date, const QTime &time);
    // Which instant a wall time names when the clocks were set back and it occurs twice.
    enum class RepeatedTime { Later, Earlier };
    // The same on the clock of `zone` (an invalid zone means the user's), a repeated wall time giving the
    // instant `reading` asks for.
    static QDateTime instantFromLocal(
        const QDate &date, const QTime &time, const QTimeZone &zone, RepeatedTime reading = RepeatedTime::Later);

    // The user's wall-clock date and time of `instant` (milliseconds kept). False for an invalid instant.
    static bool localFromInstant(const QDateTime &instant, QDate *date, QTime *time);
    // The same on the clock of `zone`; an invalid zone means the user's.
    static bool localFromInstant(const QDateTime &instant, const QTimeZone &zone, QDate *date, QTime *time);

    // The zone's offset from UTC at the instant, in seconds.
    static int localOffsetAt(qint64 msecsSinceEpoch);
};
