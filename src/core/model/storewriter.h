#pragma once

#include <expected>
#include <memory>
#include <vector>

#include <QHash>

#include "base/bverror.h"
#include "model/activity.h"
#include "model/sqlitestatement.h"
#include "model/storechanges.h"

class SidebarItem;
class StoreContext;
struct sqlite3;

// Runs one save of a StoreContext: everything the save writes happens here, inside one BEGIN IMMEDIATE
// transaction, which also makes every decision that depends on what other connections stored:
// - a new project or task whose name (regardless of case) another connection stored meanwhile is that
//   row, taken over instead of inserted a second time, and a new sidebar position follows the stored ones;
// - an activity is written with only the columns this context changed, so a concurrent change of another
//   column survives;
// - an update or deletion that finds no row fails with "Activity not found!": the activity was deleted
//   elsewhere, and nothing of the save (a project its new text named, say) is kept.
// Either everything commits and the changes are answered, or the transaction is rolled back and every
// object is as it was before the save, its ids included.
class StoreWriter
{
public:
    // `collectUids`: whether the changes name the activities written, or only the kinds of entity.
    StoreWriter(StoreContext &context, sqlite3 *db, bool collectUids = true);
    ~StoreWriter();
    StoreWriter(const StoreWriter &) = delete;
    StoreWriter &operator=(const StoreWriter &) = delete;

    std::expected<StoreChanges, BvError> run();
    // After a failed run: the activities that no longer exist in the store.
    const std::vector<ActivityPtr> &vanishedActivities() const { return m_vanished; }

    // "Activity not found!", for an update or deletion of a row that is gone.
    static BvError activityNotFound();

private:
    std::expected<void, BvError> writeItems(bool tasks);
    std::expected<void, BvError> adoptOrInsert(SidebarItem &item, bool tasks);
    std::expected<void, BvError> writeActivities();
    std::expected<void, BvError> updateActivity(Activity &activity, qint64 &longestSpan);
    std::expected<void, BvError> writeTombstones();
    std::expected<void, BvError> writeSyncFiles();
    std::expected<void, BvError> execute(const QString &sql);
    void undoAssignedIds();

    StoreContext &m_context;
    sqlite3 *m_db = nullptr;
    bool m_collectUids = true;
    StoreChanges m_changes;
    std::vector<qint64 *> m_assignedIds;
    std::vector<ActivityPtr> m_vanished;
    QHash<int, std::shared_ptr<SqliteStatement>> m_updates;
};
