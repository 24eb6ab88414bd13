#include "report/reportlayout.h"

#include <algorithm>
#include <cmath>

int ReportLayout::sidebarWidth(double savedWidth, int sidebarMinimumWidth, int windowWidth, int tableMinimumWidth)
{
    const int width = std::max(int(std::lround(savedWidth)), sidebarMinimumWidth);
    return std::max(0, std::min(width, windowWidth - tableMinimumWidth - 1));
}

QList<int> ReportLayout::fittedColumnWidths(const QList<int> &wished, const QList<int> &minimum, int available)
{
    qint64 wishedSum = 0;
    qint64 spare = 0;
    for (qsizetype i = 0; i < wished.size(); ++i) {
        wishedSum += wished[i];
        spare += std::max(0, wished[i] - minimum.value(i));
    }
    const qint64 excess = wishedSum - std::max(0, available);
    if (excess <= 0)
        return wished;
    QList<int> widths;
    qint64 given = 0;
    qint64 spareSeen = 0;
    for (qsizetype i = 0; i < wished.size(); ++i) {
        const int canGive = std::max(0, wished[i] - minimum.value(i));
        // Rounded on the running sums, so the parts add up to exactly what is taken.
        spareSeen += canGive;
        const qint64 take = spare == 0 ? 0 : std::min(excess, spare) * spareSeen / spare - given;
        given += take;
        widths.append(wished[i] - int(take));
    }
    return widths;
}

QString ReportLayout::toggleFilterTitle(bool filterShown)
{
    return filterShown ? tr("Hide Filter") : tr("Show Filter");
}

QString ReportLayout::toggleFilterToolbarTitle(bool toolbarShown)
{
    return toolbarShown ? tr("Hide Filter Toolbar") : tr("Show Filter Toolbar");
}
