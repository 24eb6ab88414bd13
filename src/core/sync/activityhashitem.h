#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>
#include <QTimeZone>

// One (uid, modifiedAt) pair of a sync file's content; for an entry of the deletion file `modifiedAt`
// holds the time of deletion. The content hash of a file is made from these pairs, so two machines agree
// on "unchanged" without comparing the files. A plain value; any thread.
class ActivityHashItem
{
public:
    ActivityHashItem(const QString &uid, const QDateTime &modifiedAt);
    static ActivityHashItem itemForUID(const QString &uid, const QDateTime &andModifiedAt);

    QString uid() const { return m_uid; }
    QDateTime modifiedAt() const { return m_modifiedAt; }

    // "UID: <uid>; Modified At: 2024-03-12 09:30:05 +0000" (the instant in UTC).
    QString description() const;

    // Orders by uid (plain, case-sensitive), then by modifiedAt ascending: -1, 0 or 1.
    int orderedSort(const ActivityHashItem &other) const;

    // MD5 (lower-case hex) of the items sorted with orderedSort, each written as its modifiedAt in the
    // sync date text (wall time of `zone`, the journal's sync zone; whole seconds) followed directly by its
    // uid, all joined without a separator. An empty list gives the MD5 of the empty string,
    // d41d8cd98f00b204e9800998ecf8427e. Machines of one journal share the zone, so the hash does not
    // change when only a machine's own zone does.
    static QString hashForItems(const QList<ActivityHashItem> &items, const QTimeZone &zone);

    // MD5 of the uids sorted case-insensitively and joined without a separator.
    static QString hashForUIDs(const QStringList &uids);

    bool operator==(const ActivityHashItem &other) const = default;

private:
    QString m_uid;
    QDateTime m_modifiedAt;
};
