#pragma once

#include <QHash>
#include <QList>
#include <QMap>
#include <QMutex>
#include <QSet>
#include <QStringList>
#include <QThread>

#include "sync/dropboxsyncserviceprotocol.h"

// The Dropbox agent and the account behind it, in memory: files of the sync root with per-file
// revisions, a change journal behind cursors, tokens that can expire or be revoked, the code exchange
// and refresh of the authorisation. Several backends ("machines") may share one. Replies come at once on
// the calling thread, or from a thread of the fake's own, as the agent's replies do. Tests can make the
// next call of an operation fail, reset every cursor, and change files as another machine would.
class FakeDropboxService : public DropboxSyncServiceProtocol
{
public:
    enum class Callbacks { Direct, OtherThread };

    FakeDropboxService();
    ~FakeDropboxService() override;

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

    // Test controls.
    void setCallbacks(Callbacks callbacks) { m_callbacks = callbacks; }
    // The next call of `operation` ("GetChanges", "GetFile", "PutFile", ...) replies with `error`.
    void failNext(const QString &operation, const QString &error);
    // The next GetFile replies with this HTTP status and no file.
    void failNextGetWithStatus(int status);
    // Downloads come with metadata that carries no "rev".
    bool omitRevisionInMetadata = false;
    // Every cursor handed out so far lists from scratch, as Dropbox's "reset" makes it.
    void resetCursors();
    // Another machine writes or deletes a file.
    QString putRemote(const QString &name, const QByteArray &content);
    void deleteRemote(const QString &name);
    QByteArray content(const QString &name) const;
    QString revision(const QString &name) const;
    QStringList fileNames() const;
    // Tokens: those accepted, those expired; any other gets "invalid_access_token". A code exchange gives
    // `issuedToken` and refresh token `refreshTokenIssued`; a refresh gives "refreshed-N".
    void acceptToken(const QString &token);
    void expireToken(const QString &token);
    QString issuedToken = QStringLiteral("issued-token");
    QString refreshTokenIssued = QStringLiteral("refresh-token");
    qint64 expiresInSecs = 14400;
    QString expectedCode = QStringLiteral("the-code");
    AccountInfo account { QStringLiteral("Ada Lovelace"), QStringLiteral("dbid:ada"), QStringLiteral("ada@example.org"),
        {} };
    // Every call as "Operation arguments", and the tokens revoked.
    QStringList calls() const;
    QStringList revokedTokens() const;
    QString sessionToken() const;

private:
    struct Entry
    {
        QByteArray content;
        QString rev;
    };
    QString takeFailure(const QString &operation);
    QString tokenError() const;
    QByteArray metadata(const QString &name, const QString &rev) const;
    template<typename Reply> void deliver(std::function<void(Reply)> reply, Reply value);
    void record(const QString &call);

    mutable QMutex m_mutex;
    Callbacks m_callbacks = Callbacks::Direct;
    QThread m_thread;
    QObject *m_replier = nullptr;
    QString m_root;
    QString m_token;
    QSet<QString> m_accepted;
    QSet<QString> m_expired;
    QMap<QString, Entry> m_files;
    // Per change: the name; the cursor "c<N>" has seen the first N changes.
    QStringList m_journal;
    int m_resetAt = 0;
    int m_revisions = 0;
    int m_refreshes = 0;
    QHash<QString, QString> m_failures;
    int m_failStatus = 0;
    QStringList m_calls;
    QStringList m_revoked;
};
