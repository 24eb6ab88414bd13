#include "sync/activityhashitem.h"

#include <algorithm>

#include "base/stringhelpers.h"
#include "sync/bvsyncdateformatter.h"

ActivityHashItem::ActivityHashItem(const QString &uid, const QDateTime &modifiedAt)
    : m_uid(uid)
    , m_modifiedAt(modifiedAt)
{ }

ActivityHashItem ActivityHashItem::itemForUID(const QString &uid, const QDateTime &andModifiedAt)
{
    return ActivityHashItem(uid, andModifiedAt);
}

QString ActivityHashItem::description() const
{
    const QString date = m_modifiedAt.isValid()
        ? m_modifiedAt.toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) + QStringLiteral(" +0000")
        : QStringLiteral("(null)");
    return QStringLiteral("UID: %1; Modified At: %2").arg(m_uid, date);
}

int ActivityHashItem::orderedSort(const ActivityHashItem &other) const
{
    const int byUid = m_uid.compare(other.m_uid, Qt::CaseSensitive);
    if (byUid != 0)
        return byUid < 0 ? -1 : 1;
    if (m_modifiedAt == other.m_modifiedAt)
        return 0;
    // Invalid dates first, like a missing value.
    if (!m_modifiedAt.isValid() || !other.m_modifiedAt.isValid())
        return m_modifiedAt.isValid() ? 1 : -1;
    return m_modifiedAt < other.m_modifiedAt ? -1 : 1;
}

QString ActivityHashItem::hashForItems(const QList<ActivityHashItem> &items, const QTimeZone &zone)
{
    const BVSyncDateFormatter dates(zone);
    QList<ActivityHashItem> sorted = items;
    std::stable_sort(sorted.begin(), sorted.end(),
        [](const ActivityHashItem &a, const ActivityHashItem &b) { return a.orderedSort(b) < 0; });
    QString joined;
    joined.reserve(sorted.size() * 56);
    for (const ActivityHashItem &item : std::as_const(sorted)) {
        joined += dates.stringFromDate(item.m_modifiedAt);
        joined += item.m_uid;
    }
    return StringHelpers::md5String(joined);
}

QString ActivityHashItem::hashForUIDs(const QStringList &uids)
{
    QStringList sorted = uids;
    std::stable_sort(sorted.begin(), sorted.end(),
        [](const QString &a, const QString &b) { return a.compare(b, Qt::CaseInsensitive) < 0; });
    return StringHelpers::md5String(sorted.join(QString()));
}
