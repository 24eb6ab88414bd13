#pragma once

#include <QDateTime>
#include <QTimeZone>

// The user's time zone for calendar arithmetic (month keys, days, displayed times). Converting through a
// cached QTimeZone avoids a re-read of the zone file by the C library on every conversion, and the offset
// of the current daylight-saving period is remembered, so a run of instants in one period costs one zone
// lookup. The zone is renewed every minute so that a change of zone is picked up while the app runs.
// The way back, from a wall-clock time to an instant, is DateHelpers::instantFromLocal.
class LocalZone
{
public:
    static QTimeZone current();
    // Milliseconds to add to a UTC instant to get the user's wall-clock time at that instant.
    static qint64 offsetMSecs(qint64 utcMSecs);
    // `instant` as the user's wall clock shows it (a fixed-offset QDateTime).
    static QDateTime toLocal(const QDateTime &instant);
};
