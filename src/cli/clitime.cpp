#include "cli/clitime.h"

#include <cstdio>

#include <QRegularExpression>

#include "base/datehelpers.h"
#include "base/localzone.h"

std::expected<CliTime::When, QString> CliTime::parse(const QString &text, const QString &optionName)
{
    static const QRegularExpression pattern(
        QStringLiteral("^(\\d{4})-(\\d{2})-(\\d{2})(?:T(\\d{2}):(\\d{2})(?::(\\d{2}))?)?$"));
    const QRegularExpressionMatch match = pattern.match(text.trimmed());
    const QString usage = QStringLiteral("Invalid time for --%1: “%2” (use yyyy-MM-dd, yyyy-MM-ddTHH:mm or "
                                         "yyyy-MM-ddTHH:mm:ss).")
                              .arg(optionName, text);
    if (!match.hasMatch())
        return std::unexpected(usage);
    const QDate date(match.captured(1).toInt(), match.captured(2).toInt(), match.captured(3).toInt());
    const bool dateOnly = match.captured(4).isEmpty();
    const QTime time = dateOnly ? QTime(0, 0)
                                : QTime(match.captured(4).toInt(), match.captured(5).toInt(),
                                    match.captured(6).isEmpty() ? 0 : match.captured(6).toInt());
    if (!date.isValid() || !time.isValid())
        return std::unexpected(usage);
    return When { DateHelpers::instantFromLocal(date, time), dateOnly };
}

QDateTime CliTime::nextMidnight(const QDateTime &instant)
{
    return DateHelpers::instantFromLocal(LocalZone::toLocal(instant).date().addDays(1), QTime(0, 0));
}

namespace {

constexpr qint64 kMsecsPerDay = 86400000;

qint64 localDay(qint64 local)
{
    return local >= 0 ? local / kMsecsPerDay : -((-local + kMsecsPerDay - 1) / kMsecsPerDay);
}

// The wall-clock fields of an instant, worked out directly: listing a whole journal formats hundreds of
// thousands of instants, and a QDateTime pattern costs several times more per call.
struct WallClock
{
    explicit WallClock(qint64 utc)
        : offsetMinutes(int(LocalZone::offsetMSecs(utc) / 60000))
    {
        const qint64 local = utc + qint64(offsetMinutes) * 60000;
        const qint64 days = localDay(local);
        const qint64 msOfDay = local - days * kMsecsPerDay;
        constexpr qint64 julianDayOfEpoch = 2440588;
        QDate::fromJulianDay(days + julianDayOfEpoch).getDate(&year, &month, &day);
        hour = int(msOfDay / 3600000);
        minute = int(msOfDay / 60000 % 60);
        second = int(msOfDay / 1000 % 60);
    }

    int offsetMinutes;
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

QString latin1(const char *text, int length)
{
    return QString::fromLatin1(text, qMax(0, length));
}

} // namespace

QString CliTime::rfc3339(qint64 utcMSecs)
{
    const WallClock c(utcMSecs);
    const int offset = c.offsetMinutes < 0 ? -c.offsetMinutes : c.offsetMinutes;
    char text[48];
    return latin1(text,
        std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d%c%02d:%02d", c.year, c.month, c.day, c.hour,
            c.minute, c.second, c.offsetMinutes < 0 ? '-' : '+', offset / 60, offset % 60));
}

QString CliTime::span(qint64 fromUtcMSecs, qint64 toUtcMSecs)
{
    const QString to = shortLocal(toUtcMSecs);
    const bool sameDay = localDay(fromUtcMSecs + LocalZone::offsetMSecs(fromUtcMSecs))
        == localDay(toUtcMSecs + LocalZone::offsetMSecs(toUtcMSecs));
    return shortLocal(fromUtcMSecs) + QStringLiteral(" – ") + (sameDay ? to.mid(11) : to);
}

QString CliTime::shortLocal(qint64 utcMSecs)
{
    const WallClock c(utcMSecs);
    char text[48];
    return latin1(
        text, std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d", c.year, c.month, c.day, c.hour, c.minute));
}

QString CliTime::duration(qint64 seconds)
{
    const qint64 s = seconds < 0 ? -seconds : seconds;
    char text[40];
    return latin1(text,
        std::snprintf(text, sizeof text, "%s%lld:%02lld:%02lld", seconds < 0 ? "-" : "",
            static_cast<long long>(s / 3600), static_cast<long long>(s / 60 % 60), static_cast<long long>(s % 60)));
}
