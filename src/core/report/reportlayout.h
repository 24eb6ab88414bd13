#pragma once

#include <QCoreApplication>
#include <QList>
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

    // The widths of the table's columns other than the text so that the text keeps `available` minus
    // their sum: the wished widths when they leave room, else each shrunk towards its minimum in
    // proportion to what it can give, never below it (the table then scrolls sideways).
    static QList<int> fittedColumnWidths(const QList<int> &wished, const QList<int> &minimum, int available);

    // "menu_toggle_filter_hide" / "menu_toggle_filter_show": the sidebar filter pane.
    static QString toggleFilterTitle(bool filterShown);
    // "menu_toggle_filter_toolbar_hide" / "menu_toggle_filter_toolbar_show".
    static QString toggleFilterToolbarTitle(bool toolbarShown);
};
