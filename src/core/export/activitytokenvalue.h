#pragma once

#include <memory>

#include <QCoreApplication>
#include <QDateTime>
#include <QHashFunctions>
#include <QString>

#include "export/bvdurationtransformer.h"

// Which activity field a column of an export layout renders, and in which format. The numbers are stored
// in the users' layouts and never change; the date titles show a sample instant, 23 October 2010 23:12:45
// in the user's time zone, rendered in the user's locale.
class ActivityTokenValue
{
    Q_DECLARE_TR_FUNCTIONS(ActivityTokenValue)

public:
    enum Value : int {
        StartDateUniversal = 110,
        StartDateLocal = 111,
        StartTime = 120,
        StartDateTime = 121,
        EndDateUniversal = 160,
        EndDateLocal = 161,
        EndTime = 170,
        EndDateTime = 171,
        StartYear = 200,
        StartMonth = 201,
        StartDay = 202,
        StartHour = 203,
        StartMinute = 204,
        StartSecond = 205,
        EndYear = 250,
        EndMonth = 251,
        EndDay = 252,
        EndHour = 253,
        EndMinute = 254,
        EndSecond = 255,
        DurationFormatted = 300,
        DurationMinutes = 301,
        DurationDecimalHours = 302,
        Text = 400,
        ProjectName = 401,
        TaskTags = 402,
        Uid = 403,
        InvoicedStatus = 404,
    };

    // The text of the activity (400).
    ActivityTokenValue() = default;
    // Any number is kept as given; numbers outside the catalogue render nothing.
    explicit ActivityTokenValue(int value)
        : m_value(value)
    { }
    // Full copies, so that layouts survive being copied around; copy() is the value-only copy.
    ActivityTokenValue(const ActivityTokenValue &other);
    ActivityTokenValue &operator=(const ActivityTokenValue &other);
    // A new value object with this number only: long titles, no transformer made yet.
    ActivityTokenValue copy() const { return ActivityTokenValue(m_value); }

    int value() const { return m_value; }
    // A new number also drops the transformer made for the old one.
    void setValue(int value);

    // Whether description() gives the short title (as the layouts from the settings do) or the long one.
    bool showShortDescription() const { return m_showShortDescription; }
    void setShowShortDescription(bool showShortDescription) { m_showShortDescription = showShortDescription; }
    QString description() const;
    // "Start time", "End date (10/23/10)", ...; the number itself ("999") outside the catalogue.
    QString descriptionShort() const;
    // A value is never offered as a choice on its own, only through its column.
    bool enabled() const { return false; }

    // The duration transformer of 300, 301 and 302 (formats 0, 1 and 2), made on the first request and
    // kept; null for every other value.
    const BVDurationTransformer *transformer() const;

    // "Date, e.g. 2010-10-23", "Time, e.g 23:12:45", "Text", ...; "---" outside the catalogue.
    static QString activityValueToString(int value);
    // The sample instant of the titles: 23 October 2010 23:12:45 in the user's time zone.
    static QDateTime getDateValue();
    // The sample as "yyyy-MM-dd", in the locale's short date style, and as "yyy-MM-dd'T'HH:mm:ss".
    static QString getDateUniversalStr();
    static QString getDateLocalStr();
    static QString getDateTimeStr();

    bool operator==(const ActivityTokenValue &other) const { return m_value == other.m_value; }

private:
    int m_value = Text;
    bool m_showShortDescription = false;
    mutable std::unique_ptr<BVDurationTransformer> m_transformer;
    mutable bool m_transformerMade = false;
};

inline size_t qHash(const ActivityTokenValue &value, size_t seed = 0) noexcept
{
    return qHash(value.value(), seed);
}
