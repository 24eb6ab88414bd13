#include "base/datehelpers.h"

#include <algorithm>
#include <limits>

#include <QTimeZone>

#include "base/localzone.h"

namespace {

constexpr qint64 kMsecsPerDay = 86400000;
constexpr qint64 kJulianDayOfEpoch = 2440588;
// No zone is more than a day away from UTC, so a wall time and its instant lie within this of each
// other, and an offset period that covers this much on both sides of a guess decides it alone.
constexpr qint64 kMargin = 2 * kMsecsPerDay;

qint64 floorDiv(qint64 value, qint64 divisor)
{
    return value >= 0 ? value / divisor : -((-value + divisor - 1) / divisor);
}

// The stretch of time over which the user's zone keeps one offset. Looking up a transition is costly;
// a journal's dates cluster, so nearly every conversion falls into the period of the one before.
struct OffsetPeriod
{
    QByteArray zoneId;
    qint64 start = 0; // inclusive, UTC msecs
    qint64 end = 0; // exclusive
    int offset = 0; // seconds
    bool valid = false;
};

OffsetPeriod &period(const QTimeZone &zone, qint64 msecs)
{
    thread_local OffsetPeriod cached;
    const QByteArray id = zone.isValid() ? zone.id() : QByteArray();
    if (cached.valid && cached.zoneId == id && msecs >= cached.start && msecs < cached.end)
        return cached;

    const QDateTime at = QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC);
    cached.zoneId = id;
    cached.valid = true;
    if (!zone.isValid()) {
        // Without a zone database only the C library knows local time; ask it for this instant only.
        cached.offset = at.toLocalTime().offsetFromUtc();
        cached.start = msecs;
        cached.end = msecs + 1;
        return cached;
    }
    cached.offset = zone.offsetFromUtc(at);
    cached.start = std::numeric_limits<qint64>::min();
    cached.end = std::numeric_limits<qint64>::max();
    if (zone.hasTransitions()) {
        const QTimeZone::OffsetData previous = zone.previousTransition(at.addMSecs(1));
        if (previous.atUtc.isValid())
            cached.start = previous.atUtc.toMSecsSinceEpoch();
        const QTimeZone::OffsetData next = zone.nextTransition(at);
        if (next.atUtc.isValid())
            cached.end = next.atUtc.toMSecsSinceEpoch();
        // A transition table that does not agree with the offset (a rule-based tail, say) must not be
        // trusted beyond this instant.
        if (previous.atUtc.isValid() && previous.offsetFromUtc != cached.offset) {
            cached.start = msecs;
            cached.end = msecs + 1;
        }
    }
    return cached;
}

} // namespace

int DateHelpers::compareBySeconds(const QDateTime &date, const QDateTime &other)
{
    if (!date.isValid() || !other.isValid())
        return date.isValid() ? 1 : (other.isValid() ? -1 : 0);
    const qint64 a = floorSeconds(date);
    const qint64 b = floorSeconds(other);
    return a < b ? -1 : (a > b ? 1 : 0);
}

qint64 DateHelpers::floorSeconds(const QDateTime &instant)
{
    return floorDiv(instant.toMSecsSinceEpoch(), 1000);
}

int DateHelpers::localOffsetAt(qint64 msecsSinceEpoch)
{
    return period(LocalZone::current(), msecsSinceEpoch).offset;
}

QDateTime DateHelpers::instantFromLocal(const QDate &date, const QTime &time)
{
    return instantFromLocal(date, time, LocalZone::current());
}

QDateTime DateHelpers::instantFromLocal(
    const QDate &date, const QTime &time, const QTimeZone &givenZone, RepeatedTime reading)
{
    if (!date.isValid() || !time.isValid())
        return {};
    const qint64 wall = (date.toJulianDay() - kJulianDayOfEpoch) * kMsecsPerDay + time.msecsSinceStartOfDay();
    // QDateTime(date, time, zone) cannot serve here: Qt 6.4 answers an invalid date inside a gap, whose
    // toUTC() is the wall time read as UTC, hours off.
    const QTimeZone zone = givenZone.isValid() ? givenZone : LocalZone::current();
    const auto offsetAt = [&zone](qint64 msecs) { return period(zone, msecs).offset; };

    // Fast path: the offset period around the likely instant covers every candidate.
    {
        const OffsetPeriod &guess = period(zone, wall);
        const qint64 instant = wall - qint64(guess.offset) * 1000;
        if (instant - kMargin >= guess.start && instant + kMargin < guess.end && wall - kMargin >= guess.start
            && wall + kMargin < guess.end)
            return QDateTime::fromMSecsSinceEpoch(instant, Qt::UTC);
    }

    // Near a change of offset: the instant is wall - offset for the offset before or after the change,
    // whichever is consistent with itself; both are when the wall time repeats, neither when the change
    // skipped it, and then the offset before the change moves it forward by the gap.
    const qint64 before = qint64(offsetAt(wall - kMargin)) * 1000;
    const qint64 after = qint64(offsetAt(wall + kMargin)) * 1000;
    auto consistent = [&](qint64 instant) { return qint64(offsetAt(instant)) * 1000 == wall - instant; };
    const qint64 early = wall - before;
    const qint64 late = wall - after;
    const bool earlyFits = consistent(early);
    const bool lateFits = consistent(late);
    qint64 instant = early;
    if (earlyFits && lateFits)
        instant = reading == RepeatedTime::Later ? std::max(early, late) : std::min(early, late);
    else if (lateFits)
        instant = late;
    return QDateTime::fromMSecsSinceEpoch(instant, Qt::UTC);
}

bool DateHelpers::localFromInstant(const QDateTime &instant, QDate *date, QTime *time)
{
    return localFromInstant(instant, LocalZone::current(), date, time);
}

bool DateHelpers::localFromInstant(const QDateTime &instant, const QTimeZone &givenZone, QDate *date, QTime *time)
{
    if (!instant.isValid())
        return false;
    const QTimeZone zone = givenZone.isValid() ? givenZone : LocalZone::current();
    const qint64 msecs = instant.toMSecsSinceEpoch();
    const qint64 local = msecs + qint64(period(zone, msecs).offset) * 1000;
    const qint64 day = floorDiv(local, kMsecsPerDay);
    *date = QDate::fromJulianDay(day + kJulianDayOfEpoch);
    *time = QTime::fromMSecsSinceStartOfDay(int(local - day * kMsecsPerDay));
    return true;
}
