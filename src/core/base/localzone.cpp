#include "base/localzone.h"

#include <chrono>
#include <limits>

namespace {

constexpr auto kRenewAfter = std::chrono::seconds(60);

// Per thread, so that no lock is needed; each thread renews on its own.
struct ZoneCache
{
    QTimeZone zone;
    std::chrono::steady_clock::time_point resolvedAt;
    // The period in which the offset below holds: [validFrom, validUntil) in UTC milliseconds.
    qint64 validFrom = 1;
    qint64 validUntil = 0;
    qint64 offset = 0;
};

ZoneCache &cache()
{
    thread_local ZoneCache zoneCache;
    const auto now = std::chrono::steady_clock::now();
    if (!zoneCache.zone.isValid() || now - zoneCache.resolvedAt > kRenewAfter) {
        QTimeZone renewed = QTimeZone::systemTimeZone();
        if (renewed.id() != zoneCache.zone.id()) {
            zoneCache.validFrom = 1;
            zoneCache.validUntil = 0;
        }
        zoneCache.zone = std::move(renewed);
        zoneCache.resolvedAt = now;
    }
    return zoneCache;
}

} // namespace

QTimeZone LocalZone::current()
{
    return cache().zone;
}

qint64 LocalZone::offsetMSecs(qint64 utcMSecs)
{
    ZoneCache &zoneCache = cache();
    if (utcMSecs >= zoneCache.validFrom && utcMSecs < zoneCache.validUntil)
        return zoneCache.offset;
    const QDateTime at = QDateTime::fromMSecsSinceEpoch(utcMSecs, Qt::UTC);
    if (!zoneCache.zone.isValid())
        return qint64(at.toLocalTime().offsetFromUtc()) * 1000;
    zoneCache.offset = qint64(zoneCache.zone.offsetFromUtc(at)) * 1000;
    if (!zoneCache.zone.hasTransitions()) {
        zoneCache.validFrom = std::numeric_limits<qint64>::min();
        zoneCache.validUntil = std::numeric_limits<qint64>::max();
        return zoneCache.offset;
    }
    const QTimeZone::OffsetData previous = zoneCache.zone.previousTransition(at.addMSecs(1));
    const QTimeZone::OffsetData next = zoneCache.zone.nextTransition(at);
    zoneCache.validFrom
        = previous.atUtc.isValid() ? previous.atUtc.toMSecsSinceEpoch() : std::numeric_limits<qint64>::min();
    zoneCache.validUntil = next.atUtc.isValid() ? next.atUtc.toMSecsSinceEpoch() : std::numeric_limits<qint64>::max();
    // A period that does not contain the instant means the zone data disagreed with itself; answer
    // without remembering rather than trust it.
    if (utcMSecs < zoneCache.validFrom || utcMSecs >= zoneCache.validUntil) {
        const qint64 offset = zoneCache.offset;
        zoneCache.validFrom = 1;
        zoneCache.validUntil = 0;
        return offset;
    }
    return zoneCache.offset;
}

QDateTime LocalZone::toLocal(const QDateTime &instant)
{
    if (!instant.isValid())
        return instant;
    const qint64 utc = instant.toMSecsSinceEpoch();
    return QDateTime::fromMSecsSinceEpoch(utc, Qt::OffsetFromUTC, int(offsetMSecs(utc) / 1000));
}
