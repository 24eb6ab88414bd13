#include "app/services/singleinstance.h"

#include <chrono>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDeadlineTimer>
#include <QThread>

#include "app/services/brimvaledbus.h"

using namespace std::chrono_literals;

namespace {

// The running app takes the name first thing at launch, before its windows and its object exist; a
// request in that gap finds no object and is repeated until the app is ready.
constexpr auto StartupGrace = 5s;
constexpr auto RetryPause = 50ms;

bool appNotReadyYet(const QDBusMessage &reply)
{
    const QDBusError::ErrorType type = QDBusError(reply).type();
    return type == QDBusError::UnknownObject || type == QDBusError::UnknownInterface
        || type == QDBusError::UnknownMethod;
}

} // namespace

bool SingleInstance::claim()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return true;
    const QDBusReply<QDBusConnectionInterface::RegisterServiceReply> reply
        = bus.interface()->registerService(QString::fromLatin1(BrimvaleDBus::ServiceName),
            QDBusConnectionInterface::DontQueueService, QDBusConnectionInterface::DontAllowReplacement);
    return reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered;
}

bool SingleInstance::forwardToRunning(const QString &urlOrEmpty)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(QString::fromLatin1(BrimvaleDBus::ServiceName),
        QString::fromLatin1(BrimvaleDBus::ObjectPath), QString::fromLatin1(BrimvaleDBus::InterfaceName),
        urlOrEmpty.isEmpty() ? QStringLiteral("ShowMainWindow") : QStringLiteral("OpenUrl"));
    if (!urlOrEmpty.isEmpty())
        call << urlOrEmpty;
    const QDeadlineTimer deadline(StartupGrace);
    for (;;) {
        const QDBusMessage reply = bus.call(call, QDBus::Block);
        if (reply.type() == QDBusMessage::ReplyMessage)
            return true;
        if (!appNotReadyYet(reply) || deadline.hasExpired())
            return false;
        QThread::msleep(RetryPause.count());
    }
}
