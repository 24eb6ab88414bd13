#include "export/dateformattercache.h"

#include <QHash>

namespace {

using FormatterMap = QHash<int, std::shared_ptr<const ActivityDateFormatter>>;

std::unique_ptr<FormatterMap> &cache()
{
    static std::unique_ptr<FormatterMap> s_cache;
    return s_cache;
}

} // namespace

std::shared_ptr<const ActivityDateFormatter> DateFormatterCache::getFormatterForValue(const ActivityTokenValue &value)
{
    return getFormatterForValue(value.value());
}

std::shared_ptr<const ActivityDateFormatter> DateFormatterCache::getFormatterForValue(int value)
{
    std::unique_ptr<FormatterMap> &map = cache();
    if (!map)
        map = std::make_unique<FormatterMap>();
    auto found = map->constFind(value);
    if (found != map->constEnd())
        return found.value();
    std::shared_ptr<const ActivityDateFormatter> formatter = makeFormatter(value);
    map->insert(value, formatter);
    return formatter;
}

void DateFormatterCache::clearCache()
{
    cache().reset();
}

std::shared_ptr<const ActivityDateFormatter> DateFormatterCache::makeFormatter(int value)
{
    auto formatter = std::make_shared<ActivityDateFormatter>();
    QString pattern;
    bool endTime = false;
    switch (value) {
    case ActivityTokenValue::EndDateUniversal:
        endTime = true;
        [[fallthrough]];
    case ActivityTokenValue::StartDateUniversal:
        pattern = QStringLiteral("yyyy-MM-dd");
        break;
    case ActivityTokenValue::EndDateLocal:
        endTime = true;
        [[fallthrough]];
    case ActivityTokenValue::StartDateLocal:
        formatter->setDateStyle(ActivityDateFormatter::Style::ShortStyle);
        formatter->setTimeStyle(ActivityDateFormatter::Style::NoStyle);
        break;
    case ActivityTokenValue::EndTime:
        endTime = true;
        [[fallthrough]];
    case ActivityTokenValue::StartTime:
        pattern = QStringLiteral("HH:mm:ss");
        break;
    case ActivityTokenValue::EndDateTime:
        endTime = true;
        [[fallthrough]];
    case ActivityTokenValue::StartDateTime:
        // Three y's on purpose: export and import have always written and read the year this way.
        pattern = QStringLiteral("yyy-MM-dd'T'HH:mm:ss");
        break;
    case ActivityTokenValue::EndYear:
        endTime = true;
        [[fallthrough]];
    case ActivityTokenValue::StartYear:
        pattern = QStringLiteral("yyyy");
        break;
    case ActivityTokenValue::EndMonth:
        endTime = true;
        [[fallthrough]];
    case ActivityTokenValue::StartMonth:
        pattern = QStringLiteral("MM");
        break;
    case ActivityTokenValue::EndDay:
        endTime = true;
        [[fallthrough]];
    case ActivityTokenValue::StartDay:
        pattern = QStringLiteral("dd");
        break;
    case ActivityTokenValue::EndHour:
        endTime = true;
        [[fallthrough]];
    case ActivityTokenValue::StartHour:
        pattern = QStringLiteral("HH");
        break;
    case ActivityTokenValue::EndMinute:
        endTime = true;
        [[fallthrough]];
    case ActivityTokenValue::StartMinute:
        pattern = QStringLiteral("mm");
        break;
    case ActivityTokenValue::EndSecond:
        endTime = true;
        [[fallthrough]];
    case ActivityTokenValue::StartSecond:
        pattern = QStringLiteral("ss");
        break;
    default:
        break;
    }
    if (!pattern.isEmpty())
        formatter->setDateFormat(pattern);
    formatter->setIsEndTime(endTime);
    return formatter;
}
