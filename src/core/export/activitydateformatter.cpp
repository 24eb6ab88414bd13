#include "export/activitydateformatter.h"

#include <algorithm>
#include <iterator>

#include "base/datehelpers.h"
#include "base/localzone.h"

namespace {

bool isNumericField(char16_t letter, int count)
{
    switch (letter) {
    case u'y':
    case u'd':
    case u'H':
    case u'm':
    case u's':
        return true;
    case u'M':
    case u'L':
        return count <= 2;
    default:
        return false;
    }
}

} // namespace

ActivityDateFormatter::ActivityDateFormatter()
    : m_locale(QLocale::system())
{
    // Digits of the locale's numbering system, as ICU writes them; only a single code unit zero can be
    // mapped digit by digit, every other locale writes ASCII digits.
    const QString zero = m_locale.zeroDigit();
    if (zero.size() == 1)
        m_zeroDigit = zero.at(0).unicode();
}

ActivityDateFormatter::ActivityDateFormatter(const QString &dateFormat)
    : ActivityDateFormatter()
{
    setDateFormat(dateFormat);
}

void ActivityDateFormatter::setDateFormat(const QString &dateFormat)
{
    m_dateFormat = dateFormat;
    m_dateStyle = Style::NoStyle;
    m_timeStyle = Style::NoStyle;
    m_hasLastDay = false;
    compile();
}

void ActivityDateFormatter::setDateStyle(Style dateStyle)
{
    m_dateStyle = dateStyle;
    m_dateFormat.clear();
    m_parts.clear();
    m_hasLastDay = false;
    if (m_dateStyle == Style::ShortStyle && m_timeStyle == Style::ShortStyle)
        m_shortFormat = m_locale.dateTimeFormat(QLocale::ShortFormat);
    else if (m_dateStyle == Style::ShortStyle)
        m_shortFormat = m_locale.dateFormat(QLocale::ShortFormat);
    else if (m_timeStyle == Style::ShortStyle)
        m_shortFormat = m_locale.timeFormat(QLocale::ShortFormat);
    else
        m_shortFormat.clear();
}

void ActivityDateFormatter::setTimeStyle(Style timeStyle)
{
    m_timeStyle = timeStyle;
    setDateStyle(m_dateStyle);
}

void ActivityDateFormatter::compile()
{
    m_parts.clear();
    const QString &pattern = m_dateFormat;
    QString literal;
    auto flushLiteral = [&] {
        if (!literal.isEmpty()) {
            m_parts.append(Part { 0, 0, literal });
            literal.clear();
        }
    };
    qsizetype i = 0;
    while (i < pattern.size()) {
        const QChar c = pattern.at(i);
        if (c == u'\'') {
            // '' is a quote, inside and outside quoted text; an unterminated quote runs to the end.
            if (i + 1 < pattern.size() && pattern.at(i + 1) == u'\'') {
                literal += u'\'';
                i += 2;
                continue;
            }
            ++i;
            while (i < pattern.size()) {
                if (pattern.at(i) == u'\'') {
                    if (i + 1 < pattern.size() && pattern.at(i + 1) == u'\'') {
                        literal += u'\'';
                        i += 2;
                        continue;
                    }
                    ++i;
                    break;
                }
                literal += pattern.at(i++);
            }
            continue;
        }
        const bool field = c == u'y' || c == u'M' || c == u'L' || c == u'd' || c == u'H' || c == u'm' || c == u's';
        if (!field) {
            literal += c;
            ++i;
            continue;
        }
        qsizetype end = i;
        while (end < pattern.size() && pattern.at(end) == c)
            ++end;
        flushLiteral();
        m_parts.append(Part { c.unicode(), int(end - i), {} });
        i = end;
    }
    flushLiteral();
}

void ActivityDateFormatter::appendNumber(Text &out, qint64 number, int minDigits) const
{
    // Filled from the end and appended at once: one append per field instead of one per digit.
    char16_t digits[48];
    constexpr int capacity = int(std::size(digits));
    int first = capacity;
    quint64 magnitude = number < 0 ? 0 - quint64(number) : quint64(number);
    do {
        digits[--first] = char16_t(m_zeroDigit + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    const int width = std::min(minDigits, capacity);
    while (capacity - first < width)
        digits[--first] = m_zeroDigit;
    if (number < 0) {
        const QString sign = m_locale.negativeSign();
        out.append(sign.constData(), sign.size());
    }
    for (int pad = capacity; pad < minDigits; ++pad)
        out.append(QChar(m_zeroDigit));
    out.append(reinterpret_cast<const QChar *>(digits + first), capacity - first);
}

int ActivityDateFormatter::digitValue(QStringView text, qsizetype pos, qsizetype *length)
{
    // Any decimal digit of Unicode: a file exported under fa_IR ("۲۰۲۴") or ar_EG ("٢٠٢٤") reads under
    // every locale. Digits beyond the first plane come as surrogate pairs.
    *length = 1;
    const char16_t u = text.at(pos).unicode();
    if (u >= u'0' && u <= u'9')
        return u - u'0';
    char32_t point = u;
    if (QChar::isHighSurrogate(u) && pos + 1 < text.size() && QChar::isLowSurrogate(text.at(pos + 1).unicode())) {
        point = QChar::surrogateToUcs4(u, text.at(pos + 1).unicode());
        *length = 2;
    }
    if (QChar::category(point) != QChar::Number_DecimalDigit)
        return -1;
    return QChar::digitValue(point);
}

QString ActivityDateFormatter::stringFromDate(const QDateTime &date) const
{
    QString text;
    appendStringFromDate(text, date);
    return text;
}

void ActivityDateFormatter::appendStringFromDate(QString &out, const QDateTime &date) const
{
    if (date.isValid())
        appendStringFromMSecs(out, date.toMSecsSinceEpoch());
}

void ActivityDateFormatter::appendStringFromMSecs(QString &out, qint64 utcMSecs) const
{
    // The wall clock worked out from the zone's offset: an export renders two or three instants per
    // row, and a QDateTime in the zone costs several times more per call.
    constexpr qint64 msPerDay = 86400000;
    constexpr qint64 julianDayOfEpoch = 2440588;
    const qint64 local = utcMSecs + LocalZone::offsetMSecs(utcMSecs);
    const qint64 days = local >= 0 ? local / msPerDay : -((-local + msPerDay - 1) / msPerDay);
    const QDate day = QDate::fromJulianDay(days + julianDayOfEpoch);
    const QTime time = QTime::fromMSecsSinceStartOfDay(int(local - days * msPerDay));

    if (usesStyles()) {
        if (m_timeStyle == Style::NoStyle) {
            if (!m_hasLastDay || m_lastDay != day.toJulianDay()) {
                m_lastDayText = m_locale.toString(day, m_shortFormat);
                m_lastDay = day.toJulianDay();
                m_hasLastDay = true;
            }
            out += m_lastDayText;
        } else if (m_dateStyle == Style::NoStyle) {
            out += m_locale.toString(time, m_shortFormat);
        } else {
            out += m_locale.toString(
                LocalZone::toLocal(QDateTime::fromMSecsSinceEpoch(utcMSecs, Qt::UTC)), m_shortFormat);
        }
        return;
    }

    int year = 0;
    int month = 0;
    int dayOfMonth = 0;
    day.getDate(&year, &month, &dayOfMonth);
    Text text;

    for (const Part &part : m_parts) {
        switch (part.letter) {
        case 0:
            text.append(part.literal.constData(), part.literal.size());
            break;
        case u'y': {
            // ICU writes the year of the era: 1 BC is year 1 (Qt counts it as -1, without a year 0).
            const int yearOfEra = year > 0 ? year : -year;
            if (part.count == 2)
                appendNumber(text, yearOfEra % 100, 2);
            else
                appendNumber(text, yearOfEra, part.count);
            break;
        }
        case u'M':
        case u'L':
            if (part.count <= 2) {
                appendNumber(text, month, part.count);
            } else {
                const QLocale::FormatType type = part.count == 3 ? QLocale::ShortFormat
                    : part.count == 4                            ? QLocale::LongFormat
                                                                 : QLocale::NarrowFormat;
                const QString name
                    = part.letter == u'M' ? m_locale.monthName(month, type) : m_locale.standaloneMonthName(month, type);
                text.append(name.constData(), name.size());
            }
            break;
        case u'd':
            appendNumber(text, dayOfMonth, part.count);
            break;
        case u'H':
            appendNumber(text, time.hour(), part.count);
            break;
        case u'm':
            appendNumber(text, time.minute(), part.count);
            break;
        case u's':
            appendNumber(text, time.second(), part.count);
            break;
        default:
            break;
        }
    }
    out.append(text.constData(), text.size());
}

QDateTime ActivityDateFormatter::dateFromString(QStringView text) const
{
    QDate date;
    QTime time;
    if (!wallTimeFromString(text, &date, &time))
        return {};
    return DateHelpers::instantFromLocal(date, time);
}

bool ActivityDateFormatter::wallTimeFromString(QStringView text, QDate *wallDate, QTime *wallTime) const
{
    if (usesStyles() || m_parts.isEmpty())
        return false;

    int year = 1970;
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
    qsizetype pos = 0;
    for (qsizetype i = 0; i < m_parts.size(); ++i) {
        const Part &part = m_parts.at(i);
        if (part.letter == 0) {
            if (!text.mid(pos).startsWith(part.literal))
                return false;
            pos += part.literal.size();
            continue;
        }
        if (!isNumericField(part.letter, part.count))
            return false;
        // A field followed directly by another numeric field takes exactly its own width, as in ICU;
        // otherwise it takes every digit there is (bounded, so that the number cannot overflow).
        const bool abutting = i + 1 < m_parts.size() && m_parts.at(i + 1).letter != 0
            && isNumericField(m_parts.at(i + 1).letter, m_parts.at(i + 1).count);
        const qsizetype maxDigits = abutting ? part.count : 9;
        qint64 number = 0;
        qsizetype digits = 0;
        qsizetype length = 0;
        while (pos < text.size() && digits < maxDigits) {
            const int digit = digitValue(text, pos, &length);
            if (digit < 0)
                break;
            number = number * 10 + digit;
            ++digits;
            pos += length;
        }
        if (digits == 0 || (abutting && digits != part.count))
            return false;
        if (pos < text.size() && digits == maxDigits && !abutting && digitValue(text, pos, &length) >= 0)
            return false;
        switch (part.letter) {
        case u'y':
            if (part.count == 2 && digits == 2) {
                // Two-digit years fall into the hundred years that begin 80 years ago, as in ICU.
                const int start = QDate::currentDate().year() - 80;
                int full = start / 100 * 100 + int(number);
                if (full < start)
                    full += 100;
                year = full;
            } else {
                year = int(number);
            }
            break;
        case u'M':
        case u'L':
            month = int(number);
            break;
        case u'd':
            day = int(number);
            break;
        case u'H':
            hour = int(number);
            break;
        case u'm':
            minute = int(number);
            break;
        case u's':
            second = int(number);
            break;
        default:
            break;
        }
    }
    if (pos != text.size())
        return false;

    const QDate date(year, month, day);
    if (year < 1 || !date.isValid() || hour > 23 || minute > 59 || second > 59)
        return false;
    *wallDate = date;
    *wallTime = QTime(hour, minute, second);
    return true;
}
