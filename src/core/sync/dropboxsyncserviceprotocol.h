#pragma once

#include <functional>
#include <memory>

#include <QByteArray>
#include <QString>

// The operations of the Dropbox agent, the one process that speaks HTTPS to Dropbox. Every operation is
// asynchronous: its reply handler is called exactly once, on any thread, possibly before the call
// returns. A non-empty `error` is the failure: the agent's text, or the connection's ("... (code: N)").
// The agent starts tokens of an expired session with "expired_access_token:" and of a revoked or invalid
// one with "invalid_access_token:". Calls may be made from any thread that runs an event loop.
class DropboxSyncServiceProtocol
{
public:
    static constexpr auto ExpiredTokenPrefix = "expired_access_token:";
    static constexpr auto InvalidTokenPrefix = "invalid_access_token:";

    // An open file descriptor handed over by a reply; closed when the last copy is dropped.
    class FileHandle
    {
    public:
        FileHandle() = default;
        // Takes ownership of `fd` (-1 for none).
        explicit FileHandle(int fd);
        int fd() const { return m_fd ? *m_fd : -1; }

    private:
        std::shared_ptr<const int> m_fd;
    };

    struct AccountInfo
    {
        QString name;
        QString accountId;
        QString email;
        QString error;
    };
    struct UpgradedToken
    {
        QString accessToken;
        QString error;
    };
    struct Changes
    {
        // A JSON array of Dropbox metadata objects (".tag", "path_lower", "rev").
        QByteArray entriesJson;
        QString cursor;
        bool fromScratch = false;
        QString error;
    };
    struct File
    {
        // The content, readable from offset 0; none when the file was not delivered.
        FileHandle handle;
        // The file's Dropbox metadata (JSON).
        QByteArray metadataJson;
        // 0 when delivered, else the HTTP status (404: no such file).
        int httpStatus = 0;
        QString error;
    };
    struct PutResult
    {
        QByteArray metadataJson;
        QString error;
    };
    struct CodeExchange
    {
        QString accessToken;
        QString refreshToken;
        qint64 expiresInSecs = 0;
        QString accountId;
        QString error;
    };
    struct Refreshed
    {
        QString accessToken;
        qint64 expiresInSecs = 0;
        QString error;
    };

    virtual ~DropboxSyncServiceProtocol() = default;

    // The folder below the Dropbox root that holds the sync files ("sync") and the token of later calls.
    virtual void syncInitWithSyncRoot(const QString &root, const QString &andToken) = 0;
    virtual void getAccountInfoWithReply(std::function<void(AccountInfo)> reply) = 0;
    // Turns a token of the older scheme into an OAuth 2 access token.
    virtual void upgradeTokenWithTokenSecret(const QString &tokenSecret, std::function<void(UpgradedToken)> andReply)
        = 0;
    // The changes since `cursor`; an empty cursor lists the whole folder.
    virtual void syncGetChangesForCursor(const QString &cursor, std::function<void(Changes)> withReply) = 0;
    virtual void syncGetFile(const QString &name, std::function<void(File)> withReply) = 0;
    // Uploads the content readable from `fd` (from offset 0) as `name`, expecting the remote file at
    // `revision`, or absent when `revision` is empty. `fd` is only read during the call.
    virtual void syncPutFile(
        int fd, const QString &name, const QString &andRevision, std::function<void(PutResult)> withReply)
        = 0;
    virtual void syncDeleteFile(const QString &name, std::function<void(QString error)> withReply) = 0;

    // The authorisation code flow with PKCE: the code from the redirect (or pasted), the verifier of its
    // challenge, the redirect URI used (empty when the code was pasted) and the app key.
    virtual void exchangeCode(const QString &code, const QString &codeVerifier, const QString &redirectUri,
        const QString &clientId, std::function<void(CodeExchange)> reply)
        = 0;
    virtual void refreshToken(
        const QString &refreshToken, const QString &clientId, std::function<void(Refreshed)> reply)
        = 0;
    // Revokes the token of syncInitWithSyncRoot (and what was derived from the same refresh token).
    virtual void revokeToken(std::function<void(QString error)> reply) = 0;
};
