#include "gui/report/bvreportsidebarcellview.h"

#include <QApplication>
#include <QIcon>
#include <QMouseEvent>
#include <QPainter>

#include "gui/report/bvreportsidebarcellformatter.h"
#include "report/reportsidebaroutlinemodel.h"

namespace {

constexpr int BoxMargin = 10;
constexpr int BoxSize = 16;
constexpr int ImageSize = 14;
constexpr int Spacing = 6;
constexpr int RowHeight = 24;

} // namespace

BvReportSidebarCellView::BvReportSidebarCellView(QObject *parent)
    : QStyledItemDelegate(parent)
{ }

QRect BvReportSidebarCellView::checkBoxRect(const QRect &cellRect)
{
    return QRect(cellRect.left() + BoxMargin, cellRect.top() + (cellRect.height() - BoxSize) / 2, BoxSize, BoxSize);
}

QSize BvReportSidebarCellView::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    size.setHeight(qMax(size.height(), RowHeight));
    return size;
}

void BvReportSidebarCellView::paintHeader(
    QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QFont font = option.font;
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 0.9);
    painter->setFont(font);
    painter->setPen(option.palette.color(QPalette::Disabled, QPalette::WindowText));
    const QRect text = option.rect.adjusted(2, 0, -2, 0);
    painter->drawText(text, Qt::AlignVCenter | Qt::AlignLeft,
        option.fontMetrics.elidedText(index.data(Qt::DisplayRole).toString(), Qt::ElideRight, text.width()));
}

void BvReportSidebarCellView::paint(
    QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    painter->save();
    if (index.data(ReportSidebarOutlineModel::GroupRole).toBool()) {
        paintHeader(painter, option, index);
        painter->restore();
        return;
    }
    const QWidget *widget = option.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    if (option.state & QStyle::State_MouseOver) {
        QColor hover = option.palette.color(QPalette::Highlight);
        hover.setAlpha(40);
        painter->fillRect(option.rect, hover);
    }

    int left = option.rect.left() + 2;
    const QVariant checkState = index.data(Qt::CheckStateRole);
    if (checkState.isValid()) {
        QStyleOptionButton box;
        box.rect = checkBoxRect(option.rect);
        box.state = QStyle::State_Enabled
            | (checkState.value<Qt::CheckState>() == Qt::Checked ? QStyle::State_On : QStyle::State_Off);
        style->drawPrimitive(QStyle::PE_IndicatorCheckBox, &box, painter, widget);
        left = box.rect.right() + 1 + Spacing;
    }

    const bool ticked = index.data(ReportSidebarOutlineModel::SelectedRole).toBool();
    const QRect image(left, option.rect.top() + (option.rect.height() - ImageSize) / 2, ImageSize, ImageSize);
    QIcon(ticked ? activeImage() : inactiveImage()).paint(painter, image);

    const QRect text(image.right() + 1 + Spacing, option.rect.top(), option.rect.right() - image.right() - Spacing,
        option.rect.height());
    painter->setFont(option.font);
    painter->setPen(option.palette.color(QPalette::Text));
    const QString title
        = BvReportSidebarCellFormatter::stringForObjectValue(index.data(ReportSidebarOutlineModel::ItemRole));
    painter->drawText(
        text, Qt::AlignVCenter | Qt::AlignLeft, option.fontMetrics.elidedText(title, Qt::ElideRight, text.width()));
    painter->restore();
}

bool BvReportSidebarCellView::editorEvent(
    QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option, const QModelIndex &index)
{
    if (!(index.flags() & Qt::ItemIsUserCheckable))
        return false;
    if (event->type() != QEvent::MouseButtonRelease && event->type() != QEvent::MouseButtonPress
        && event->type() != QEvent::MouseButtonDblClick)
        return false;
    const auto *mouse = static_cast<QMouseEvent *>(event);
    if (mouse->button() != Qt::LeftButton || !checkBoxRect(option.rect).contains(mouse->position().toPoint()))
        return false;
    // The press and a double click are taken too, so that the box neither starts a drag nor ticks.
    if (event->type() == QEvent::MouseButtonRelease) {
        const bool checked = index.data(Qt::CheckStateRole).value<Qt::CheckState>() == Qt::Checked;
        model->setData(index, checked ? Qt::Unchecked : Qt::Checked, Qt::CheckStateRole);
    }
    return true;
}
