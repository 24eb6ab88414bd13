#include "model/deletedactivity.h"

#include "model/storecontext.h"

void DeletedActivity::setUid(const QString &uid)
{
    m_uid = uid;
    markChanged();
}

void DeletedActivity::setDeletedAt(const QDateTime &deletedAt)
{
    m_deletedAt = deletedAt.isValid() ? deletedAt.toUTC() : QDateTime();
    markChanged();
}

void DeletedActivity::setIsSynced(bool isSynced)
{
    if (isSynced == m_isSynced)
        return;
    m_isSynced = isSynced;
    markChanged();
}

DeletedActivityPtr DeletedActivity::deleteActivity(const ActivityPtr &activity, StoreContext &context)
{
    DeletedActivityPtr tombstone = context.insertDeletedActivity();
    tombstone->setUid(activity->uid());
    tombstone->setDeletedAt(context.now());
    tombstone->setIsSynced(false);
    context.deleteObject(activity);
    return tombstone;
}

void DeletedActivity::markChanged()
{
    m_changed = true;
    if (m_context)
        m_context->deletedActivityChanged(this);
}
