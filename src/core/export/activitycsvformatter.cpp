#include "export/activitycsvformatter.h"

#include "export/activityfieldvalue.h"

ActivityCSVFormatter::ActivityCSVFormatter(const QList<CSVTokenField> &csvFormat)
    : m_theFormat(csvFormat)
{
    // Detached now, so that later changes to the caller's list cannot reach this layout.
    m_theFormat.detach();
}

QString ActivityCSVFormatter::rowForActivity(const Activity &activity, const QString &withSeparator) const
{
    QString row;
    appendRowForActivity(row, activity, withSeparator);
    return row;
}

void ActivityCSVFormatter::appendRowForActivity(
    QString &out, const Activity &activity, const QString &withSeparator) const
{
    bool first = true;
    for (const CSVTokenField &field : m_theFormat) {
        if (!first)
            out += withSeparator;
        first = false;
        const QString value = ActivityFieldValue::valueForField(activity, field);
        out += u'"';
        qsizetype from = 0;
        for (qsizetype quote = value.indexOf(u'"'); quote >= 0; quote = value.indexOf(u'"', from)) {
            out += QStringView(value).mid(from, quote + 1 - from);
            out += u'"';
            from = quote + 1;
        }
        out += QStringView(value).mid(from);
        out += u'"';
    }
}
