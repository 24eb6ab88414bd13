#include "support/dbusmock.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QDeadlineTimer>
#include <QThread>

using namespace Qt::StringLiterals;

DBusMock::DBusMock(QString busName, QString mainPath, Bus bus)
    : m_busName(std::move(busName))
    , m_mainPath(std::move(mainPath))
    , m_bus(bus)
{ }

DBusMock::~DBusMock()
{
    m_process.terminate();
    if (!m_process.waitForFinished(3000))
        m_process.kill();
    m_process.waitForFinished(1000);
}

QDBusConnection DBusMock::connection() const
{
    return m_bus == Bus::System ? QDBusConnection::systemBus() : QDBusConnection::sessionBus();
}

bool DBusMock::start(const QStringList &arguments)
{
    // The distribution's interpreter: a python3 earlier on PATH may lack the dbusmock module.
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(u"/usr/bin/python3"_s,
        QStringList { u"-m"_s, u"dbusmock"_s } + (m_bus == Bus::System ? QStringList { u"--system"_s } : QStringList {})
            + arguments);
    if (!m_process.waitForStarted(5000))
        return false;
    const QDeadlineTimer deadline(15000);
    while (!deadline.hasExpired()) {
        // The owner must be this process: a mock of the same name that the previous test ended may still
        // hold the name until the bus notices that it has gone.
        const QDBusReply<uint> owner = connection().interface()->servicePid(m_busName);
        if (owner.isValid() && owner.value() == quint32(m_process.processId()))
            return true;
        if (m_process.state() == QProcess::NotRunning)
            return false;
        QThread::msleep(50);
    }
    return false;
}

std::unique_ptr<DBusMock> DBusMock::fromTemplate(const QString &templateName, const QString &busName, Bus bus)
{
    const QHash<QString, QString> mainPaths { { u"logind"_s, u"/org/freedesktop/login1"_s },
        { u"gnome_screensaver"_s, u"/org/gnome/ScreenSaver"_s },
        { u"notification_daemon"_s, u"/org/freedesktop/Notifications"_s } };
    std::unique_ptr<DBusMock> mock(new DBusMock(busName, mainPaths.value(templateName), bus));
    if (!mock->start({ u"--template"_s, templateName }))
        return nullptr;
    return mock;
}

std::unique_ptr<DBusMock> DBusMock::bare(const QString &busName, const QString &path, const QString &interface, Bus bus)
{
    std::unique_ptr<DBusMock> mock(new DBusMock(busName, path, bus));
    if (!mock->start({ busName, path, interface }))
        return nullptr;
    return mock;
}

QDBusMessage DBusMock::mock(const QString &method, const QVariantList &args, const QString &path) const
{
    return call(path.isEmpty() ? m_mainPath : path, u"org.freedesktop.DBus.Mock"_s, method, args);
}

QList<QVariantList> DBusMock::methodCalls(const QString &method, const QString &path) const
{
    return decodeMethodCalls(mock(QStringLiteral("GetMethodCalls"), { method }, path));
}

QList<QVariantList> DBusMock::decodeMethodCalls(const QDBusMessage &reply)
{
    QList<QVariantList> calls;
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return calls;
    const QDBusArgument list = reply.arguments().constFirst().value<QDBusArgument>();
    list.beginArray();
    while (!list.atEnd()) {
        quint64 timestamp = 0;
        QVariantList arguments;
        list.beginStructure();
        list >> timestamp >> arguments;
        list.endStructure();
        for (QVariant &argument : arguments) {
            if (argument.canConvert<QDBusVariant>())
                argument = argument.value<QDBusVariant>().variant();
            if (argument.canConvert<QDBusArgument>()
                && argument.value<QDBusArgument>().currentType() == QDBusArgument::MapType)
                argument = qdbus_cast<QVariantMap>(argument.value<QDBusArgument>());
        }
        calls.append(arguments);
    }
    list.endArray();
    return calls;
}

QDBusMessage DBusMock::call(
    const QString &path, const QString &interface, const QString &method, const QVariantList &args) const
{
    QDBusMessage message = QDBusMessage::createMethodCall(m_busName, path, interface, method);
    message.setArguments(args);
    return connection().call(message, QDBus::Block, 10000);
}

void DBusMock::emitSignal(const QString &interface, const QString &name, const QString &signature,
    const QVariantList &args, const QString &path) const
{
    QVariantList wrapped;
    for (const QVariant &arg : args)
        wrapped << QVariant::fromValue(QDBusVariant(arg));
    mock(u"EmitSignal"_s, { interface, name, signature, wrapped }, path);
}
