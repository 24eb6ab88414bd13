#include "report/reportquery.h"

#include <QLocale>

#include "base/datehelpers.h"

namespace {
QDateTime startOf(const QDate &day)
{
    return DateHelpers::instantFromLocal(day, QTime(0, 0));
}
} // namespace

ReportQuery::Range ReportQuery::filterDateRange(
    int mode, const QDate &pickedDay, bool filterToolbarVisible, Qt::DayOfWeek firstDayOfWeek)
{
    if (!filterToolbarVisible || !pickedDay.isValid())
        return {};
    switch (mode) {
    case DaySegment:
        return { startOf(pickedDay), startOf(pickedDay.addDays(1)) };
    case WeekSegment: {
        const int back = (pickedDay.dayOfWeek() - int(firstDayOfWeek) + 7) % 7;
        return { startOf(pickedDay.addDays(-back)), startOf(pickedDay.addDays(7)) };
    }
    case MonthSegment: {
        const QDate first(pickedDay.year(), pickedDay.month(), 1);
        return { startOf(first), startOf(first.addMonths(1)) };
    }
    default:
        return {};
    }
}

ReportQuery::Range ReportQuery::filterDateRange(int mode, const QDate &pickedDay, bool filterToolbarVisible)
{
    return filterDateRange(mode, pickedDay, filterToolbarVisible, QLocale().firstDayOfWeek());
}

QDateTime ReportQuery::steppedDate(int segment, int mode, const QDateTime &pickedDate)
{
    int direction = 0;
    if (segment == PreviousSegment)
        direction = -1;
    else if (segment == NextSegment)
        direction = 1;
    if (direction == 0)
        return pickedDate;
    switch (mode) {
    case DaySegment:
        return pickedDate.addDays(direction);
    case WeekSegment:
        return pickedDate.addDays(7 * direction);
    case MonthSegment:
        return pickedDate.addMonths(direction);
    default:
        return pickedDate;
    }
}

std::optional<QString> ReportQuery::textPattern(const QString &searchText)
{
    if (searchText.isEmpty())
        return std::nullopt;
    return QLatin1Char('*') + searchText + QLatin1Char('*');
}

ActivityQuery ReportQuery::activityQuery(const Filter &filter)
{
    ActivityQuery query;
    query.order = ActivityQuery::Order::TimeFromDescending;
    if (filter.range.from && filter.range.to) {
        query.overlapsFrom = filter.range.from;
        query.overlapsUntil = filter.range.to;
    }
    query.textLike = textPattern(filter.searchText);
    if (!filter.projectIds.isEmpty())
        query.projectIds = filter.projectIds;
    if (!filter.taskIds.isEmpty())
        query.taskIds = filter.taskIds;
    if (filter.filterStatus == OnlyInvoiced)
        query.isInvoiced = true;
    else if (filter.filterStatus == OnlyNotInvoiced)
        query.isInvoiced = false;
    return query;
}

QString ReportQuery::searchText(
    bool filterToolbarVisible, const QString &filterString, bool popupSearchVisible, const QString &popupFilterString)
{
    if (filterToolbarVisible)
        return filterString;
    if (popupSearchVisible)
        return popupFilterString;
    return {};
}

int ReportQuery::nextFilterStatus(int filterStatus)
{
    return (filterStatus + 1) % 3;
}
