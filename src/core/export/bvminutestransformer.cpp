#include "export/bvminutestransformer.h"

#include <cmath>

QString BvMinutesTransformer::transformedValue(const QVariant &value) const
{
    switch (value.typeId()) {
    case QMetaType::Float:
    case QMetaType::Double: {
        const double minutes = value.toDouble();
        // Out of the 64-bit range a cast would be undefined; no real count of minutes gets there.
        if (!std::isfinite(minutes) || std::fabs(minutes) >= 9.2e18)
            return QStringLiteral("");
        return transformedValue(qint64(minutes));
    }
    case QMetaType::Bool:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return transformedValue(value.toLongLong());
    default:
        return QStringLiteral("");
    }
}

QString BvMinutesTransformer::transformedValue(qint64 minutes) const
{
    const bool singular = minutes % 10 == 1 && minutes != 11;
    return QString::number(minutes) + u' ' + (singular ? tr("minute") : tr("minutes"));
}
