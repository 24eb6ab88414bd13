#pragma once

#include <QStyledItemDelegate>

// One row of the report sidebar. A group row shows its title as a header; an item row shows the ticked
// or unticked image and the item's title, with a hover highlight, and in edit mode a check box for the
// item's visibility 10 points from the left edge, before the image and the title. A click on that box
// sets the visibility through the model; the rest of the row belongs to the outline (ticking, dragging).
class BvReportSidebarCellView : public QStyledItemDelegate
{
    Q_OBJECT
public:
    explicit BvReportSidebarCellView(QObject *parent = nullptr);

    // Where the visibility box of a row drawn in `cellRect` lies.
    static QRect checkBoxRect(const QRect &cellRect);
    static QString activeImage() { return QStringLiteral(":/icons/section-active-1.svg"); }
    static QString inactiveImage() { return QStringLiteral(":/icons/section-inactive-1.svg"); }

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    bool editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
        const QModelIndex &index) override;

private:
    void paintHeader(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const;
};
