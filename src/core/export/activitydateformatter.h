#pragma once

#include <QDateTime>
#include <QList>
#include <QLocale>
#include <QString>
#include <QStringView>
#include <QVarLengthArray>

// Renders and reads instants with an ICU date pattern ("yyy-MM-dd'T'HH:mm:ss", "HH:mm:ss") or with the
// locale's short styles, in the user's locale and time zone. Qt's own format codes differ from ICU's,
// so the patterns are interpreted here: runs of y, M (L), d, H, m and s are fields, text inside single
// quotes is literal ('' is a quote), every other character stands for itself. A run's length is the
// minimum number of digits, except "yy", which is the last two digits of the year: so "yyy" pads the
// year to at least three digits and "yyyy" to four. Three or more M (L) give the month's name.
//
// The locale is QLocale::system() as it is when the formatter is made; the time zone is the user's at
// each call. Not thread-safe: one thread per formatter.
class ActivityDateFormatter
{
public:
    enum class Style { NoStyle, ShortStyle };

    // No pattern and no styles: renders the empty string and reads nothing.
    ActivityDateFormatter();
    explicit ActivityDateFormatter(const QString &dateFormat);

    // The ICU pattern; setting one turns the styles off.
    QString dateFormat() const { return m_dateFormat; }
    void setDateFormat(const QString &dateFormat);
    // The locale's short date and/or short time; setting a style replaces the pattern.
    Style dateStyle() const { return m_dateStyle; }
    void setDateStyle(Style dateStyle);
    Style timeStyle() const { return m_timeStyle; }
    void setTimeStyle(Style timeStyle);

    // Whether a token with this formatter renders the activity's end (true) or its start.
    bool isEndTime() const { return m_isEndTime; }
    void setIsEndTime(bool isEndTime) { m_isEndTime = isEndTime; }

    QLocale locale() const { return m_locale; }

    // The instant in the user's time zone; the empty string for an invalid instant.
    QString stringFromDate(const QDateTime &date) const;
    void appendStringFromDate(QString &out, const QDateTime &date) const;
    // The same for an instant in UTC milliseconds since 1970, without a QDateTime on the way.
    void appendStringFromMSecs(QString &out, qint64 utcMSecs) const;

    // Reads text that matches the pattern completely (its digits in any script: an export made under
    // fa_IR or ar_EG reads under every locale), as local time in the user's zone (fields missing
    // from the pattern are those of 1 January 1970 00:00:00). Out-of-range fields (month 13, 30 February,
    // hour 24) are refused. A wall time skipped by a change to summer time is read with the offset in
    // force before the change (02:30 becomes 03:30), a repeated one as the later of the two. An invalid
    // QDateTime when the text does not match; formatters with styles read nothing.
    QDateTime dateFromString(QStringView text) const;
    // The wall-clock date and time that text matching the pattern completely names, for a caller that
    // resolves it in a zone of its own choosing; false when the text does not match. Digits may be any
    // Unicode decimal digits, as for dateFromString.
    bool wallTimeFromString(QStringView text, QDate *date, QTime *time) const;

private:
    struct Part
    {
        char16_t letter = 0;
        int count = 0;
        QString literal;
    };

    void compile();
    // A rendering is put together here and appended to its string at once.
    using Text = QVarLengthArray<QChar, 64>;
    void appendNumber(Text &out, qint64 number, int minDigits) const;
    // The value of the decimal digit at `pos` (any script), -1 for none; `length` gets its UTF-16 units.
    static int digitValue(QStringView text, qsizetype pos, qsizetype *length);
    bool usesStyles() const { return m_dateStyle != Style::NoStyle || m_timeStyle != Style::NoStyle; }

    QString m_dateFormat;
    QList<Part> m_parts;
    Style m_dateStyle = Style::NoStyle;
    Style m_timeStyle = Style::NoStyle;
    bool m_isEndTime = false;
    QLocale m_locale;
    char16_t m_zeroDigit = u'0';
    QString m_shortFormat;
    // Exports run in time order, so most rows fall on the day of the row before.
    mutable qint64 m_lastDay = 0;
    mutable bool m_hasLastDay = false;
    mutable QString m_lastDayText;
};
