#pragma once

#include <QString>

#include "export/csvtokenfield.h"
#include "model/activity.h"
#include "model/activityrecord.h"

// How an activity renders one column of an export layout.
class ActivityFieldValue
{
public:
    // Activity tokens: the text, the project's name, the task names sorted and joined by ", ", the UID,
    // "1"/"0" for invoiced. Durations: the token's transformer over durationSecs. Dates: the token's
    // shared formatter (DateFormatterCache) over the start or, for end tokens, the end, in the user's
    // zone; an instant that is not set renders the empty string. Anything else is the empty string.
    // Main thread (the formatter cache has no lock).
    static QString valueForField(const Activity &activity, const CSVTokenField &field);
    // The same for a stored activity read as a plain record (task names only if it was read with them).
    static QString valueForField(const ActivityRecord &activity, const CSVTokenField &field);
    // The same rendering appended to `out`, for writing a whole file without a string per column.
    static void appendValueForField(QString &out, const Activity &activity, const CSVTokenField &field);
    static void appendValueForField(QString &out, const ActivityRecord &activity, const CSVTokenField &field);
};
