#pragma once

#include <expected>
#include <optional>
#include <vector>

#include <QAbstractTableModel>
#include <QHash>
#include <QSet>
#include <QStringList>

#include "base/bverror.h"
#include "export/bvdurationtransformer.h"
#include "model/activityquery.h"
#include "model/activityrecord.h"
#include "model/likepattern.h"

class Store;

// The report's rows: the activities a query lists, newest first, held as plain records (no object per
// row), so that a whole journal stays light. Loading keeps the records of the last query without its text,
// project, task and invoiced conditions: a query that differs from it only in those filters them in memory,
// with the store's own rules (LikePattern for the text, names for the row ids), instead of reading the
// store again. Main thread.
class ReportTableModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    // The table's columns; the text column is always shown.
    enum Column { FromColumn, ToColumn, DurationColumn, ProjectColumn, TasksColumn, TextColumn, ColumnCount };
    enum Role {
        // The tags drawn after a row's text: "Invoiced" for an invoiced activity (the value of
        // BvTaggedTextFieldCell::TagsRole).
        TagsRole = Qt::UserRole + 1,
        UidRole = Qt::UserRole + 10,
        InvoicedRole,
        DurationSecondsRole,
    };

    explicit ReportTableModel(Store &store, QObject *parent = nullptr);

    // The fixed identifiers ("activity-from" ...) and header-menu tags (30-34; none for the text column).
    static QString columnIdentifier(int column);
    static int columnTag(int column);
    static int columnForTag(int tag);
    static QString invoicedTag();

    // performQuery: lists what `query` matches. The store is read again only when something other than the
    // text condition changed or invalidate() was called; on failure the rows stay as they were.
    std::expected<void, BvError> load(const ActivityQuery &query);
    // The store changed: the next load reads it again.
    void invalidate() { m_loaded = false; }
    // Some activities were updated (the running one's end moving on, every half minute): re-reads just
    // them by uid, changes their rows in place and the totals with them. False, with nothing changed, when
    // an update may move a row or bring one in or out of the list (a new start, a range or filter left or
    // entered): the caller then loads again.
    std::expected<bool, BvError> refreshRecords(const QSet<QString> &uids);

    const ActivityRecord &record(int row) const { return m_records[m_rows[std::size_t(row)]]; }
    QString uid(int row) const { return record(row).uid; }
    // The row listing this uid, or -1.
    int rowOfUid(const QString &uid) const;
    QStringList uids(const QList<int> &rows) const;
    int listedCount() const { return int(m_rows.size()); }
    // The listed records in table order (a copy: the chart reads them while the table goes on).
    std::vector<ActivityRecord> listedRecords() const;

    // The whole list's duration and its invoiced rows, as of the last load.
    double totalSeconds() const { return m_totalSeconds; }
    int invoicedCount() const { return m_invoicedCount; }
    double totalSeconds(const QList<int> &rows) const;
    int invoicedCount(const QList<int> &rows) const;

    // The duration column's format (0 formatted, 1 minutes, 2 decimal hours): centred for 0, right for
    // the others. Only the column's cells change.
    void setDurationFormat(int format);
    const BVDurationTransformer &durationTransformer() const { return m_transformer; }

    // The column's value as copied and shown: start and end in the user's short format, the duration in
    // the chosen format, project, tasks, text; an absent value is empty.
    QString text(int row, int column) const;
    // copy:: the rows in the given column order, each value followed by a tab and each row by "\n".
    QString plainText(const QList<int> &rows, const QList<int> &columns) const;
    // The same as an HTML table, one cell per value.
    QString htmlText(const QList<int> &rows, const QList<int> &columns) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    std::expected<void, BvError> filter(const ActivityQuery &query);
    // Whether the record at this index passes the last query's in-memory conditions.
    bool passes(const ActivityRecord &record, const QString &folded) const;
    int recordIndexOfUid(const QString &uid, bool few) const;

    Store &m_store;
    std::vector<ActivityRecord> m_records;
    // The records' texts folded for matching, made on the first search after a read.
    std::vector<QString> m_foldedTexts;
    std::vector<int> m_rows;
    ActivityQuery m_baseQuery;
    // The last query's in-memory conditions: names for the row ids, and the text pattern.
    ActivityQuery m_query;
    std::optional<QSet<QString>> m_projectNames;
    std::optional<QSet<QString>> m_taskNames;
    std::optional<LikePattern> m_pattern;
    bool m_loaded = false;
    double m_totalSeconds = 0;
    int m_invoicedCount = 0;
    BVDurationTransformer m_transformer;
    mutable QHash<QString, int> m_rowOfUid;
    mutable bool m_rowOfUidValid = false;
    mutable QHash<QString, int> m_recordOfUid;
};
