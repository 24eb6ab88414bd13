#pragma once

#include "base/clock.h"

// A clock that stands still until the test moves it.
class FakeClock : public Clock
{
public:
    explicit FakeClock(QDateTime start = QDateTime(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC));

    QDateTime now() const override { return m_now; }
    void set(const QDateTime &instant) { m_now = instant.toUTC(); }
    void advance(qint64 msecs) { m_now = m_now.addMSecs(msecs); }

private:
    QDateTime m_now;
};
