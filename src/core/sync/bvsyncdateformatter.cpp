#include "sync/bvsyncdateformatter.h"

#include <algorithm>
#include <limits>

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

// The stretch of time over which a zone keeps one offset. Looking up a transition is costly; the dates
// of a file cluster, so nearly every conversion falls into the period of the one before.
struct OffsetPeriod
{
    QByteArray zoneId;
    qint64 start = 0; // inclusive, UTC msecs
    qint64 end = 0; // exclusive
    int offset = 0; // seconds
    bool valid = false;
};

const OffsetPeriod &period(const QTimeZone &zone, qint64 msecs)
{
    thread_local OffsetPeriod cached;
    if (!zone.isValid()) {
        static const OffsetPeriod utc { QByteArray(), std::numeric_limits<qint64>::min(),
            std::numeric_limits<qint64>::max(), 0, true };
        return utc;
    }
    if (cached.valid && msecs >= cached.start && msecs < cached.end && cached.zoneId == zone.id())
        return cached;

    const QDateTime at = QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC);
    cached.zoneId = zone.id();
    cached.valid = true;
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

qint64 offsetMSecsAt(const QTimeZone &zone, qint64 msecs)
{
    return qint64(period(zone, msecs).offset) * 1000;
}

// Appends `value` with at least `width` digits.
void appendNumber(QChar *&out, qint64 value, int width)
{
    char digits[24];
    int count = 0;
    do {
        digits[count++] = char('0' + value % 10);
        value /= 10;
    } while (value > 0);
    for (int i = count; i < width; ++i)
        *out++ = QLatin1Char('0');
    while (count > 0)
        *out++ = QLatin1Char(digits[--count]);
}

// Reads up to `maxDigits` ASCII digits at `pos`; -1 when there is none or more follow. `Unit` is char16_t for
// UTF-16 text and uchar for Latin-1 text.
template<typename Unit> int readNumber(const Unit *text, qsizetype size, qsizetype &pos, int maxDigits)
{
    int value = 0;
    int digits = 0;
    while (pos < size && text[pos] >= Unit('0') && text[pos] <= Unit('9')) {
        if (++digits > maxDigits)
            return -1;
        value = value * 10 + int(text[pos] - Unit('0'));
        ++pos;
    }
    return digits == 0 ? -1 : value;
}

template<typename Unit> bool expect(const Unit *text, qsizetype size, qsizetype &pos, char literal)
{
    if (pos >= size || text[pos] != Unit(literal))
        return false;
    ++pos;
    return true;
}

template<typename Unit>
QDateTime dateFromUnits(
    const BVSyncDateFormatter &formatter, const Unit *text, qsizetype size, BVSyncDateFormatter::Reading reading)
{
    qsizetype pos = 0;
    const int year = readNumber(text, size, pos, 6);
    if (year < 1 || !expect(text, size, pos, '-'))
        return {};
    const int month = readNumber(text, size, pos, 2);
    if (month < 0 || !expect(text, size, pos, '-'))
        return {};
    const int day = readNumber(text, size, pos, 2);
    if (day < 0 || !expect(text, size, pos, 'T'))
        return {};
    const int hour = readNumber(text, size, pos, 2);
    if (hour < 0 || !expect(text, size, pos, ':'))
        return {};
    const int minute = readNumber(text, size, pos, 2);
    if (minute < 0 || !expect(text, size, pos, ':'))
        return {};
    const int second = readNumber(text, size, pos, 2);
    if (second < 0 || pos != size)
        return {};
    if (!QDate::isValid(year, month, day) || hour > 23 || minute > 59 || second > 59)
        return {};
    return formatter.instantFromWall(QDate(year, month, day), QTime(hour, minute, second), reading);
}

} // namespace

BVSyncDateFormatter::BVSyncDateFormatter(const QTimeZone &zone)
    : m_zone(zone)
{ }

QDateTime BVSyncDateFormatter::instantFromWall(const QDate &date, const QTime &time, Reading reading) const
{
    if (!date.isValid() || !time.isValid())
        return {};
    const qint64 wall = (date.toJulianDay() - kJulianDayOfEpoch) * kMsecsPerDay + time.msecsSinceStartOfDay();

    // Fast path: the offset period around the likely instant covers every candidate.
    {
        const OffsetPeriod &guess = period(m_zone, wall);
        const qint64 instant = wall - qint64(guess.offset) * 1000;
        if (instant - kMargin >= guess.start && instant + kMargin < guess.end && wall - kMargin >= guess.start
            && wall + kMargin < guess.end)
            return QDateTime::fromMSecsSinceEpoch(instant, Qt::UTC);
    }

    // Near a change of offset: the instant is wall - offset for the offset before or after the change,
    // whichever is consistent with itself; both are when the wall time repeats, neither when the change
    // skipped it, and then the offset before the change moves it forward by the gap.
    const qint64 early = wall - offsetMSecsAt(m_zone, wall - kMargin);
    const qint64 late = wall - offsetMSecsAt(m_zone, wall + kMargin);
    const bool earlyFits = offsetMSecsAt(m_zone, early) == wall - early;
    const bool lateFits = offsetMSecsAt(m_zone, late) == wall - late;
    qint64 instant = early;
    if (earlyFits && lateFits)
        instant = reading == Reading::Later ? std::max(early, late) : std::min(early, late);
    else if (lateFits)
        instant = late;
    return QDateTime::fromMSecsSinceEpoch(instant, Qt::UTC);
}

bool BVSyncDateFormatter::wallFromInstant(const QDateTime &instant, QDate *date, QTime *time) const
{
    if (!instant.isValid())
        return false;
    const qint64 msecs = instant.toMSecsSinceEpoch();
    const qint64 local = msecs + offsetMSecsAt(m_zone, msecs);
    const qint64 day = floorDiv(local, kMsecsPerDay);
    *date = QDate::fromJulianDay(day + kJulianDayOfEpoch);
    *time = QTime::fromMSecsSinceStartOfDay(int(local - day * kMsecsPerDay));
    return true;
}

QString BVSyncDateFormatter::stringFromDate(const QDateTime &date) const
{
    QDate day;
    QTime time;
    if (!wallFromInstant(date, &day, &time))
        return {};
    // The pattern's year is the year of the era: there is no sign to write.
    const qint64 year = day.year() < 0 ? -qint64(day.year()) : day.year();
    QString text(32, Qt::Uninitialized);
    QChar *begin = text.data();
    QChar *out = begin;
    appendNumber(out, year, 3);
    *out++ = QLatin1Char('-');
    appendNumber(out, day.month(), 2);
    *out++ = QLatin1Char('-');
    appendNumber(out, day.day(), 2);
    *out++ = QLatin1Char('T');
    appendNumber(out, time.hour(), 2);
    *out++ = QLatin1Char(':');
    appendNumber(out, time.minute(), 2);
    *out++ = QLatin1Char(':');
    appendNumber(out, time.second(), 2);
    text.truncate(out - begin);
    return text;
}

QDateTime BVSyncDateFormatter::dateFromString(const QString &text, Reading reading) const
{
    return dateFromUnits(*this, text.utf16(), text.size(), reading);
}

QDateTime BVSyncDateFormatter::dateFromString(QLatin1StringView text, Reading reading) const
{
    return dateFromUnits(*this, reinterpret_cast<const uchar *>(text.data()), text.size(), reading);
}
