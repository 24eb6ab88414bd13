#pragma once

#include <expected>
#include <optional>

#include <QByteArray>
#include <QString>
#include <QTimeZone>

// The copies that sync tools leave beside a file when two machines changed it at once: Syncthing's
// "2024-03.sync-conflict-20240305-101010-ABCDEFG.json", Dropbox's "2024-03 (Jane's conflicted copy
// 2024-03-05).json", Nextcloud's "2024-03 (conflicted copy 2024-03-05 101010).json", ownCloud's
// "2024-03_conflict-20240305-101010.json", Seafile's "2024-03 (SFConflict jane 2024-03-05-10-10-10).json"
// and the translated names of these. A copy holds edits of another machine that the file lost, so it is
// merged into the file by the same rules as a download. Any thread.
class BVSyncConflictCopy
{
public:
    // The name of the sync file ("2024-03.json", "deleted.json") that `fileName` is a conflict copy of;
    // nothing for any other name, the sync files themselves included.
    static std::optional<QString> originalFileName(const QString &fileName);

    // The content of the original with the copy merged into it: in a month file each record of the copy
    // replaces the original's record of its uid when it was modified in a later second (dates in the sync
    // zone `zone`), or in the same second with a greater compact encoding, and is added when the uid is
    // new; the deletion file gains the copy's entries it lacks. The original's order is kept, new records
    // follow in the copy's order. An empty `original` stands for a file that is gone. Fails with the
    // reason when either side is not an array of objects with a string "uid", or the copy fails a reading
    // check of a downloaded file (BVMonthFile::check, BVDeletedFile::read): nothing is merged then, and
    // the copy is left for the user to look at.
    static std::expected<QByteArray, QString> merge(
        const QString &originalFileName, const QByteArray &original, const QByteArray &copy, const QTimeZone &zone);
};
