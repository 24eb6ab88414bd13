#include "report/activitydeletion.h"

#include "model/deletedactivity.h"
#include "model/storecontext.h"

std::expected<QStringList, BvError> ActivityDeletion::deleteActivities(
    const QStringList &uids, const QString &runningUid)
{
    QStringList wanted;
    for (const QString &uid : uids) {
        if (uid != runningUid && !wanted.contains(uid))
            wanted.append(uid);
    }
    if (wanted.isEmpty())
        return QStringList();
    const std::unique_ptr<StoreContext> context = m_store.newContext();
    const auto activities = context->activitiesWithUids(wanted);
    if (!activities)
        return std::unexpected(activities.error());
    QStringList deleted;
    for (const QString &uid : std::as_const(wanted)) {
        if (const ActivityPtr activity = activities->value(uid)) {
            DeletedActivity::deleteActivity(activity, *context);
            deleted.append(uid);
        }
    }
    if (deleted.isEmpty())
        return deleted;
    if (const auto saved = context->save(); !saved)
        return std::unexpected(saved.error());
    return deleted;
}
