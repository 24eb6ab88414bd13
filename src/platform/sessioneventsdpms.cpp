#include "platform/sessioneventsdpms.h"

#include <cstdlib>

#include <xcb/dpms.h>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;

SessionEventsDpms::SessionEventsDpms(const QString &display, bool waylandSession, QObject *parent)
    : SessionEvents(parent)
{
    if (waylandSession) {
        m_reason = u"Wayland sessions do not show the display power level to X11 clients."_s;
        return;
    }
    const QByteArray name = display.toLocal8Bit();
    m_connection = xcb_connect(name.isEmpty() ? nullptr : name.constData(), nullptr);
    if (xcb_connection_has_error(m_connection)) {
        xcb_disconnect(m_connection);
        m_connection = nullptr;
        m_reason = u"No X11 display."_s;
        return;
    }
    const xcb_query_extension_reply_t *extension = xcb_get_extension_data(m_connection, &xcb_dpms_id);
    if (!extension || !extension->present)
        m_reason = u"The X server lacks the DPMS extension."_s;
    m_timer.setInterval(PollIntervalMsecs);
    m_timer.setTimerType(Qt::VeryCoarseTimer);
    connect(&m_timer, &QTimer::timeout, this, &SessionEventsDpms::poll);
}

SessionEventsDpms::~SessionEventsDpms()
{
    if (m_connection)
        xcb_disconnect(m_connection);
}

void SessionEventsDpms::start()
{
    m_started = true;
    updatePolling();
}

void SessionEventsDpms::setTracking(bool tracking)
{
    m_tracking = tracking;
    updatePolling();
}

void SessionEventsDpms::updatePolling()
{
    const bool needed = m_started && isAvailable() && (m_tracking || m_asleep);
    if (!needed)
        m_timer.stop();
    else if (!m_timer.isActive())
        m_timer.start();
}

void SessionEventsDpms::poll()
{
    if (xcb_connection_has_error(m_connection)) {
        m_reason = u"The connection to the X server was lost."_s;
        m_timer.stop();
        return;
    }
    xcb_dpms_info_reply_t *info = xcb_dpms_info_reply(m_connection, xcb_dpms_info(m_connection), nullptr);
    if (!info)
        return;
    const bool asleep = info->state && info->power_level != XCB_DPMS_DPMS_MODE_ON;
    std::free(info);
    if (asleep == m_asleep)
        return;
    m_asleep = asleep;
    if (asleep)
        Q_EMIT computerEventDidStart(2);
    else
        Q_EMIT computerEventDidStop(2);
    updatePolling();
}
