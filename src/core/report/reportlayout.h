#pragma once

#include <QCoreApplication>
#include <QString>

// The report window's layout rules: the sidebar pane's width on opening and the titles of the two
// View-menu toggles.
class ReportLayout
{
    Q_DECLARE_TR_FUNCTIONS(ReportLayout)

public:
    // The saved width raised to the sidebar pane's minimum, then limited so that the table pane keeps its
    // minimum width: at most windowWidth - tableMinimumWidth - 1.
    static int sidebarWidth(double savedWidth, int sidebarMinimumWidth, int windowWidth, int tableMinimumWidth);

    // "menu_toggle_filter_hide" / "menu_toggle_filter_show": the sidebar filter pane.
    static QString toggleFilterTitle(bool filterShown);
    // "menu_toggle_filter_toolbar_hide" / "menu_toggle_filter_toolbar_show".
    static QString toggleFilterToolbarTitle(bool toolbarShown);
};
