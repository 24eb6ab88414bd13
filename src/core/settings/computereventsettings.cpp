#include "settings/computereventsettings.h"

ComputerEventSettings::ComputerEventSettings(QObject *parent)
    : ComputerEventSettings(0, parent)
{ }

ComputerEventSettings::ComputerEventSettings(int computerEvent, QObject *parent)
    : QObject(parent)
    , m_computerEvent(computerEvent)
{ }

ComputerEventSettings *ComputerEventSettings::initWithCompputerEvent(int computerEvent, QObject *parent)
{
    return new ComputerEventSettings(computerEvent, parent);
}

void ComputerEventSettings::setStopTracking(bool stopTracking)
{
    if (m_stopTracking == stopTracking)
        return;
    m_stopTracking = stopTracking;
    Q_EMIT stopTrackingChanged();
}

void ComputerEventSettings::setResumeTracking(bool resumeTracking)
{
    if (m_resumeTracking == resumeTracking)
        return;
    m_resumeTracking = resumeTracking;
    Q_EMIT resumeTrackingChanged();
}
