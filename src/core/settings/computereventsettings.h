#pragma once

#include <QObject>

// What happens to tracking when one computer event begins and ends: 1 computer sleep, 2 screen sleep,
// 3 screensaver, 4 screen locked. The event number is fixed when the record is made. The preferences edit
// the flags directly; BvSettings writes every change through to the settings file. Main thread.
class ComputerEventSettings : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int computerEvent READ computerEvent CONSTANT)
    Q_PROPERTY(bool stopTracking READ stopTracking WRITE setStopTracking NOTIFY stopTrackingChanged)
    Q_PROPERTY(bool resumeTracking READ resumeTracking WRITE setResumeTracking NOTIFY resumeTrackingChanged)

public:
    // A record for event 0 (no event).
    explicit ComputerEventSettings(QObject *parent = nullptr);
    // A record for the given event number, both flags off; owned by parent.
    static ComputerEventSettings *initWithCompputerEvent(int computerEvent, QObject *parent = nullptr);

    int computerEvent() const { return m_computerEvent; }

    // Stop tracking when the event begins.
    bool stopTracking() const { return m_stopTracking; }
    void setStopTracking(bool stopTracking);
    // Start the same activity text again when the event ends (only together with stopTracking).
    bool resumeTracking() const { return m_resumeTracking; }
    void setResumeTracking(bool resumeTracking);

Q_SIGNALS:
    void stopTrackingChanged();
    void resumeTrackingChanged();

private:
    ComputerEventSettings(int computerEvent, QObject *parent);

    const int m_computerEvent = 0;
    bool m_stopTracking = false;
    bool m_resumeTracking = false;
};
