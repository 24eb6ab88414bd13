#include "report/reportactionmenu.h"

namespace {
Qt::CheckState stateOf(int invoiced, int count)
{
    if (invoiced == 0)
        return Qt::Unchecked;
    return invoiced == count ? Qt::Checked : Qt::PartiallyChecked;
}
} // namespace

QMap<int, ReportActionMenu::Item> ReportActionMenu::items(const Counts &counts)
{
    const int n = counts.selected;
    QMap<int, Item> items;

    items[Merge] = { n >= 2, n >= 2 ? tr("Merge %1 activities").arg(n) : tr("Merge (select at least 2 activities)"),
        Qt::Unchecked };

    Item selected { n >= 1, {}, Qt::Unchecked };
    if (n <= 1) {
        const bool invoiced = n == 1 && counts.selectedInvoiced > 0;
        selected.title = invoiced ? tr("Is invoiced (selected activity)") : tr("Mark as invoiced (selected activity)");
        selected.state = invoiced ? Qt::Checked : Qt::Unchecked;
    } else if (counts.selectedInvoiced > 0) {
        selected.title = tr("Is Invoiced (selected activities)");
        selected.state = stateOf(counts.selectedInvoiced, n);
    } else {
        selected.title = tr("Mark as invoiced (selected activities)");
    }
    items[InvoicedSelected] = selected;

    Item all { counts.listed > 0, {}, Qt::Unchecked };
    if (counts.listedInvoiced > 0) {
        all.title = tr("Is Invoiced (all activities)");
        all.state = stateOf(counts.listedInvoiced, counts.listed);
    } else {
        all.title = tr("Mark as invoiced (all activities)");
    }
    items[InvoicedAll] = all;

    items[ExportSelected] = { n >= 1, tr("Export selected activities..."), Qt::Unchecked };
    items[ExportAll] = { counts.listed > 0, tr("Export all activities..."), Qt::Unchecked };
    items[DeleteSelected] = { n >= 1, tr("Delete selected activities..."), Qt::Unchecked };
    return items;
}

bool ReportActionMenu::invoicedValueFor(Qt::CheckState clickedItemState)
{
    return clickedItemState != Qt::Checked;
}

QString ReportActionMenu::importSelectedTitle(int selected)
{
    return selected == 1 ? tr("Import selected activity") : tr("Import selected activities");
}
