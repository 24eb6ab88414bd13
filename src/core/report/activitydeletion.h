#pragma once

#include <expected>

#include <QString>
#include <QStringList>

#include "base/bverror.h"

class Store;

// Deleting activities the user chose, by uid: each leaves the deletion record that synchronisation tells
// the user's other machines about (DeletedActivity::deleteActivity), all in one transaction. Every
// deletion from the report goes through here, so an undoable deletion can wrap it. Main thread.
class ActivityDeletion
{
public:
    explicit ActivityDeletion(Store &store)
        : m_store(store)
    { }

    // Deletes the activities with these uids except `runningUid` (the activity being tracked, which is
    // skipped without a word), and uids no longer stored. Answers the uids deleted, in the order given;
    // the store's error when the save failed (nothing is deleted then).
    std::expected<QStringList, BvError> deleteActivities(const QStringList &uids, const QString &runningUid = {});

private:
    Store &m_store;
};
