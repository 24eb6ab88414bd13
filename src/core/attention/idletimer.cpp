#include "attention/idletimer.h"

#include <cmath>

#include "attention/idlesource.h"
#include "base/clock.h"

IdleTimer::IdleTimer(IdleSource &source, Clock &clock, QObject *parent)
    : QObject(parent)
    , m_source(source)
    , m_clock(clock)
{
    m_timer.setSingleShot(true);
    // A late check is harmless (the idle start is dated from the threshold), so let the system batch it
    // with other wake-ups.
    m_timer.setTimerType(Qt::CoarseTimer);
    connect(&m_timer, &QTimer::timeout, this, &IdleTimer::check);
    // A source that reports the threshold's crossing is checked at once rather than at the next
    // scheduled check, which could be up to a threshold later.
    connect(&m_source, &IdleSource::idleSinceChanged, this, [this] {
        if (m_timer.isActive())
            check();
    });
}

IdleTimer::~IdleTimer() = default;

void IdleTimer::startWithIdleTime(unsigned minutes)
{
    m_threshold = double(minutes) * 60.0;
    m_source.setThresholdSeconds(int(m_threshold));
    schedule();
}

void IdleTimer::stop()
{
    m_timer.stop();
    m_idleFromDate.reset();
}

double IdleTimer::idleSeconds() const
{
    const QDateTime now = m_clock.now();
    const std::optional<QDateTime> since = m_source.idleSince(now);
    if (!since || *since >= now)
        return 0;
    return double(since->msecsTo(now)) / 1000.0;
}

double IdleTimer::getNextInterval() const
{
    const double remaining = m_threshold - idleSeconds() + 1;
    return remaining <= 0 ? 1.0 : remaining;
}

std::optional<QDateTime> IdleTimer::nextCheckDate() const
{
    if (!m_timer.isActive())
        return std::nullopt;
    return m_scheduledAt.addMSecs(m_timer.interval());
}

void IdleTimer::schedule()
{
    m_scheduledAt = m_clock.now();
    m_timer.start(int(std::ceil(getNextInterval() * 1000.0)));
}

void IdleTimer::check()
{
    if (idleSeconds() < m_threshold) {
        schedule();
        return;
    }
    // Dated from the threshold, not from the measured idle time: a check that fires late (after the
    // machine slept, say) still offers to subtract only one threshold's worth.
    m_idleFromDate = m_clock.now().addMSecs(-qint64(m_threshold * 1000.0));
    m_timer.stop();
    Q_EMIT idleTimerDidBecomeIdle(this);
}
