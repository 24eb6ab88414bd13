#include "platform/dropboxagentclient.h"

#include <fcntl.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusUnixFileDescriptor>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QThread>

#include "base/logging.h"

namespace {

// Long enough for an upload that the agent retries with backoff.
constexpr int CallTimeoutMsecs = 10 * 60 * 1000;
constexpr int StartTimeoutMsecs = 10 * 1000;

QString connectionError(const QDBusError &error)
{
    return QStringLiteral("%1 (code: %2)").arg(error.message()).arg(int(error.type()));
}

// The agent has gone (or was never there) since its name was looked up.
bool agentGone(const QDBusError &error)
{
    switch (error.type()) {
    case QDBusError::ServiceUnknown:
    case QDBusError::UnknownObject:
    case QDBusError::NoReply:
    case QDBusError::Disconnected:
        return true;
    default:
        return error.name() == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner");
    }
}

QString text(const QList<QVariant> &arguments, int index)
{
    return arguments.value(index).toString();
}

} // namespace

DropboxAgentClient::DropboxAgentClient(const QDBusConnection &bus, const QStringList &agentCandidates)
    : m_bus(bus)
    , m_candidates(agentCandidates.isEmpty() ? defaultAgentCandidates() : agentCandidates)
{ }

DropboxAgentClient::~DropboxAgentClient() = default;

QStringList DropboxAgentClient::defaultAgentCandidates()
{
    const QString dir = QCoreApplication::applicationDirPath();
    const QString name = QString::fromLatin1(ExecutableName);
    return { dir + QLatin1Char('/') + name, QDir::cleanPath(dir + QStringLiteral("/../agent/") + name),
        QDir::cleanPath(dir + QStringLiteral("/../libexec/brimvale/") + name),
        QDir::cleanPath(dir + QStringLiteral("/../libexec/") + name) };
}

std::expected<QString, QString> DropboxAgentClient::startAgent()
{
    const QString service = QString::fromLatin1(ServiceName);
    QDBusConnectionInterface *bus = m_bus.interface();
    if (!bus)
        return std::unexpected(
            QStringLiteral("The session bus is not available (code: %1)").arg(int(QDBusError::Disconnected)));
    // The installed activation file lets the bus start the agent.
    const QDBusReply<void> activated = bus->startService(service);
    if (!activated.isValid()) {
        const auto executable = std::find_if(m_candidates.cbegin(), m_candidates.cend(),
            [](const QString &path) { return QFileInfo(path).isExecutable(); });
        if (executable == m_candidates.cend())
            return std::unexpected(QStringLiteral("The Dropbox agent %1 cannot be started: it was not found beside "
                                                  "the application (code: %2)")
                                       .arg(QString::fromLatin1(ExecutableName))
                                       .arg(int(activated.error().type())));
        qCInfo(lcSync).noquote() << QStringLiteral("Starting the Dropbox agent %1").arg(*executable);
        // Its own standard streams: holding ours would keep a pipe reading the command line's output open
        // for as long as the agent lives.
        QProcess process;
        process.setProgram(*executable);
        process.setStandardInputFile(QProcess::nullDevice());
        process.setStandardOutputFile(QProcess::nullDevice());
        process.setStandardErrorFile(QProcess::nullDevice());
        if (!process.startDetached())
            return std::unexpected(QStringLiteral("The Dropbox agent %1 cannot be started (code: %2)")
                                       .arg(*executable)
                                       .arg(int(QDBusError::Failed)));
    }
    const QDeadlineTimer deadline(StartTimeoutMsecs);
    while (!deadline.hasExpired()) {
        const QDBusReply<QString> owner = bus->serviceOwner(service);
        if (owner.isValid() && !owner.value().isEmpty())
            return owner.value();
        QThread::msleep(20);
    }
    return std::unexpected(
        QStringLiteral("The Dropbox agent did not start in time (code: %1)").arg(int(QDBusError::Timeout)));
}

std::expected<QString, QString> DropboxAgentClient::agent()
{
    QMutexLocker locker(&m_mutex);
    if (!m_owner.isEmpty())
        return m_owner;
    QDBusConnectionInterface *bus = m_bus.interface();
    const QDBusReply<QString> owner = bus ? bus->serviceOwner(QString::fromLatin1(ServiceName)) : QDBusReply<QString>();
    std::expected<QString, QString> found
        = owner.isValid() && !owner.value().isEmpty() ? std::expected<QString, QString>(owner.value()) : startAgent();
    if (!found)
        return found;
    m_owner = *found;
    // A new agent knows nothing of the root and token an earlier one was given.
    m_needsInit = m_initialized;
    return found;
}

void DropboxAgentClient::call(const QString &method, const QList<QVariant> &arguments, Done done, bool retried)
{
    const std::expected<QString, QString> owner = agent();
    if (!owner) {
        done({}, owner.error());
        return;
    }
    {
        QMutexLocker locker(&m_mutex);
        if (m_needsInit) {
            m_needsInit = false;
            // Messages to one connection arrive in the order sent: the agent has its token before the call.
            QDBusMessage init = QDBusMessage::createMethodCall(
                *owner, QString::fromLatin1(ObjectPath), QString::fromLatin1(Interface), QStringLiteral("SyncInit"));
            init << m_root << m_token;
            init.setAutoStartService(false);
            m_bus.asyncCall(init, CallTimeoutMsecs);
        }
    }
    QDBusMessage message = QDBusMessage::createMethodCall(
        *owner, QString::fromLatin1(ObjectPath), QString::fromLatin1(Interface), method);
    message.setArguments(arguments);
    message.setAutoStartService(false);
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message, CallTimeoutMsecs));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
        [this, watcher, method, arguments, done = std::move(done), retried, owner = *owner]() mutable {
            watcher->deleteLater();
            const QDBusMessage reply = watcher->reply();
            if (reply.type() == QDBusMessage::ErrorMessage) {
                const QDBusError error(reply);
                if (agentGone(error) && !retried) {
                    {
                        QMutexLocker locker(&m_mutex);
                        if (m_owner == owner)
                            m_owner.clear();
                    }
                    qCInfo(lcSync).noquote() << QStringLiteral("The Dropbox agent went away (%1); looking for it again")
                                                    .arg(error.message());
                    call(method, arguments, std::move(done), true);
                    return;
                }
                done({}, connectionError(error));
                return;
            }
            done(reply.arguments(), QString());
        });
}

void DropboxAgentClient::syncInitWithSyncRoot(const QString &root, const QString &andToken)
{
    {
        QMutexLocker locker(&m_mutex);
        m_root = root;
        m_token = andToken;
        m_initialized = true;
        m_needsInit = true;
    }
    // Sent with the next call, to the agent that serves it.
}

void DropboxAgentClient::getAccountInfoWithReply(std::function<void(AccountInfo)> reply)
{
    call(QStringLiteral("GetAccountInfo"), {}, [reply](const QList<QVariant> &a, const QString &error) {
        reply(error.isEmpty() ? AccountInfo { text(a, 0), text(a, 1), text(a, 2), text(a, 3) }
                              : AccountInfo { {}, {}, {}, error });
    });
}

void DropboxAgentClient::upgradeTokenWithTokenSecret(
    const QString &tokenSecret, std::function<void(UpgradedToken)> andReply)
{
    call(QStringLiteral("UpgradeToken"), { tokenSecret }, [andReply](const QList<QVariant> &a, const QString &error) {
        andReply(error.isEmpty() ? UpgradedToken { text(a, 0), text(a, 1) } : UpgradedToken { {}, error });
    });
}

void DropboxAgentClient::syncGetChangesForCursor(const QString &cursor, std::function<void(Changes)> withReply)
{
    call(QStringLiteral("GetChanges"), { cursor }, [withReply](const QList<QVariant> &a, const QString &error) {
        Changes changes;
        if (!error.isEmpty()) {
            changes.error = error;
        } else {
            changes.entriesJson = text(a, 0).toUtf8();
            changes.cursor = text(a, 1);
            changes.fromScratch = a.value(2).toBool();
            changes.error = text(a, 3);
        }
        withReply(changes);
    });
}

void DropboxAgentClient::syncGetFile(const QString &name, std::function<void(File)> withReply)
{
    call(QStringLiteral("GetFile"), { name }, [withReply](const QList<QVariant> &a, const QString &error) {
        File file;
        if (!error.isEmpty()) {
            file.error = error;
        } else {
            const QDBusUnixFileDescriptor fd = qvariant_cast<QDBusUnixFileDescriptor>(a.value(0));
            // The reply's descriptor closes with the reply: keep a copy of our own.
            if (fd.isValid())
                file.handle = FileHandle(::fcntl(fd.fileDescriptor(), F_DUPFD_CLOEXEC, 0));
            file.metadataJson = text(a, 1).toUtf8();
            file.httpStatus = a.value(2).toInt();
            file.error = text(a, 3);
        }
        withReply(file);
    });
}

void DropboxAgentClient::syncPutFile(
    int fd, const QString &name, const QString &andRevision, std::function<void(PutResult)> withReply)
{
    call(QStringLiteral("PutFile"), { QVariant::fromValue(QDBusUnixFileDescriptor(fd)), name, andRevision },
        [withReply](const QList<QVariant> &a, const QString &error) {
            withReply(error.isEmpty() ? PutResult { text(a, 0).toUtf8(), text(a, 1) } : PutResult { {}, error });
        });
}

void DropboxAgentClient::syncDeleteFile(const QString &name, std::function<void(QString error)> withReply)
{
    call(QStringLiteral("DeleteFile"), { name }, [withReply](const QList<QVariant> &a, const QString &error) {
        withReply(error.isEmpty() ? text(a, 0) : error);
    });
}

void DropboxAgentClient::exchangeCode(const QString &code, const QString &codeVerifier, const QString &redirectUri,
    const QString &clientId, std::function<void(CodeExchange)> reply)
{
    call(QStringLiteral("ExchangeCode"), { code, codeVerifier, redirectUri, clientId },
        [reply](const QList<QVariant> &a, const QString &error) {
            reply(error.isEmpty()
                    ? CodeExchange { text(a, 0), text(a, 1), a.value(2).toLongLong(), text(a, 3), text(a, 4) }
                    : CodeExchange { {}, {}, 0, {}, error });
        });
}

void DropboxAgentClient::refreshToken(
    const QString &refreshToken, const QString &clientId, std::function<void(Refreshed)> reply)
{
    call(QStringLiteral("RefreshToken"), { refreshToken, clientId },
        [reply](const QList<QVariant> &a, const QString &error) {
            reply(error.isEmpty() ? Refreshed { text(a, 0), a.value(1).toLongLong(), text(a, 2) }
                                  : Refreshed { {}, 0, error });
        });
}

void DropboxAgentClient::revokeToken(std::function<void(QString error)> reply)
{
    call(QStringLiteral("RevokeToken"), {},
        [reply](const QList<QVariant> &a, const QString &error) { reply(error.isEmpty() ? text(a, 0) : error); });
}
