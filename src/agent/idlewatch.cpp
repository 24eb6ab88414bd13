#include "agent/idlewatch.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

IdleWatch::IdleWatch(std::chrono::milliseconds period, QObject *parent)
    : QObject(parent)
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(period);
    connect(&m_timer, &QTimer::timeout, this, &IdleWatch::onTimeout);
    m_timer.start();
}

std::chrono::milliseconds IdleWatch::periodFromEnvironment(const QProcessEnvironment &environment)
{
    bool ok = false;
    const int seconds = environment.value(u"BRIMVALE_DROPBOX_AGENT_IDLE_SECS"_s).toInt(&ok);
    return ok && seconds > 0 ? std::chrono::seconds(seconds) : std::chrono::milliseconds(1min);
}

void IdleWatch::callStarted()
{
    ++m_running;
    m_timer.start();
}

void IdleWatch::callFinished()
{
    Q_ASSERT(m_running > 0);
    --m_running;
    m_timer.start();
}

void IdleWatch::onTimeout()
{
    // A long upload keeps the agent alive however slow it is; the period counts from its end.
    if (m_running > 0) {
        m_timer.start();
        return;
    }
    Q_EMIT idle();
}
