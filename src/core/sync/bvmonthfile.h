#pragma once

#include <expected>

#include <QByteArray>
#include <QList>
#include <QString>
#include <QTimeZone>

#include "base/bverror.h"
#include "model/activity.h"
#include "sync/activityhashitem.h"
#include "sync/bvmonthdaterange.h"
#include "sync/bvsynclog.h"
#include "sync/bvtmpsyncfile.h"

class StoreContext;

// A month file: a compact UTF-8 JSON array with one object per activity that started in the month, with
// the keys "uid", "time_from", "time_to", "created_at", "modified_at" (dates as BVSyncDateFormatter
// writes them in the journal's sync zone), "is_invoiced" (0 or 1) and "text". Project and tasks travel
// inside the text. All operations run on the thread that owns `context`; errors carry the designed
// details text.
class BVMonthFile
{
public:
    // The activities whose start lies in the month (from day 1 00:00:00 through the whole last second,
    // 23:59:59.999, in the month's zone), the one with uid `excludedUid` (the activity being tracked) left out,
    // ordered by modifiedAt ascending. Fails with the store's own error; the caller numbers it.
    static std::expected<QList<ActivityPtr>, BvError> activitiesForMonth(
        StoreContext &context, const BVMonthDateRange &month, const QString &excludedUid);

    // What activitiesForMonth gives, told by its number and content hash only: read from the uids and
    // modification times of the stored rows, without building the activities, which is what a run needs
    // for every month that did not change. The hash is made in the month's zone. Unsaved changes of
    // `context` are not seen.
    struct Summary
    {
        qsizetype count = 0;
        QString hash;
    };
    static std::expected<Summary, BvError> summaryForMonth(
        StoreContext &context, const BVMonthDateRange &month, const QString &excludedUid);

    // How many activities start in the month, as activitiesForMonth files them (the activity being
    // tracked included). Fails with the store's own error; the caller numbers it.
    static std::expected<qint64, BvError> countForMonth(StoreContext &context, const BVMonthDateRange &month);

    // The (uid, modifiedAt) items of the activities, and their content hash (ActivityHashItem).
    static QList<ActivityHashItem> hashItems(const QList<ActivityPtr> &activities);
    static QString hashForActivities(const QList<ActivityPtr> &activities, const QTimeZone &zone);

    // The file's bytes for these activities, in their order, dates in the sync zone `zone`.
    static QByteArray json(const QList<ActivityPtr> &activities, const QTimeZone &zone);
    // Replaces the file at `filePath` atomically with json(activities, zone). Failure: "Failed to write
    // json data file <path>! <reason>".
    static std::expected<void, BvError> write(
        const QList<ActivityPtr> &activities, const QString &filePath, const QTimeZone &zone);

    // The reading checks of merge() alone, on a file's bytes: the first failing check's message. What
    // passes here merges without a content error.
    static std::expected<void, BvError> check(const QByteArray &content, const QTimeZone &zone);

    // Reads the downloaded month file at `filePath` (dates in the sync zone `zone`) and merges it into
    // `context` record by record: the element is checked (the first failing check's message is the
    // error), skipped when a local deletion is as late as its modification, inserted when the uid is new,
    // and replaces the local activity when its modified_at is a later second, or the same second with a
    // greater encoding (the element as the file would hold it, compared bytewise), so that machines that
    // edit within one second agree. A repeated wall time of the start reads as its earlier instant when
    // only that puts the end after the start; an element that still starts and ends in one second is
    // stored one second long. Then saves ("Local storage error (25): ..."), sets `file`'s hash to the hash
    // of the merged elements (none when a differing local version of the same second won, so that the
    // month is uploaded again), stores `file`'s row and saves again ("Local storage error (26): ..."). On a
    // failure before the first save nothing is saved, but the changes made for earlier elements stay
    // pending in `context`: the caller must discard the context. `log` receives the lines of elements
    // skipped as deleted.
    static std::expected<void, BvError> merge(StoreContext &context, const QString &filePath, BVTmpSyncFile &file,
        const QTimeZone &zone, const BVSyncLog &log = {});
};
