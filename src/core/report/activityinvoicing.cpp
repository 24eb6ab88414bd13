#include "report/activityinvoicing.h"

#include "model/storecontext.h"

std::expected<int, BvError> ActivityInvoicing::setInvoiced(const QStringList &uids, bool invoiced)
{
    if (uids.isEmpty())
        return 0;
    const std::unique_ptr<StoreContext> context = m_store.newContext();
    const auto activities = context->activitiesWithUids(uids);
    if (!activities)
        return std::unexpected(activities.error());
    int changed = 0;
    const QDateTime now = context->now();
    for (const ActivityPtr &activity : *activities) {
        if (activity->isInvoiced() != invoiced) {
            activity->setIsInvoiced(invoiced);
            // A newer modification time carries the mark to the user's other machines at the next sync.
            activity->setModifiedAt(now);
            ++changed;
        }
    }
    if (changed == 0)
        return 0;
    if (const auto saved = context->save(); !saved)
        return std::unexpected(saved.error());
    return changed;
}
