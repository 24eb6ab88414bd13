#pragma once

#include "platform/sessionevents.h"

// Without a session or system bus nothing reports sleep or lock.
class SessionEventsNull : public SessionEvents
{
    Q_OBJECT
public:
    using SessionEvents::SessionEvents;
    void start() override { }
};
