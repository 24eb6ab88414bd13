#pragma once

#include <optional>

#include <QCoreApplication>
#include <QString>

class BVDurationTransformer;

// The line under the report's table: the whole list's duration and, with two or more rows selected, the
// selection's first.
class ReportTotals
{
    Q_DECLARE_TR_FUNCTIONS(ReportTotals)

public:
    // "Total: -" before the first computation (no total), "Total: %@ / %@" with a selected total
    // (selected first), else "Total: %@"; durations through `transformer`.
    static QString labelText(const std::optional<double> &totalSeconds,
        const std::optional<double> &totalSecondsSelected, const BVDurationTransformer &transformer);
    // The selection's total only for two or more selected rows.
    static std::optional<double> selectedTotal(int selectedRows, double selectedSeconds);
};
