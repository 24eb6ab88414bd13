#pragma once

#include <expected>

#include <QStringList>

#include "base/bverror.h"

class Store;

// Setting the invoiced mark of activities by uid, in one transaction, with their modification time at
// now so that synchronisation carries the mark. Only these columns are written, so a
// concurrent touch of the running activity by the tracking engine keeps both changes. Main thread.
class ActivityInvoicing
{
public:
    explicit ActivityInvoicing(Store &store)
        : m_store(store)
    { }

    // Marks the stored activities with these uids invoiced or not; those already so are left alone. Answers
    // how many changed, or the store's error (then none did).
    std::expected<int, BvError> setInvoiced(const QStringList &uids, bool invoiced);

private:
    Store &m_store;
};
