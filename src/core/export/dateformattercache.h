#pragma once

#include <memory>

#include "export/activitydateformatter.h"
#include "export/activitytokenvalue.h"

// The date formatters of the date tokens, one per token value for the whole process, made on first use
// with the user's locale and time zone as they are then. Every export ends with clearCache(), so that a
// change of locale reaches the next export. Main thread only: there is no lock.
class DateFormatterCache
{
public:
    // The shared formatter of the token value: its pattern or style from the catalogue, and isEndTime for
    // the end tokens (160, 161, 170, 171, 250..255). A value outside the date tokens gets a formatter
    // without pattern or style, which renders the empty string.
    static std::shared_ptr<const ActivityDateFormatter> getFormatterForValue(const ActivityTokenValue &value);
    static std::shared_ptr<const ActivityDateFormatter> getFormatterForValue(int value);
    // Drops every formatter; formatters already handed out stay usable.
    static void clearCache();

private:
    static std::shared_ptr<const ActivityDateFormatter> makeFormatter(int value);
};
