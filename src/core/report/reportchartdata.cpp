#include "report/reportchartdata.h"

#include <algorithm>
#include <array>
#include <limits>

#include <QHash>
#include <QTime>

#include "base/datehelpers.h"
#include "base/localzone.h"

namespace {

constexpr qint64 MSecsPerDay = 86400 * 1000;
constexpr qint64 JulianDayOfEpoch = 2440588; // 1970-01-01

qint64 floorDiv(qint64 a, qint64 b)
{
    const qint64 q = a / b;
    return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

qint64 floorSeconds(qint64 msecs)
{
    return floorDiv(msecs, 1000);
}

// The user's local days as Julian day numbers, and where each begins. Records come sorted by time, so
// most ask about the same day as the one before; the last answer is kept.
class LocalDays
{
public:
    qint64 dayOf(qint64 secs) const
    {
        const qint64 msecs = secs * 1000;
        return floorDiv(msecs + LocalZone::offsetMSecs(msecs), MSecsPerDay) + JulianDayOfEpoch;
    }

    // The first second of the day after `day`. Where midnight is repeated (clocks set back at midnight)
    // the day begins at the first one; where it is skipped, at the first wall time that exists.
    qint64 startOfNextDay(qint64 day)
    {
        if (day != m_cachedDay) {
            const QDateTime start = DateHelpers::instantFromLocal(
                QDate::fromJulianDay(day + 1), QTime(0, 0), QTimeZone(), DateHelpers::RepeatedTime::Earlier);
            m_cachedDay = day;
            m_cachedNextStart = DateHelpers::floorSeconds(start);
        }
        return m_cachedNextStart;
    }

private:
    qint64 m_cachedDay = std::numeric_limits<qint64>::min();
    qint64 m_cachedNextStart = 0;
};

struct Piece
{
    qint64 day;
    int project;
    qint64 seconds;
};

struct Project
{
    QString name; // null for activities without one
    qint64 seconds = 0;
};

int monthIndex(qint64 day)
{
    const QDate date = QDate::fromJulianDay(day);
    return date.year() * 12 + date.month() - 1;
}

int yearOf(qint64 day)
{
    return QDate::fromJulianDay(day).year();
}

qint64 weekStart(qint64 day, Qt::DayOfWeek firstDayOfWeek)
{
    // Julian day 0 was a Monday.
    const qint64 weekday = day - floorDiv(day, 7) * 7 + 1;
    return day - (weekday - int(firstDayOfWeek) + 7) % 7;
}

} // namespace

int ReportChartData::preferredColorSlot(const QString &projectName)
{
    // FNV-1a over the case-folded UTF-16 text: unlike qHash it is not seeded per process.
    quint32 hash = 2166136261u;
    for (const QChar c : projectName.toCaseFolded()) {
        hash ^= c.unicode();
        hash *= 16777619u;
    }
    return int(hash % PaletteSize);
}

ReportChartData::ReportChartData(const std::vector<ActivityRecord> &listed, const std::optional<QDateTime> &from,
    const std::optional<QDateTime> &to, Qt::DayOfWeek firstDayOfWeek)
{
    const bool bounded = from && to && from->isValid() && to->isValid();
    const qint64 fromMSecs = bounded ? from->toMSecsSinceEpoch() : std::numeric_limits<qint64>::min();
    const qint64 toMSecs = bounded ? to->toMSecsSinceEpoch() : std::numeric_limits<qint64>::max();

    LocalDays days;
    std::vector<Piece> pieces;
    pieces.reserve(listed.size() + listed.size() / 8);
    std::vector<Project> projects;
    QHash<QString, int> projectIndex;
    qint64 firstDay = std::numeric_limits<qint64>::max();
    qint64 lastDay = std::numeric_limits<qint64>::min();

    for (const ActivityRecord &record : listed) {
        qint64 start = floorSeconds(std::max(record.timeFrom, fromMSecs));
        const qint64 end = floorSeconds(std::min(record.timeTo, toMSecs));
        if (end <= start)
            continue;
        // A null and an empty project name both mean none; QHash treats them as one key.
        int project = int(projects.size());
        if (const auto found = projectIndex.constFind(record.project); found != projectIndex.constEnd()) {
            project = *found;
        } else {
            projectIndex.insert(record.project, project);
            projects.push_back({ record.project.isEmpty() ? QString() : record.project, 0 });
        }
        projects[project].seconds += end - start;
        qint64 day = days.dayOf(start);
        firstDay = std::min(firstDay, day);
        while (start < end) {
            const qint64 nextStart = std::max(days.startOfNextDay(day), start + 1);
            const qint64 partEnd = std::min(end, nextStart);
            pieces.push_back({ day, project, partEnd - start });
            start = partEnd;
            if (start < end)
                ++day;
        }
        lastDay = std::max(lastDay, day);
    }

    // Series: most time first; the tail folds into Other.
    std::vector<int> order;
    for (int i = 0; i < int(projects.size()); ++i)
        order.push_back(i);
    std::sort(order.begin(), order.end(), [&projects](int a, int b) {
        if (projects[a].seconds != projects[b].seconds)
            return projects[a].seconds > projects[b].seconds;
        const int byName = QString::compare(projects[a].name, projects[b].name, Qt::CaseInsensitive);
        return byName != 0 ? byName < 0 : projects[a].name < projects[b].name;
    });
    const int ownSeries = int(order.size()) > MaxSeries ? MaxSeries - 1 : int(order.size());
    std::vector<int> seriesOfProject(projects.size());
    std::array<bool, PaletteSize> slotTaken {};
    for (int rank = 0; rank < int(order.size()); ++rank) {
        const Project &project = projects[order[rank]];
        if (rank >= ownSeries) {
            if (rank == ownSeries)
                m_series.append({ SeriesKind::Other, QString(), {}, 0, -1 });
            m_series.last().folded.append(project.name.isNull() ? QStringLiteral("") : project.name);
            m_series.last().seconds += project.seconds;
            seriesOfProject[order[rank]] = ownSeries;
            continue;
        }
        Series series;
        series.seconds = project.seconds;
        if (project.name.isNull()) {
            series.kind = SeriesKind::NoProject;
        } else {
            series.name = project.name;
            int slot = preferredColorSlot(project.name);
            while (slotTaken[slot])
                slot = (slot + 1) % PaletteSize;
            slotTaken[slot] = true;
            series.colorSlot = slot;
        }
        seriesOfProject[order[rank]] = rank;
        m_series.append(series);
    }

    // The bars' span and width.
    if (bounded) {
        if (toMSecs <= fromMSecs)
            return;
        firstDay = days.dayOf(floorSeconds(fromMSecs));
        lastDay = days.dayOf(floorSeconds(toMSecs - 1));
    } else if (pieces.empty()) {
        return;
    }
    const qint64 firstWeek = weekStart(firstDay, firstDayOfWeek);
    const int firstMonth = monthIndex(firstDay);
    const int firstYear = yearOf(firstDay);
    qint64 count = lastDay - firstDay + 1;
    m_unit = Unit::Day;
    if (count > MaxBuckets) {
        m_unit = Unit::Week;
        count = (weekStart(lastDay, firstDayOfWeek) - firstWeek) / 7 + 1;
    }
    if (count > MaxBuckets) {
        m_unit = Unit::Month;
        count = monthIndex(lastDay) - firstMonth + 1;
    }
    if (count > MaxBuckets) {
        m_unit = Unit::Year;
        count = yearOf(lastDay) - firstYear + 1;
    }
    const auto bucketOf = [&](qint64 day) -> qint64 {
        switch (m_unit) {
        case Unit::Day:
            return day - firstDay;
        case Unit::Week:
            return (weekStart(day, firstDayOfWeek) - firstWeek) / 7;
        case Unit::Month:
            return monthIndex(day) - firstMonth;
        case Unit::Year:
            return yearOf(day) - firstYear;
        }
        return 0;
    };

    m_buckets.resize(size_t(count));
    const QDate firstDate = QDate::fromJulianDay(firstDay);
    const QDate lastDate = QDate::fromJulianDay(lastDay);
    for (qint64 i = 0; i < count; ++i) {
        Bucket &bucket = m_buckets[size_t(i)];
        bucket.seconds.assign(size_t(m_series.size()), 0);
        QDate first;
        QDate last;
        switch (m_unit) {
        case Unit::Day:
            first = last = firstDate.addDays(i);
            break;
        case Unit::Week:
            first = QDate::fromJulianDay(firstWeek + 7 * i);
            last = first.addDays(6);
            break;
        case Unit::Month:
            first = QDate(firstDate.year(), firstDate.month(), 1).addMonths(int(i));
            last = first.addMonths(1).addDays(-1);
            break;
        case Unit::Year:
            first = QDate(firstYear + int(i), 1, 1);
            last = QDate(firstYear + int(i), 12, 31);
            break;
        }
        bucket.first = std::max(first, firstDate);
        bucket.last = std::min(last, lastDate);
    }
    for (const Piece &piece : pieces) {
        Bucket &bucket = m_buckets[size_t(bucketOf(piece.day))];
        bucket.seconds[size_t(seriesOfProject[size_t(piece.project)])] += piece.seconds;
        bucket.total += piece.seconds;
        m_totalSeconds += piece.seconds;
    }
    for (const Bucket &bucket : m_buckets)
        m_maxBucketSeconds = std::max(m_maxBucketSeconds, bucket.total);
}
