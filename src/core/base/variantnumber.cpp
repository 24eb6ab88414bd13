#include "base/variantnumber.h"

#include <cmath>
#include <limits>

bool VariantNumber::isInteger(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Short:
    case QMetaType::UShort:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return true;
    default:
        return false;
    }
}

bool VariantNumber::isFloating(const QVariant &value)
{
    return value.typeId() == QMetaType::Float || value.typeId() == QMetaType::Double;
}

bool VariantNumber::isNumber(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Char:
    case QMetaType::SChar:
    case QMetaType::UChar:
        return true;
    default:
        return isInteger(value) || isFloating(value);
    }
}

qint64 VariantNumber::truncated(double value)
{
    if (std::isnan(value))
        return 0;
    if (value >= 9.2e18)
        return std::numeric_limits<qint64>::max();
    if (value <= -9.2e18)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(value);
}
