#pragma once

#include <expected>
#include <optional>

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

#include "base/bverror.h"
#include "report/activitysnapshot.h"

class Store;

// One step the user took on stored activities from the report (a save of the edit sheet, a new activity,
// a deletion, a merge), kept so that it can be taken back and made again. It holds, per activity, what was
// stored before and after the step; an absent side means the activity did not exist (new) or was deleted.
//
// Taking a step back or forth is itself a change of the journal that other machines must learn of: every
// activity it rewrites or brings back gets a modification stamp later (by whole seconds) than what it
// replaces, so the sync rule "the later second wins" carries it everywhere; an activity brought back loses
// the deletion records of its uid, so a sync never passes the deletion on; one removed again gets a new
// deletion record.
class ActivityChange
{
public:
    enum class Kind { Edit, New, Delete, Merge };

    struct Entry
    {
        QString uid;
        std::optional<ActivitySnapshot> before;
        std::optional<ActivitySnapshot> after;
    };

    ActivityChange() = default;
    ActivityChange(Kind kind, QList<Entry> entries);

    // The report's deletion (ActivityDeletion: the running activity and uids no longer stored are skipped),
    // answered as the step it took: the activities deleted, as they were. Nothing deleted gives a step
    // without entries.
    static std::expected<ActivityChange, BvError> deleteActivities(
        Store &store, const QStringList &uids, const QString &runningUid = {});

    Kind kind() const { return m_kind; }
    const QList<Entry> &entries() const { return m_entries; }
    // For the Edit menu: "Edit Activity", "New Activity", "Delete Activity", "Delete 3 Activities", "Merge 3
    // Activities".
    QString title() const;

    // Puts back what was stored before the step (undo) or after it (redo), in one save. Refused with
    // ChangedElsewhereCode, and nothing written, when any activity is no longer as the step left it (edited,
    // deleted or brought back meanwhile by another window, the command line or a sync). Store failures as
    // the store reports them.
    std::expected<void, BvError> undo(Store &store) const { return apply(store, true); }
    std::expected<void, BvError> redo(Store &store) const { return apply(store, false); }

    static constexpr int ChangedElsewhereCode = 14001;
    static BvError changedElsewhere(bool undo);
    // The modification stamp of a change made at `now` to something stamped `previous`: `now`, or the
    // second after `previous` when `now` is not in a later second.
    static QDateTime laterStamp(const QDateTime &now, const QDateTime &previous);

private:
    std::expected<void, BvError> apply(Store &store, bool undo) const;

    Kind m_kind = Kind::Edit;
    QList<Entry> m_entries;
};
