#pragma once

#include <memory>

#include <QDateTime>
#include <QString>

#include "model/activity.h"

class StoreContext;

// A tombstone: the uid and time of one deleted activity, kept so that synchronisation can tell the user's
// other machines about the deletion.
class DeletedActivity : public std::enable_shared_from_this<DeletedActivity>
{
public:
    QString uid() const { return m_uid; }
    void setUid(const QString &uid);
    QDateTime deletedAt() const { return m_deletedAt; }
    void setDeletedAt(const QDateTime &deletedAt);
    // Whether the deletion has been written to the remote deletion file.
    bool isSynced() const { return m_isSynced; }
    void setIsSynced(bool isSynced);

    // Records the activity's uid with the time of deletion and deletes the activity, both in `context`.
    // Does not save: the caller does. Every deletion by the user goes through here.
    static std::shared_ptr<DeletedActivity> deleteActivity(const ActivityPtr &activity, StoreContext &context);

    qint64 objectId() const { return m_id; }
    bool hasChanges() const { return m_changed; }

private:
    friend class StoreContext;
    friend class StoreWriter;
    void markChanged();

    qint64 m_id = 0;
    QString m_uid;
    QDateTime m_deletedAt;
    bool m_isSynced = false;
    bool m_changed = false;
    bool m_deleted = false;
    bool m_pending = false;
    StoreContext *m_context = nullptr;
};

using DeletedActivityPtr = std::shared_ptr<DeletedActivity>;
