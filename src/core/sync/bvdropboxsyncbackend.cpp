#include "sync/bvdropboxsyncbackend.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <expected>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryFile>

#include "base/clock.h"
#include "base/logging.h"
#include "sync/bvdropboxsettings.h"
#include "sync/bvkeychain.h"
#include "sync/bvsynctimezonefile.h"
#include "sync/dropboxauthorization.h"

namespace {

const auto TokenKey = QStringLiteral("oauth2_token");
const auto OldTokenKey = QStringLiteral("oauth_token");
const auto OldTokenSecretKey = QStringLiteral("oauth_token_secret");
const auto RefreshTokenKey = QStringLiteral("oauth2_refresh_token");
const auto TokenExpiryKey = QStringLiteral("oauth2_token_expiry");

QString storeFailedMessage()
{
    return QStringLiteral("Failed to store new oauth token");
}

// A token this close to its expiry is refreshed before a run rather than in the middle of one.
constexpr qint64 RefreshMarginSecs = 300;

QString systemError(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

std::expected<QString, QString> getRevisionFromMetadata(const QByteArray &metadata)
{
    const QJsonValue rev = QJsonDocument::fromJson(metadata).object().value(QStringLiteral("rev"));
    if (!rev.isString() || rev.toString().isEmpty())
        return std::unexpected(QStringLiteral("No revision found in metadata"));
    return rev.toString();
}

// The whole content behind a descriptor, read from offset 0 whatever its position.
std::expected<QByteArray, QString> readAll(int fd)
{
    QByteArray content;
    char buffer[65536];
    off_t offset = 0;
    for (;;) {
        const ssize_t n = ::pread(fd, buffer, sizeof buffer, offset);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return std::unexpected(systemError(errno));
        if (n == 0)
            return content;
        content.append(buffer, n);
        offset += n;
    }
}

// Copies the content behind `fd` into a new temporary file beside `target` and renames it over the
// target, so the cache never holds half a file.
QString copyFileToCache(int fd, const QString &target)
{
    const QByteArray path = QFile::encodeName(target);
    QByteArray temporary = path + ".XXXXXX";
    const int out = ::mkstemp(temporary.data());
    if (out < 0)
        return systemError(errno);
    const auto fail = [&](int error) {
        ::close(out);
        ::unlink(temporary.constData());
        return systemError(error);
    };
    if (::fchmod(out, 0644) != 0)
        return fail(errno);
    char buffer[65536];
    off_t offset = 0;
    for (;;) {
        const ssize_t n = ::pread(fd, buffer, sizeof buffer, offset);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return fail(errno);
        if (n == 0)
            break;
        offset += n;
        for (ssize_t written = 0; written < n;) {
            const ssize_t w = ::write(out, buffer + written, size_t(n - written));
            if (w < 0 && errno == EINTR)
                continue;
            if (w <= 0)
                return fail(w < 0 ? errno : EIO);
            written += w;
        }
    }
    if (::close(out) != 0) {
        const int error = errno;
        ::unlink(temporary.constData());
        return systemError(error);
    }
    if (std::rename(temporary.constData(), path.constData()) != 0) {
        const int error = errno;
        ::unlink(temporary.constData());
        return systemError(error);
    }
    return {};
}

// The content as a file of its own, for an upload of something that is not a file on disk. The file is
// removed at once; the descriptor keeps it readable until it is closed.
std::expected<DropboxSyncServiceProtocol::FileHandle, QString> contentFile(const QByteArray &content)
{
    QTemporaryFile file(QDir::tempPath() + QStringLiteral("/brimvale-upload-XXXXXX"));
    if (!file.open())
        return std::unexpected(file.errorString());
    if (file.write(content) != content.size() || !file.flush())
        return std::unexpected(file.errorString());
    const int fd = ::fcntl(file.handle(), F_DUPFD_CLOEXEC, 0);
    if (fd < 0)
        return std::unexpected(systemError(errno));
    return DropboxSyncServiceProtocol::FileHandle(fd);
}

QString orNull(const QString &text)
{
    return text.isNull() ? QStringLiteral("(null)") : text;
}

} // namespace

BVDropboxSyncBackend::BVDropboxSyncBackend(const BVDropboxServices &services, QObject *parent)
    : QObject(parent)
    , m_services(services)
{
    Q_ASSERT(services.service && services.keychain && services.settings && services.clock);
    loadTokens();
}

BVDropboxSyncBackend::~BVDropboxSyncBackend() = default;

void BVDropboxSyncBackend::loadTokens()
{
    BvKeychain keychain(*m_services.keychain);
    m_token = keychain.getGenericAccountPassword(TokenKey);
    m_usesOldToken = false;
    m_tokenSecret.clear();
    if (m_token.isEmpty()) {
        m_token = keychain.getGenericAccountPassword(OldTokenKey);
        m_usesOldToken = !m_token.isEmpty();
        if (m_usesOldToken)
            m_tokenSecret = keychain.getGenericAccountPassword(OldTokenSecretKey);
    }
    m_refreshToken = m_usesOldToken ? QString() : keychain.getGenericAccountPassword(RefreshTokenKey);
    m_tokenExpiry = m_refreshToken.isEmpty()
        ? QDateTime()
        : QDateTime::fromString(keychain.getGenericAccountPassword(TokenExpiryKey), Qt::ISODate);
    m_connectionMade = false;
}

void BVDropboxSyncBackend::reportError(const QString &message) const
{
    if (m_errorHandler)
        m_errorHandler(message);
    else
        qCWarning(lcSync).noquote() << message;
}

void BVDropboxSyncBackend::reportProgress(const QString &message) const
{
    if (m_progressHandler)
        m_progressHandler(message);
}

void BVDropboxSyncBackend::log(const QString &line) const
{
    if (m_logHandler)
        m_logHandler(line);
    else
        qCInfo(lcSync).noquote() << line;
}

void BVDropboxSyncBackend::xpcGetConnection()
{
    if (m_connectionMade)
        return;
    m_connectionMade = true;
    m_services.service->syncInitWithSyncRoot(QString::fromLatin1(SyncRoot), m_token);
}

QString BVDropboxSyncBackend::describe(const QString &error) const
{
    if (error.startsWith(QLatin1String(DropboxSyncServiceProtocol::InvalidTokenPrefix))
        || (error.startsWith(QLatin1String(DropboxSyncServiceProtocol::ExpiredTokenPrefix))
            && (m_refreshToken.isEmpty() || m_refreshedOnce))) {
        return QStringLiteral("Dropbox no longer accepts this computer's authorization (%1). Please connect "
                              "Dropbox again in preferences")
            .arg(error);
    }
    return error;
}

bool BVDropboxSyncBackend::tokenExpiresSoon() const
{
    return !m_refreshToken.isEmpty() && m_tokenExpiry.isValid()
        && m_services.clock->now().secsTo(m_tokenExpiry) <= RefreshMarginSecs;
}

void BVDropboxSyncBackend::refreshAccessToken(std::function<void(bool refreshed, const QString &error)> done)
{
    m_refreshedOnce = true;
    log(QStringLiteral("Refreshing the Dropbox access token..."));
    m_services.service->refreshToken(m_refreshToken, QString::fromLatin1(DropboxAuthorization::AppKey),
        [this, done = std::move(done)](DropboxSyncServiceProtocol::Refreshed reply) {
            if (!reply.error.isEmpty() || reply.accessToken.isEmpty()) {
                log(QStringLiteral("Failed to refresh the Dropbox access token: %1").arg(reply.error));
                done(false, reply.error);
                return;
            }
            storeAccessToken(reply.accessToken, m_refreshToken, reply.expiresInSecs);
            m_connectionMade = false;
            xpcGetConnection();
            done(true, {});
        });
}

template<typename Reply>
void BVDropboxSyncBackend::withToken(
    std::function<void(std::function<void(Reply)>)> call, std::function<void(Reply)> handle)
{
    xpcGetConnection();
    call([this, call, handle](Reply reply) {
        if (!reply.error.startsWith(QLatin1String(DropboxSyncServiceProtocol::ExpiredTokenPrefix))
            || m_refreshToken.isEmpty() || m_refreshedOnce) {
            handle(std::move(reply));
            return;
        }
        refreshAccessToken([call, handle, reply](bool refreshed, const QString &) {
            if (refreshed)
                call(handle);
            else
                handle(reply);
        });
    });
}

void BVDropboxSyncBackend::initializeBackend(Completion completion)
{
    if (m_token.isEmpty()) {
        reportError(QStringLiteral("Dropbox is not connected. Please configure Dropbox sync in preferences"));
        return;
    }
    xpcGetConnection();
    if (m_usesOldToken) {
        log(QStringLiteral("Updating oauth token..."));
        m_services.service->upgradeTokenWithTokenSecret(
            m_tokenSecret, [this, completion](DropboxSyncServiceProtocol::UpgradedToken reply) {
                if (!reply.error.isEmpty()) {
                    reportError(describe(reply.error));
                    return;
                }
                if (!BvKeychain(*m_services.keychain).saveGenericPassword(reply.accessToken, TokenKey)) {
                    reportError(storeFailedMessage());
                    return;
                }
                m_token = reply.accessToken;
                m_usesOldToken = false;
                m_connectionMade = false;
                xpcGetConnection();
                completion();
            });
        return;
    }
    if (tokenExpiresSoon()) {
        refreshAccessToken([this, completion](bool refreshed, const QString &error) {
            // Without a new token the old one may still serve this run; when it does not, the first call
            // says so.
            if (!refreshed && error.startsWith(QLatin1String(DropboxSyncServiceProtocol::InvalidTokenPrefix))) {
                reportError(describe(error));
                return;
            }
            completion();
        });
        return;
    }
    completion();
}

void BVDropboxSyncBackend::agreeTimeZone(const QByteArray &proposedZoneId, TimeZoneHandler andHandler)
{
    readTimeZone(proposedZoneId, 0, std::move(andHandler));
}

void BVDropboxSyncBackend::readTimeZone(const QByteArray &proposedZoneId, int attempt, TimeZoneHandler andHandler)
{
    const QString name = QString::fromLatin1(BVSyncTimeZoneFile::FileName);
    withToken<DropboxSyncServiceProtocol::File>(
        [this, name](auto reply) { m_services.service->syncGetFile(name, std::move(reply)); },
        [this, name, proposedZoneId, attempt, andHandler](DropboxSyncServiceProtocol::File file) {
            if (!file.error.isEmpty()) {
                reportError(describe(file.error));
                return;
            }
            if (file.httpStatus == 0) {
                const std::expected<QByteArray, QString> content = readAll(file.handle.fd());
                const std::expected<QByteArray, QString> zoneId
                    = content ? BVSyncTimeZoneFile::read(*content) : std::unexpected(content.error());
                if (!zoneId) {
                    reportError(QStringLiteral("The sync folder's %1 cannot be used: %2. Please fix or remove it")
                                    .arg(name, zoneId.error()));
                    return;
                }
                andHandler(*zoneId);
                return;
            }
            if (file.httpStatus != 404) {
                reportError(
                    QStringLiteral("Failed to retrieve %1 file. Status code: %2").arg(name).arg(file.httpStatus));
                return;
            }
            if (attempt > 0) {
                reportError(QStringLiteral("Failed to read %1 from Dropbox. It keeps changing.\n\nPlease retry sync")
                                .arg(name));
                return;
            }
            // Upload expecting no file: of two machines starting at once, one records its zone and the
            // other's upload is refused, after which it reads the recorded zone.
            const std::expected<DropboxSyncServiceProtocol::FileHandle, QString> content
                = contentFile(BVSyncTimeZoneFile::json(proposedZoneId));
            if (!content) {
                reportError(QStringLiteral("Failed to write %1 to Dropbox. %2\n\nPlease retry sync")
                                .arg(name, content.error()));
                return;
            }
            withToken<DropboxSyncServiceProtocol::PutResult>(
                [this, name, content = *content](
                    auto reply) { m_services.service->syncPutFile(content.fd(), name, QString(), std::move(reply)); },
                [this, name, proposedZoneId, attempt, andHandler](DropboxSyncServiceProtocol::PutResult put) {
                    if (put.error.contains(QLatin1String("conflict"))) {
                        readTimeZone(proposedZoneId, attempt + 1, andHandler);
                        return;
                    }
                    if (!put.error.isEmpty()) {
                        reportError(QStringLiteral("Failed to write %1 to Dropbox. %2\n\nPlease retry sync")
                                        .arg(name, describe(put.error)));
                        return;
                    }
                    log(QStringLiteral("Recorded the sync time zone %1 in %2")
                            .arg(QString::fromUtf8(proposedZoneId), name));
                    andHandler(proposedZoneId);
                });
        });
}

void BVDropboxSyncBackend::deleteSavepoint()
{
    m_services.settings->setDropboxHash(QString());
}

void BVDropboxSyncBackend::saveSavepoint()
{
    if (m_hasPendingCursor)
        m_services.settings->setDropboxHash(m_pendingCursor);
}

void BVDropboxSyncBackend::saveAccountID(const QString &accountID, const QString &andName)
{
    if (accountID == m_services.settings->dropboxAccountID() && andName == m_services.settings->dropboxAccountName())
        return;
    updateAccountName(andName, accountID);
}

void BVDropboxSyncBackend::updateAccountName(const QString &name, const QString &andAccountID)
{
    m_services.settings->setDropboxConnectedAccountName(name, andAccountID);
    Q_EMIT BvDropboxAuthChanged();
}

void BVDropboxSyncBackend::fetchChangesWithLocalCache(const QList<BVTmpSyncFile> &localCache, ChangesHandler andHandler)
{
    Q_UNUSED(localCache)
    reportProgress(QStringLiteral("Retrieving account info ..."));
    withToken<DropboxSyncServiceProtocol::AccountInfo>(
        [this](auto reply) { m_services.service->getAccountInfoWithReply(std::move(reply)); },
        [this, andHandler](DropboxSyncServiceProtocol::AccountInfo info) {
            if (!info.error.isEmpty()) {
                reportError(QStringLiteral("Failed to retrieve Dropbox account info: %1").arg(describe(info.error)));
                return;
            }
            saveAccountID(info.accountId, info.name);
            reportProgress(QStringLiteral("Retrieving list of changes..."));
            const QString cursor = m_services.settings->dropboxHash();
            log(QStringLiteral("Fetch Dropbox changes with cursor: %1").arg(orNull(cursor)));
            withToken<DropboxSyncServiceProtocol::Changes>(
                [this, cursor](auto reply) { m_services.service->syncGetChangesForCursor(cursor, std::move(reply)); },
                [this, andHandler](DropboxSyncServiceProtocol::Changes changes) {
                    if (!changes.error.isEmpty()) {
                        // The next run lists from scratch.
                        deleteSavepoint();
                        reportError(describe(changes.error));
                        return;
                    }
                    getFilesToMerge(changes.entriesJson, changes.cursor, andHandler, changes.fromScratch);
                });
        });
}

void BVDropboxSyncBackend::getFilesToMerge(
    const QByteArray &entriesJson, const QString &newCursor, const ChangesHandler &handler, bool didFullFetch)
{
    log(QStringLiteral("Merging changes"));
    log(QStringLiteral("Process fetched Dropbox file metadata"));
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(entriesJson, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isArray()) {
        deleteSavepoint();
        reportError(QStringLiteral("Failed to read the list of Dropbox changes. %1").arg(parseError.errorString()));
        return;
    }
    const QString prefix = QString::fromLatin1(SyncRoot);
    QList<BVTmpSyncFile> files;
    for (const QJsonValue &value : document.array()) {
        const QJsonObject entry = value.toObject();
        const QString tag = entry.value(QStringLiteral(".tag")).toString();
        const QString path = entry.value(QStringLiteral("path_lower")).toString();
        if (tag == QLatin1String("file")) {
            const QString rev = entry.value(QStringLiteral("rev")).toString();
            log(QStringLiteral("Dropbox file: %1; rev: %2").arg(path, rev));
            if (auto file = BVTmpSyncFile::fromFileName(path, prefix, SyncMethod, rev))
                files.append(*file);
        } else if (tag == QLatin1String("deleted")) {
            log(QStringLiteral("Dropbox deleted file: %1").arg(path));
            if (auto file = BVTmpSyncFile::deletedFileFromFileName(path, prefix))
                files.append(*file);
        }
    }
    m_pendingCursor = newCursor;
    m_hasPendingCursor = true;
    handler(files, didFullFetch);
}

void BVDropboxSyncBackend::downloadFileWithName(const QString &name, const std::optional<QString> &expectedRevision,
    const QString &saveToFile, DownloadCallback andCallback)
{
    withToken<DropboxSyncServiceProtocol::File>(
        [this, name](auto reply) { m_services.service->syncGetFile(name, std::move(reply)); },
        [this, name, expectedRevision, saveToFile, andCallback](DropboxSyncServiceProtocol::File file) {
            if (!file.error.isEmpty()) {
                reportError(describe(file.error));
                return;
            }
            if (file.httpStatus != 0) {
                // A file that is not there and was not expected is no error.
                if (file.httpStatus == 404 && !expectedRevision) {
                    andCallback(false);
                    return;
                }
                reportError(
                    QStringLiteral("Failed to retrieve %1 file. Status code: %2").arg(name).arg(file.httpStatus));
                return;
            }
            const std::expected<QString, QString> revision = getRevisionFromMetadata(file.metadataJson);
            if (!revision) {
                reportError(QStringLiteral("Failed to get revision data for file %1. %2").arg(name, revision.error()));
                return;
            }
            if (expectedRevision && *expectedRevision != *revision) {
                reportError(QStringLiteral("Invalid revision for %1 file. Expected revision: %2, received revision: "
                                           "%3. File has been changed on Dropbox.")
                                .arg(name, *expectedRevision, *revision));
                return;
            }
            const QString error
                = file.handle.fd() < 0 ? systemError(EBADF) : copyFileToCache(file.handle.fd(), saveToFile);
            if (!error.isEmpty()) {
                log(QStringLiteral("Failed to copy %1 to %2: %3").arg(name, saveToFile, error));
                reportError(QStringLiteral("Failed to move file %1 to cache.").arg(name));
                return;
            }
            andCallback(true);
        });
}

void BVDropboxSyncBackend::uploadFile(
    const QString &file, const std::optional<BVTmpSyncFile> &withRevision, UploadBlock andBlock)
{
    const QString name = QFileInfo(file).fileName();
    const QString revision = withRevision ? withRevision->revisionValue().value_or(QString()) : QString();
    const int fd = ::open(QFile::encodeName(file).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        reportError(QStringLiteral("Failed to read %1. %2").arg(file, systemError(errno)));
        return;
    }
    const DropboxSyncServiceProtocol::FileHandle content(fd);
    withToken<DropboxSyncServiceProtocol::PutResult>(
        [this, content, name, revision](
            auto reply) { m_services.service->syncPutFile(content.fd(), name, revision, std::move(reply)); },
        [this, name, revision, andBlock](DropboxSyncServiceProtocol::PutResult put) {
            if (!put.error.isEmpty()) {
                log(QStringLiteral("Failed to upload Dropbox file (file: %1; revision: %2), clear cursor")
                        .arg(name, orNull(revision.isEmpty() ? QString() : revision)));
                deleteSavepoint();
                reportError(QStringLiteral("%1\n\nPlease retry sync").arg(describe(put.error)));
                return;
            }
            const std::expected<QString, QString> newRevision = getRevisionFromMetadata(put.metadataJson);
            if (!newRevision) {
                reportError(QStringLiteral("Failed to parse revision from uploaded file %1. %2")
                                .arg(name, newRevision.error()));
                return;
            }
            andBlock(*newRevision);
        });
}

void BVDropboxSyncBackend::deleteFile(const BVTmpSyncFile &file, Completion andBlock)
{
    const QString name = file.fileName();
    struct Reply
    {
        QString error;
    };
    withToken<Reply>(
        [this, name](auto reply) {
            m_services.service->syncDeleteFile(name, [reply](QString error) { reply(Reply { error }); });
        },
        [this, andBlock](Reply reply) {
            if (!reply.error.isEmpty()) {
                reportError(describe(reply.error));
                return;
            }
            andBlock();
        });
}

QUrl BVDropboxSyncBackend::authorize()
{
    return DropboxAuthorization::implicitGrantUrl();
}

bool BVDropboxSyncBackend::storeAccessToken(const QString &token, const QString &refreshToken, qint64 expiresInSecs)
{
    BvKeychain keychain(*m_services.keychain);
    const bool stored = keychain.saveGenericPassword(token, TokenKey);
    m_token = token;
    m_refreshToken = refreshToken;
    if (refreshToken.isEmpty()) {
        keychain.deleteGenericPasswordForAccount(RefreshTokenKey);
        keychain.deleteGenericPasswordForAccount(TokenExpiryKey);
        m_tokenExpiry = QDateTime();
        return stored;
    }
    const bool refreshStored = stored && keychain.saveGenericPassword(refreshToken, RefreshTokenKey);
    m_tokenExpiry = expiresInSecs > 0 ? m_services.clock->now().addSecs(expiresInSecs) : QDateTime();
    if (m_tokenExpiry.isValid())
        keychain.saveGenericPassword(m_tokenExpiry.toUTC().toString(Qt::ISODate), TokenExpiryKey);
    else
        keychain.deleteGenericPasswordForAccount(TokenExpiryKey);
    return refreshStored;
}

void BVDropboxSyncBackend::connectDropboxAccount(const QString &name, const QString &accountId, const QString &token)
{
    connectDropboxAccountWithName(name, accountId, token);
}

void BVDropboxSyncBackend::connectDropboxAccountWithName(
    const QString &name, const QString &accountID, const QString &token)
{
    m_usesOldToken = false;
    m_connectionMade = false;
    if (!storeAccessToken(token, QString(), 0)) {
        reportError(storeFailedMessage());
        return;
    }
    updateAccountName(name, accountID);
    syncDropboxAccountInfo();
}

void BVDropboxSyncBackend::connectDropboxAccountWithCode(const QString &code, const QString &codeVerifier,
    const QString &redirectUri, std::function<void(const QString &error)> done)
{
    m_services.service->exchangeCode(code, codeVerifier, redirectUri, QString::fromLatin1(DropboxAuthorization::AppKey),
        [this, done = std::move(done)](DropboxSyncServiceProtocol::CodeExchange reply) {
            if (!reply.error.isEmpty() || reply.accessToken.isEmpty()) {
                if (done)
                    done(reply.error.isEmpty() ? QStringLiteral("Dropbox sent no access token.") : reply.error);
                return;
            }
            m_usesOldToken = false;
            m_connectionMade = false;
            if (!storeAccessToken(reply.accessToken, reply.refreshToken, reply.expiresInSecs)) {
                if (done)
                    done(storeFailedMessage());
                return;
            }
            updateAccountName(QString(), reply.accountId);
            // Connected once the tokens are stored: a name that does not arrive now comes with the next run.
            syncDropboxAccountInfo([done](const QString &) {
                if (done)
                    done({});
            });
        });
}

void BVDropboxSyncBackend::disconnectDropbox(std::function<void(const QString &error)> done)
{
    loadTokens();
    const QString token = m_token;
    const QString refreshToken = m_refreshToken;
    const bool expiresSoon = tokenExpiresSoon();
    m_services.settings->clearAccount();
    BvKeychain keychain(*m_services.keychain);
    for (const QString &key : { TokenKey, OldTokenKey, OldTokenSecretKey, RefreshTokenKey, TokenExpiryKey })
        keychain.deleteGenericPasswordForAccount(key);
    m_token.clear();
    m_refreshToken.clear();
    m_tokenExpiry = QDateTime();
    m_connectionMade = false;
    Q_EMIT BvDropboxAuthChanged();
    if (token.isEmpty()) {
        if (done)
            done({});
        return;
    }
    // Revoking also ends every token derived from the same refresh token, so a copy of the keyring left
    // elsewhere opens nothing. Dropbox refuses to revoke with an expired access token, so one is renewed
    // first; the renewed token is used only for the revocation and never stored.
    DropboxSyncServiceProtocol *service = m_services.service;
    const auto finish = [done](const QString &error) {
        if (!error.isEmpty())
            qCWarning(lcSync).noquote() << QStringLiteral("Failed to revoke the Dropbox token: %1").arg(error);
        if (done)
            done(error);
    };
    const auto revokeWith = [service](const QString &accessToken, std::function<void(QString)> answer) {
        service->syncInitWithSyncRoot(QString::fromLatin1(SyncRoot), accessToken);
        service->revokeToken(std::move(answer));
    };
    const auto refreshThenRevoke = [service, refreshToken, revokeWith, finish] {
        service->refreshToken(refreshToken, QString::fromLatin1(DropboxAuthorization::AppKey),
            [revokeWith, finish](DropboxSyncServiceProtocol::Refreshed reply) {
                if (!reply.error.isEmpty() || reply.accessToken.isEmpty()) {
                    finish(reply.error.isEmpty() ? QStringLiteral("Dropbox sent no access token.") : reply.error);
                    return;
                }
                revokeWith(reply.accessToken, finish);
            });
    };
    if (!refreshToken.isEmpty() && expiresSoon) {
        refreshThenRevoke();
        return;
    }
    revokeWith(token, [refreshToken, refreshThenRevoke, finish](QString error) {
        if (!refreshToken.isEmpty()
            && error.startsWith(QLatin1String(DropboxSyncServiceProtocol::ExpiredTokenPrefix))) {
            refreshThenRevoke();
            return;
        }
        finish(error);
    });
}

bool BVDropboxSyncBackend::isDropboxConnected()
{
    loadTokens();
    return !m_token.isEmpty();
}

void BVDropboxSyncBackend::retrieveAccountInfoWithReply(
    std::function<void(DropboxSyncServiceProtocol::AccountInfo)> reply)
{
    withToken<DropboxSyncServiceProtocol::AccountInfo>(
        [this](auto answer) { m_services.service->getAccountInfoWithReply(std::move(answer)); }, std::move(reply));
}

void BVDropboxSyncBackend::syncDropboxAccountInfo(std::function<void(const QString &error)> done)
{
    if (m_token.isEmpty()) {
        if (done)
            done(QStringLiteral("Dropbox is not connected."));
        return;
    }
    retrieveAccountInfoWithReply(
        [this, done = std::move(done)](DropboxSyncServiceProtocol::AccountInfo info) {
            if (info.error.isEmpty())
                updateAccountName(info.name, info.accountId);
            else
                qCWarning(lcSync).noquote()
                    << QStringLiteral("Failed to retrieve Dropbox account info: %1").arg(describe(info.error));
            if (done)
                done(describe(info.error));
        });
}
