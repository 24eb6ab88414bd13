#include "report/activitychange.h"

#include "model/activity.h"
#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "report/activitydeletion.h"

namespace {

qint64 floorSeconds(const QDateTime &instant)
{
    const qint64 ms = instant.toMSecsSinceEpoch();
    return ms >= 0 ? ms / 1000 : -((-ms + 999) / 1000);
}

} // namespace

ActivityChange::ActivityChange(Kind kind, QList<Entry> entries)
    : m_kind(kind)
    , m_entries(std::move(entries))
{ }

std::expected<ActivityChange, BvError> ActivityChange::deleteActivities(
    Store &store, const QStringList &uids, const QString &runningUid)
{
    QHash<QString, ActivitySnapshot> before;
    {
        std::unique_ptr<StoreContext> context = store.newContext();
        std::expected<QHash<QString, ActivityPtr>, BvError> found = context->activitiesWithUids(uids);
        if (!found)
            return std::unexpected(found.error());
        for (auto it = found->cbegin(); it != found->cend(); ++it)
            before.insert(it.key(), ActivitySnapshot::of(**it));
    }
    std::expected<QStringList, BvError> deleted = ActivityDeletion(store).deleteActivities(uids, runningUid);
    if (!deleted)
        return std::unexpected(deleted.error());
    QList<Entry> entries;
    for (const QString &uid : std::as_const(*deleted)) {
        if (before.contains(uid))
            entries.append({ uid, before.value(uid), std::nullopt });
    }
    return ActivityChange(Kind::Delete, entries);
}

QString ActivityChange::title() const
{
    switch (m_kind) {
    case Kind::Edit:
        return QStringLiteral("Edit Activity");
    case Kind::New:
        return QStringLiteral("New Activity");
    case Kind::Delete:
        return m_entries.size() == 1 ? QStringLiteral("Delete Activity")
                                     : QStringLiteral("Delete %1 Activities").arg(m_entries.size());
    case Kind::Merge:
        return QStringLiteral("Merge %1 Activities").arg(m_entries.size());
    }
    return {};
}

BvError ActivityChange::changedElsewhere(bool undo)
{
    const QString text = undo ? QStringLiteral("Can not undo: the activity was changed or deleted meanwhile.")
                              : QStringLiteral("Can not redo: the activity was changed or deleted meanwhile.");
    return BvError(QStringLiteral("Brimvale"), ChangedElsewhereCode, text);
}

QDateTime ActivityChange::laterStamp(const QDateTime &now, const QDateTime &previous)
{
    if (!previous.isValid() || floorSeconds(now) > floorSeconds(previous))
        return now;
    return QDateTime::fromSecsSinceEpoch(floorSeconds(previous) + 1, Qt::UTC);
}

std::expected<void, BvError> ActivityChange::apply(Store &store, bool undo) const
{
    std::unique_ptr<StoreContext> context = store.newContext();
    QStringList uids;
    for (const Entry &entry : m_entries)
        uids.append(entry.uid);
    std::expected<QHash<QString, ActivityPtr>, BvError> found = context->activitiesWithUids(uids);
    if (!found)
        return std::unexpected(found.error());

    for (const Entry &entry : m_entries) {
        const std::optional<ActivitySnapshot> &from = undo ? entry.after : entry.before;
        const ActivityPtr current = found->value(entry.uid);
        if (bool(current) != from.has_value() || (current && !from->matches(*current)))
            return std::unexpected(changedElsewhere(undo));
    }

    const QDateTime now = context->now();
    for (const Entry &entry : m_entries) {
        const std::optional<ActivitySnapshot> &to = undo ? entry.before : entry.after;
        const ActivityPtr current = found->value(entry.uid);
        if (to && current) {
            to->applyTo(*current);
            current->setModifiedAt(laterStamp(now, current->modifiedAt()));
        } else if (to) {
            std::expected<QList<DeletedActivityPtr>, BvError> records = context->fetchDeletedActivities(entry.uid);
            if (!records)
                return std::unexpected(records.error());
            QDateTime deletedAt;
            for (const DeletedActivityPtr &record : std::as_const(*records)) {
                if (!deletedAt.isValid() || record->deletedAt() > deletedAt)
                    deletedAt = record->deletedAt();
                context->deleteObject(record);
            }
            const ActivityPtr restored = context->insertActivity(entry.uid);
            to->applyTo(*restored);
            restored->setCreatedAt(to->createdAt);
            // A deletion that already reached other machines must lose to the activity coming back.
            restored->setModifiedAt(laterStamp(now, deletedAt));
        } else if (current) {
            DeletedActivity::deleteActivity(current, *context);
        }
    }
    return context->save();
}
