#include "export/bvminutestransformer.h"

#include <cmath>

#include "base/variantnumber.h"

QString BvMinutesTransformer::transformedValue(const QVariant &value) const
{
    if (VariantNumber::isFloating(value)) {
        const double minutes = value.toDouble();
        // Out of the 64-bit range a cast would be undefined; no real count of minutes gets there.
        if (!std::isfinite(minutes) || std::fabs(minutes) >= 9.2e18)
            return QStringLiteral("");
        return transformedValue(qint64(minutes));
    }
    if (VariantNumber::isNumber(value))
        return transformedValue(value.toLongLong());
    return QStringLiteral("");
}

QString BvMinutesTransformer::transformedValue(qint64 minutes) const
{
    const bool singular = minutes % 10 == 1 && minutes != 11;
    return QString::number(minutes) + u' ' + (singular ? tr("minute") : tr("minutes"));
}
