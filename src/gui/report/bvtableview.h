#pragma once

#include <QTableView>

// The report's activities table. Single keys act on the rows: i asks to flip the invoiced mark, Delete and
// Backspace to delete, Return and Enter to edit (each a signal the window acts on); j and k move a single
// selected row down and up, scrolling it into view, and j on the last row keeps it. Other keys go to the
// ordinary table handling.
class BvTableView : public QTableView
{
    Q_OBJECT
public:
    explicit BvTableView(QWidget *parent = nullptr);

    // The selected rows, ascending.
    QList<int> selectedRowIndexes() const;
    // Selects exactly this row and scrolls it into view.
    void selectOnlyRow(int row);

Q_SIGNALS:
    void toggleKeyPressed();
    void deleteKeyPressed();
    void editKeyPressed();

protected:
    void keyPressEvent(QKeyEvent *event) override;
};
