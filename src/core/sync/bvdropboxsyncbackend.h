#pragma once

#include <QDateTime>
#include <QObject>
#include <QUrl>

#include "sync/bvsyncservicebackend.h"
#include "sync/dropboxconnector.h"
#include "sync/dropboxsyncserviceprotocol.h"

class BVDropboxSettings;
class Clock;
class Keychain;

// What a Dropbox backend talks to: the agent, the keyring, the account's settings and the clock. None is
// owned; all must outlive every backend made with them.
struct BVDropboxServices
{
    DropboxSyncServiceProtocol *service = nullptr;
    Keychain *keychain = nullptr;
    BVDropboxSettings *settings = nullptr;
    Clock *clock = nullptr;
};

// Sync through Dropbox (method 1, cache prefix "dropbox"): the sync files lie in the app folder's "sync"
// folder, reached through the Dropbox agent. The backend turns the agent's replies into descriptors,
// checks revisions, writes downloads into the cache atomically and reports every failure as one text.
// It also owns the account: connecting (implicit grant or code flow), disconnecting (which revokes the
// token), the account name in the settings, and the tokens in the keyring.
//
// Tokens: the access token under "oauth2_token" (older installations: "oauth_token" and
// "oauth_token_secret"); with the code flow also the refresh token under "oauth2_refresh_token" and the
// access token's expiry (UTC, ISO 8601) under "oauth2_token_expiry". An access token that expires
// within five minutes is refreshed before a run, and once more when the agent answers
// "expired_access_token" during a run.
//
// Threads: make it on the main thread (it reads the keyring there). The sync operations are called on
// the run's thread, which must run an event loop; their completions arrive on any thread. The account
// operations belong to the main thread; their replies too arrive on any thread.
class BVDropboxSyncBackend : public QObject, public BVSyncServiceBackend, public DropboxConnector
{
    Q_OBJECT
public:
    static constexpr int SyncMethod = 1;
    static constexpr auto CachePrefix = "dropbox";
    static constexpr auto SyncRoot = "sync";

    explicit BVDropboxSyncBackend(const BVDropboxServices &services, QObject *parent = nullptr);
    ~BVDropboxSyncBackend() override;

    int syncMethod() const override { return SyncMethod; }
    QString cachePrefix() const override { return QString::fromLatin1(CachePrefix); }
    void setErrorHandler(MessageHandler handler) override { m_errorHandler = std::move(handler); }
    void setProgressHandler(MessageHandler handler) override { m_progressHandler = std::move(handler); }
    void setActivityLogHandler(MessageHandler handler) override { m_logHandler = std::move(handler); }

    void initializeBackend(Completion completion) override;
    void agreeTimeZone(const QByteArray &proposedZoneId, TimeZoneHandler andHandler) override;
    void deleteSavepoint() override;
    void saveSavepoint() override;
    void fetchChangesWithLocalCache(const QList<BVTmpSyncFile> &localCache, ChangesHandler andHandler) override;
    void downloadFileWithName(const QString &name, const std::optional<QString> &expectedRevision,
        const QString &saveToFile, DownloadCallback andCallback) override;
    void uploadFile(
        const QString &file, const std::optional<BVTmpSyncFile> &withRevision, UploadBlock andBlock) override;
    void deleteFile(const BVTmpSyncFile &file, Completion andBlock) override;

    // The implicit grant's authorisation page; opening it in the browser is the caller's.
    static QUrl authorize();

    // Stores `token` as the account's access token (dropping a refresh token of an earlier connection) and
    // records the account; then fetches its display name (syncDropboxAccountInfo).
    void connectDropboxAccount(const QString &name, const QString &accountId, const QString &token) override;
    void connectDropboxAccountWithName(const QString &name, const QString &accountID, const QString &token);
    // The code flow: exchanges the code through the agent, stores the tokens and the expiry, records the
    // account and fetches its name. `done` gets an empty text once the tokens are stored (a failed name
    // fetch only warns), else the reason.
    void connectDropboxAccountWithCode(const QString &code, const QString &codeVerifier, const QString &redirectUri,
        std::function<void(const QString &error)> done);
    // Forgets the account here (settings and keyring) at once, then asks Dropbox to revoke the token;
    // `done` follows the revocation (its error, or an empty text), which may fail without harm.
    void disconnectDropbox(std::function<void(const QString &error)> done = {});
    // Whether a token is stored ("oauth2_token", or the older "oauth_token"). Reads the keyring.
    bool isDropboxConnected();
    // When connected, fetches the account's name and id and records them; `done` gets the error text, or
    // an empty one.
    void syncDropboxAccountInfo(std::function<void(const QString &error)> done = {});
    void retrieveAccountInfoWithReply(std::function<void(DropboxSyncServiceProtocol::AccountInfo)> reply);

Q_SIGNALS:
    // The connected account changed: connected, disconnected, or its name became known.
    void BvDropboxAuthChanged();

private:
    void loadTokens();
    void xpcGetConnection();
    // False when the keyring did not take the token (or the refresh token); the tokens serve this object
    // either way.
    bool storeAccessToken(const QString &token, const QString &refreshToken, qint64 expiresInSecs);
    void updateAccountName(const QString &name, const QString &andAccountID);
    void saveAccountID(const QString &accountID, const QString &andName);
    bool tokenExpiresSoon() const;
    // Refreshes the access token with the refresh token; `done(true)` once the agent uses the new one.
    void refreshAccessToken(std::function<void(bool refreshed, const QString &error)> done);
    // Runs `call`; when its reply's error says the token expired and it may still be refreshed (once per
    // backend), refreshes it and runs `call` again.
    template<typename Reply>
    void withToken(std::function<void(std::function<void(Reply)>)> call, std::function<void(Reply)> handle);
    // The user's text for an error of the agent; an invalid token asks to reconnect.
    QString describe(const QString &error) const;

    void getFilesToMerge(
        const QByteArray &entriesJson, const QString &newCursor, const ChangesHandler &handler, bool didFullFetch);
    void readTimeZone(const QByteArray &proposedZoneId, int attempt, TimeZoneHandler andHandler);

    void reportError(const QString &message) const;
    void reportProgress(const QString &message) const;
    void log(const QString &line) const;

    BVDropboxServices m_services;
    QString m_token;
    bool m_usesOldToken = false;
    QString m_tokenSecret;
    QString m_refreshToken;
    QDateTime m_tokenExpiry;
    bool m_connectionMade = false;
    bool m_refreshedOnce = false;
    QString m_pendingCursor;
    bool m_hasPendingCursor = false;

    MessageHandler m_errorHandler;
    MessageHandler m_progressHandler;
    MessageHandler m_logHandler;
};
