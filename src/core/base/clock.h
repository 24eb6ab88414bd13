#pragma once

#include <QDateTime>

// Where the core asks for the current instant, so that tests can set time.
class Clock
{
public:
    virtual ~Clock() = default;
    // The current instant, in UTC.
    virtual QDateTime now() const = 0;

    // The system clock, shared by everything that is not handed a clock of its own.
    static Clock *system();
};

class SystemClock : public Clock
{
public:
    QDateTime now() const override;
};
