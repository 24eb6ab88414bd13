#pragma once

#include <QObject>

// Sleep, screen sleep, screensaver and screen lock as the session reports them. The event numbers are
// those of the computer-event settings: 1 sleep, 2 screen sleep, 3 screensaver, 4 screen locked.
// Main thread.
class SessionEvents : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // Starts listening; events before this are not reported.
    virtual void start() = 0;
    // Tracking state, so that a sleep-delay lock is held only while there is something to save.
    virtual void setTracking(bool tracking) { Q_UNUSED(tracking); }

Q_SIGNALS:
    void computerEventDidStart(int computerEvent);
    void computerEventDidStop(int computerEvent);
};
