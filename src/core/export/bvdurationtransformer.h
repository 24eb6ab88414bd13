#pragma once

#include <QMetaType>
#include <QString>
#include <QVariant>

// Renders a duration given in whole seconds as text, in one of three formats:
//   0  hours, minutes and seconds, "%.2ld:%.2ld:%.2ld" (4365 s gives "01:12:45", 90000 s "25:00:00");
//   1  whole minutes, rounded to the nearest ("73" for 4365 s);
//   2  decimal hours with four decimals ("1.2125" for 4365 s).
// Formats 1 and 2 divide in single precision, so their rounding is that of a 32-bit float; the output
// always uses "." as decimal point, whatever the user's locale.
class BVDurationTransformer
{
public:
    explicit BVDurationTransformer(int format = 0)
        : m_format(format)
    { }

    int format() const { return m_format; }
    void setFormat(int format) { m_format = format; }
    // Put in front of every rendered value; a null string for none.
    QString prefix() const { return m_prefix; }
    void setPrefix(const QString &prefix) { m_prefix = prefix; }

    // What transformedValue answers: text.
    static QMetaType transformedValueClass() { return QMetaType::fromType<QString>(); }

    // The rendering of a number of seconds; the empty string for anything that is not a number (text that
    // holds digits included) and a null string for a format other than 0..2.
    QString transformedValue(const QVariant &value) const;
    QString transformedValue(qint64 seconds) const;
    // The rendering of `seconds` appended to `out`; nothing for a format other than 0..2.
    void appendTransformedValue(QString &out, qint64 seconds) const;

private:
    QString render(qint64 whole, float seconds) const;
    bool appendRendered(QString &out, qint64 whole, float seconds) const;

    int m_format = 0;
    QString m_prefix;
};
