#include "sync/bvsyncdateformatter.h"

namespace {

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
    // The helpers read an invalid zone as the user's; a sync file never is.
    : m_zone(zone.isValid() ? zone : QTimeZone::utc())
{ }

QDateTime BVSyncDateFormatter::instantFromWall(const QDate &date, const QTime &time, Reading reading) const
{
    return DateHelpers::instantFromLocal(date, time, m_zone, reading);
}

bool BVSyncDateFormatter::wallFromInstant(const QDateTime &instant, QDate *date, QTime *time) const
{
    return DateHelpers::localFromInstant(instant, m_zone, date, time);
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
