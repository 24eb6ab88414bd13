#pragma once

#include <optional>

#include <QDateTime>
#include <QList>
#include <QString>

// Which activities a StoreContext fetch returns. Conditions that are set all apply.
struct ActivityQuery
{
    enum class Order { Unordered, TimeFromAscending, TimeFromDescending };

    // timeFrom >= startsFrom AND timeFrom <= startsUntil (both inclusive).
    std::optional<QDateTime> startsFrom;
    std::optional<QDateTime> startsUntil;
    // The activity overlaps the range: timeTo >= overlapsFrom AND timeFrom < overlapsUntil.
    std::optional<QDateTime> overlapsFrom;
    std::optional<QDateTime> overlapsUntil;
    // timeTo <= endsUntil.
    std::optional<QDateTime> endsUntil;
    std::optional<int> yearMonth;
    std::optional<bool> isInvoiced;
    std::optional<QString> uid;
    // The project is one of these (row ids); an empty list matches no activity.
    std::optional<QList<qint64>> projectIds;
    // At least one task is one of these (row ids); an empty list matches no activity.
    std::optional<QList<qint64>> taskIds;
    // The text matches this pattern regardless of case, "*" and "?" acting as wildcards (see LikePattern).
    std::optional<QString> textLike;
    Order order = Order::Unordered;
    // At most this many rows; 0 for all.
    int limit = 0;
};
