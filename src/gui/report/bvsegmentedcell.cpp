#include "gui/report/bvsegmentedcell.h"

#include <QHelpEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionButton>
#include <QStyleOptionFocusRect>
#include <QToolTip>

#include "report/bvdatepickerrules.h"

namespace {

// Horizontal room around a segment's content.
constexpr int s_padding = 10;
// How far each segment's button is drawn under its neighbours, so that only the outer ends show the
// style's rounded corners.
constexpr int s_overlap = 8;

} // namespace

BvSegmentedCell::BvSegmentedCell(QWidget *parent)
    : QWidget(parent)
{
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_Hover);
    setMouseTracking(true);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void BvSegmentedCell::setSegmentCount(int count)
{
    m_segments.resize(qMax(0, count));
    if (!BvDatePickerRules::segmentStaysSelected(m_selected, segmentCount()))
        m_selected = -1;
    m_focused = qBound(0, m_focused, qMax(0, segmentCount() - 1));
    m_pressed = m_hovered = -1;
    updateGeometry();
    update();
}

void BvSegmentedCell::setSegmentText(int index, const QString &text)
{
    if (index < 0 || index >= segmentCount())
        return;
    m_segments[index].text = text;
    updateGeometry();
    update();
}

void BvSegmentedCell::setSegmentIcon(int index, const QIcon &icon)
{
    if (index < 0 || index >= segmentCount())
        return;
    m_segments[index].icon = icon;
    updateGeometry();
    update();
}

void BvSegmentedCell::setSegmentToolTip(int index, const QString &toolTip)
{
    if (index >= 0 && index < segmentCount())
        m_segments[index].toolTip = toolTip;
}

QString BvSegmentedCell::segmentText(int index) const
{
    return index >= 0 && index < segmentCount() ? m_segments[index].text : QString();
}

void BvSegmentedCell::setSelectedSegment(int index)
{
    if (index < 0 || index >= segmentCount())
        return;
    if (BvDatePickerRules::segmentStaysSelected(index, segmentCount()) && index != m_selected) {
        m_selected = index;
        update();
    }
    Q_EMIT segmentClicked(index);
}

int BvSegmentedCell::iconExtent() const
{
    return style()->pixelMetric(QStyle::PM_SmallIconSize, nullptr, this);
}

int BvSegmentedCell::naturalWidth(int index) const
{
    const Segment &segment = m_segments[index];
    int content = 0;
    if (!segment.icon.isNull())
        content += iconExtent();
    if (!segment.text.isEmpty())
        content += (content ? 4 : 0) + fontMetrics().horizontalAdvance(segment.text);
    return qMax(content + 2 * s_padding, 28);
}

QList<int> BvSegmentedCell::segmentWidths() const
{
    QList<int> widths;
    int natural = 0;
    for (int i = 0; i < segmentCount(); ++i) {
        widths.append(naturalWidth(i));
        natural += widths.last();
    }
    // Room beyond the natural widths goes to the segments in equal parts; the last takes the rest.
    if (const int extra = width() - natural; extra > 0 && !widths.isEmpty()) {
        for (int &w : widths)
            w += extra / int(widths.size());
        widths.last() += extra % int(widths.size());
    }
    return widths;
}

QRect BvSegmentedCell::segmentRect(int index) const
{
    if (index < 0 || index >= segmentCount())
        return {};
    const QList<int> widths = segmentWidths();
    int x = 0;
    for (int i = 0; i < index; ++i)
        x += widths[i];
    return QRect(x, 0, widths[index], height());
}

int BvSegmentedCell::segmentAt(const QPoint &pos) const
{
    if (!rect().contains(pos))
        return -1;
    const QList<int> widths = segmentWidths();
    int x = 0;
    for (int i = 0; i < widths.size(); ++i) {
        x += widths[i];
        if (pos.x() < x)
            return i;
    }
    return -1;
}

QSize BvSegmentedCell::sizeHint() const
{
    int w = 0;
    for (int i = 0; i < segmentCount(); ++i)
        w += naturalWidth(i);
    QStyleOptionButton option;
    option.initFrom(this);
    const QSize content(w, qMax(fontMetrics().height(), iconExtent()));
    const QSize button = style()->sizeFromContents(QStyle::CT_PushButton, &option, content, this);
    return QSize(w, button.height());
}

QSize BvSegmentedCell::minimumSizeHint() const
{
    return sizeHint();
}

void BvSegmentedCell::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    const QColor separator = palette().color(QPalette::Window).darker(140);
    for (int i = 0; i < segmentCount(); ++i) {
        const QRect cell = segmentRect(i);
        QStyleOptionButton option;
        option.initFrom(this);
        option.state &= ~(QStyle::State_HasFocus | QStyle::State_MouseOver);
        option.rect = cell.adjusted(i > 0 ? -s_overlap : 0, 0, i < segmentCount() - 1 ? s_overlap : 0, 0);
        const bool down = i == m_pressed && i == m_hovered;
        const bool on = i == m_selected;
        option.state |= down || on ? QStyle::State_Sunken : QStyle::State_Raised;
        if (on)
            option.state |= QStyle::State_On;
        if (i == m_hovered && isEnabled())
            option.state |= QStyle::State_MouseOver;
        painter.save();
        painter.setClipRect(cell);
        style()->drawControl(QStyle::CE_PushButtonBevel, &option, &painter, this);
        painter.restore();

        option.rect = cell;
        option.text = m_segments[i].text;
        option.icon = m_segments[i].icon;
        option.iconSize = QSize(iconExtent(), iconExtent());
        if (on) {
            // The marked segment reads like a checked tool button: its label stays in the button text colour.
            option.state &= ~QStyle::State_Sunken;
        }
        style()->drawControl(QStyle::CE_PushButtonLabel, &option, &painter, this);

        if (i > 0) {
            painter.setPen(separator);
            painter.drawLine(cell.left(), cell.top() + 3, cell.left(), cell.bottom() - 3);
        }
        if (hasFocus() && i == m_focused) {
            QStyleOptionFocusRect focus;
            focus.initFrom(this);
            focus.rect = cell.adjusted(3, 3, -3, -3);
            style()->drawPrimitive(QStyle::PE_FrameFocusRect, &focus, &painter, this);
        }
    }
}

bool BvSegmentedCell::event(QEvent *event)
{
    if (event->type() == QEvent::ToolTip) {
        auto *help = static_cast<QHelpEvent *>(event);
        const int index = segmentAt(help->pos());
        if (index >= 0 && !m_segments[index].toolTip.isEmpty())
            QToolTip::showText(help->globalPos(), m_segments[index].toolTip, this, segmentRect(index));
        else
            QToolTip::hideText();
        return true;
    }
    return QWidget::event(event);
}

void BvSegmentedCell::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    m_pressed = m_hovered = segmentAt(event->position().toPoint());
    if (m_pressed >= 0)
        m_focused = m_pressed;
    update();
}

void BvSegmentedCell::mouseMoveEvent(QMouseEvent *event)
{
    const int index = segmentAt(event->position().toPoint());
    if (index != m_hovered) {
        m_hovered = index;
        update();
    }
}

void BvSegmentedCell::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mouseReleaseEvent(event);
        return;
    }
    const int pressed = m_pressed;
    m_pressed = -1;
    update();
    // Released elsewhere than it was pressed: no click, as with any button.
    if (pressed >= 0 && pressed == segmentAt(event->position().toPoint()))
        setSelectedSegment(pressed);
}

void BvSegmentedCell::leaveEvent(QEvent *event)
{
    m_hovered = -1;
    update();
    QWidget::leaveEvent(event);
}

void BvSegmentedCell::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Left:
    case Qt::Key_Right:
        if (segmentCount() > 0) {
            const int step = event->key() == Qt::Key_Right ? 1 : -1;
            m_focused = qBound(0, m_focused + step, segmentCount() - 1);
            update();
        }
        return;
    case Qt::Key_Space:
    case Qt::Key_Return:
    case Qt::Key_Enter:
        setSelectedSegment(m_focused);
        return;
    default:
        QWidget::keyPressEvent(event);
    }
}
