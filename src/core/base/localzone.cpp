#include "base/localzone.h"

#include <chrono>

namespace {
constexpr auto kRenewAfter = std::chrono::seconds(60);
}

QTimeZone LocalZone::current()
{
    // Per thread, so that no lock is needed; each thread renews on its own.
    thread_local QTimeZone zone;
    thread_local std::chrono::steady_clock::time_point resolvedAt;
    const auto now = std::chrono::steady_clock::now();
    if (!zone.isValid() || now - resolvedAt > kRenewAfter) {
        zone = QTimeZone::systemTimeZone();
        resolvedAt = now;
    }
    return zone;
}

QDateTime LocalZone::toLocal(const QDateTime &instant)
{
    const QTimeZone zone = current();
    // Without a usable zone database Qt still knows the C library's idea of local time.
    return zone.isValid() ? instant.toTimeZone(zone) : instant.toLocalTime();
}

QDateTime LocalZone::fromLocal(QDate date, QTime time)
{
    const QTimeZone zone = current();
    return zone.isValid() ? QDateTime(date, time, zone) : QDateTime(date, time, Qt::LocalTime);
}
