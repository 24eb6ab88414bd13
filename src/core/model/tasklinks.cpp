#include "model/tasklinks.h"

#include <algorithm>

#include <QHash>
#include <QStringList>

#include "model/sqlitestatement.h"

namespace {

// Above this many activities, reading the whole link table beats looking up each one's links.
constexpr std::size_t kScanLinksAbove = 2000;

} // namespace

std::expected<void, BvError> TaskLinks::forEachBatch(const QList<qint64> &ids, const Batch &batch)
{
    QString marks;
    for (qsizetype start = 0; start < ids.size(); start += IdsPerStatement) {
        const QList<qint64> chunk = ids.mid(start, IdsPerStatement);
        if (marks.size() != chunk.size() * 2 - 1)
            marks = QStringList(chunk.size(), QStringLiteral("?")).join(QLatin1Char(','));
        if (std::expected<void, BvError> done = batch(chunk, marks); !done)
            return done;
    }
    return {};
}

std::expected<void, BvError> TaskLinks::read(sqlite3 *db, const std::vector<qint64> &ids, const Link &link)
{
    if (ids.empty())
        return {};
    // Row ids are dense, so a vector indexed by id maps a link row to its activity faster than a hash when
    // the activities are a good part of the journal.
    const qint64 highestId = *std::max_element(ids.cbegin(), ids.cend());
    const bool dense = highestId < 4 * qint64(ids.size()) + 1024;
    std::vector<qint32> indexOf;
    QHash<qint64, qint32> sparse;
    if (dense) {
        indexOf.assign(std::size_t(highestId) + 1, -1);
        for (std::size_t i = 0; i < ids.size(); ++i)
            indexOf[std::size_t(ids[i])] = qint32(i);
    } else {
        sparse.reserve(qsizetype(ids.size()));
        for (std::size_t i = 0; i < ids.size(); ++i)
            sparse.insert(ids[i], qint32(i));
    }
    SqliteStatement links;
    auto readAll = [&]() -> std::expected<void, BvError> {
        while (links.next()) {
            const qint64 activityId = links.int64(0);
            qint32 index = -1;
            if (dense)
                index = activityId >= 0 && activityId <= highestId ? indexOf[std::size_t(activityId)] : -1;
            else
                index = sparse.value(activityId, -1);
            if (index >= 0)
                link(std::size_t(index), links.int64(1));
        }
        if (links.failed())
            return std::unexpected(links.error());
        return {};
    };

    if (dense || ids.size() > kScanLinksAbove) {
        if (auto prepared = links.prepare(db, QStringLiteral("SELECT activity_id, task_id FROM activity_tasks"));
            !prepared)
            return prepared;
        return readAll();
    }
    return forEachBatch(QList<qint64>(ids.cbegin(), ids.cend()),
        [&](const QList<qint64> &chunk, const QString &marks) -> std::expected<void, BvError> {
            if (auto prepared = links.prepare(db,
                    QStringLiteral("SELECT activity_id, task_id FROM activity_tasks WHERE activity_id IN (") + marks
                        + QLatin1Char(')'));
                !prepared)
                return prepared;
            for (int i = 0; i < chunk.size(); ++i)
                links.bindInt64(i + 1, chunk.at(i));
            return readAll();
        });
}
