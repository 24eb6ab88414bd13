#pragma once

#include <QList>
#include <QString>

#include "export/csvtokenfield.h"
#include "model/activity.h"
#include "model/activityrecord.h"

// Turns activities into CSV rows with a fixed layout: every field is the activity's rendering of its
// column, with each double quote doubled and the whole wrapped in double quotes (numbers and empty fields
// too), and the fields are joined by the separator. Main thread (see ActivityFieldValue).
class ActivityCSVFormatter
{
public:
    // An empty layout: every row is empty.
    ActivityCSVFormatter() = default;
    // initWithCSVFormat: keeps its own copy of the columns.
    explicit ActivityCSVFormatter(const QList<CSVTokenField> &csvFormat);

    const QList<CSVTokenField> &theFormat() const { return m_theFormat; }

    // One row, without line end.
    QString rowForActivity(const Activity &activity, const QString &withSeparator) const;
    // The same row appended to `out`, for building a whole file without a string per row.
    void appendRowForActivity(QString &out, const Activity &activity, const QString &withSeparator) const;
    void appendRowForActivity(QString &out, const ActivityRecord &activity, const QString &withSeparator) const;

private:
    template<typename Item> void appendRow(QString &out, const Item &activity, const QString &withSeparator) const;

    QList<CSVTokenField> m_theFormat;
    // The text between two fields for the last separator used.
    mutable QString m_between;
};
