#include "report/reportselection.h"

#include <algorithm>

QList<int> ReportSelection::actionRows(const QList<int> &selectedRows, int clickedRow)
{
    if (clickedRow >= 0 && !selectedRows.contains(clickedRow))
        return { clickedRow };
    QList<int> rows = selectedRows;
    std::sort(rows.begin(), rows.end());
    return rows;
}

std::optional<int> ReportSelection::rowAfterDeletion(int firstSelectedRow, int rowCount)
{
    if (firstSelectedRow < 0 || rowCount <= 0)
        return std::nullopt;
    const int row = firstSelectedRow == 0 ? 0 : firstSelectedRow - 1;
    return std::min(row, rowCount - 1);
}

std::optional<int> ReportSelection::nextRow(const QList<int> &selectedRows, int rowCount)
{
    if (selectedRows.size() != 1 || rowCount < selectedRows.first())
        return std::nullopt;
    // The request may point one past the end (from the last row); the selection then stays on the last row.
    return std::min(selectedRows.first() + 1, rowCount - 1);
}

std::optional<int> ReportSelection::previousRow(const QList<int> &selectedRows)
{
    if (selectedRows.size() != 1 || selectedRows.first() <= 0)
        return std::nullopt;
    return selectedRows.first() - 1;
}
