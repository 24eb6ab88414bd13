#include "model/storechanges.h"

StoreChanges StoreChanges::everything()
{
    StoreChanges changes;
    changes.m_everything = true;
    return changes;
}

bool StoreChanges::mayHaveChanged(const QString &uid) const
{
    return m_everything || m_updated.contains(uid) || m_deleted.contains(uid);
}

void StoreChanges::addInserted(const QString &uid)
{
    m_entities |= Entity::Activity;
    // A uid deleted and inserted again (a sync replacing a row) is a new row for whoever shows it.
    m_deleted.remove(uid);
    m_updated.remove(uid);
    m_inserted.insert(uid);
}

void StoreChanges::addUpdated(const QString &uid)
{
    m_entities |= Entity::Activity;
    if (!m_inserted.contains(uid))
        m_updated.insert(uid);
}

void StoreChanges::addDeleted(const QString &uid)
{
    m_entities |= Entity::Activity;
    m_updated.remove(uid);
    m_inserted.remove(uid);
    m_deleted.insert(uid);
}

void StoreChanges::merge(const StoreChanges &later)
{
    if (m_everything || later.m_everything) {
        *this = everything();
        return;
    }
    m_entities |= later.m_entities;
    for (const QString &uid : later.m_inserted)
        addInserted(uid);
    for (const QString &uid : later.m_updated)
        addUpdated(uid);
    for (const QString &uid : later.m_deleted)
        addDeleted(uid);
}
