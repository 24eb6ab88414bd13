#include "settings/rfc3339dateformatter.h"

#include <QRegularExpression>

QString Rfc3339DateFormatter::stringFromDate(const QDateTime &date) const
{
    if (!date.isValid())
        return {};
    const QDateTime utc = date.toUTC();
    const QDate day = utc.date();
    const QTime time = utc.time();
    return QString::asprintf("%04d-%02d-%02dT%02d:%02d:%02dZ", day.year(), day.month(), day.day(), time.hour(),
        time.minute(), time.second());
}

QDateTime Rfc3339DateFormatter::dateFromString(const QString &text) const
{
    static const QRegularExpression pattern(
        QStringLiteral("\\A(\\d{4})-(\\d{2})-(\\d{2})T(\\d{2}):(\\d{2}):(\\d{2})Z\\z"));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch())
        return {};
    const auto number = [&match](int group) { return match.capturedView(group).toInt(); };
    const QDate day(number(1), number(2), number(3));
    const QTime time(number(4), number(5), number(6));
    if (!day.isValid() || !time.isValid())
        return {};
    return QDateTime(day, time, Qt::UTC);
}
