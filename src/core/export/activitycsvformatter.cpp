#include "export/activitycsvformatter.h"

#include <algorithm>

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
    appendRow(out, activity, withSeparator);
}

void ActivityCSVFormatter::appendRowForActivity(
    QString &out, const ActivityRecord &activity, const QString &withSeparator) const
{
    appendRow(out, activity, withSeparator);
}

template<typename Item>
void ActivityCSVFormatter::appendRow(QString &out, const Item &activity, const QString &withSeparator) const
{
    if (m_theFormat.isEmpty())
        return;
    // Between two fields: the closing quote, the separator and the opening quote, in one append.
    if (m_between.size() != withSeparator.size() + 2 || QStringView(m_between).sliced(1).chopped(1) != withSeparator)
        m_between = u'"' + withSeparator + u'"';
    out += u'"';
    bool first = true;
    for (const CSVTokenField &field : m_theFormat) {
        if (!first)
            out += m_between;
        first = false;
        const qsizetype start = out.size();
        ActivityFieldValue::appendValueForField(out, activity, field);
        // A double quote in a value is doubled. Values hardly ever hold one, so the value is written
        // first and mended only when it does.
        const QChar *end = out.constData() + out.size();
        if (std::find(out.constData() + start, end, u'"') != end) {
            const QString value = out.sliced(start);
            out.truncate(start);
            qsizetype from = 0;
            for (qsizetype quote = value.indexOf(u'"'); quote >= 0; quote = value.indexOf(u'"', from)) {
                out += QStringView(value).mid(from, quote + 1 - from);
                out += u'"';
                from = quote + 1;
            }
            out += QStringView(value).mid(from);
        }
    }
    out += u'"';
}
