#include "fakes/fakedropboxservice.h"

#include <cerrno>
#include <sys/mman.h>
#include <unistd.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

FakeDropboxService::FakeDropboxService()
{
    m_replier = new QObject;
    m_replier->moveToThread(&m_thread);
    m_thread.start();
}

FakeDropboxService::~FakeDropboxService()
{
    QMetaObject::invokeMethod(
        m_replier, [r = m_replier] { delete r; }, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
}

template<typename Reply> void FakeDropboxService::deliver(std::function<void(Reply)> reply, Reply value)
{
    if (m_callbacks == Callbacks::Direct)
        reply(std::move(value));
    else
        QMetaObject::invokeMethod(
            m_replier, [reply, value] { reply(value); }, Qt::QueuedConnection);
}

void FakeDropboxService::record(const QString &call)
{
    m_calls.append(call);
}

QString FakeDropboxService::takeFailure(const QString &operation)
{
    return m_failures.take(operation);
}

QString FakeDropboxService::tokenError() const
{
    if (m_expired.contains(m_token))
        return QStringLiteral("expired_access_token: The access token has expired.");
    if (!m_accepted.contains(m_token))
        return QStringLiteral("invalid_access_token: The access token is not valid.");
    return {};
}

QByteArray FakeDropboxService::metadata(const QString &name, const QString &rev) const
{
    QJsonObject object { { QStringLiteral(".tag"), QStringLiteral("file") }, { QStringLiteral("name"), name },
        { QStringLiteral("path_lower"), QString(QLatin1Char('/') + m_root + QLatin1Char('/') + name.toLower()) } };
    if (!omitRevisionInMetadata)
        object.insert(QStringLiteral("rev"), rev);
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

void FakeDropboxService::syncInitWithSyncRoot(const QString &root, const QString &andToken)
{
    QMutexLocker locker(&m_mutex);
    record(QStringLiteral("SyncInit ") + root);
    m_root = root;
    m_token = andToken;
}

void FakeDropboxService::getAccountInfoWithReply(std::function<void(AccountInfo)> reply)
{
    QMutexLocker locker(&m_mutex);
    record(QStringLiteral("GetAccountInfo"));
    AccountInfo info = account;
    info.error = takeFailure(QStringLiteral("GetAccountInfo"));
    if (info.error.isEmpty())
        info.error = tokenError();
    if (!info.error.isEmpty())
        info = AccountInfo { {}, {}, {}, info.error };
    locker.unlock();
    deliver(std::move(reply), info);
}

void FakeDropboxService::upgradeTokenWithTokenSecret(
    const QString &tokenSecret, std::function<void(UpgradedToken)> andReply)
{
    QMutexLocker locker(&m_mutex);
    record(QStringLiteral("UpgradeToken"));
    UpgradedToken upgraded;
    upgraded.error = takeFailure(QStringLiteral("UpgradeToken"));
    if (upgraded.error.isEmpty()) {
        upgraded.accessToken = QStringLiteral("upgraded-") + m_token + QLatin1Char('-') + tokenSecret;
        m_accepted.insert(upgraded.accessToken);
    }
    locker.unlock();
    deliver(std::move(andReply), upgraded);
}

void FakeDropboxService::syncGetChangesForCursor(const QString &cursor, std::function<void(Changes)> withReply)
{
    QMutexLocker locker(&m_mutex);
    record(QStringLiteral("GetChanges ") + cursor);
    Changes changes;
    changes.error = takeFailure(QStringLiteral("GetChanges"));
    if (changes.error.isEmpty())
        changes.error = tokenError();
    int seen = -1;
    if (changes.error.isEmpty() && !cursor.isEmpty()) {
        bool ok = false;
        seen = cursor.startsWith(QLatin1Char('c')) ? cursor.mid(1).toInt(&ok) : -1;
        if (!ok || seen > m_journal.size())
            changes.error = QStringLiteral("reset: The cursor is not valid.");
    }
    if (!changes.error.isEmpty()) {
        locker.unlock();
        deliver(std::move(withReply), changes);
        return;
    }
    QJsonArray entries;
    changes.fromScratch = cursor.isEmpty() || seen < m_resetAt;
    QStringList names;
    if (changes.fromScratch) {
        names = m_files.keys();
        // A listing also names the folder itself and things that are no sync files.
        entries.append(QJsonObject { { QStringLiteral(".tag"), QStringLiteral("folder") },
            { QStringLiteral("path_lower"), QString(QLatin1Char('/') + m_root) } });
    } else {
        for (const QString &name : m_journal.mid(seen))
            if (!name.isEmpty() && !names.contains(name))
                names.append(name);
    }
    for (const QString &name : std::as_const(names)) {
        if (m_files.contains(name)) {
            entries.append(QJsonDocument::fromJson(metadata(name, m_files.value(name).rev)).object());
        } else {
            entries.append(QJsonObject { { QStringLiteral(".tag"), QStringLiteral("deleted") },
                { QStringLiteral("path_lower"),
                    QString(QLatin1Char('/') + m_root + QLatin1Char('/') + name.toLower()) } });
        }
    }
    changes.entriesJson = QJsonDocument(entries).toJson(QJsonDocument::Compact);
    changes.cursor = QStringLiteral("c%1").arg(m_journal.size());
    locker.unlock();
    deliver(std::move(withReply), changes);
}

void FakeDropboxService::syncGetFile(const QString &name, std::function<void(File)> withReply)
{
    QMutexLocker locker(&m_mutex);
    record(QStringLiteral("GetFile ") + name);
    File file;
    file.error = takeFailure(QStringLiteral("GetFile"));
    if (file.error.isEmpty())
        file.error = tokenError();
    if (file.error.isEmpty()) {
        if (m_failStatus != 0) {
            file.httpStatus = std::exchange(m_failStatus, 0);
        } else if (!m_files.contains(name)) {
            file.httpStatus = 404;
        } else {
            const Entry entry = m_files.value(name);
            const int fd = ::memfd_create("fake-download", MFD_CLOEXEC);
            if (fd < 0 || ::write(fd, entry.content.constData(), size_t(entry.content.size())) != entry.content.size())
                qFatal("cannot make the download's file");
            file.handle = FileHandle(fd);
            file.metadataJson = metadata(name, entry.rev);
        }
    }
    locker.unlock();
    deliver(std::move(withReply), file);
}

void FakeDropboxService::syncPutFile(
    int fd, const QString &name, const QString &andRevision, std::function<void(PutResult)> withReply)
{
    QByteArray content;
    char buffer[8192];
    for (off_t offset = 0;;) {
        const ssize_t n = ::pread(fd, buffer, sizeof buffer, offset);
        if (n <= 0)
            break;
        content.append(buffer, n);
        offset += n;
    }
    QMutexLocker locker(&m_mutex);
    record(QStringLiteral("PutFile %1 %2").arg(name, andRevision));
    PutResult result;
    result.error = takeFailure(QStringLiteral("PutFile"));
    if (result.error.isEmpty())
        result.error = tokenError();
    if (result.error.isEmpty()) {
        const bool exists = m_files.contains(name);
        if (andRevision.isEmpty() ? exists : (!exists || m_files.value(name).rev != andRevision)) {
            result.error
                = QStringLiteral("path/conflict/file/: Upload of %1 refused: the file changed on Dropbox.").arg(name);
        } else {
            const QString rev = QStringLiteral("%1").arg(++m_revisions, 9, 16, QLatin1Char('0'));
            m_files.insert(name, Entry { content, rev });
            m_journal.append(name);
            result.metadataJson = metadata(name, rev);
        }
    }
    locker.unlock();
    deliver(std::move(withReply), result);
}

void FakeDropboxService::syncDeleteFile(const QString &name, std::function<void(QString error)> withReply)
{
    QMutexLocker locker(&m_mutex);
    record(QStringLiteral("DeleteFile ") + name);
    QString error = takeFailure(QStringLiteral("DeleteFile"));
    if (error.isEmpty())
        error = tokenError();
    if (error.isEmpty() && !m_files.remove(name))
        error = QStringLiteral("path_lookup/not_found/: %1 is not on Dropbox.").arg(name);
    if (error.isEmpty())
        m_journal.append(name);
    locker.unlock();
    deliver(std::move(withReply), error);
}

void FakeDropboxService::exchangeCode(const QString &code, const QString &codeVerifier, const QString &redirectUri,
    const QString &clientId, std::function<void(CodeExchange)> reply)
{
    QMutexLocker locker(&m_mutex);
    record(QStringLiteral("ExchangeCode %1 %2 %3 %4").arg(code, codeVerifier, redirectUri, clientId));
    CodeExchange exchange;
    exchange.error = takeFailure(QStringLiteral("ExchangeCode"));
    if (exchange.error.isEmpty() && code != expectedCode)
        exchange.error = QStringLiteral("invalid_grant: The code is not valid.");
    if (exchange.error.isEmpty()) {
        exchange = CodeExchange { issuedToken, refreshTokenIssued, expiresInSecs, account.accountId, {} };
        m_accepted.insert(issuedToken);
    }
    locker.unlock();
    deliver(std::move(reply), exchange);
}

void FakeDropboxService::refreshToken(
    const QString &refreshToken, const QString &clientId, std::function<void(Refreshed)> reply)
{
    QMutexLocker locker(&m_mutex);
    record(QStringLiteral("RefreshToken %1 %2").arg(refreshToken, clientId));
    Refreshed refreshed;
    refreshed.error = takeFailure(QStringLiteral("RefreshToken"));
    if (refreshed.error.isEmpty() && (refreshToken != refreshTokenIssued || m_revoked.contains(refreshToken)))
        refreshed.error = QStringLiteral("invalid_access_token: invalid_grant: refresh token is invalid");
    if (refreshed.error.isEmpty()) {
        refreshed.accessToken = QStringLiteral("refreshed-%1").arg(++m_refreshes);
        refreshed.expiresInSecs = expiresInSecs;
        m_accepted.insert(refreshed.accessToken);
    }
    locker.unlock();
    deliver(std::move(reply), refreshed);
}

void FakeDropboxService::revokeToken(std::function<void(QString error)> reply)
{
    QMutexLocker locker(&m_mutex);
    record(QStringLiteral("RevokeToken"));
    QString error = takeFailure(QStringLiteral("RevokeToken"));
    // As the agent answers: Dropbox refuses an expired token, and one it no longer knows is as good as
    // revoked.
    if (error.isEmpty() && m_expired.contains(m_token))
        error = QStringLiteral("expired_access_token: Disconnecting from Dropbox failed: the Dropbox access token "
                               "has expired");
    else if (error.isEmpty() && m_accepted.contains(m_token)) {
        m_accepted.remove(m_token);
        m_revoked.append(m_token);
        // Revoking a token made from the refresh token ends the refresh token too.
        m_revoked.append(refreshTokenIssued);
    }
    locker.unlock();
    deliver(std::move(reply), error);
}

void FakeDropboxService::failNext(const QString &operation, const QString &error)
{
    QMutexLocker locker(&m_mutex);
    m_failures.insert(operation, error);
}

void FakeDropboxService::failNextGetWithStatus(int status)
{
    QMutexLocker locker(&m_mutex);
    m_failStatus = status;
}

void FakeDropboxService::resetCursors()
{
    QMutexLocker locker(&m_mutex);
    m_resetAt = int(m_journal.size()) + 1;
    // A later change moves the journal on, so cursors given out after the reset work again.
    m_journal.append(QString());
}

QString FakeDropboxService::putRemote(const QString &name, const QByteArray &content)
{
    QMutexLocker locker(&m_mutex);
    const QString rev = QStringLiteral("%1").arg(++m_revisions, 9, 16, QLatin1Char('0'));
    m_files.insert(name, Entry { content, rev });
    m_journal.append(name);
    return rev;
}

void FakeDropboxService::deleteRemote(const QString &name)
{
    QMutexLocker locker(&m_mutex);
    m_files.remove(name);
    m_journal.append(name);
}

QByteArray FakeDropboxService::content(const QString &name) const
{
    QMutexLocker locker(&m_mutex);
    return m_files.value(name).content;
}

QString FakeDropboxService::revision(const QString &name) const
{
    QMutexLocker locker(&m_mutex);
    return m_files.value(name).rev;
}

QStringList FakeDropboxService::fileNames() const
{
    QMutexLocker locker(&m_mutex);
    return m_files.keys();
}

void FakeDropboxService::acceptToken(const QString &token)
{
    QMutexLocker locker(&m_mutex);
    m_accepted.insert(token);
    m_expired.remove(token);
}

void FakeDropboxService::expireToken(const QString &token)
{
    QMutexLocker locker(&m_mutex);
    m_expired.insert(token);
}

QStringList FakeDropboxService::calls() const
{
    QMutexLocker locker(&m_mutex);
    return m_calls;
}

QStringList FakeDropboxService::revokedTokens() const
{
    QMutexLocker locker(&m_mutex);
    return m_revoked;
}

QString FakeDropboxService::sessionToken() const
{
    QMutexLocker locker(&m_mutex);
    return m_token;
}
