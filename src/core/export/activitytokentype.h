#pragma once

#include <QCoreApplication>
#include <QHashFunctions>
#include <QString>

// The family of a column of an export layout: which group of activity fields its value comes from. The
// numbers are stored in the users' layouts and never change.
class ActivityTokenType
{
    Q_DECLARE_TR_FUNCTIONS(ActivityTokenType)

public:
    static constexpr int DateType = 100;
    static constexpr int DurationType = 200;
    static constexpr int ActivityType = 400;

    // The activity family (400).
    ActivityTokenType() = default;
    // Any number is kept as given; numbers outside the catalogue render nothing.
    explicit ActivityTokenType(int valueType)
        : m_valueType(valueType)
    { }

    int valueType() const { return m_valueType; }
    void setValueType(int valueType) { m_valueType = valueType; }

    // "Date", "Duration", "Activity", or "---" for a number outside the catalogue.
    static QString activityTokenToString(int valueType);
    QString description() const { return activityTokenToString(m_valueType); }

    bool operator==(const ActivityTokenType &other) const = default;

private:
    int m_valueType = ActivityType;
};

inline size_t qHash(const ActivityTokenType &type, size_t seed = 0) noexcept
{
    return qHash(type.valueType(), seed);
}
