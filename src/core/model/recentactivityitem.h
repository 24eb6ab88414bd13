#pragma once

#include <QString>

// One entry of the recent-activities list: a text, and whether it is the running activity's text.
class RecentActivityItem
{
public:
    RecentActivityItem() = default;
    RecentActivityItem(QString text, bool andCurrentState)
        : m_text(std::move(text))
        , m_isCurrent(andCurrentState)
    { }

    QString text() const { return m_text; }
    bool isCurrent() const { return m_isCurrent; }

    bool operator==(const RecentActivityItem &other) const = default;

private:
    QString m_text;
    bool m_isCurrent = false;
};
