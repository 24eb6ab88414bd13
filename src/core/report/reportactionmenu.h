#pragma once

#include <QCoreApplication>
#include <QMap>
#include <QString>

// The report's action menu (context menu and the actions button), computed each time it opens from the
// rows the actions apply to and the listed rows.
class ReportActionMenu
{
    Q_DECLARE_TR_FUNCTIONS(ReportActionMenu)

public:
    enum Tag {
        InvoicedSelected = 1,
        InvoicedAll = 2,
        ExportSelected = 3,
        ExportAll = 4,
        // Our row action under tag 10: delete the selection (with its confirmation).
        DeleteSelected = 10,
        Merge = 11,
    };

    struct Item
    {
        bool enabled = false;
        QString title;
        Qt::CheckState state = Qt::Unchecked;
        bool operator==(const Item &) const = default;
    };

    struct Counts
    {
        int selected = 0; // selectedActivities
        int selectedInvoiced = 0;
        int listed = 0;
        int listedInvoiced = 0;
    };

    // menuWillOpen: every item by tag. Merge (11) is computed for the sheets that offer it.
    static QMap<int, Item> items(const Counts &counts);

    // setInvoicedSelected: / setInvoicedAll:: the mark every affected activity gets. An item that is on
    // clears it; off or mixed sets it, so a mixed selection becomes all invoiced.
    static bool invoicedValueFor(Qt::CheckState clickedItemState);

    // The import button's title for a selection of `selected` rows.
    static QString importSelectedTitle(int selected);
};
