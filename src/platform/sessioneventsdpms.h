#pragma once

#include <QTimer>

#include "platform/sessionevents.h"

struct xcb_connection_t;

// Screens asleep and awake in an X11 session: the DPMS power level, which the server announces to no one,
// so it is read every two seconds (a screen turns off long after the user left; two seconds late is on
// time), and only while there is something to stop (tracking) or to resume (screens asleep): an idle app
// does not wake for it.
class SessionEventsDpms : public SessionEvents
{
    Q_OBJECT
public:
    static constexpr int PollIntervalMsecs = 2000;

    // Connects to `display` (empty: $DISPLAY) unless `waylandSession`.
    SessionEventsDpms(const QString &display, bool waylandSession, QObject *parent = nullptr);
    ~SessionEventsDpms() override;

    // Whether the server has DPMS; when not, why.
    bool isAvailable() const { return m_reason.isNull(); }
    QString unavailableReason() const { return m_reason; }

    void start() override;
    void setTracking(bool tracking) override;

private:
    void poll();
    void updatePolling();

    xcb_connection_t *m_connection = nullptr;
    QString m_reason;
    QTimer m_timer;
    bool m_started = false;
    bool m_tracking = false;
    bool m_asleep = false;
};
