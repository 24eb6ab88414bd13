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

// The wall-clock fields of an instant, worked out directly: listing a whole journal formats hundreds of
// thousands of instants, and a QDateTime pattern costs several times more per call.
QString wallClock(qint64 utc, const char *format, bool withSeconds)
{
    const qint64 local = utc + LocalZone::offsetMSecs(utc);
    constexpr qint64 msPerDay = 86400000;
    const qint64 days = local >= 0 ? local / msPerDay : -((-local + msPerDay - 1) / msPerDay);
    const qint64 msOfDay = local - days * msPerDay;
    constexpr qint64 julianDayOfEpoch = 2440588;
    const QDate date = QDate::fromJulianDay(days + julianDayOfEpoch);
    int year = 0;
    int month = 0;
    int day = 0;
    date.getDate(&year, &month, &day);
    const int hour = int(msOfDay / 3600000);
    const int minute = int(msOfDay / 60000 % 60);
    const int second = int(msOfDay / 1000 % 60);
    char text[48];
    const int length = withSeconds ? std::snprintf(text, sizeof text, format, year, month, day, hour, minute, second)
                                   : std::snprintf(text, sizeof text, format, year, month, day, hour, minute);
    return QString::fromLatin1(text, qMax(0, length));
}

} // namespace

QString CliTime::isoLocal(const QDateTime &instant)
{
    return instant.isValid() ? isoLocal(instant.toMSecsSinceEpoch()) : QString();
}

QString CliTime::isoLocal(qint64 utcMSecs)
{
    return wallClock(utcMSecs, "%04d-%02d-%02dT%02d:%02d:%02d", true);
}

QString CliTime::shortLocal(const QDateTime &instant)
{
    return instant.isValid() ? shortLocal(instant.toMSecsSinceEpoch()) : QString();
}

QString CliTime::shortLocal(qint64 utcMSecs)
{
    return wallClock(utcMSecs, "%04d-%02d-%02d %02d:%02d", false);
}

QString CliTime::duration(qint64 seconds)
{
    const qint64 s = seconds < 0 ? -seconds : seconds;
    char text[40];
    const int length = std::snprintf(text, sizeof text, "%s%lld:%02lld:%02lld", seconds < 0 ? "-" : "",
        static_cast<long long>(s / 3600), static_cast<long long>(s / 60 % 60), static_cast<long long>(s % 60));
    return QString::fromLatin1(text, qMax(0, length));
}
