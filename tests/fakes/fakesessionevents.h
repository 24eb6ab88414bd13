#pragma once

#include "platform/sessionevents.h"

// The session's sleep, screen, screensaver and lock events when the test says; remembers the tracking
// state it was told (the sleep lock follows it).
class FakeSessionEvents : public SessionEvents
{
    Q_OBJECT
public:
    using SessionEvents::SessionEvents;

    void start() override { started = true; }
    void setTracking(bool tracking) override { trackingStates.append(tracking); }

    void begin(int computerEvent) { Q_EMIT computerEventDidStart(computerEvent); }
    void end(int computerEvent) { Q_EMIT computerEventDidStop(computerEvent); }

    bool started = false;
    QList<bool> trackingStates;
};
