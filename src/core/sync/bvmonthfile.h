#pragma once

#include <expected>

#include <QByteArray>
#include <QList>
#include <QString>

#include "base/bverror.h"
#include "model/activity.h"
#include "sync/activityhashitem.h"
#include "sync/bvmonthdaterange.h"
#include "sync/bvsynclog.h"
#include "sync/bvtmpsyncfile.h"

class StoreContext;

// A month file: a compact UTF-8 JSON array with one object per activity that started in the month, with
// the keys "uid", "time_from", "time_to", "created_at", "modified_at" (dates as BVSyncDateFormatter
// writes them), "is_invoiced" (0 or 1) and "text". Project and tasks travel inside the text. All
// operations run on the thread that owns `context`; errors carry the designed details text.
class BVMonthFile
{
public:
    // The activities whose start lies in the month (from day 1 00:00:00 through the whole last second,
    // 23:59:59.999, local time), the one with uid `excludedUid` (the activity being tracked) left out,
    // ordered by modifiedAt ascending. Fails with the store's own error; the caller numbers it.
    static std::expected<QList<ActivityPtr>, BvError> activitiesForMonth(
        StoreContext &context, const BVMonthDateRange &month, const QString &excludedUid);

    // What activitiesForMonth gives, told by its number and content hash only: read from the uids and
    // modification times of the stored rows, without building the activities, which is what a run needs
    // for every month that did not change. Unsaved changes of `context` are not seen.
    struct Summary
    {
        qsizetype count = 0;
        QString hash;
    };
    static std::expected<Summary, BvError> summaryForMonth(
        StoreContext &context, const BVMonthDateRange &month, const QString &excludedUid);

    // The (uid, modifiedAt) items of the activities, and their content hash (ActivityHashItem).
    static QList<ActivityHashItem> hashItems(const QList<ActivityPtr> &activities);
    static QString hashForActivities(const QList<ActivityPtr> &activities);

    // The file's bytes for these activities, in their order.
    static QByteArray json(const QList<ActivityPtr> &activities);
    // Replaces the file at `filePath` atomically with json(activities). Failure: "Failed to write json
    // data file <path>! <reason>".
    static std::expected<void, BvError> write(const QList<ActivityPtr> &activities, const QString &filePath);

    // Reads the downloaded month file at `filePath` and merges it into `context` record by record: the
    // element is checked (the first failing check's message is the error), skipped when a local deletion
    // is as late as its modification, inserted when the uid is new, and replaces the local activity only
    // when its modified_at is a later second. Then saves ("Local storage error (25): ..."), sets `file`'s
    // hash to the hash of the merged elements, stores `file`'s row and saves again ("Local storage error
    // (26): ..."). On a failure before the first save nothing is saved, but the changes made for earlier
    // elements stay pending in `context`: the caller must discard the context. `log` receives the lines
    // of elements skipped as deleted.
    static std::expected<void, BvError> merge(
        StoreContext &context, const QString &filePath, BVTmpSyncFile &file, const BVSyncLog &log = {});
};
