#include "report/activitysnapshot.h"

#include "model/activity.h"

ActivitySnapshot ActivitySnapshot::of(const Activity &activity)
{
    return { activity.uid(), activity.text(), activity.timeFrom(), activity.timeTo(), activity.createdAt(),
        activity.isInvoiced() };
}

bool ActivitySnapshot::matches(const Activity &activity) const
{
    return activity.text() == text && activity.timeFrom() == timeFrom && activity.timeTo() == timeTo
        && activity.isInvoiced() == isInvoiced;
}

void ActivitySnapshot::applyTo(Activity &activity) const
{
    activity.setText(text);
    activity.setTimeFrom(timeFrom);
    activity.setTimeTo(timeTo);
    activity.setIsInvoiced(isInvoiced);
}
