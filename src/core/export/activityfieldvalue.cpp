#include "export/activityfieldvalue.h"

#include "export/dateformattercache.h"

QString ActivityFieldValue::valueForField(const Activity &activity, const CSVTokenField &field)
{
    const ActivityTokenValue &token = field.tokenValue();
    switch (field.tokenType().valueType()) {
    case ActivityTokenType::ActivityType:
        switch (token.value()) {
        case ActivityTokenValue::Text:
            return activity.text();
        case ActivityTokenValue::ProjectName:
            return activity.project() ? activity.project()->name() : QStringLiteral("");
        case ActivityTokenValue::TaskTags:
            return activity.tasks().isEmpty() ? QStringLiteral("") : activity.tasksStr();
        case ActivityTokenValue::Uid:
            return activity.uid();
        case ActivityTokenValue::InvoicedStatus:
            return activity.isInvoiced() ? QStringLiteral("1") : QStringLiteral("0");
        default:
            return QStringLiteral("");
        }
    case ActivityTokenType::DurationType:
        if (const BVDurationTransformer *transformer = token.transformer())
            return transformer->transformedValue(activity.durationSecs());
        return QStringLiteral("");
    case ActivityTokenType::DateType: {
        const std::shared_ptr<const ActivityDateFormatter> formatter = DateFormatterCache::getFormatterForValue(token);
        return formatter->stringFromDate(formatter->isEndTime() ? activity.timeTo() : activity.timeFrom());
    }
    default:
        return QStringLiteral("");
    }
}
