#pragma once

#include <expected>

#include <QDateTime>
#include <QString>

// Times as the command line reads and writes them: local wall-clock time.
class CliTime
{
public:
    struct When
    {
        QDateTime instant; // UTC
        bool dateOnly = false;
    };

    // "yyyy-MM-dd", "yyyy-MM-ddTHH:mm" or "yyyy-MM-ddTHH:mm:ss" in the user's time zone; a date alone is
    // its midnight. The error is the line to print.
    static std::expected<When, QString> parse(const QString &text, const QString &optionName);
    // The next local midnight after `instant`.
    static QDateTime nextMidnight(const QDateTime &instant);
    // "yyyy-MM-ddTHH:mm:ss" in the user's time zone.
    static QString isoLocal(const QDateTime &instant);
    static QString isoLocal(qint64 utcMSecs);
    // "yyyy-MM-dd HH:mm" in the user's time zone.
    static QString shortLocal(const QDateTime &instant);
    static QString shortLocal(qint64 utcMSecs);
    // Whole seconds as "H:MM:SS".
    static QString duration(qint64 seconds);
};
