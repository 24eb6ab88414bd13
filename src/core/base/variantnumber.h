#pragma once

#include <QVariant>

// What kind of number a QVariant holds, read the way a stored number was read on the first platform: an
// integer type, a floating-point type, or either of those or a boolean or character ("a number").
class VariantNumber
{
public:
    static bool isInteger(const QVariant &value);
    static bool isFloating(const QVariant &value);
    static bool isNumber(const QVariant &value);
    // A floating-point number cut to an integer as a C cast does, NaN giving 0 and values past the 64-bit
    // range saturating instead of being undefined.
    static qint64 truncated(double value);
};
