#pragma once

#include <expected>
#include <vector>

#include <QList>
#include <QStringList>

#include "base/bverror.h"
#include "model/activityquery.h"
#include "model/activityrecord.h"

class Store;

// Questions about the stored journal answered with plain values: no objects, no cache, no unsaved
// changes. Usable from any thread (each thread reads through its own connection); each answer is one
// consistent read of the store.
class JournalQueries
{
public:
    explicit JournalQueries(Store &store)
        : m_store(store)
    { }

    // The stored activities that match, as plain records in the query's order, with their project and
    // (when asked for) task names. Several times cheaper than fetching activities when a whole journal is
    // read only to be shown.
    std::expected<std::vector<ActivityRecord>, BvError> fetchActivityRecords(
        const ActivityQuery &query, bool withTasks = true) const;
    // The uid and modification time of the stored activities that match, in no particular order; a text
    // pattern is not supported.
    std::expected<std::vector<ActivityStamp>, BvError> fetchActivityStamps(const ActivityQuery &query) const;
    // The number of stored activities that match.
    std::expected<qint64, BvError> countActivities(const ActivityQuery &query = {}) const;
    // Distinct non-null texts, newest first or in reverse text order, at most `limit`.
    enum class TextOrder { NewestFirst, TextDescending };
    std::expected<QStringList, BvError> fetchDistinctTexts(TextOrder order, bool onlyNotInvoiced, int limit) const;
    // The months (year * 100 + month, local calendar) that hold activities, ascending.
    std::expected<QList<int>, BvError> distinctYearMonths() const;
    // Every project (or task) with the number of its activities and their summed duration in seconds,
    // sorted by name regardless of case.
    struct ItemTotal
    {
        QString name;
        qint64 activities = 0;
        qint64 seconds = 0;
    };
    std::expected<QList<ItemTotal>, BvError> itemTotals(bool tasks) const;

private:
    Store &m_store;
};
