#pragma once

#include "gui/report/bvoutlineview.h"

// The report sidebar's outline: it takes the keyboard focus, a click on an item reports itemClicked
// instead of selecting it (except on the item's check box, which the cell handles), and an item is
// dragged by itself, without a selection, as a move that never removes anything here: the model reorders.
// Space or Return on the current item is the keyboard's click.
class BvSidebarOutlineView : public BvOutlineView
{
    Q_OBJECT
public:
    explicit BvSidebarOutlineView(QWidget *parent = nullptr);

Q_SIGNALS:
    // An item row (not a group row) was clicked outside its check box, or Space or Return was pressed on it.
    void itemClicked(const QModelIndex &index);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void startDrag(Qt::DropActions supportedActions) override;

private:
    bool isOnCheckBox(const QModelIndex &index, const QPoint &pos) const;

    QPersistentModelIndex m_pressed;
    QPoint m_pressedAt;
};
