#include "gui/preferences/tokenflowlayout.h"

#include <algorithm>

#include <QWidget>

TokenFlowLayout::TokenFlowLayout(QWidget *parent, int spacing)
    : QLayout(parent)
    , m_spacing(spacing)
{ }

TokenFlowLayout::~TokenFlowLayout()
{
    while (QLayoutItem *item = takeAt(0))
        delete item;
}

void TokenFlowLayout::addItem(QLayoutItem *item)
{
    m_items.append(item);
}

QLayoutItem *TokenFlowLayout::itemAt(int index) const
{
    return index >= 0 && index < m_items.size() ? m_items.at(index) : nullptr;
}

QLayoutItem *TokenFlowLayout::takeAt(int index)
{
    return index >= 0 && index < m_items.size() ? m_items.takeAt(index) : nullptr;
}

int TokenFlowLayout::heightForWidth(int width) const
{
    return doLayout(QRect(0, 0, width, 0), true);
}

QSize TokenFlowLayout::minimumSize() const
{
    QSize size;
    for (const QLayoutItem *item : m_items)
        size = size.expandedTo(item->minimumSize());
    const QMargins margins = contentsMargins();
    return size + QSize(margins.left() + margins.right(), margins.top() + margins.bottom());
}

QSize TokenFlowLayout::sizeHint() const
{
    // One line wide: the height follows from the width the parent gives (heightForWidth).
    int width = 0;
    int height = 0;
    for (const QLayoutItem *item : m_items) {
        width += item->sizeHint().width() + (width > 0 ? m_spacing : 0);
        height = std::max(height, item->sizeHint().height());
    }
    const QMargins margins = contentsMargins();
    return QSize(width + margins.left() + margins.right(), height + margins.top() + margins.bottom());
}

void TokenFlowLayout::setGeometry(const QRect &rect)
{
    QLayout::setGeometry(rect);
    doLayout(rect, false);
}

int TokenFlowLayout::doLayout(const QRect &rect, bool testOnly) const
{
    const QRect area = rect.marginsRemoved(contentsMargins());
    int x = area.x();
    int y = area.y();
    int lineHeight = 0;
    for (QLayoutItem *item : m_items) {
        const QSize size = item->sizeHint();
        if (x > area.x() && x + size.width() > area.right() + 1) {
            x = area.x();
            y += lineHeight + m_spacing;
            lineHeight = 0;
        }
        if (!testOnly)
            item->setGeometry(QRect(QPoint(x, y), size));
        x += size.width() + m_spacing;
        lineHeight = std::max(lineHeight, size.height());
    }
    return y + lineHeight - rect.y() + contentsMargins().bottom();
}
