#pragma once

#include <QFlags>
#include <QMetaType>
#include <QSet>
#include <QString>

// What one or more commits changed: the kinds of entity written and the uids of the activities inserted,
// updated and deleted. A commit of another process (or another Store on the same file) is only noticed as
// having happened, so it arrives as everything(): any row may have changed.
class StoreChanges
{
public:
    enum class Entity {
        Activity = 0x1,
        Project = 0x2,
        Task = 0x4,
        DeletedActivity = 0x8,
        SyncFile = 0x10,
    };
    Q_DECLARE_FLAGS(Entities, Entity)
    static constexpr Entities AllEntities = Entities(0x1f);

    static StoreChanges everything();

    bool isEverything() const { return m_everything; }
    bool isEmpty() const { return !m_everything && !m_entities; }
    Entities entities() const { return m_everything ? AllEntities : m_entities; }
    bool contains(Entity entity) const { return entities().testFlag(entity); }

    // Activity uids; each uid is in at most one set, the one of the last thing that happened to it, except
    // that an activity inserted and then updated stays inserted. Empty for everything().
    const QSet<QString> &insertedUids() const { return m_inserted; }
    const QSet<QString> &updatedUids() const { return m_updated; }
    const QSet<QString> &deletedUids() const { return m_deleted; }
    // Whether the activity with this uid may have been updated or deleted.
    bool mayHaveChanged(const QString &uid) const;

    void addEntity(Entity entity) { m_entities |= entity; }
    void addInserted(const QString &uid);
    void addUpdated(const QString &uid);
    void addDeleted(const QString &uid);
    // Adds what a later commit changed.
    void merge(const StoreChanges &later);

private:
    bool m_everything = false;
    Entities m_entities;
    QSet<QString> m_inserted;
    QSet<QString> m_updated;
    QSet<QString> m_deleted;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(StoreChanges::Entities)
Q_DECLARE_METATYPE(StoreChanges)
