#include "report/reporttablemodel.h"

#include <algorithm>

#include <QSet>

#include "model/activity.h"
#include "model/journalqueries.h"
#include "model/likepattern.h"
#include "model/storecontext.h"

namespace {
bool sameWithoutText(const ActivityQuery &a, const ActivityQuery &b)
{
    return a.startsFrom == b.startsFrom && a.startsUntil == b.startsUntil && a.overlapsFrom == b.overlapsFrom
        && a.overlapsUntil == b.overlapsUntil && a.endsUntil == b.endsUntil && a.yearMonth == b.yearMonth
        && a.isInvoiced == b.isInvoiced && a.uid == b.uid && a.projectIds == b.projectIds && a.taskIds == b.taskIds
        && a.order == b.order && a.limit == b.limit;
}

QString escaped(const QString &text)
{
    return text.toHtmlEscaped();
}
} // namespace

ReportTableModel::ReportTableModel(Store &store, QObject *parent)
    : QAbstractTableModel(parent)
    , m_store(store)
{ }

QString ReportTableModel::columnIdentifier(int column)
{
    switch (column) {
    case FromColumn:
        return QStringLiteral("activity-from");
    case ToColumn:
        return QStringLiteral("activity-to");
    case DurationColumn:
        return QStringLiteral("activity-duration");
    case ProjectColumn:
        return QStringLiteral("activity-project");
    case TasksColumn:
        return QStringLiteral("activity-tasks");
    case TextColumn:
        return QStringLiteral("activity-text");
    default:
        return {};
    }
}

int ReportTableModel::columnTag(int column)
{
    return column >= FromColumn && column < TextColumn ? 30 + column : 0;
}

int ReportTableModel::columnForTag(int tag)
{
    return tag >= 30 && tag <= 34 ? tag - 30 : -1;
}

QString ReportTableModel::invoicedTag()
{
    return tr("Invoiced");
}

namespace {
// The names of the projects (tasks) with these row ids: a name is unique, and a record carries names.
template<typename Items> QSet<QString> namesOf(const Items &items, const QList<qint64> &ids)
{
    QSet<QString> names;
    for (const auto &item : items) {
        if (ids.contains(item->objectId()))
            names.insert(item->name());
    }
    return names;
}
} // namespace

std::expected<void, BvError> ReportTableModel::load(const ActivityQuery &query)
{
    ActivityQuery base = query;
    base.textLike.reset();
    base.projectIds.reset();
    base.taskIds.reset();
    base.isInvoiced.reset();
    const bool reread = !m_loaded || !sameWithoutText(base, m_baseQuery);
    std::vector<ActivityRecord> records;
    if (reread) {
        auto fetched = JournalQueries(m_store).fetchActivityRecords(base);
        if (!fetched)
            return std::unexpected(fetched.error());
        records = std::move(*fetched);
    }
    beginResetModel();
    if (reread) {
        m_records = std::move(records);
        m_foldedTexts.clear();
        m_recordOfUid.clear();
        m_baseQuery = base;
        m_loaded = true;
    }
    const auto filtered = filter(query);
    endResetModel();
    return filtered;
}

std::expected<void, BvError> ReportTableModel::filter(const ActivityQuery &query)
{
    std::optional<QSet<QString>> projects;
    std::optional<QSet<QString>> tasks;
    if (query.projectIds || query.taskIds) {
        StoreContext context(m_store);
        if (query.projectIds) {
            const auto all = context.projects();
            if (!all)
                return std::unexpected(all.error());
            projects = namesOf(*all, *query.projectIds);
        }
        if (query.taskIds) {
            const auto all = context.tasks();
            if (!all)
                return std::unexpected(all.error());
            tasks = namesOf(*all, *query.taskIds);
        }
    }
    const std::optional<QString> &textLike = query.textLike;
    if (textLike && m_foldedTexts.size() != m_records.size()) {
        m_foldedTexts.clear();
        m_foldedTexts.reserve(m_records.size());
        for (const ActivityRecord &record : m_records)
            m_foldedTexts.push_back(LikePattern::fold(record.text));
    }
    m_rows.clear();
    m_rows.reserve(m_records.size());
    m_totalSeconds = 0;
    m_invoicedCount = 0;
    m_rowOfUidValid = false;
    m_query = query;
    m_projectNames = std::move(projects);
    m_taskNames = std::move(tasks);
    m_pattern = textLike ? std::optional(LikePattern(*textLike)) : std::nullopt;
    qint64 seconds = 0;
    for (std::size_t i = 0; i < m_records.size(); ++i) {
        const ActivityRecord &record = m_records[i];
        if (!passes(record, m_pattern ? m_foldedTexts[i] : QString()))
            continue;
        m_rows.push_back(int(i));
        seconds += record.durationSecs();
        if (record.isInvoiced)
            ++m_invoicedCount;
    }
    m_totalSeconds = double(seconds);
    return {};
}

bool ReportTableModel::passes(const ActivityRecord &record, const QString &folded) const
{
    if (m_query.isInvoiced && record.isInvoiced != *m_query.isInvoiced)
        return false;
    if (m_projectNames && (record.project.isNull() || !m_projectNames->contains(record.project)))
        return false;
    if (m_taskNames && std::none_of(record.tasks.cbegin(), record.tasks.cend(), [&](const QString &task) {
            return m_taskNames->contains(task);
        }))
        return false;
    // The store never matches an activity without text, whatever the pattern.
    return !m_pattern || (!record.text.isNull() && m_pattern->matchesFolded(folded));
}

int ReportTableModel::recordIndexOfUid(const QString &uid, bool few) const
{
    // A few look-ups scan (well under a millisecond for 100,000 records); more build the index once.
    if (few && m_recordOfUid.isEmpty()) {
        const auto found = std::find_if(
            m_records.cbegin(), m_records.cend(), [&](const ActivityRecord &record) { return record.uid == uid; });
        return found == m_records.cend() ? -1 : int(found - m_records.cbegin());
    }
    if (m_recordOfUid.isEmpty() && !m_records.empty()) {
        m_recordOfUid.reserve(qsizetype(m_records.size()));
        for (std::size_t i = 0; i < m_records.size(); ++i)
            m_recordOfUid.insert(m_records[i].uid, int(i));
    }
    return m_recordOfUid.value(uid, -1);
}

std::expected<bool, BvError> ReportTableModel::refreshRecords(const QSet<QString> &uids)
{
    if (!m_loaded)
        return false;
    std::vector<std::pair<int, ActivityRecord>> changed;
    for (const QString &uid : uids) {
        ActivityQuery query = m_baseQuery;
        query.uid = uid;
        // One row: unordered, so the store looks it up by uid instead of walking the start index.
        query.order = ActivityQuery::Order::Unordered;
        auto fetched = JournalQueries(m_store).fetchActivityRecords(query);
        if (!fetched)
            return std::unexpected(fetched.error());
        const int recordIndex = recordIndexOfUid(uid, uids.size() <= 8);
        if (fetched->empty() && recordIndex < 0)
            continue;
        // In or out of the range, or a new start: the order may change.
        if (fetched->empty() || recordIndex < 0
            || fetched->front().timeFrom != m_records[std::size_t(recordIndex)].timeFrom)
            return false;
        changed.emplace_back(recordIndex, std::move(fetched->front()));
    }
    const auto foldedOf
        = [this](const ActivityRecord &record) { return m_pattern ? LikePattern::fold(record.text) : QString(); };
    for (const auto &[recordIndex, record] : changed) {
        const ActivityRecord &old = m_records[std::size_t(recordIndex)];
        if (passes(old, foldedOf(old)) != passes(record, foldedOf(record)))
            return false;
    }
    const int lastColumn = ColumnCount - 1;
    for (auto &[recordIndex, record] : changed) {
        ActivityRecord &old = m_records[std::size_t(recordIndex)];
        // The listed rows hold record indexes in ascending order.
        int row = -1;
        if (passes(old, foldedOf(old))) {
            const auto found = std::lower_bound(m_rows.cbegin(), m_rows.cend(), recordIndex);
            row = found != m_rows.cend() && *found == recordIndex ? int(found - m_rows.cbegin()) : -1;
        }
        if (row >= 0) {
            m_totalSeconds += double(record.durationSecs() - old.durationSecs());
            m_invoicedCount += int(record.isInvoiced) - int(old.isInvoiced);
        }
        if (!m_foldedTexts.empty())
            m_foldedTexts[std::size_t(recordIndex)] = LikePattern::fold(record.text);
        old = std::move(record);
        if (row >= 0)
            Q_EMIT dataChanged(index(row, 0), index(row, lastColumn));
    }
    return true;
}

int ReportTableModel::rowOfUid(const QString &uid) const
{
    if (!m_rowOfUidValid) {
        m_rowOfUid.clear();
        m_rowOfUid.reserve(qsizetype(m_rows.size()));
        for (std::size_t row = 0; row < m_rows.size(); ++row)
            m_rowOfUid.insert(m_records[m_rows[row]].uid, int(row));
        m_rowOfUidValid = true;
    }
    return m_rowOfUid.value(uid, -1);
}

std::vector<ActivityRecord> ReportTableModel::listedRecords() const
{
    std::vector<ActivityRecord> records;
    records.reserve(m_rows.size());
    for (int index : m_rows)
        records.push_back(m_records[std::size_t(index)]);
    return records;
}

QStringList ReportTableModel::uids(const QList<int> &rows) const
{
    QStringList uids;
    uids.reserve(rows.size());
    for (int row : rows)
        uids.append(uid(row));
    return uids;
}

double ReportTableModel::totalSeconds(const QList<int> &rows) const
{
    qint64 seconds = 0;
    for (int row : rows)
        seconds += record(row).durationSecs();
    return double(seconds);
}

int ReportTableModel::invoicedCount(const QList<int> &rows) const
{
    int count = 0;
    for (int row : rows)
        count += record(row).isInvoiced ? 1 : 0;
    return count;
}

void ReportTableModel::setDurationFormat(int format)
{
    if (format == m_transformer.format())
        return;
    m_transformer.setFormat(format);
    if (!m_rows.empty())
        Q_EMIT dataChanged(index(0, DurationColumn), index(rowCount() - 1, DurationColumn),
            { Qt::DisplayRole, Qt::TextAlignmentRole });
}

QString ReportTableModel::text(int row, int column) const
{
    const ActivityRecord &activity = record(row);
    switch (column) {
    case FromColumn:
        return Activity::dateStr(ActivityRecord::instant(activity.timeFrom));
    case ToColumn:
        return Activity::dateStr(ActivityRecord::instant(activity.timeTo));
    case DurationColumn:
        return m_transformer.transformedValue(activity.durationSecs());
    case ProjectColumn:
        return activity.project.isNull() ? QStringLiteral("") : activity.project;
    case TasksColumn:
        return activity.tasks.join(QStringLiteral(", "));
    case TextColumn:
        return activity.text.isNull() ? QStringLiteral("") : activity.text;
    default:
        return {};
    }
}

QString ReportTableModel::plainText(const QList<int> &rows, const QList<int> &columns) const
{
    QString out;
    for (int row : rows) {
        for (int column : columns) {
            out += text(row, column);
            out += QLatin1Char('\t');
        }
        out += QLatin1Char('\n');
    }
    return out;
}

QString ReportTableModel::htmlText(const QList<int> &rows, const QList<int> &columns) const
{
    QString out = QStringLiteral("<table>");
    for (int row : rows) {
        out += QStringLiteral("<tr>");
        for (int column : columns)
            out += QStringLiteral("<td>") + escaped(text(row, column)) + QStringLiteral("</td>");
        out += QStringLiteral("</tr>");
    }
    out += QStringLiteral("</table>");
    return out;
}

int ReportTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

int ReportTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant ReportTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return text(index.row(), index.column());
    case Qt::TextAlignmentRole:
        if (index.column() == DurationColumn)
            return int((m_transformer.format() == 0 ? Qt::AlignHCenter : Qt::AlignRight) | Qt::AlignVCenter);
        return {};
    case TagsRole:
        if (index.column() == TextColumn && record(index.row()).isInvoiced)
            return QStringList { invoicedTag() };
        return {};
    case UidRole:
        return record(index.row()).uid;
    case InvoicedRole:
        return record(index.row()).isInvoiced;
    case DurationSecondsRole:
        return record(index.row()).durationSecs();
    default:
        return {};
    }
}

QVariant ReportTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case FromColumn:
        return tr("From");
    case ToColumn:
        return tr("To");
    case DurationColumn:
        return tr("Duration");
    case ProjectColumn:
        return tr("Project");
    case TasksColumn:
        return tr("Tasks");
    case TextColumn:
        return tr("Activity");
    default:
        return {};
    }
}
