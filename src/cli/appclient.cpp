#include "cli/appclient.h"

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QProcess>
#include <QThread>
#include <QTimer>

#include "platform/brimvaledbus.h"

namespace {

const QString NotRunning = QStringLiteral("Brimvale is not running.");
// A sync with Dropbox may take its time: the app answers when the run ends.
constexpr int SyncTimeoutMsecs = 30 * 60 * 1000;

std::expected<QString, QString> answerText(const std::expected<QDBusMessage, QString> &reply)
{
    if (!reply)
        return std::unexpected(reply.error());
    return reply->arguments().value(0).toString();
}

QString serviceName()
{
    return QString::fromLatin1(BrimvaleDBus::ServiceName);
}

} // namespace

AppClient::AppClient(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
{ }

QDBusConnection AppClient::busFor(const CliEnvironment &environment)
{
    return environment.appBus ? environment.appBus() : QDBusConnection::sessionBus();
}

std::function<bool()> AppClient::launcherFor(const CliEnvironment &environment)
{
    return environment.launchApp ? environment.launchApp : &AppClient::launchAppInBackground;
}

bool AppClient::launchAppInBackground()
{
    QProcess app;
    app.setProgram(QCoreApplication::applicationFilePath());
    app.setArguments({ QStringLiteral("launchFromHelper") });
    // It outlives this command and its terminal: its log goes to the journal's usual place, not here.
    app.setStandardOutputFile(QProcess::nullDevice());
    app.setStandardErrorFile(QProcess::nullDevice());
    app.setWorkingDirectory(QDir::homePath());
    return app.startDetached();
}

bool AppClient::isAppRunning() const
{
    if (!m_bus.isConnected() || !m_bus.interface())
        return false;
    const QDBusReply<bool> owned = m_bus.interface()->isServiceRegistered(serviceName());
    return owned.isValid() && owned.value();
}

std::expected<void, QString> AppClient::ensureAppRunning(const std::function<bool()> &launch)
{
    if (isAppRunning())
        return {};
    if (!m_bus.isConnected())
        return std::unexpected(QStringLiteral("Brimvale can not be started: there is no session bus."));
    // Watch before launching, so an app that comes up at once is not missed.
    QDBusServiceWatcher watcher(serviceName(), m_bus, QDBusServiceWatcher::WatchForRegistration);
    QEventLoop loop;
    connect(&watcher, &QDBusServiceWatcher::serviceRegistered, &loop, &QEventLoop::quit);
    QTimer timeout;
    timeout.setSingleShot(true);
    connect(&timeout, &QTimer::timeout, &loop, &QEventLoop::quit);
    if (!launch())
        return std::unexpected(QStringLiteral("Brimvale could not be started."));
    if (!isAppRunning()) {
        timeout.start(LaunchTimeout);
        loop.exec();
    }
    if (!isAppRunning())
        return std::unexpected(QStringLiteral("Brimvale did not start in time."));
    return {};
}

std::expected<QDBusMessage, QString> AppClient::call(
    const QString &method, const QVariantList &arguments, int timeoutMsecs)
{
    if (!isAppRunning())
        return std::unexpected(NotRunning);
    QDBusMessage message = QDBusMessage::createMethodCall(serviceName(), QString::fromLatin1(BrimvaleDBus::ObjectPath),
        QString::fromLatin1(BrimvaleDBus::InterfaceName), method);
    message.setArguments(arguments);
    // An app that has just taken its name is still launching (opening its store, its keyring) and has no
    // object yet: the call is repeated until it has, as long as a launch may take.
    const QDeadlineTimer deadline(LaunchTimeout);
    QDBusMessage reply;
    QDBusError::ErrorType error = QDBusError::NoError;
    for (;;) {
        QDBusPendingCallWatcher pending(m_bus.asyncCall(message, timeoutMsecs));
        if (!pending.isFinished()) {
            QEventLoop loop;
            connect(&pending, &QDBusPendingCallWatcher::finished, &loop, &QEventLoop::quit);
            loop.exec();
        }
        reply = pending.reply();
        if (reply.type() == QDBusMessage::ReplyMessage)
            return reply;
        error = QDBusError(reply).type();
        if (error != QDBusError::UnknownObject || deadline.hasExpired())
            break;
        QThread::msleep(50);
    }
    // The app quit between the look-up and the call.
    if (error == QDBusError::ServiceUnknown || (error == QDBusError::NoReply && !isAppRunning()))
        return std::unexpected(NotRunning);
    return std::unexpected(reply.errorMessage());
}

std::expected<QString, QString> AppClient::startTrack(const QString &text)
{
    return answerText(call(QStringLiteral("StartTrack"), { text }));
}

std::expected<QString, QString> AppClient::updateTrack(const QString &text)
{
    return answerText(call(QStringLiteral("UpdateTrack"), { text }));
}

std::expected<void, QString> AppClient::stopTrack()
{
    const auto reply = call(QStringLiteral("StopTrack"));
    if (!reply)
        return std::unexpected(reply.error());
    return {};
}

std::expected<void, QString> AppClient::showReport()
{
    const auto reply = call(QStringLiteral("ShowReport"));
    if (!reply)
        return std::unexpected(reply.error());
    return {};
}

std::expected<AppClient::Status, QString> AppClient::status()
{
    const auto reply = call(QStringLiteral("Status"));
    if (!reply)
        return std::unexpected(reply.error());
    const QVariantList fields = reply->arguments();
    return Status { fields.value(0).toBool(), fields.value(1).toString(), fields.value(2).toLongLong() };
}

std::expected<QString, QString> AppClient::sync()
{
    return answerText(call(QStringLiteral("Sync"), {}, SyncTimeoutMsecs));
}

void AppClient::watch()
{
    if (m_watcher)
        return;
    m_watcher = new QDBusServiceWatcher(serviceName(), m_bus,
        QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration, this);
    connect(m_watcher, &QDBusServiceWatcher::serviceRegistered, this, &AppClient::appStarted);
    connect(m_watcher, &QDBusServiceWatcher::serviceUnregistered, this, &AppClient::appQuit);
    m_bus.connect(serviceName(), QString::fromLatin1(BrimvaleDBus::ObjectPath),
        QString::fromLatin1(BrimvaleDBus::InterfaceName), QStringLiteral("TrackingChanged"), this,
        SLOT(onTrackingChanged(bool, QString, qlonglong)));
}

void AppClient::onTrackingChanged(bool tracking, const QString &text, qlonglong startSecs)
{
    Q_EMIT trackingChanged(Status { tracking, text, startSecs });
}
