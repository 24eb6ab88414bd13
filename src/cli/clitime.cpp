#include "cli/clitime.h"

#include <QRegularExpression>

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
    return When { LocalZone::fromLocal(date, time).toUTC(), dateOnly };
}

QDateTime CliTime::nextMidnight(const QDateTime &instant)
{
    return LocalZone::fromLocal(LocalZone::toLocal(instant).date().addDays(1), QTime(0, 0)).toUTC();
}

QString CliTime::isoLocal(const QDateTime &instant)
{
    if (!instant.isValid())
        return {};
    return LocalZone::toLocal(instant).toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss"));
}

QString CliTime::shortLocal(const QDateTime &instant)
{
    if (!instant.isValid())
        return {};
    return LocalZone::toLocal(instant).toString(QStringLiteral("yyyy-MM-dd HH:mm"));
}

QString CliTime::duration(qint64 seconds)
{
    const QString sign = seconds < 0 ? QStringLiteral("-") : QString();
    const qint64 s = qAbs(seconds);
    return sign
        + QStringLiteral("%1:%2:%3")
              .arg(s / 3600)
              .arg((s / 60) % 60, 2, 10, QLatin1Char('0'))
              .arg(s % 60, 2, 10, QLatin1Char('0'));
}
