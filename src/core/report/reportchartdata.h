#pragma once

#include <optional>
#include <vector>

#include <QDate>
#include <QDateTime>
#include <QList>
#include <QLocale>
#include <QString>
#include <QStringList>

#include "model/activityrecord.h"

// What the report's chart shows: the listed activities' time per bar (a local day, or a wider bucket when
// the range is long), stacked by project, and the total per project.
//
// Rules, all applied while reading the records once:
// - Time is counted on the user's local calendar (LocalZone): an activity that crosses midnight counts in
//   each day for its part, and a day that the clocks shorten or lengthen holds 23 or 25 hours.
// - With both bounds, only the part of an activity inside [from, to) counts and the bars cover every day
//   of the range, empty ones included. Without them the bars run from the first to the last day that
//   holds time.
// - Seconds are whole seconds as the activity's duration counts them (both instants truncated), so
//   without bounds the total equals the sum of the listed durations.
// - The bar is a day while the span has at most MaxBuckets days, else a calendar week (starting on
//   `firstDayOfWeek`), a month or a year: the first of these that needs at most MaxBuckets bars.
// - Series are ordered by time, most first (ties by name regardless of case). Activities without a
//   project make the series NoProject. With more than MaxSeries series, the first MaxSeries - 1 keep
//   their own and the rest fold into one Other series, placed last. A project whose listed time all lies
//   outside the range has no series.
// - A project's colour slot comes from its name, so it keeps its colour from one range to the next; two
//   shown projects never share a slot (a later one moves to the next free slot).
//
// Main thread or any one thread at a time (the local zone cache is per thread).
class ReportChartData
{
public:
    static constexpr int MaxBuckets = 62;
    static constexpr int MaxSeries = 8;
    static constexpr int PaletteSize = 12;

    enum class Unit { Day, Week, Month, Year };
    enum class SeriesKind { Project, NoProject, Other };

    struct Series
    {
        SeriesKind kind = SeriesKind::Project;
        QString name; // the project's name; empty for NoProject and Other
        QStringList folded; // Other: the folded projects, most time first ("" stands for no project)
        qint64 seconds = 0;
        int colorSlot = -1; // Project: 0 .. PaletteSize - 1; -1 for the others
    };

    struct Bucket
    {
        QDate first; // the bar's first and last local day, both within the range
        QDate last;
        std::vector<qint64> seconds; // per series, in the order of series()
        qint64 total = 0;
    };

    ReportChartData() = default;
    // `listed`: the report's records in any order. `from` and `to` bound the range only when both are
    // valid, as the report's query uses them.
    ReportChartData(const std::vector<ActivityRecord> &listed, const std::optional<QDateTime> &from,
        const std::optional<QDateTime> &to, Qt::DayOfWeek firstDayOfWeek = QLocale().firstDayOfWeek());

    Unit unit() const { return m_unit; }
    const QList<Series> &series() const { return m_series; }
    const std::vector<Bucket> &buckets() const { return m_buckets; }
    qint64 totalSeconds() const { return m_totalSeconds; }
    qint64 maxBucketSeconds() const { return m_maxBucketSeconds; }

    // The colour slot the name prefers: the same for a name in any letter case, in every run.
    static int preferredColorSlot(const QString &projectName);

private:
    Unit m_unit = Unit::Day;
    QList<Series> m_series;
    std::vector<Bucket> m_buckets;
    qint64 m_totalSeconds = 0;
    qint64 m_maxBucketSeconds = 0;
};
