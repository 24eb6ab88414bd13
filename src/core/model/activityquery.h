#pragma once

#include <optional>

#include <QDateTime>
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
    std::optional<int> yearMonth;
    std::optional<bool> isInvoiced;
    std::optional<QString> uid;
    Order order = Order::Unordered;
    // At most this many rows; 0 for all.
    int limit = 0;
};
