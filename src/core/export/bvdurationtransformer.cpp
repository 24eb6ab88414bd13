#include "export/bvdurationtransformer.h"

#include <charconv>

#include "base/variantnumber.h"

namespace {

// "%.2ld": at least two digits, the sign in front of them.
void appendTwoDigits(QString &out, qint64 value)
{
    quint64 magnitude = value < 0 ? 0 - quint64(value) : quint64(value);
    if (value < 0)
        out += u'-';
    char digits[24];
    int length = 0;
    do {
        digits[length++] = char('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (length < 2)
        digits[length++] = '0';
    while (length > 0)
        out += QLatin1Char(digits[--length]);
}

// "%.*f" of the C library in the "C" locale, whatever LC_NUMERIC says: ties of the exact binary value
// round to even, as printf does.
QString fixed(double value, int precision)
{
    char buffer[400];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, precision);
    return QString::fromLatin1(buffer, result.ptr - buffer);
}

} // namespace

QString BVDurationTransformer::transformedValue(const QVariant &value) const
{
    if (!VariantNumber::isNumber(value))
        return QStringLiteral("");
    if (VariantNumber::isFloating(value)) {
        const double seconds = value.toDouble();
        return render(VariantNumber::truncated(seconds), float(seconds));
    }
    if (value.typeId() == QMetaType::ULongLong || value.typeId() == QMetaType::ULong) {
        const qulonglong seconds = value.toULongLong();
        return render(qint64(seconds), float(seconds));
    }
    const qint64 seconds = value.toLongLong();
    return render(seconds, float(seconds));
}

QString BVDurationTransformer::transformedValue(qint64 seconds) const
{
    return render(seconds, float(seconds));
}

QString BVDurationTransformer::render(qint64 whole, float seconds) const
{
    QString text;
    switch (m_format) {
    case 0:
        text.reserve(m_prefix.size() + 8);
        text += m_prefix;
        appendTwoDigits(text, whole / 3600);
        text += u':';
        appendTwoDigits(text, (whole / 60) % 60);
        text += u':';
        appendTwoDigits(text, whole % 60);
        return text;
    case 1:
        return m_prefix + fixed(double(seconds / 60.0f), 0);
    case 2:
        return m_prefix + fixed(double(seconds / 3600.0f), 4);
    default:
        return {};
    }
}
