#pragma once

#include <optional>

#include <QList>

// Which rows of the report's table an action or a key applies to. Rows are indexes of the listed rows.
class ReportSelection
{
public:
    // selectedActivities: only the clicked row (a context-menu click) when it lies outside the selection,
    // else the selected rows in table order. A clicked row of -1 means none.
    static QList<int> actionRows(const QList<int> &selectedRows, int clickedRow);

    // The row selected after deleting: the one above the first deleted row, row 0 when that was the first,
    // the last row when the index now lies past the end; none when nothing was selected or no row is left.
    static std::optional<int> rowAfterDeletion(int firstSelectedRow, int rowCount);

    // The keys j and k with exactly one row selected: the next (previous) row. Moving down from the last row
    // keeps it; moving up from the first row does nothing. None when the key does nothing.
    static std::optional<int> nextRow(const QList<int> &selectedRows, int rowCount);
    static std::optional<int> previousRow(const QList<int> &selectedRows);
};
