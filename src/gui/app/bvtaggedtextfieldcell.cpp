#include "gui/app/bvtaggedtextfieldcell.h"

#include <QApplication>
#include <QFontMetricsF>
#include <QPainter>
#include <QPainterPath>
#include <QtMath>

namespace {

// Between the cell's text and the first tag.
constexpr qreal TextToTags = 6;
constexpr qreal TagCornerRadius = 3;

} // namespace

BvTaggedTextFieldCell::BvTaggedTextFieldCell(QObject *parent)
    : QStyledItemDelegate(parent)
{
    initializeField();
}

void BvTaggedTextFieldCell::initializeField()
{
    m_tagFont = QApplication::font();
    if (m_tagFont.pointSizeF() > 0)
        m_tagFont.setPointSizeF(qMax(7.0, m_tagFont.pointSizeF() * 0.85));
    else
        m_tagFont.setPixelSize(qMax(9, int(m_tagFont.pixelSize() * 0.85)));
}

qreal BvTaggedTextFieldCell::widthForTag(const QString &tag) const
{
    return QFontMetricsF(m_tagFont).horizontalAdvance(tag);
}

QList<qreal> BvTaggedTextFieldCell::activityTagsWidth() const
{
    QList<qreal> widths;
    widths.reserve(m_activityTags.size());
    for (const QString &tag : m_activityTags)
        widths.append(widthForTag(tag) + TagPadding);
    return widths;
}

qreal BvTaggedTextFieldCell::totalTagsWidth() const
{
    if (m_totalTagsWidth < 0)
        m_totalTagsWidth = totalWidthOf(m_activityTags);
    return m_totalTagsWidth;
}

qreal BvTaggedTextFieldCell::totalWidthOf(const QStringList &tags) const
{
    qreal total = 0;
    for (const QString &tag : tags)
        total += widthForTag(tag) + TagPadding + TagGap;
    return total;
}

void BvTaggedTextFieldCell::setActivityTags(const QStringList &tags)
{
    m_activityTags = tags;
    m_totalTagsWidth = -1;
}

void BvTaggedTextFieldCell::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    const QStringList tags = index.data(TagsRole).toStringList();
    const QWidget *widget = opt.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();

    if (tags.isEmpty()) {
        style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);
        return;
    }
    // The text keeps its natural width and is cut, not the tags, when the cell is too narrow for both.
    const QRect textRect = style->subElementRect(QStyle::SE_ItemViewItemText, &opt, widget);
    const qreal textWidth = opt.text.isEmpty() ? 0 : opt.fontMetrics.horizontalAdvance(opt.text) + TextToTags;
    const qreal tagsWidth = totalWidthOf(tags);
    const qreal room = qMax<qreal>(0, textRect.width() - tagsWidth);
    if (textWidth > room)
        opt.text = opt.fontMetrics.elidedText(opt.text, opt.textElideMode, int(room - TextToTags));
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

    const qreal left = textRect.left()
        + (opt.text.isEmpty() ? 0 : qMin<qreal>(opt.fontMetrics.horizontalAdvance(opt.text) + TextToTags, room));
    drawTags(painter, tags, left, option.rect);
}

void BvTaggedTextFieldCell::drawTags(QPainter *painter, const QStringList &tags, qreal left, const QRect &cell) const
{
    painter->save();
    painter->setClipRect(cell);
    painter->setRenderHint(QPainter::Antialiasing);
    painter->setFont(m_tagFont);
    const QFontMetricsF metrics(m_tagFont);
    const qreal height = qMin<qreal>(metrics.height() + 2, cell.height() - 2);
    const qreal top = cell.top() + (cell.height() - height) / 2;
    // Whole pixels, so neighbouring tags keep an even gap.
    qreal x = qRound(left);
    for (const QString &tag : tags) {
        const qreal width = qRound(widthForTag(tag) + TagPadding);
        const QRectF rect(x, qRound(top), width, qRound(height));
        QPainterPath path;
        path.addRoundedRect(rect, TagCornerRadius, TagCornerRadius);
        painter->fillPath(path, tagColor());
        painter->setPen(QColor(64, 64, 48));
        painter->drawText(rect, Qt::AlignCenter, tag);
        x += width + TagGap;
        if (x >= cell.right())
            break;
    }
    painter->restore();
}

QSize BvTaggedTextFieldCell::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    const QStringList tags = index.data(TagsRole).toStringList();
    if (tags.isEmpty())
        return size;
    size.rwidth() += qCeil(TextToTags + totalWidthOf(tags));
    size.setHeight(qMax(size.height(), qCeil(QFontMetricsF(m_tagFont).height() + 4)));
    return size;
}
