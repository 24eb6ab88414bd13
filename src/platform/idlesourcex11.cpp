#include "platform/idlesourcex11.h"

#include <cstdlib>

#include <xcb/screensaver.h>
#include <xcb/xcb.h>

using namespace Qt::StringLiterals;

IdleSourceX11::IdleSourceX11(const QString &display, bool waylandSession, QObject *parent)
    : IdleSource(parent)
{
    if (waylandSession) {
        m_reason = u"The X11 idle time would only see input to X11 windows in a Wayland session."_s;
        return;
    }
    const QByteArray name = display.toLocal8Bit();
    m_connection = xcb_connect(name.isEmpty() ? nullptr : name.constData(), nullptr);
    if (xcb_connection_has_error(m_connection)) {
        m_reason = u"No X11 display to ask for the idle time."_s;
        xcb_disconnect(m_connection);
        m_connection = nullptr;
        return;
    }
    const xcb_query_extension_reply_t *extension = xcb_get_extension_data(m_connection, &xcb_screensaver_id);
    if (!extension || !extension->present) {
        m_reason = u"The X server lacks the MIT-SCREEN-SAVER extension."_s;
        return;
    }
    m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    if (!idleMilliseconds())
        m_reason = u"The X server does not tell the idle time."_s;
}

IdleSourceX11::~IdleSourceX11()
{
    if (m_connection)
        xcb_disconnect(m_connection);
}

std::optional<quint32> IdleSourceX11::idleMilliseconds() const
{
    if (!m_connection || xcb_connection_has_error(m_connection))
        return std::nullopt;
    xcb_screensaver_query_info_reply_t *reply
        = xcb_screensaver_query_info_reply(m_connection, xcb_screensaver_query_info(m_connection, m_root), nullptr);
    if (!reply)
        return std::nullopt;
    const quint32 idle = reply->ms_since_user_input;
    std::free(reply);
    return idle;
}

std::optional<QDateTime> IdleSourceX11::idleSince(const QDateTime &now) const
{
    const std::optional<quint32> idle = idleMilliseconds();
    if (!idle || *idle == 0)
        return std::nullopt;
    return now.addMSecs(-qint64(*idle));
}
