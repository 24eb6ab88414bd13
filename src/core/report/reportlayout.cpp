#include "report/reportlayout.h"

#include <algorithm>
#include <cmath>

int ReportLayout::sidebarWidth(double savedWidth, int sidebarMinimumWidth, int windowWidth, int tableMinimumWidth)
{
    const int width = std::max(int(std::lround(savedWidth)), sidebarMinimumWidth);
    return std::max(0, std::min(width, windowWidth - tableMinimumWidth - 1));
}

QString ReportLayout::toggleFilterTitle(bool filterShown)
{
    return filterShown ? tr("Hide Filter") : tr("Show Filter");
}

QString ReportLayout::toggleFilterToolbarTitle(bool toolbarShown)
{
    return toolbarShown ? tr("Hide Filter Toolbar") : tr("Show Filter Toolbar");
}
