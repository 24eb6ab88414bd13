#include "gui/report/bvoutlineview.h"

#include <QKeyEvent>

BvOutlineView::BvOutlineView(QWidget *parent)
    : QTreeView(parent)
{ }

void BvOutlineView::keyPressEvent(QKeyEvent *event)
{
    // Backspace is the key labelled Delete on the keyboards this comes from; Delete is Forward Delete.
    const bool deleteKey = event->key() == Qt::Key_Backspace || event->key() == Qt::Key_Delete;
    if (deleteKey && m_deleteAction)
        m_deleteAction(*this);
    QTreeView::keyPressEvent(event);
}
