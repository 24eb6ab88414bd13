#pragma once

#include <memory>
#include <vector>

#include "platform/sessionevents.h"

// Several sources of session events as one: each reports the events its mechanism sees (logind the
// sleep and the lock, the screensaver service the screensaver, the display its power level).
class SessionEventsCombined : public SessionEvents
{
    Q_OBJECT
public:
    explicit SessionEventsCombined(std::vector<std::unique_ptr<SessionEvents>> sources, QObject *parent = nullptr);
    ~SessionEventsCombined() override;

    void start() override;
    void setTracking(bool tracking) override;

private:
    std::vector<std::unique_ptr<SessionEvents>> m_sources;
};
