#pragma once

#include <expected>
#include <optional>

#include <QByteArray>
#include <QList>
#include <QString>
#include <QTimeZone>

#include "base/bverror.h"
#include "model/deletedactivity.h"
#include "sync/activityhashitem.h"
#include "sync/bvsynclog.h"
#include "sync/bvtmpsyncfile.h"

class StoreContext;

// The deletion file "deleted.json": a compact UTF-8 JSON array with one object per local deletion
// record, keys "uid" and "deleted_at" (a date as BVSyncDateFormatter writes it in the journal's sync zone,
// `zone` below). All operations run on the thread that owns `context`; errors carry the designed details
// text.
class BVDeletedFile
{
public:
    // The entries of the file in file order, each as (uid, deletion time). The whole file is refused when
    // it is not a JSON array ("Failed to read deleted.json <reason>", "deleted.json does not contain array
    // of items!") or when any element is not an object with the string keys "uid" and "deleted_at" or its
    // date does not parse: the line "Invalid deleted.json entity (uid: ..; deleted_at: ..)." or "Invalid
    // date for deleted.json entity (uid: ..; deleted_at: ..)." is logged and is the error's text.
    static std::expected<QList<ActivityHashItem>, BvError> read(
        const QString &filePath, const QTimeZone &zone, const BVSyncLog &log = {});
    // The same for the file's bytes.
    static std::expected<QList<ActivityHashItem>, BvError> read(
        const QByteArray &content, const QTimeZone &zone, const BVSyncLog &log = {});

    // Applies remote deletion entries: an entry replaces the uid's local records that are not later than
    // it, and adds a synced record unless a local record or an activity of that uid is later (by whole
    // seconds). Saves ("Local storage error (9): ..."); then every local record deletes the activities of
    // its uid not modified after it, or is itself dropped when one was; saves ("Local storage error (12):
    // ..."). Equal seconds go to the deletion. Fetch failures are "Local storage error (7|8|10|11): ...".
    static std::expected<void, BvError> apply(StoreContext &context, const QList<ActivityHashItem> &entries);

    // read() and apply() the downloaded file at `filePath`, then give `file` the hash of the entries, store
    // its row and save ("Local storage error (26): ..."). A refused file is "Failed to read deleted
    // items! <reason>" and changes nothing.
    static std::expected<void, BvError> merge(StoreContext &context, const QString &filePath, BVTmpSyncFile &file,
        const QTimeZone &zone, const BVSyncLog &log = {});

    // The file's bytes for these records, in their order.
    static QByteArray json(const QList<DeletedActivityPtr> &records, const QTimeZone &zone);

    // Writes the local deletion records to `filePath` (atomically) when their hash differs from the hash
    // of `file`, the deletion file's descriptor; a descriptor without a hash is first given the hash of
    // an empty list. Returns the new hash when the file was written, nothing (and logs "Deleted activities
    // not changed, not uploading ...") when it was not. Failures: "Local storage error (13): ..." and
    // "Failed to write data to local deleted.json file: <reason>".
    static std::expected<std::optional<QString>, BvError> write(StoreContext &context, BVTmpSyncFile &file,
        const QString &filePath, const QTimeZone &zone, const BVSyncLog &log = {});
};
