#include "export/bvdurationtransformer.h"

#include <charconv>
#include <iterator>

#include "base/variantnumber.h"

namespace {

// "%.2ld": at least two digits, the sign in front of them. Written backwards from `end`; answers where
// the text starts.
char16_t *twoDigitsBefore(char16_t *end, qint64 value)
{
    quint64 magnitude = value < 0 ? 0 - quint64(value) : quint64(value);
    char16_t *first = end;
    do {
        *--first = char16_t(u'0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (end - first < 2)
        *--first = u'0';
    if (value < 0)
        *--first = u'-';
    return first;
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

void BVDurationTransformer::appendTransformedValue(QString &out, qint64 seconds) const
{
    appendRendered(out, seconds, float(seconds));
}

QString BVDurationTransformer::render(qint64 whole, float seconds) const
{
    QString text;
    text.reserve(m_prefix.size() + 12);
    return appendRendered(text, whole, seconds) ? text : QString();
}

bool BVDurationTransformer::appendRendered(QString &out, qint64 whole, float seconds) const
{
    switch (m_format) {
    case 0: {
        // Put together backwards in one buffer and appended at once: exports render one per row.
        char16_t text[80];
        char16_t *first = twoDigitsBefore(std::end(text), whole % 60);
        *--first = u':';
        first = twoDigitsBefore(first, (whole / 60) % 60);
        *--first = u':';
        first = twoDigitsBefore(first, whole / 3600);
        out += m_prefix;
        out.append(reinterpret_cast<const QChar *>(first), std::end(text) - first);
        return true;
    }
    case 1:
        out += m_prefix + fixed(double(seconds / 60.0f), 0);
        return true;
    case 2:
        out += m_prefix + fixed(double(seconds / 3600.0f), 4);
        return true;
    default:
        return false;
    }
}
