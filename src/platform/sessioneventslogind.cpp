#include "platform/sessioneventslogind.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcLogind, "brimvale.platform.logind")

const QString Service = u"org.freedesktop.login1"_s;
const QString ManagerPath = u"/org/freedesktop/login1"_s;
const QString ManagerInterface = u"org.freedesktop.login1.Manager"_s;
const QString SessionInterface = u"org.freedesktop.login1.Session"_s;
} // namespace

SessionEventsLogind::SessionEventsLogind(const QDBusConnection &systemBus, const QString &sessionId, QObject *parent)
    : SessionEvents(parent)
    , m_bus(systemBus)
    , m_sessionId(sessionId)
{ }

SessionEventsLogind::~SessionEventsLogind()
{
    releaseInhibitor();
}

bool SessionEventsLogind::isAvailable() const
{
    return m_bus.isConnected() && m_bus.interface() && m_bus.interface()->isServiceRegistered(Service).value();
}

void SessionEventsLogind::start()
{
    if (m_started || !m_bus.isConnected())
        return;
    m_started = true;
    m_bus.connect(Service, ManagerPath, ManagerInterface, u"PrepareForSleep"_s, this, SLOT(onPrepareForSleep(bool)));

    // The session: by its id when the desktop named it, else the one this process runs in, else the one
    // logind picks for the caller ("auto"). Signals come only from the session's own object path.
    QDBusMessage call = m_sessionId.isEmpty()
        ? QDBusMessage::createMethodCall(Service, ManagerPath, ManagerInterface, u"GetSessionByPID"_s)
            << quint32(QCoreApplication::applicationPid())
        : QDBusMessage::createMethodCall(Service, ManagerPath, ManagerInterface, u"GetSession"_s) << m_sessionId;
    QDBusReply<QDBusObjectPath> session = m_bus.call(call, QDBus::Block, 2000);
    if (!session.isValid()) {
        qCInfo(lcLogind).noquote() << "No logind session by id or process:" << session.error().message();
        session = m_bus.call(
            QDBusMessage::createMethodCall(Service, ManagerPath, ManagerInterface, u"GetSession"_s) << u"auto"_s,
            QDBus::Block, 2000);
    }
    if (session.isValid()) {
        m_sessionPath = session.value().path();
        m_bus.connect(Service, m_sessionPath, SessionInterface, u"Lock"_s, this, SLOT(onLock()));
        m_bus.connect(Service, m_sessionPath, SessionInterface, u"Unlock"_s, this, SLOT(onUnlock()));
        m_bus.connect(Service, m_sessionPath, u"org.freedesktop.DBus.Properties"_s, u"PropertiesChanged"_s, this,
            SLOT(onSessionPropertiesChanged(QString, QVariantMap, QStringList)));
    } else {
        qCWarning(lcLogind).noquote() << "No logind session: the lock goes unseen:" << session.error().message();
    }
    // Sleep is the manager's, whatever the session.
    if (m_tracking)
        takeInhibitor();
}

void SessionEventsLogind::setTracking(bool tracking)
{
    m_tracking = tracking;
    if (!m_started)
        return;
    if (tracking)
        takeInhibitor();
    else
        releaseInhibitor();
}

void SessionEventsLogind::takeInhibitor()
{
    if (m_inhibitor.isValid())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(Service, ManagerPath, ManagerInterface, u"Inhibit"_s);
    call << u"sleep"_s << u"Brimvale"_s << u"Saving the running activity"_s << u"delay"_s;
    const QDBusReply<QDBusUnixFileDescriptor> reply = m_bus.call(call, QDBus::Block, 2000);
    if (reply.isValid())
        m_inhibitor = reply.value();
    else
        qCWarning(lcLogind).noquote() << "No sleep delay lock:" << reply.error().message();
}

void SessionEventsLogind::releaseInhibitor()
{
    // Our copy of the descriptor is the lock: closing it lets the sleep go on.
    m_inhibitor = QDBusUnixFileDescriptor();
}

void SessionEventsLogind::onPrepareForSleep(bool start)
{
    if (start) {
        // Delivered on the main thread: when the signal returns, the stop is in the store.
        Q_EMIT computerEventDidStart(1);
        releaseInhibitor();
    } else {
        if (m_tracking)
            takeInhibitor();
        Q_EMIT computerEventDidStop(1);
    }
}

void SessionEventsLogind::onLock()
{
    setLocked(true);
}

void SessionEventsLogind::onUnlock()
{
    setLocked(false);
}

void SessionEventsLogind::onSessionPropertiesChanged(
    const QString &interface, const QVariantMap &changed, const QStringList &)
{
    if (interface != SessionInterface)
        return;
    if (const auto hint = changed.constFind(u"LockedHint"_s); hint != changed.constEnd())
        setLocked(hint->toBool());
}

void SessionEventsLogind::setLocked(bool locked)
{
    // The request and the locker's hint usually both arrive: one event per change of state.
    if (m_locked == locked)
        return;
    m_locked = locked;
    if (locked)
        Q_EMIT computerEventDidStart(4);
    else
        Q_EMIT computerEventDidStop(4);
}
