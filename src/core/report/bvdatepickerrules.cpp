#include "report/bvdatepickerrules.h"

#include <QTime>

#include "base/datehelpers.h"

QDateTime BvDatePickerRules::composeDateTime(const QDate &day, int hour, int minute, const QDateTime &current)
{
    if (!day.isValid())
        return {};
    QDate currentDay;
    QTime currentTime(0, 0);
    if (current.isValid())
        DateHelpers::localFromInstant(current, &currentDay, &currentTime);
    const int h = hour >= 0 ? hour : currentTime.hour();
    const int m = minute >= 0 ? minute : currentTime.minute();
    return DateHelpers::instantFromLocal(day, QTime(h, m, 0)).toLocalTime();
}

bool BvDatePickerRules::segmentStaysSelected(int index, int segmentCount)
{
    return index > 0 && index < segmentCount - 1;
}
