#pragma once

#include <QDateTime>
#include <QTimeZone>

// The user's time zone for calendar arithmetic (month keys, days). Converting through a cached QTimeZone
// avoids a re-read of the zone file by the C library on every conversion, which dominated bulk work;
// the cache is renewed every minute so that a change of zone is picked up while the app runs.
class LocalZone
{
public:
    static QTimeZone current();
    // `instant` in the user's zone.
    static QDateTime toLocal(const QDateTime &instant);
    // The instant at which the user's wall clock shows `date` and `time`.
    static QDateTime fromLocal(QDate date, QTime time);
};
