#pragma once

#include <QDateTime>
#include <QString>

// Reads and writes instants as UTC text of the form "2024-03-12T09:30:05Z" (whole seconds, the letter Z,
// nothing else). The text does not depend on the user's locale or time zone. Any thread.
class Rfc3339DateFormatter
{
public:
    // The instant in UTC, fractions of a second dropped; a null string for an invalid date.
    QString stringFromDate(const QDateTime &date) const;
    // The UTC instant the text names; an invalid QDateTime unless the whole text has exactly that form
    // and names a real date and time.
    QDateTime dateFromString(const QString &text) const;
};
