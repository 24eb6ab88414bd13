#include "gui/report/bvtableview.h"

#include <QHeaderView>
#include <QKeyEvent>

#include "report/reportselection.h"

BvTableView::BvTableView(QWidget *parent)
    : QTableView(parent)
{
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setAlternatingRowColors(true);
    setShowGrid(false);
    setWordWrap(false);
    setTabKeyNavigation(false);
    // A fixed row height lets a list of a hundred thousand rows scroll without measuring each one.
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 8);
    verticalHeader()->hide();
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setSectionsMovable(true);
    horizontalHeader()->setStretchLastSection(true);
}

QList<int> BvTableView::selectedRowIndexes() const
{
    QList<int> rows;
    if (!selectionModel())
        return rows;
    for (const QModelIndex &index : selectionModel()->selectedRows())
        rows.append(index.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

void BvTableView::selectOnlyRow(int row)
{
    if (!model() || row < 0 || row >= model()->rowCount())
        return;
    const QModelIndex index = model()->index(row, 0);
    selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    scrollTo(index);
}

void BvTableView::keyPressEvent(QKeyEvent *event)
{
    const Qt::KeyboardModifiers modifiers = event->modifiers() & ~Qt::KeypadModifier;
    if (modifiers == Qt::NoModifier && model()) {
        switch (event->key()) {
        case Qt::Key_I:
            Q_EMIT toggleKeyPressed();
            return;
        case Qt::Key_J:
            if (const auto row = ReportSelection::nextRow(selectedRowIndexes(), model()->rowCount()))
                selectOnlyRow(*row);
            return;
        case Qt::Key_K:
            if (const auto row = ReportSelection::previousRow(selectedRowIndexes()))
                selectOnlyRow(*row);
            return;
        case Qt::Key_Delete:
        case Qt::Key_Backspace:
            Q_EMIT deleteKeyPressed();
            return;
        case Qt::Key_Return:
        case Qt::Key_Enter:
            Q_EMIT editKeyPressed();
            return;
        default:
            break;
        }
    }
    QTableView::keyPressEvent(event);
}
