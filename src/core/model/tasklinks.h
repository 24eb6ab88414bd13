#pragma once

#include <expected>
#include <functional>
#include <vector>

#include <QList>
#include <QString>

#include "base/bverror.h"

struct sqlite3;

// The task links of many activities at once, and the batching of row ids into "IN (...)" lists that
// SQLite's parameter limit asks for. Every fetch that loads activities with their tasks reads them here.
class TaskLinks
{
public:
    static constexpr qsizetype IdsPerStatement = 500;

    // Calls `batch` with consecutive runs of at most IdsPerStatement ids and the "?,?,..." parameter marks
    // for a run of that length; stops at the first failure and answers it.
    using Batch = std::function<std::expected<void, BvError>(const QList<qint64> &ids, const QString &marks)>;
    static std::expected<void, BvError> forEachBatch(const QList<qint64> &ids, const Batch &batch);

    // Calls `link(i, taskId)` for every link of the activity with row id ids[i], in the link table's order.
    using Link = std::function<void(std::size_t index, qint64 taskId)>;
    static std::expected<void, BvError> read(sqlite3 *db, const std::vector<qint64> &ids, const Link &link);
};
