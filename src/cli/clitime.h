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
    // RFC 3339 in the user's time zone with its offset at that instant: "2024-03-12T09:00:00+01:00".
    static QString rfc3339(qint64 utcMSecs);
    // "yyyy-MM-dd HH:mm – HH:mm" in the user's time zone, the end with its date too
    // ("yyyy-MM-dd HH:mm – yyyy-MM-dd HH:mm") when it falls on another day than the start.
    static QString span(qint64 fromUtcMSecs, qint64 toUtcMSecs);
    // "yyyy-MM-dd HH:mm" in the user's time zone.
    static QString shortLocal(qint64 utcMSecs);
    // Whole seconds as "H:MM:SS".
    static QString duration(qint64 seconds);
};
