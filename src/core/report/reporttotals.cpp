#include "report/reporttotals.h"

#include <cmath>

#include "export/bvdurationtransformer.h"

QString ReportTotals::labelText(const std::optional<double> &totalSeconds,
    const std::optional<double> &totalSecondsSelected, const BVDurationTransformer &transformer)
{
    if (!totalSeconds)
        return tr("Total: -");
    const QString total = transformer.transformedValue(qint64(std::llround(*totalSeconds)));
    if (totalSecondsSelected)
        return tr("Total: %1 / %2")
            .arg(transformer.transformedValue(qint64(std::llround(*totalSecondsSelected))), total);
    return tr("Total: %1").arg(total);
}

std::optional<double> ReportTotals::selectedTotal(int selectedRows, double selectedSeconds)
{
    if (selectedRows < 2)
        return std::nullopt;
    return selectedSeconds;
}
