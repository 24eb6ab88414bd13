#pragma once

#include <memory>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusUnixFileDescriptor>
#include <QJsonArray>
#include <QObject>
#include <QString>

#include "agent/dropboxendpoints.h"
#include "agent/dropboxhttpclient.h"

class DropboxError;
class IdleWatch;

// The agent's operations on the session bus (name "com.brimvaleapp.DropboxSyncService", object
// "/com/brimvaleapp/DropboxSyncService", interface "com.brimvaleapp.DropboxSyncService1"). Every method but
// SyncInit replies later, when Dropbox has answered, so calls overlap; a failure is the reply's error text
// (empty on success), never a D-Bus error. A call that needs the access token before SyncInit gave one
// answers an error text starting "not_initialized:" (the agent exits when idle and forgets the token, so a
// client calls SyncInit again whenever it reconnects). Files travel as Unix file descriptors read from offset 0.
class DropboxSyncService : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.brimvaleapp.DropboxSyncService1")
    // The argument names as clients know them (the slots' return values would otherwise show as "arg_0").
    Q_CLASSINFO("D-Bus Introspection",
        "  <interface name=\"com.brimvaleapp.DropboxSyncService1\">\n"
        "    <method name=\"SyncInit\"><arg name=\"root\" type=\"s\" direction=\"in\"/>"
        "<arg name=\"accessToken\" type=\"s\" direction=\"in\"/></method>\n"
        "    <method name=\"GetAccountInfo\"><arg name=\"name\" type=\"s\" direction=\"out\"/>"
        "<arg name=\"accountId\" type=\"s\" direction=\"out\"/><arg name=\"email\" type=\"s\" "
        "direction=\"out\"/><arg name=\"error\" type=\"s\" direction=\"out\"/></method>\n"
        "    <method name=\"UpgradeToken\"><arg name=\"tokenSecret\" type=\"s\" direction=\"in\"/>"
        "<arg name=\"accessToken\" type=\"s\" direction=\"out\"/><arg name=\"error\" type=\"s\" "
        "direction=\"out\"/></method>\n"
        "    <method name=\"GetChanges\"><arg name=\"cursor\" type=\"s\" direction=\"in\"/>"
        "<arg name=\"entriesJson\" type=\"s\" direction=\"out\"/><arg name=\"cursor\" type=\"s\" "
        "direction=\"out\"/><arg name=\"fromScratch\" type=\"b\" direction=\"out\"/>"
        "<arg name=\"error\" type=\"s\" direction=\"out\"/></method>\n"
        "    <method name=\"GetFile\"><arg name=\"name\" type=\"s\" direction=\"in\"/>"
        "<arg name=\"fd\" type=\"h\" direction=\"out\"/><arg name=\"metadataJson\" type=\"s\" "
        "direction=\"out\"/><arg name=\"httpStatus\" type=\"i\" direction=\"out\"/>"
        "<arg name=\"error\" type=\"s\" direction=\"out\"/></method>\n"
        "    <method name=\"PutFile\"><arg name=\"fd\" type=\"h\" direction=\"in\"/>"
        "<arg name=\"name\" type=\"s\" direction=\"in\"/><arg name=\"revision\" type=\"s\" "
        "direction=\"in\"/><arg name=\"metadataJson\" type=\"s\" direction=\"out\"/>"
        "<arg name=\"error\" type=\"s\" direction=\"out\"/></method>\n"
        "    <method name=\"DeleteFile\"><arg name=\"name\" type=\"s\" direction=\"in\"/>"
        "<arg name=\"error\" type=\"s\" direction=\"out\"/></method>\n"
        "    <method name=\"ExchangeCode\"><arg name=\"code\" type=\"s\" direction=\"in\"/>"
        "<arg name=\"codeVerifier\" type=\"s\" direction=\"in\"/><arg name=\"redirectUri\" "
        "type=\"s\" direction=\"in\"/><arg name=\"clientId\" type=\"s\" direction=\"in\"/>"
        "<arg name=\"accessToken\" type=\"s\" direction=\"out\"/><arg name=\"refreshToken\" "
        "type=\"s\" direction=\"out\"/><arg name=\"expiresInSecs\" type=\"x\" direction=\"out\"/>"
        "<arg name=\"accountId\" type=\"s\" direction=\"out\"/><arg name=\"error\" type=\"s\" "
        "direction=\"out\"/></method>\n"
        "    <method name=\"RefreshToken\"><arg name=\"refreshToken\" type=\"s\" direction=\"in\"/>"
        "<arg name=\"clientId\" type=\"s\" direction=\"in\"/><arg name=\"accessToken\" type=\"s\" "
        "direction=\"out\"/><arg name=\"expiresInSecs\" type=\"x\" direction=\"out\"/>"
        "<arg name=\"error\" type=\"s\" direction=\"out\"/></method>\n"
        "    <method name=\"RevokeToken\"><arg name=\"error\" type=\"s\" direction=\"out\"/></method>\n"
        "  </interface>\n")

public:
    DropboxSyncService(DropboxHttpClient &http, const DropboxEndpoints &endpoints, IdleWatch &idle,
        const QDBusConnection &bus, QObject *parent = nullptr);

    static QString serviceName();
    static QString objectPath();

    // Dropbox's content_hash: SHA-256 over the SHA-256 digests of the content's 4 MiB blocks, in hex.
    static QByteArray contentHash(const QByteArray &content);

public Q_SLOTS:
    // The remote folder ("sync" for /sync) and the access token of every later call.
    void SyncInit(const QString &root, const QString &accessToken);
    // /2/users/get_current_account: the display name, account id and e-mail.
    QString GetAccountInfo(const QDBusMessage &message, QString &accountId, QString &email, QString &error);
    // /2/auth/token/from_oauth1 with the old-scheme token given to SyncInit and its secret; the agent uses the
    // new access token from then on.
    QString UpgradeToken(const QString &tokenSecret, const QDBusMessage &message, QString &error);
    // The entries changed since `cursor` ("": the whole folder, recursively), as Dropbox sent them, with the
    // cursor to ask from next time. fromScratch says the entries are the whole folder: asked for, or because
    // Dropbox reset the cursor. A folder that does not exist yet lists as empty, from scratch.
    QString GetChanges(
        const QString &cursor, const QDBusMessage &message, QString &nextCursor, bool &fromScratch, QString &error);
    // The content of the folder's file `name` with its metadata; httpStatus is 0 on success and 404 (with no
    // error text) when there is no such file.
    QDBusUnixFileDescriptor GetFile(
        const QString &name, const QDBusMessage &message, QString &metadataJson, int &httpStatus, QString &error);
    // Uploads the descriptor's content as the folder's file `name`: added when `revision` is empty, else only
    // over that revision; a file changed meanwhile is a conflict and an error text. Replies the new metadata.
    QString PutFile(const QDBusUnixFileDescriptor &content, const QString &name, const QString &revision,
        const QDBusMessage &message, QString &error);
    // Deletes the folder's file `name`; one that is already gone counts as deleted.
    QString DeleteFile(const QString &name, const QDBusMessage &message);
    // /oauth2/token with an authorization code and its PKCE verifier (redirectUri empty when none was used);
    // the agent uses the new access token from then on.
    QString ExchangeCode(const QString &code, const QString &codeVerifier, const QString &redirectUri,
        const QString &clientId, const QDBusMessage &message, QString &refreshToken, qlonglong &expiresInSecs,
        QString &accountId, QString &error);
    // /oauth2/token with a refresh token; the agent uses the new access token from then on.
    QString RefreshToken(const QString &refreshToken, const QString &clientId, const QDBusMessage &message,
        qlonglong &expiresInSecs, QString &error);
    // /2/auth/token/revoke: the access token, and the refresh token it came from, stop working.
    QString RevokeToken(const QDBusMessage &message);

private:
    struct Listing;

    bool begin(const QDBusMessage &message, bool needsToken, const QVariantList &notInitializedReply);
    void reply(const QDBusMessage &message, const QVariantList &arguments);
    DropboxHttpClient::Request rpc(const QString &route, const QJsonObject &argument) const;
    DropboxHttpClient::Request tokenRequest(const QList<std::pair<QString, QString>> &form) const;
    QString remotePath(const QString &name) const;
    void listFromScratch(const std::shared_ptr<Listing> &listing);
    void listFrom(const std::shared_ptr<Listing> &listing, const QString &cursor);
    void onListingPage(
        const std::shared_ptr<Listing> &listing, const QString &route, const DropboxHttpClient::Response &response);
    static QDBusUnixFileDescriptor contentDescriptor(const QByteArray &content, QString *error);

    DropboxHttpClient &m_http;
    const DropboxEndpoints &m_endpoints;
    IdleWatch &m_idle;
    QDBusConnection m_bus;
    QString m_root;
    QString m_token;
};
