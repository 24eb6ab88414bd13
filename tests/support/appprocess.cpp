#include "support/appprocess.h"

#include <csignal>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QProcess>
#include <QThread>

#include "platform/brimvaledbus.h"

namespace AppProcess {

Run run(const QString &program, const QStringList &arguments, int timeoutMsecs)
{
    QProcess process;
    process.start(program, arguments);
    Run result;
    if (!process.waitForFinished(timeoutMsecs) || process.exitStatus() != QProcess::NormalExit) {
        process.kill();
        process.waitForFinished(2000);
        return result;
    }
    result.status = process.exitCode();
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

Status appStatus()
{
    QDBusMessage call = QDBusMessage::createMethodCall(QString::fromLatin1(BrimvaleDBus::ServiceName),
        QString::fromLatin1(BrimvaleDBus::ObjectPath), QString::fromLatin1(BrimvaleDBus::InterfaceName),
        QStringLiteral("Status"));
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 5000);
    Status status;
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 3)
        return status;
    status.answered = true;
    status.tracking = reply.arguments().at(0).toBool();
    status.text = reply.arguments().at(1).toString();
    status.startSecs = reply.arguments().at(2).toLongLong();
    return status;
}

bool registered(const QString &name)
{
    QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    return bus && bus->isServiceRegistered(name).value();
}

bool terminateOwner(const QString &name)
{
    if (!registered(name))
        return true;
    const uint pid = QDBusConnection::sessionBus().interface()->servicePid(name).value();
    if (pid > 0)
        ::kill(pid_t(pid), SIGTERM);
    QDeadlineTimer deadline(10000);
    while (registered(name)) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(50);
    }
    return true;
}

bool xdotool(const QStringList &arguments)
{
    return QProcess::execute(QStringLiteral("xdotool"), arguments) == 0;
}

bool mainWindowShown()
{
    return xdotool({ QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"),
        QStringLiteral("^Brimvale$") });
}

} // namespace AppProcess
