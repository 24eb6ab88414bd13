#pragma once

#include <expected>
#include <memory>
#include <optional>
#include <vector>

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>

#include "base/bverror.h"
#include "model/activity.h"
#include "model/activityquery.h"
#include "model/activityrecord.h"
#include "model/bvsyncfile.h"
#include "model/deletedactivity.h"
#include "model/journalqueries.h"
#include "model/project.h"
#include "model/store.h"
#include "model/task.h"

class QSqlQuery;
class SqliteStatement;

// A unit of work on the store, used on one thread. Objects fetched or inserted here stay in memory with
// their changes until save(), which writes them all in one transaction (see StoreWriter): either every
// change is stored, or none is and the store is as it was. A row fetched twice is the same object. Objects
// outlive the context only as detached values. The journal questions answered with plain values are
// JournalQueries', offered here as well for the callers that hold a context.
class StoreContext
{
public:
    explicit StoreContext(Store &store);
    ~StoreContext();
    StoreContext(const StoreContext &) = delete;
    StoreContext &operator=(const StoreContext &) = delete;

    Store &store() const { return m_store; }
    // The store's clock.
    QDateTime now() const;

    // A new activity with a fresh uid, and createdAt and modifiedAt at now.
    ActivityPtr insertActivity();
    // The same with the uid the activity already has on another machine, for synchronisation.
    ActivityPtr insertActivity(const QString &uid);
    ProjectPtr insertProject();
    TaskPtr insertTask();
    DeletedActivityPtr insertDeletedActivity();
    SyncFilePtr insertSyncFile();

    // Deletes at the next save. An activity first loses its text, project and tasks.
    void deleteObject(const ActivityPtr &activity);
    void deleteObject(const DeletedActivityPtr &deletedActivity);
    void deleteObject(const SyncFilePtr &syncFile);

    std::expected<QList<ActivityPtr>, BvError> fetchActivities(const ActivityQuery &query = {});
    // The activity with this uid, or nullptr.
    std::expected<ActivityPtr, BvError> activityWithUid(const QString &uid);
    // The stored activities with these uids, by uid; uids without one are absent from the answer.
    std::expected<QHash<QString, ActivityPtr>, BvError> activitiesWithUids(const QStringList &uids);

    // The stored journal as plain values; unsaved changes of this context are not seen.
    using TextOrder = JournalQueries::TextOrder;
    using ItemTotal = JournalQueries::ItemTotal;
    std::expected<std::vector<ActivityRecord>, BvError> fetchActivityRecords(
        const ActivityQuery &query, bool withTasks = true)
    {
        return JournalQueries(m_store).fetchActivityRecords(query, withTasks);
    }
    std::expected<std::vector<ActivityStamp>, BvError> fetchActivityStamps(const ActivityQuery &query)
    {
        return JournalQueries(m_store).fetchActivityStamps(query);
    }
    std::expected<qint64, BvError> countActivities(const ActivityQuery &query = {})
    {
        return JournalQueries(m_store).countActivities(query);
    }
    std::expected<QStringList, BvError> fetchDistinctTexts(TextOrder order, bool onlyNotInvoiced, int limit)
    {
        return JournalQueries(m_store).fetchDistinctTexts(order, onlyNotInvoiced, limit);
    }
    std::expected<QList<int>, BvError> distinctYearMonths() { return JournalQueries(m_store).distinctYearMonths(); }
    std::expected<QList<ItemTotal>, BvError> itemTotals(bool tasks)
    {
        return JournalQueries(m_store).itemTotals(tasks);
    }

    std::expected<QList<ProjectPtr>, BvError> projects();
    std::expected<QList<TaskPtr>, BvError> tasks();
    // Tombstones, by uid and/or synced state when given.
    std::expected<QList<DeletedActivityPtr>, BvError> fetchDeletedActivities(
        const std::optional<QString> &uid = std::nullopt, const std::optional<bool> &isSynced = std::nullopt);
    // Month file records, by name when given.
    std::expected<QList<SyncFilePtr>, BvError> fetchSyncFiles(const std::optional<QString> &name = std::nullopt);

    // The project named so regardless of case, renamed to this spelling when it differs; created when
    // there is none. Nothing is saved.
    ProjectPtr findProject(const QString &name);
    TaskPtr findTask(const QString &name);

    bool hasChanges() const;
    // Writes every unsaved change in one transaction. A failed save changes nothing in the store and
    // keeps the changes here, so that it can be retried, except for an activity that was deleted
    // elsewhere meanwhile ("Activity not found!"): that one becomes a detached value.
    std::expected<void, BvError> save();
    // Drops every unsaved change and forgets every object: what was fetched or inserted here becomes a
    // detached value, and the next fetch reads the store afresh.
    void reset();
    // Re-reads every object without unsaved changes from the store, so that commits of other contexts
    // and processes become visible here.
    void refreshObjects();
    // Re-reads one activity from the store. With `mergeChanges` the columns it has unsaved changes of keep
    // them; without, its unsaved changes are dropped (an unsaved insert becomes a detached value). False
    // when the activity is not (or no longer) stored: it is then a detached value, marked deleted.
    std::expected<bool, BvError> refreshObject(const ActivityPtr &activity, bool mergeChanges);

    // Bookkeeping for the entities.
    void activityChanged(Activity *activity);
    void itemChanged(SidebarItem *item, bool renamed);
    void deletedActivityChanged(DeletedActivity *deletedActivity);
    void syncFileChanged(BVSyncFile *syncFile);
    bool sidebarOrderedByHand(bool tasks) const;
    std::optional<qint64> highestSidebarPosition(bool tasks);

private:
    friend class StoreWriter;

    struct ItemIndex
    {
        QHash<qint64, std::shared_ptr<SidebarItem>> byId;
        std::vector<std::shared_ptr<SidebarItem>> inserted;
        QHash<QString, std::shared_ptr<SidebarItem>> byKey;
        bool keysStale = false;
    };

    std::expected<void, BvError> loadItems(bool reload = false);
    void rebuildKeys(ItemIndex &items);
    std::shared_ptr<SidebarItem> findItem(const QString &name, bool task);
    ItemIndex &index(bool tasks) { return tasks ? m_tasks : m_projects; }
    std::expected<QList<ActivityPtr>, BvError> fetchActivityRows(const QString &where, const QVariantList &binds,
        const QString &tail, const std::optional<QString> &textLike, int limit);
    std::shared_ptr<SidebarItem> item(qint64 id, bool task);
    ActivityPtr activityFromRow(const SqliteStatement &row);
    // The stored activities with these row ids, fetched in batches; ids without a row are absent.
    std::expected<QList<ActivityPtr>, BvError> fetchActivitiesWithIds(const QList<qint64> &ids);
    void readActivity(Activity &activity, const SqliteStatement &row, Activity::Fields keep);
    void forgetChanges(const ActivityPtr &activity);
    void detachVanished(const ActivityPtr &activity);
    void detachAll();
    void finishSave();

    Store &m_store;
    ItemIndex m_projects;
    ItemIndex m_tasks;
    bool m_itemsLoaded = false;
    std::optional<BvError> m_loadError;
    QHash<qint64, std::weak_ptr<Activity>> m_activities;
    QHash<qint64, std::weak_ptr<DeletedActivity>> m_deletedActivities;
    QHash<qint64, std::weak_ptr<BVSyncFile>> m_syncFiles;
    std::vector<ActivityPtr> m_pendingActivities;
    std::vector<std::shared_ptr<SidebarItem>> m_pendingItems;
    std::vector<DeletedActivityPtr> m_pendingDeletedActivities;
    std::vector<SyncFilePtr> m_pendingSyncFiles;
};
