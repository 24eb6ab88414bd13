#include "export/activitytokentype.h"

QString ActivityTokenType::activityTokenToString(int valueType)
{
    switch (valueType) {
    case DateType:
        return tr("Date");
    case DurationType:
        return tr("Duration");
    case ActivityType:
        return tr("Activity");
    default:
        return QStringLiteral("---");
    }
}
