#pragma once

#include <chrono>

#include <QObject>
#include <QProcessEnvironment>
#include <QTimer>

// Tells when the agent has had nothing to do for a whole period: no call arrived and none is still under
// way. The agent then exits; the bus (or the app) starts it again on the next call.
class IdleWatch : public QObject
{
    Q_OBJECT

public:
    explicit IdleWatch(std::chrono::milliseconds period, QObject *parent = nullptr);

    // A minute, or BRIMVALE_DROPBOX_AGENT_IDLE_SECS seconds when that is a positive whole number.
    static std::chrono::milliseconds periodFromEnvironment(const QProcessEnvironment &environment);

    void callStarted();
    void callFinished();

Q_SIGNALS:
    void idle();

private:
    void onTimeout();

    QTimer m_timer;
    int m_running = 0;
};
