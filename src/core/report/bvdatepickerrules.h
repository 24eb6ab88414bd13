#pragma once

#include <QDate>
#include <QDateTime>

// The date picker's rules that need no widget: how a picked day and the time sliders make one date, and
// which segments of the range control may stay marked.
class BvDatePickerRules
{
public:
    // The instant at which the user's clock shows `day` at `hour`:`minute`:00. A negative hour or minute
    // is taken from the wall-clock time of `current` (0 when `current` is invalid), so picking a day keeps
    // the time of day already chosen. A wall time that the clock skips moves forward by the gap.
    // Invalid for an invalid day.
    static QDateTime composeDateTime(const QDate &day, int hour, int minute, const QDateTime &current);

    // Whether a click on segment `index` of `segmentCount` leaves it marked: only the segments between the
    // two arrows do, so the mode segment stays marked while the arrows act as buttons.
    static bool segmentStaysSelected(int index, int segmentCount);
};
