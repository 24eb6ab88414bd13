#include "model/sidebaritem.h"

#include "model/storecontext.h"

void SidebarItem::setName(const QString &name)
{
    if (name == m_name && name.isNull() == m_name.isNull())
        return;
    m_name = name;
    m_changed |= NameColumn;
    if (m_context)
        m_context->itemChanged(this, true);
}

void SidebarItem::setPosition(std::optional<qint64> position)
{
    if (position == m_position)
        return;
    m_position = position;
    markChanged(PositionColumn);
}

void SidebarItem::setVisible(bool visible)
{
    if (visible == m_visible)
        return;
    m_visible = visible;
    markChanged(VisibleColumn);
}

void SidebarItem::setInitialPosition()
{
    if (m_position || !m_context || !m_context->sidebarOrderedByHand(isTask()))
        return;
    if (const std::optional<qint64> highest = m_context->highestSidebarPosition(isTask()))
        m_position = *highest + 1;
    if (!m_position)
        m_position = 0;
    markChanged(PositionColumn);
}

void SidebarItem::markChanged(Column column)
{
    m_changed |= column;
    if (m_context)
        m_context->itemChanged(this, false);
}
