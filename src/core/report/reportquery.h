#pragma once

#include <optional>
#include <utility>

#include <QDate>
#include <QDateTime>
#include <QList>
#include <QString>

#include "model/activityquery.h"

// What the report lists: the range mode and day, the search text and the sidebar's and invoiced filters,
// turned into the store's query. Widget-free; the report window holds the state and asks here.
class ReportQuery
{
public:
    // The range control's segments. The arrows step the date; the others name the range mode.
    enum Segment {
        PreviousSegment = 0,
        DaySegment = 1,
        WeekSegment = 2,
        MonthSegment = 3,
        AllSegment = 4,
        NextSegment = 5,
        SegmentCount = 6
    };
    // The invoiced pop-up's items, by tag.
    enum FilterStatus { AllActivities = 0, OnlyInvoiced = 1, OnlyNotInvoiced = 2 };

    struct Range
    {
        std::optional<QDateTime> from; // inclusive, UTC
        std::optional<QDateTime> to; // exclusive, UTC
        bool operator==(const Range &) const = default;
    };

    // getFilterDateFrom:dateTo: the half-open range of `mode` around the picked day, on the user's local
    // clock: the day; the calendar week holding it (weeks start on `firstDayOfWeek`) up to seven days after
    // the picked day, a bound kept from the original design; or the month. No bounds for any other mode, or
    // while the filter toolbar is hidden.
    static Range filterDateRange(
        int mode, const QDate &pickedDay, bool filterToolbarVisible, Qt::DayOfWeek firstDayOfWeek);
    // The same with the user's locale's first day of the week.
    static Range filterDateRange(int mode, const QDate &pickedDay, bool filterToolbarVisible);

    // The picker's date after a click on `segment` while `mode` is the range mode: the back arrow steps one
    // day, seven days or one month back, the forward arrow as far forward; every other click leaves it.
    static QDateTime steppedDate(int segment, int mode, const QDateTime &pickedDate);

    struct Filter
    {
        Range range;
        // Searched for as a part of the text regardless of case, "*" and "?" acting as wildcards.
        QString searchText;
        QList<qint64> projectIds; // the sidebar's ticked projects (store row ids); empty: any
        QList<qint64> taskIds;
        int filterStatus = AllActivities;
    };
    // performQuery's conditions, all applying: the activity overlaps the range (when it has both bounds),
    // its text holds the search text, its project is ticked, one of its tasks is ticked, its invoiced
    // mark matches the status. Newest first.
    static ActivityQuery activityQuery(const Filter &filter);
    // The pattern the store and the in-memory search compare texts with; none for an empty search.
    static std::optional<QString> textPattern(const QString &searchText);

    // The search text in force: the toolbar's field while the toolbar shows, else the pop-up's while it
    // is open, else none.
    static QString searchText(bool filterToolbarVisible, const QString &filterString, bool popupSearchVisible,
        const QString &popupFilterString);

    // Ctrl+I: 0 → 1 → 2 → 0.
    static int nextFilterStatus(int filterStatus);
};
