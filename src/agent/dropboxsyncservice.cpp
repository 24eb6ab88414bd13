#include "agent/dropboxsyncservice.h"

#include <algorithm>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryFile>

#include "agent/agentlogging.h"
#include "agent/dropboxerror.h"
#include "agent/idlewatch.h"

using namespace Qt::StringLiterals;

namespace {

QString compactJson(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QByteArray formEncoded(const QList<std::pair<QString, QString>> &fields)
{
    QByteArray body;
    for (const auto &[key, value] : fields) {
        if (!body.isEmpty())
            body += '&';
        body += QUrl::toPercentEncoding(key) + '=' + QUrl::toPercentEncoding(value);
    }
    return body;
}

} // namespace

struct DropboxSyncService::Listing
{
    QDBusMessage message;
    QJsonArray entries;
    bool fromScratch = false;
    int restarts = 0;
};

DropboxSyncService::DropboxSyncService(DropboxHttpClient &http, const DropboxEndpoints &endpoints, IdleWatch &idle,
    const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_http(http)
    , m_endpoints(endpoints)
    , m_idle(idle)
    , m_bus(bus)
{ }

QString DropboxSyncService::serviceName()
{
    return u"com.brimvaleapp.DropboxSyncService"_s;
}

QString DropboxSyncService::objectPath()
{
    return u"/com/brimvaleapp/DropboxSyncService"_s;
}

QByteArray DropboxSyncService::contentHash(const QByteArray &content)
{
    constexpr qsizetype blockSize = 4 * 1024 * 1024;
    QCryptographicHash overall(QCryptographicHash::Sha256);
    for (qsizetype offset = 0; offset < content.size(); offset += blockSize)
        overall.addData(QCryptographicHash::hash(
            QByteArrayView(content.constData() + offset, std::min(blockSize, content.size() - offset)),
            QCryptographicHash::Sha256));
    return overall.result().toHex();
}

void DropboxSyncService::SyncInit(const QString &root, const QString &accessToken)
{
    m_idle.callStarted();
    m_root = root;
    m_token = accessToken;
    qCInfo(lcAgent) << "Initialised for the folder" << root << (accessToken.isEmpty() ? "without a token" : "");
    m_idle.callFinished();
}

bool DropboxSyncService::begin(const QDBusMessage &message, bool needsToken, const QVariantList &notInitializedReply)
{
    message.setDelayedReply(true);
    m_idle.callStarted();
    if (needsToken && m_token.isEmpty()) {
        QVariantList arguments = notInitializedReply;
        arguments.last() = u"not_initialized: the Dropbox agent has no access token; call SyncInit first"_s;
        reply(message, arguments);
        return false;
    }
    return true;
}

void DropboxSyncService::reply(const QDBusMessage &message, const QVariantList &arguments)
{
    if (!m_bus.send(message.createReply(arguments)))
        qCWarning(lcAgent) << "Could not reply to" << message.member() << "of" << message.service();
    m_idle.callFinished();
}

DropboxHttpClient::Request DropboxSyncService::rpc(const QString &route, const QJsonObject &argument) const
{
    DropboxHttpClient::Request request;
    request.route = route;
    request.url = m_endpoints.apiUrl(u"/2/"_s + route);
    request.authorization = "Bearer " + m_token.toUtf8();
    request.contentType = "application/json";
    request.body = QJsonDocument(argument).toJson(QJsonDocument::Compact);
    return request;
}

DropboxHttpClient::Request DropboxSyncService::tokenRequest(const QList<std::pair<QString, QString>> &form) const
{
    DropboxHttpClient::Request request;
    request.route = u"oauth2/token"_s;
    request.url = m_endpoints.apiUrl(u"/oauth2/token"_s);
    request.contentType = "application/x-www-form-urlencoded";
    request.body = formEncoded(form);
    return request;
}

QString DropboxSyncService::remotePath(const QString &name) const
{
    return u"/"_s + m_root + u"/"_s + name;
}

QString DropboxSyncService::GetAccountInfo(const QDBusMessage &message, QString &, QString &, QString &)
{
    if (!begin(message, true, { QString(), QString(), QString(), QString() }))
        return {};
    // A route without argument: an empty body and no Content-Type, which Dropbox takes as "no argument".
    DropboxHttpClient::Request request;
    request.route = u"users/get_current_account"_s;
    request.url = m_endpoints.apiUrl(u"/2/users/get_current_account"_s);
    request.authorization = "Bearer " + m_token.toUtf8();
    m_http.send(request, [this, message](const DropboxHttpClient::Response &response) {
        if (response.status != 200) {
            const QString text = DropboxError::fromResponse(u"Reading the Dropbox account"_s, response).text();
            reply(message, { QString(), QString(), QString(), text });
            return;
        }
        const QJsonObject account = QJsonDocument::fromJson(response.body).object();
        const QString name = account.value(u"name"_s).toObject().value(u"display_name"_s).toString();
        const QString accountId = account.value(u"account_id"_s).toString();
        if (accountId.isEmpty()) {
            reply(message,
                { QString(), QString(), QString(),
                    u"Reading the Dropbox account failed: Dropbox's answer has no account_id"_s });
            return;
        }
        reply(message, { name, accountId, account.value(u"email"_s).toString(), QString() });
    });
    return {};
}

QString DropboxSyncService::UpgradeToken(const QString &tokenSecret, const QDBusMessage &message, QString &)
{
    if (!begin(message, true, { QString(), QString() }))
        return {};
    // The route authenticates the app, not the user: Brimvale is a public client, so its key has no secret.
    DropboxHttpClient::Request request = rpc(u"auth/token/from_oauth1"_s,
        QJsonObject { { u"oauth1_token"_s, m_token }, { u"oauth1_token_secret"_s, tokenSecret } });
    request.authorization = "Basic " + (DropboxEndpoints::appKey() + u":"_s).toUtf8().toBase64();
    m_http.send(request, [this, message](const DropboxHttpClient::Response &response) {
        const QString token = QJsonDocument::fromJson(response.body).object().value(u"oauth2_token"_s).toString();
        if (response.status != 200 || token.isEmpty()) {
            const QString text = response.status != 200
                ? DropboxError::fromResponse(u"Upgrading the Dropbox authorization"_s, response).text()
                : u"Upgrading the Dropbox authorization failed: Dropbox's answer has no oauth2_token"_s;
            reply(message, { QString(), text });
            return;
        }
        m_token = token;
        reply(message, { token, QString() });
    });
    return {};
}

QString DropboxSyncService::GetChanges(const QString &cursor, const QDBusMessage &message, QString &, bool &, QString &)
{
    if (!begin(message, true, { QString(), QString(), false, QString() }))
        return {};
    auto listing = std::make_shared<Listing>();
    listing->message = message;
    if (cursor.isEmpty()) {
        listing->fromScratch = true;
        listFromScratch(listing);
    } else {
        listFrom(listing, cursor);
    }
    return {};
}

void DropboxSyncService::listFromScratch(const std::shared_ptr<Listing> &listing)
{
    listing->entries = QJsonArray();
    listing->fromScratch = true;
    const QString route = u"files/list_folder"_s;
    m_http.send(rpc(route, QJsonObject { { u"path"_s, QString(u"/"_s + m_root) }, { u"recursive"_s, true } }),
        [this, listing, route](
            const DropboxHttpClient::Response &response) { onListingPage(listing, route, response); });
}

void DropboxSyncService::listFrom(const std::shared_ptr<Listing> &listing, const QString &cursor)
{
    const QString route = u"files/list_folder/continue"_s;
    m_http.send(rpc(route, QJsonObject { { u"cursor"_s, cursor } }),
        [this, listing, route](
            const DropboxHttpClient::Response &response) { onListingPage(listing, route, response); });
}

void DropboxSyncService::onListingPage(
    const std::shared_ptr<Listing> &listing, const QString &route, const DropboxHttpClient::Response &response)
{
    const QJsonObject page = QJsonDocument::fromJson(response.body).object();
    if (response.status == 200 && page.value(u"entries"_s).isArray() && page.value(u"cursor"_s).isString()) {
        for (const QJsonValue &entry : page.value(u"entries"_s).toArray())
            listing->entries.append(entry);
        const QString cursor = page.value(u"cursor"_s).toString();
        if (page.value(u"has_more"_s).toBool()) {
            listFrom(listing, cursor);
            return;
        }
        qCInfo(lcAgent) << "Listed" << listing->entries.size() << "changes"
                        << (listing->fromScratch ? "from scratch" : "since the cursor");
        reply(listing->message,
            { QString::fromUtf8(QJsonDocument(listing->entries).toJson(QJsonDocument::Compact)), cursor,
                listing->fromScratch, QString() });
        return;
    }
    const DropboxError error = DropboxError::fromResponse(u"Listing the Dropbox folder /"_s + m_root, response);
    if (response.status == 200) {
        reply(listing->message,
            { QString(), QString(), false, u"Listing the Dropbox folder failed: Dropbox's answer is not a listing"_s });
        return;
    }
    const bool notFound = error.is({ u"path"_s, u"not_found"_s });
    if (route == u"files/list_folder"_s && notFound) {
        // No folder yet: nobody has synced to this account; the first upload creates it.
        reply(listing->message, { u"[]"_s, QString(), true, QString() });
        return;
    }
    // A cursor Dropbox no longer takes (reset, a garbled cursor, the folder gone and made again) means a new
    // listing of the whole folder, which the caller must merge as such.
    const bool cursorRefused
        = route != u"files/list_folder"_s && (error.is({ u"reset"_s }) || notFound || response.status == 400);
    if (cursorRefused && listing->restarts < 2) {
        ++listing->restarts;
        qCInfo(lcAgent) << "The change cursor was refused; listing from scratch";
        listFromScratch(listing);
        return;
    }
    reply(listing->message, { QString(), QString(), false, error.text() });
}

QDBusUnixFileDescriptor DropboxSyncService::contentDescriptor(const QByteArray &content, QString *error)
{
    // An unlinked temporary file rather than a pipe: the reader may seek, and nothing blocks on its size.
    QTemporaryFile file(QDir::tempPath() + u"/brimvale-dropbox-XXXXXX"_s);
    if (!file.open() || file.write(content) != content.size() || !file.flush() || !file.seek(0)) {
        if (error)
            *error = u"could not hold the file's content in a temporary file: %1"_s.arg(file.errorString());
        return {};
    }
    return QDBusUnixFileDescriptor(file.handle());
}

QDBusUnixFileDescriptor DropboxSyncService::GetFile(
    const QString &name, const QDBusMessage &message, QString &, int &, QString &)
{
    const QString action = u"Download of %1"_s.arg(name);
    const auto failure = [](int status, const QString &text) {
        // A reply needs a valid descriptor even when there is no content; /dev/null serves where no
        // temporary file can be made.
        QString ignored;
        QDBusUnixFileDescriptor empty = contentDescriptor({}, &ignored);
        QFile null(u"/dev/null"_s);
        if (!empty.isValid() && null.open(QIODevice::ReadOnly))
            empty = QDBusUnixFileDescriptor(null.handle());
        return QVariantList { QVariant::fromValue(empty), QString(), status, text };
    };
    if (!begin(message, true, failure(0, QString())))
        return {};
    DropboxHttpClient::Request request;
    request.route = u"files/download"_s;
    request.url = m_endpoints.contentUrl(u"/2/files/download"_s);
    request.authorization = "Bearer " + m_token.toUtf8();
    request.apiArg = DropboxHttpClient::headerJson(QJsonObject { { u"path"_s, remotePath(name) } });
    m_http.send(request, [this, message, action, failure](const DropboxHttpClient::Response &response) {
        if (response.status != 200) {
            const DropboxError error = DropboxError::fromResponse(action, response);
            if (error.is({ u"path"_s, u"not_found"_s }))
                reply(message, failure(404, QString()));
            else
                reply(message, failure(response.status, error.text()));
            return;
        }
        const QJsonDocument metadata = QJsonDocument::fromJson(response.apiResult);
        if (!metadata.isObject()) {
            reply(message, failure(0, action + u" failed: Dropbox sent no readable Dropbox-API-Result"_s));
            return;
        }
        const QString expectedHash = metadata.object().value(u"content_hash"_s).toString();
        if (!expectedHash.isEmpty() && expectedHash.toLatin1() != contentHash(response.body)) {
            reply(message, failure(0, action + u" failed: the content does not match its content_hash"_s));
            return;
        }
        QString error;
        const QDBusUnixFileDescriptor descriptor = contentDescriptor(response.body, &error);
        if (!descriptor.isValid()) {
            reply(message, failure(0, action + u" failed: "_s + error));
            return;
        }
        reply(message, { QVariant::fromValue(descriptor), compactJson(metadata.object()), 0, QString() });
    });
    return {};
}

QString DropboxSyncService::PutFile(const QDBusUnixFileDescriptor &content, const QString &name,
    const QString &revision, const QDBusMessage &message, QString &)
{
    if (!begin(message, true, { QString(), QString() }))
        return {};
    const QString action = u"Upload of %1"_s.arg(name);
    QFile file;
    QByteArray data;
    if (!content.isValid() || !file.open(content.fileDescriptor(), QIODevice::ReadOnly, QFileDevice::DontCloseHandle)
        || (!file.isSequential() && !file.seek(0))) {
        reply(message, { QString(), QString(action + u" failed: the file to upload cannot be read"_s) });
        return {};
    }
    data = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        reply(message,
            { QString(), QString(action + u" failed: the file to upload cannot be read: "_s + file.errorString()) });
        return {};
    }
    const QJsonValue mode = revision.isEmpty()
        ? QJsonValue(u"add"_s)
        : QJsonValue(QJsonObject { { u".tag"_s, u"update"_s }, { u"update"_s, revision } });
    DropboxHttpClient::Request request;
    request.route = u"files/upload"_s;
    request.url = m_endpoints.contentUrl(u"/2/files/upload"_s);
    request.authorization = "Bearer " + m_token.toUtf8();
    request.contentType = "application/octet-stream";
    request.apiArg = DropboxHttpClient::headerJson(QJsonObject {
        { u"path"_s, remotePath(name) }, { u"mode"_s, mode }, { u"autorename"_s, false }, { u"mute"_s, true } });
    request.body = data;
    m_http.send(request, [this, message, action](const DropboxHttpClient::Response &response) {
        const QJsonDocument metadata = QJsonDocument::fromJson(response.body);
        if (response.status != 200) {
            reply(message, { QString(), DropboxError::fromResponse(action, response).text() });
            return;
        }
        if (!metadata.isObject()) {
            reply(message, { QString(), QString(action + u" failed: Dropbox's answer is not the file's metadata"_s) });
            return;
        }
        reply(message, { compactJson(metadata.object()), QString() });
    });
    return {};
}

QString DropboxSyncService::DeleteFile(const QString &name, const QDBusMessage &message)
{
    if (!begin(message, true, { QString() }))
        return {};
    const QString action = u"Deleting %1"_s.arg(name);
    m_http.send(rpc(u"files/delete_v2"_s, QJsonObject { { u"path"_s, remotePath(name) } }),
        [this, message, action](const DropboxHttpClient::Response &response) {
            if (response.status == 200) {
                reply(message, { QString() });
                return;
            }
            // Gone already (another machine, or a retry after a lost answer): what was asked for holds.
            const DropboxError error = DropboxError::fromResponse(action, response);
            reply(message, { error.is({ u"path_lookup"_s, u"not_found"_s }) ? QString() : error.text() });
        });
    return {};
}

QString DropboxSyncService::ExchangeCode(const QString &code, const QString &codeVerifier, const QString &redirectUri,
    const QString &clientId, const QDBusMessage &message, QString &, qlonglong &, QString &, QString &)
{
    if (!begin(message, false, {}))
        return {};
    QList<std::pair<QString, QString>> form { { u"grant_type"_s, u"authorization_code"_s }, { u"code"_s, code },
        { u"client_id"_s, clientId }, { u"code_verifier"_s, codeVerifier } };
    if (!redirectUri.isEmpty())
        form.append({ u"redirect_uri"_s, redirectUri });
    m_http.send(tokenRequest(form), [this, message](const DropboxHttpClient::Response &response) {
        const QJsonObject answer = QJsonDocument::fromJson(response.body).object();
        const QString token = answer.value(u"access_token"_s).toString();
        if (response.status != 200 || token.isEmpty()) {
            const QString text = response.status != 200
                ? DropboxError::fromResponse(u"Connecting to Dropbox"_s, response).text()
                : u"Connecting to Dropbox failed: Dropbox's answer has no access_token"_s;
            reply(message, { QString(), QString(), qlonglong(0), QString(), text });
            return;
        }
        m_token = token;
        const QString account = answer.contains(u"team_id"_s) ? answer.value(u"team_id"_s).toString()
                                                              : answer.value(u"account_id"_s).toString();
        reply(message,
            { token, answer.value(u"refresh_token"_s).toString(), qlonglong(answer.value(u"expires_in"_s).toDouble()),
                account, QString() });
    });
    return {};
}

QString DropboxSyncService::RefreshToken(
    const QString &refreshToken, const QString &clientId, const QDBusMessage &message, qlonglong &, QString &)
{
    if (!begin(message, false, {}))
        return {};
    m_http.send(tokenRequest({ { u"grant_type"_s, u"refresh_token"_s }, { u"refresh_token"_s, refreshToken },
                    { u"client_id"_s, clientId } }),
        [this, message](const DropboxHttpClient::Response &response) {
            const QJsonObject answer = QJsonDocument::fromJson(response.body).object();
            const QString token = answer.value(u"access_token"_s).toString();
            if (response.status != 200 || token.isEmpty()) {
                const QString text = response.status != 200
                    ? DropboxError::fromResponse(u"Renewing the Dropbox access token"_s, response).text()
                    : u"Renewing the Dropbox access token failed: Dropbox's answer has no access_token"_s;
                reply(message, { QString(), qlonglong(0), text });
                return;
            }
            m_token = token;
            reply(message, { token, qlonglong(answer.value(u"expires_in"_s).toDouble()), QString() });
        });
    return {};
}

QString DropboxSyncService::RevokeToken(const QDBusMessage &message)
{
    if (!begin(message, true, { QString() }))
        return {};
    DropboxHttpClient::Request request;
    request.route = u"auth/token/revoke"_s;
    request.url = m_endpoints.apiUrl(u"/2/auth/token/revoke"_s);
    request.authorization = "Bearer " + m_token.toUtf8();
    m_http.send(request, [this, message](const DropboxHttpClient::Response &response) {
        const DropboxError error = DropboxError::fromResponse(u"Disconnecting from Dropbox"_s, response);
        // A token Dropbox already refuses is as good as revoked.
        if (response.status == 200 || error.is({ u"invalid_access_token"_s })) {
            m_token.clear();
            reply(message, { QString() });
            return;
        }
        reply(message, { error.text() });
    });
    return {};
}
