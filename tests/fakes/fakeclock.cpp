#include "fakes/fakeclock.h"

FakeClock::FakeClock(QDateTime start)
    : m_now(start.toUTC())
{
}
