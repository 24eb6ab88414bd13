#include "gui/report/bvsidebaroutlineview.h"

#include <QApplication>
#include <QDrag>
#include <QKeyEvent>
#include <QMimeData>
#include <QMouseEvent>

#include "gui/report/bvreportsidebarcellview.h"

BvSidebarOutlineView::BvSidebarOutlineView(QWidget *parent)
    : BvOutlineView(parent)
{
    setFocusPolicy(Qt::StrongFocus);
    setHeaderHidden(true);
    setRootIsDecorated(true);
    setSelectionMode(QAbstractItemView::NoSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setDragEnabled(true);
    setAcceptDrops(true);
    setDropIndicatorShown(true);
    setDragDropMode(QAbstractItemView::DragDrop);
    setDefaultDropAction(Qt::MoveAction);
    setMouseTracking(true);
    viewport()->setAttribute(Qt::WA_Hover);
}

bool BvSidebarOutlineView::isOnCheckBox(const QModelIndex &index, const QPoint &pos) const
{
    if (!(index.flags() & Qt::ItemIsUserCheckable))
        return false;
    return BvReportSidebarCellView::checkBoxRect(visualRect(index)).contains(pos);
}

void BvSidebarOutlineView::keyPressEvent(QKeyEvent *event)
{
    const bool press = event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    const QModelIndex current = currentIndex();
    if (press && event->modifiers() == Qt::NoModifier && current.isValid() && current.parent().isValid()) {
        Q_EMIT itemClicked(current);
        event->accept();
        return;
    }
    BvOutlineView::keyPressEvent(event);
}

void BvSidebarOutlineView::mousePressEvent(QMouseEvent *event)
{
    const QModelIndex index = indexAt(event->position().toPoint());
    m_pressed = event->button() == Qt::LeftButton ? QPersistentModelIndex(index) : QPersistentModelIndex();
    m_pressedAt = event->position().toPoint();
    BvOutlineView::mousePressEvent(event);
}

void BvSidebarOutlineView::mouseMoveEvent(QMouseEvent *event)
{
    // The outline starts a drag only from selected rows, and these rows are never selected.
    const bool dragging = (event->buttons() & Qt::LeftButton) && m_pressed.isValid() && m_pressed.parent().isValid()
        && (event->position().toPoint() - m_pressedAt).manhattanLength() >= QApplication::startDragDistance();
    if (dragging) {
        startDrag(model()->supportedDragActions());
        return;
    }
    BvOutlineView::mouseMoveEvent(event);
}

void BvSidebarOutlineView::mouseReleaseEvent(QMouseEvent *event)
{
    const QPoint pos = event->position().toPoint();
    const QModelIndex index = indexAt(pos);
    const bool click = event->button() == Qt::LeftButton && index.isValid() && index == m_pressed;
    m_pressed = QPersistentModelIndex();
    BvOutlineView::mouseReleaseEvent(event);
    if (click && index.parent().isValid() && !isOnCheckBox(index, pos))
        Q_EMIT itemClicked(index);
}

void BvSidebarOutlineView::startDrag(Qt::DropActions supportedActions)
{
    // The rows are never selected, so the drag takes the item that was pressed; the drop itself reorders
    // the model, so nothing is removed when the drag ends as a move.
    const QModelIndex index = m_pressed;
    m_pressed = QPersistentModelIndex();
    if (!index.isValid() || !(index.flags() & Qt::ItemIsDragEnabled))
        return;
    QMimeData *mime = model()->mimeData({ index });
    if (!mime)
        return;
    auto *drag = new QDrag(this);
    drag->setMimeData(mime);
    const QRect rect = visualRect(index);
    QPixmap pixmap(rect.size() * devicePixelRatioF());
    pixmap.setDevicePixelRatio(devicePixelRatioF());
    pixmap.fill(Qt::transparent);
    viewport()->render(&pixmap, QPoint(), QRegion(rect));
    drag->setPixmap(pixmap);
    drag->setHotSpot(viewport()->mapFromGlobal(QCursor::pos()) - rect.topLeft());
    drag->exec(supportedActions & Qt::MoveAction, Qt::MoveAction);
}
