#include "export/activityfieldvalue.h"

#include "export/dateformattercache.h"

namespace {

// What a column reads of an activity, for the live entity and for a plain record alike.
QString projectName(const Activity &activity)
{
    return activity.project() ? activity.project()->name() : QStringLiteral("");
}

QString projectName(const ActivityRecord &record)
{
    return record.project.isNull() ? QStringLiteral("") : record.project;
}

QString taskNames(const Activity &activity)
{
    return activity.tasks().isEmpty() ? QStringLiteral("") : activity.tasksStr();
}

QString taskNames(const ActivityRecord &record)
{
    return record.tasks.join(QStringLiteral(", "));
}

void appendDate(QString &out, const ActivityDateFormatter &formatter, const Activity &activity)
{
    formatter.appendStringFromDate(out, formatter.isEndTime() ? activity.timeTo() : activity.timeFrom());
}

void appendDate(QString &out, const ActivityDateFormatter &formatter, const ActivityRecord &record)
{
    formatter.appendStringFromMSecs(out, formatter.isEndTime() ? record.timeTo : record.timeFrom);
}

QString text(const Activity &activity)
{
    return activity.text();
}

QString text(const ActivityRecord &record)
{
    return record.text;
}

QString uid(const Activity &activity)
{
    return activity.uid();
}

QString uid(const ActivityRecord &record)
{
    return record.uid;
}

bool isInvoiced(const Activity &activity)
{
    return activity.isInvoiced();
}

bool isInvoiced(const ActivityRecord &record)
{
    return record.isInvoiced;
}

template<typename Item> void appendValue(QString &out, const Item &activity, const CSVTokenField &field)
{
    const ActivityTokenValue &token = field.tokenValue();
    switch (field.tokenType().valueType()) {
    case ActivityTokenType::ActivityType:
        switch (token.value()) {
        case ActivityTokenValue::Text:
            out += text(activity);
            return;
        case ActivityTokenValue::ProjectName:
            out += projectName(activity);
            return;
        case ActivityTokenValue::TaskTags:
            out += taskNames(activity);
            return;
        case ActivityTokenValue::Uid:
            out += uid(activity);
            return;
        case ActivityTokenValue::InvoicedStatus:
            out += isInvoiced(activity) ? u'1' : u'0';
            return;
        default:
            return;
        }
    case ActivityTokenType::DurationType:
        if (const BVDurationTransformer *transformer = token.transformer())
            transformer->appendTransformedValue(out, activity.durationSecs());
        return;
    case ActivityTokenType::DateType:
        appendDate(out, *DateFormatterCache::getFormatterForValue(token), activity);
        return;
    default:
        return;
    }
}

template<typename Item> QString valueFor(const Item &activity, const CSVTokenField &field)
{
    // Never null: an empty column is the empty string.
    QString value = QStringLiteral("");
    appendValue(value, activity, field);
    return value;
}

} // namespace

QString ActivityFieldValue::valueForField(const Activity &activity, const CSVTokenField &field)
{
    return valueFor(activity, field);
}

QString ActivityFieldValue::valueForField(const ActivityRecord &activity, const CSVTokenField &field)
{
    return valueFor(activity, field);
}

void ActivityFieldValue::appendValueForField(QString &out, const Activity &activity, const CSVTokenField &field)
{
    appendValue(out, activity, field);
}

void ActivityFieldValue::appendValueForField(QString &out, const ActivityRecord &activity, const CSVTokenField &field)
{
    appendValue(out, activity, field);
}
