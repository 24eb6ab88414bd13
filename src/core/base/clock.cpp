#include "base/clock.h"

Clock *Clock::system()
{
    static SystemClock clock;
    return &clock;
}

QDateTime SystemClock::now() const
{
    return QDateTime::currentDateTimeUtc();
}
