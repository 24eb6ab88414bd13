#pragma once

#include <expected>

#include <QDBusConnection>
#include <QMutex>
#include <QStringList>

#include "sync/dropboxsyncserviceprotocol.h"

class QDBusMessage;

// The Dropbox agent (brimvale-dropbox-agent) over the session bus: name
// "com.brimvaleapp.DropboxSyncService", object "/com/brimvaleapp/DropboxSyncService", interface
// "com.brimvaleapp.DropboxSyncService1". File contents travel as Unix file descriptors.
//
// The agent exits after a minute without calls, and the bus may not know how to start it (a build tree,
// a test). So before a call the client finds the agent's connection, asking the bus to start it and,
// when the bus cannot, starting it itself from beside the running executable and waiting for its name.
// Calls go to that one connection: when the agent has gone since, the call fails, a new agent is found,
// the root and token of syncInitWithSyncRoot are handed to it again, and the call is repeated once.
//
// Threads: calls may come from any thread that runs an event loop; replies arrive on the calling thread.
// Finding the agent blocks the calling thread for up to ten seconds.
class DropboxAgentClient : public DropboxSyncServiceProtocol
{
public:
    static constexpr auto ServiceName = "com.brimvaleapp.DropboxSyncService";
    static constexpr auto ObjectPath = "/com/brimvaleapp/DropboxSyncService";
    static constexpr auto Interface = "com.brimvaleapp.DropboxSyncService1";
    static constexpr auto ExecutableName = "brimvale-dropbox-agent";

    // `agentCandidates`: where the agent's executable may be, tried in order when the bus cannot start
    // it; by default beside the running executable, then in the build tree's and the installation's
    // other places (defaultAgentCandidates()).
    explicit DropboxAgentClient(
        const QDBusConnection &bus = QDBusConnection::sessionBus(), const QStringList &agentCandidates = {});
    ~DropboxAgentClient() override;

    static QStringList defaultAgentCandidates();

    void syncInitWithSyncRoot(const QString &root, const QString &andToken) override;
    void getAccountInfoWithReply(std::function<void(AccountInfo)> reply) override;
    void upgradeTokenWithTokenSecret(const QString &tokenSecret, std::function<void(UpgradedToken)> andReply) override;
    void syncGetChangesForCursor(const QString &cursor, std::function<void(Changes)> withReply) override;
    void syncGetFile(const QString &name, std::function<void(File)> withReply) override;
    void syncPutFile(
        int fd, const QString &name, const QString &andRevision, std::function<void(PutResult)> withReply) override;
    void syncDeleteFile(const QString &name, std::function<void(QString error)> withReply) override;
    void exchangeCode(const QString &code, const QString &codeVerifier, const QString &redirectUri,
        const QString &clientId, std::function<void(CodeExchange)> reply) override;
    void refreshToken(
        const QString &refreshToken, const QString &clientId, std::function<void(Refreshed)> reply) override;
    void revokeToken(std::function<void(QString error)> reply) override;

private:
    using Done = std::function<void(const QList<QVariant> &arguments, const QString &error)>;
    // The agent's connection name, found or started; or the reason there is none.
    std::expected<QString, QString> agent();
    std::expected<QString, QString> startAgent();
    void call(const QString &method, const QList<QVariant> &arguments, Done done, bool retried = false);

    QDBusConnection m_bus;
    QStringList m_candidates;
    QMutex m_mutex;
    QString m_owner;
    QString m_root;
    QString m_token;
    bool m_initialized = false;
    bool m_needsInit = false;
};
