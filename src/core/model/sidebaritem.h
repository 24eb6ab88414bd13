#pragma once

#include <memory>
#include <optional>

#include <QString>

class StoreContext;

// What a project and a task have in common: a name unique regardless of case, and a place in the report
// sidebar. Objects live in one StoreContext; changes reach the store when that context saves.
class SidebarItem : public std::enable_shared_from_this<SidebarItem>
{
public:
    virtual ~SidebarItem() = default;

    // The name as the user last typed it.
    QString name() const { return m_name; }
    void setName(const QString &name);
    // Place in the sidebar when the user orders it by hand; absent until given one.
    std::optional<qint64> position() const { return m_position; }
    void setPosition(std::optional<qint64> position);
    bool visible() const { return m_visible; }
    void setVisible(bool visible);

    // Gives a new object the next sidebar position, when the user orders this kind of item by hand.
    void setInitialPosition();

    // The store's row id; 0 until the object has been saved.
    qint64 objectId() const { return m_id; }
    bool hasChanges() const { return m_changed != 0; }

protected:
    SidebarItem() = default;
    virtual bool isTask() const = 0;

private:
    friend class StoreContext;
    friend class StoreWriter;
    // Which columns an unsaved change touches.
    enum Column : quint8 { NameColumn = 0x1, PositionColumn = 0x2, VisibleColumn = 0x4 };
    void markChanged(Column column);

    qint64 m_id = 0;
    QString m_name;
    std::optional<qint64> m_position;
    bool m_visible = true;
    quint8 m_changed = 0;
    bool m_pending = false;
    StoreContext *m_context = nullptr;
};
