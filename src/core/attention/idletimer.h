#pragma once

#include <optional>

#include <QDateTime>
#include <QObject>
#include <QTimer>

class Clock;
class IdleSource;

// Watches the user's idle time while an activity runs and says once when it reaches the threshold. It
// does not poll: each check is scheduled for the moment the user would cross the threshold if they stayed
// idle from now on, so an active user costs one wake-up per threshold. Main thread.
class IdleTimer : public QObject
{
    Q_OBJECT
public:
    // Neither is owned; both outlive this object.
    IdleTimer(IdleSource &source, Clock &clock, QObject *parent = nullptr);
    ~IdleTimer() override;

    // Starts watching with a threshold of `minutes`; when already watching, only the next check moves.
    void startWithIdleTime(unsigned minutes);
    // Stops watching and forgets the idle start.
    void stop();
    // Seconds until the next check: one second after the user would reach the threshold, at least 1.
    double getNextInterval() const;
    // The instant from which the user counts as idle: one threshold before the check that found them
    // idle. Null while watching or stopped.
    std::optional<QDateTime> idleFromDate() const { return m_idleFromDate; }

    bool isWatching() const { return m_timer.isActive(); }
    double thresholdSeconds() const { return m_threshold; }
    // When the pending check fires, by this timer's clock; null when none is pending.
    std::optional<QDateTime> nextCheckDate() const;

    // The timer's action: reads the idle time, reschedules or reports.
    void check();

Q_SIGNALS:
    // The user reached the threshold; idleFromDate() says since when. Watching has stopped.
    void idleTimerDidBecomeIdle(IdleTimer *timer);

private:
    double idleSeconds() const;
    void schedule();

    IdleSource &m_source;
    Clock &m_clock;
    QTimer m_timer;
    double m_threshold = 0;
    std::optional<QDateTime> m_idleFromDate;
    QDateTime m_scheduledAt;
};
