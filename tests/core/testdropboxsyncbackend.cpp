// The Dropbox backend against an in-memory agent (FakeDropboxService) and keyring (FakeKeychain). Runs in
// Europe/Berlin (see CMakeLists.txt).
#include <QtTest>

#include <QDir>
#include <QSignalSpy>
#include <sys/stat.h>

#include "fakes/fakeclock.h"
#include "fakes/fakedropboxservice.h"
#include "fakes/fakekeychain.h"
#include "settings/bvsettings.h"
#include "settings/bvsettingsview.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"
#include "sync/bvdropboxsettings.h"
#include "sync/bvdropboxsyncbackend.h"
#include "sync/bvdropboxupgradehelper.h"
#include "sync/bvkeychain.h"
#include "sync/bvsyncbackendfactory.h"
#include "sync/bvtmpsyncfile.h"

using namespace Qt::StringLiterals;

namespace {

struct Captured
{
    QStringList errors;
    QStringList progress;
    QStringList log;
};

} // namespace

class TestDropboxSyncBackend : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void downloadChecksStatusAndRevision_data();
    void downloadChecksStatusAndRevision();
    void uploadRefusalClearsTheCursor_data();
    void uploadRefusalClearsTheCursor();
    void changesBecomeDescriptorsAndTheCursorFollows();
    void failedFetchClearsTheCursor_data();
    void failedFetchClearsTheCursor();
    void tokenTroubleIsRefreshedOnceOrAsksToReconnect_data();
    void tokenTroubleIsRefreshedOnceOrAsksToReconnect();
    void tokenNearItsExpiryIsRefreshedBeforeTheRun_data();
    void tokenNearItsExpiryIsRefreshedBeforeTheRun();
    void initializeNeedsATokenAndUpgradesTheOldScheme_data();
    void initializeNeedsATokenAndUpgradesTheOldScheme();
    void timeZoneIsRecordedOnceAndAdopted();
    void codeFlowStoresTokensAndDisconnectRevokesThem_data();
    void codeFlowStoresTokensAndDisconnectRevokesThem();
    void implicitGrantReplacesAnEarlierRefreshToken();
    void keyringRefusingTheTokenConnectsNoAccount_data();
    void keyringRefusingTheTokenConnectsNoAccount();
    void factoryNeedsAStoredToken();
    void cursorSavedOnTheRunThreadIsReadBeforeItReachesTheFile();
    void settingsUpgradeChoosesDropboxWhenATokenIsStored_data();
    void settingsUpgradeChoosesDropboxWhenATokenIsStored();
    void keychainFailuresAreLoggedAsDesigned_data();
    void keychainFailuresAreLoggedAsDesigned();

private:
    std::unique_ptr<BVDropboxSyncBackend> makeBackend();
    BVTmpSyncFile month(const std::optional<QString> &revision) const;

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BVDropboxSettings> m_settings;
    std::unique_ptr<FakeKeychain> m_keychain;
    std::unique_ptr<FakeDropboxService> m_dropbox;
    FakeClock m_clock;
    Captured m_captured;
};

void TestDropboxSyncBackend::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale/Brimvale.conf"_s);
    m_settings = std::make_unique<BVDropboxSettings>(*m_defaults);
    m_keychain = std::make_unique<FakeKeychain>();
    m_keychain->set(u"oauth2_token"_s, u"tok"_s);
    m_dropbox = std::make_unique<FakeDropboxService>();
    m_dropbox->acceptToken(u"tok"_s);
    m_clock.set(QDateTime(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC));
    m_captured = {};
}

void TestDropboxSyncBackend::cleanup()
{
    m_dropbox.reset();
    m_keychain.reset();
    m_settings.reset();
    m_defaults.reset();
    m_home.reset();
}

std::unique_ptr<BVDropboxSyncBackend> TestDropboxSyncBackend::makeBackend()
{
    auto backend = std::make_unique<BVDropboxSyncBackend>(
        BVDropboxServices { m_dropbox.get(), m_keychain.get(), m_settings.get(), &m_clock });
    backend->setErrorHandler([this](const QString &m) { m_captured.errors.append(m); });
    backend->setProgressHandler([this](const QString &m) { m_captured.progress.append(m); });
    backend->setActivityLogHandler([this](const QString &m) { m_captured.log.append(m); });
    return backend;
}

BVTmpSyncFile TestDropboxSyncBackend::month(const std::optional<QString> &revision) const
{
    return *BVTmpSyncFile::fromFileName(u"/sync/2024-03.json"_s, u"sync"_s, 1, revision);
}

void TestDropboxSyncBackend::downloadChecksStatusAndRevision_data()
{
    QTest::addColumn<bool>("remote");
    QTest::addColumn<QString>("expected"); // "" none, "*" the remote's revision
    QTest::addColumn<QString>("setup");
    QTest::addColumn<QString>("error"); // "" none; "%1" the remote's revision
    QTest::addColumn<bool>("delivered");

    QTest::newRow("absent and not expected is no error") << false << ""
                                                         << ""
                                                         << "" << false;
    QTest::newRow("absent but expected") << false << "000000009"
                                         << ""
                                         << "Failed to retrieve 2024-03.json file. Status code: 404" << false;
    QTest::newRow("server error") << true << ""
                                  << "status 500"
                                  << "Failed to retrieve 2024-03.json file. Status code: 500" << false;
    QTest::newRow("expected revision") << true << "*"
                                       << ""
                                       << "" << true;
    QTest::newRow("any revision") << true << ""
                                  << ""
                                  << "" << true;
    QTest::newRow("changed on Dropbox")
        << true << "000000009"
        << ""
        << "Invalid revision for 2024-03.json file. Expected revision: 000000009, received revision: %1. File has "
           "been changed on Dropbox."
        << false;
    QTest::newRow("metadata without revision")
        << true << ""
        << "no rev"
        << "Failed to get revision data for file 2024-03.json. No revision found in metadata" << false;
    QTest::newRow("cache unusable") << true << ""
                                    << "cache is a file"
                                    << "Failed to move file 2024-03.json to cache." << false;
    QTest::newRow("agent unreachable") << true << ""
                                       << "fail"
                                       << "The name is not activatable (code: 2)" << false;
}

void TestDropboxSyncBackend::downloadChecksStatusAndRevision()
{
    QFETCH(bool, remote);
    QFETCH(QString, expected);
    QFETCH(QString, setup);
    QFETCH(QString, error);
    QFETCH(bool, delivered);

    const QByteArray content = R"([{"uid":"a"}])";
    const QString rev = remote ? m_dropbox->putRemote(u"2024-03.json"_s, content) : QString();
    if (setup == u"status 500")
        m_dropbox->failNextGetWithStatus(500);
    m_dropbox->omitRevisionInMetadata = setup == u"no rev";
    if (setup == u"fail")
        m_dropbox->failNext(u"GetFile"_s, u"The name is not activatable (code: 2)"_s);
    m_settings->setDropboxHash(u"c1"_s);

    const QString cache = m_home->cacheHome() + u"/dropbox-sync"_s;
    QVERIFY(QDir().mkpath(cache));
    const QString target = cache + u"/2024-03.json"_s;
    {
        QFile old(target);
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write("stale");
    }
    // A cache folder that is a file: nothing can be written there.
    const bool unusable = setup == u"cache is a file";
    const QString saveTo = unusable ? target + u"/2024-03.json"_s : target;
    auto backend = makeBackend();
    std::optional<bool> callback;
    const std::optional<QString> expectedRevision
        = expected.isEmpty() ? std::nullopt : std::optional<QString>(expected == u"*" ? rev : expected);
    backend->downloadFileWithName(u"2024-03.json"_s, expectedRevision, saveTo, [&](bool ok) { callback = ok; });

    if (error.contains(u"%1"_s))
        error = error.arg(rev);
    QCOMPARE(m_captured.errors, error.isEmpty() ? QStringList() : QStringList { error });
    QCOMPARE(callback.has_value(), error.isEmpty());
    if (callback)
        QCOMPARE(*callback, delivered);
    if (unusable) // the reason goes to the log
        QCOMPARE(m_captured.log.filter(u": Not a directory"_s).size(), 1);
    QFile file(target);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), delivered ? content : QByteArray("stale"));
    if (delivered) {
        struct stat info;
        QCOMPARE(::stat(QFile::encodeName(target).constData(), &info), 0);
        QCOMPARE(info.st_mode & 0777, 0644u);
    }
    // No temporary file is left behind, and a refused download keeps the cursor.
    QCOMPARE(QDir(cache).entryList(QDir::Files), QStringList { u"2024-03.json"_s });
    QCOMPARE(m_settings->dropboxHash(), u"c1"_s);
}

void TestDropboxSyncBackend::uploadRefusalClearsTheCursor_data()
{
    QTest::addColumn<bool>("remote");
    QTest::addColumn<QString>("revision"); // "" none, "*" the remote's, else as given
    QTest::addColumn<QString>("failure");
    QTest::addColumn<QString>("error");

    QTest::newRow("new file") << false << ""
                              << ""
                              << "";
    QTest::newRow("update at the remote revision") << true << "*"
                                                   << ""
                                                   << "";
    QTest::newRow("new here, but another machine uploaded it")
        << true << ""
        << ""
        << "path/conflict/file/: Upload of 2024-03.json refused: the file changed on Dropbox.\n\nPlease retry sync";
    QTest::newRow("changed since it was merged")
        << true << "000000099"
        << ""
        << "path/conflict/file/: Upload of 2024-03.json refused: the file changed on Dropbox.\n\nPlease retry sync";
    QTest::newRow("agent failure") << false << ""
                                   << "Connection timed out (code: 3)"
                                   << "Connection timed out (code: 3)\n\nPlease retry sync";
}

void TestDropboxSyncBackend::uploadRefusalClearsTheCursor()
{
    QFETCH(bool, remote);
    QFETCH(QString, revision);
    QFETCH(QString, failure);
    QFETCH(QString, error);

    const QString remoteRev = remote ? m_dropbox->putRemote(u"2024-03.json"_s, "theirs") : QString();
    if (!failure.isEmpty())
        m_dropbox->failNext(u"PutFile"_s, failure);
    m_settings->setDropboxHash(u"c1"_s);
    const QString local = m_home->root() + u"/2024-03.json"_s;
    {
        QFile file(local);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("ours");
    }
    auto backend = makeBackend();
    std::optional<QString> newRevision;
    const std::optional<QString> expected
        = revision.isEmpty() ? std::nullopt : std::optional<QString>(revision == u"*" ? remoteRev : revision);
    backend->uploadFile(local, expected ? std::optional(month(expected)) : std::nullopt,
        [&](const QString &rev) { newRevision = rev; });

    QCOMPARE(m_captured.errors, error.isEmpty() ? QStringList() : QStringList { error });
    if (error.isEmpty()) {
        QVERIFY(newRevision);
        QCOMPARE(*newRevision, m_dropbox->revision(u"2024-03.json"_s));
        QCOMPARE(m_dropbox->content(u"2024-03.json"_s), QByteArray("ours"));
        QCOMPARE(m_settings->dropboxHash(), u"c1"_s);
    } else {
        QVERIFY(!newRevision);
        QCOMPARE(m_dropbox->content(u"2024-03.json"_s), remote ? QByteArray("theirs") : QByteArray());
        // The next run lists the folder from scratch and merges what it finds first.
        QVERIFY(m_settings->dropboxHash().isNull());
        QCOMPARE(m_captured.log.constLast(),
            u"Failed to upload Dropbox file (file: 2024-03.json; revision: %1), clear cursor"_s.arg(
                expected.value_or(u"(null)"_s)));
    }
}

void TestDropboxSyncBackend::changesBecomeDescriptorsAndTheCursorFollows()
{
    const QString march = m_dropbox->putRemote(u"2024-03.json"_s, "[]");
    const QString deleted = m_dropbox->putRemote(u"deleted.json"_s, "[]");
    m_dropbox->putRemote(u"timezone.json"_s, R"({"timeZone":"Europe/Berlin"})");
    m_dropbox->putRemote(u"notes.txt"_s, "hello");
    m_dropbox->putRemote(u"2023-12.json"_s, "[]");

    auto backend = makeBackend();
    QSignalSpy authChanged(backend.get(), &BVDropboxSyncBackend::BvDropboxAuthChanged);
    QList<BVTmpSyncFile> files;
    std::optional<bool> full;
    const auto fetch = [&] {
        files.clear();
        full.reset();
        backend->fetchChangesWithLocalCache({}, [&](const QList<BVTmpSyncFile> &changes, bool didFullFetch) {
            files = changes;
            full = didFullFetch;
        });
    };
    const auto describe = [&] {
        QStringList lines;
        for (const BVTmpSyncFile &file : std::as_const(files))
            lines.append(file.fileName() + u' ' + file.revisionValue().value_or(u"-"_s)
                + (file.wasDeleted() ? u" deleted"_s : QString()));
        lines.sort();
        return lines;
    };

    fetch();
    QCOMPARE(m_captured.errors, QStringList());
    QCOMPARE(full, std::optional(true));
    QCOMPARE(describe(),
        (QStringList { u"2023-12.json 000000005"_s, u"2024-03.json "_s + march, u"deleted.json "_s + deleted }));
    QCOMPARE(
        m_captured.progress, (QStringList { u"Retrieving account info ..."_s, u"Retrieving list of changes..."_s }));
    QVERIFY(m_captured.log.contains(u"Fetch Dropbox changes with cursor: (null)"_s));
    QVERIFY(m_captured.log.contains(u"Dropbox file: /sync/2024-03.json; rev: "_s + march));
    // The account is recorded as the agent names it, once.
    QCOMPARE(m_settings->dropboxAccountName(), u"Ada Lovelace"_s);
    QCOMPARE(m_settings->dropboxAccountID(), u"dbid:ada"_s);
    QCOMPARE(authChanged.count(), 1);
    // The cursor is kept only when the run says so.
    QVERIFY(m_settings->dropboxHash().isNull());
    backend->saveSavepoint();
    QCOMPARE(m_settings->dropboxHash(), u"c5"_s);

    m_dropbox->deleteRemote(u"2023-12.json"_s);
    const QString march2 = m_dropbox->putRemote(u"2024-03.json"_s, "[1]");
    fetch();
    QCOMPARE(full, std::optional(false));
    QCOMPARE(describe(), (QStringList { u"2023-12.json - deleted"_s, u"2024-03.json "_s + march2 }));
    QVERIFY(m_captured.log.contains(u"Dropbox deleted file: /sync/2023-12.json"_s));
    QCOMPARE(authChanged.count(), 1);

    // Dropbox reset the cursors: the listing starts over and says so.
    backend->saveSavepoint();
    m_dropbox->resetCursors();
    fetch();
    QCOMPARE(full, std::optional(true));
    QCOMPARE(describe().size(), 2);
}

void TestDropboxSyncBackend::failedFetchClearsTheCursor_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("error");
    QTest::addColumn<bool>("cursorKept");

    QTest::newRow("account info") << "GetAccountInfo"
                                  << "Failed to retrieve Dropbox account info: Network unreachable (code: 7)" << true;
    QTest::newRow("change list") << "GetChanges"
                                 << "Network unreachable (code: 7)" << false;
}

void TestDropboxSyncBackend::failedFetchClearsTheCursor()
{
    QFETCH(QString, operation);
    QFETCH(QString, error);
    QFETCH(bool, cursorKept);

    m_dropbox->putRemote(u"2024-03.json"_s, "[]");
    m_settings->setDropboxHash(u"c0"_s);
    m_dropbox->failNext(operation, u"Network unreachable (code: 7)"_s);
    auto backend = makeBackend();
    bool handled = false;
    backend->fetchChangesWithLocalCache({}, [&](const QList<BVTmpSyncFile> &, bool) { handled = true; });
    QVERIFY(!handled);
    QCOMPARE(m_captured.errors, QStringList { error });
    QCOMPARE(m_settings->dropboxHash(), cursorKept ? u"c0"_s : QString());
    // Even a later saveSavepoint keeps nothing of a failed fetch.
    backend->saveSavepoint();
    QCOMPARE(m_settings->dropboxHash(), cursorKept ? u"c0"_s : QString());
}

void TestDropboxSyncBackend::tokenTroubleIsRefreshedOnceOrAsksToReconnect_data()
{
    QTest::addColumn<QString>("token");
    QTest::addColumn<QString>("refreshToken");
    QTest::addColumn<bool>("expired");
    QTest::addColumn<QString>("storedAfter");
    QTest::addColumn<QString>("error");

    QTest::newRow("expired with a refresh token") << "old"
                                                  << "refresh-token" << true << "refreshed-1"
                                                  << "";
    QTest::newRow("expired, refresh token revoked")
        << "old"
        << "revoked" << true << "old"
        << "Failed to retrieve Dropbox account info: Dropbox no longer accepts this computer's authorization "
           "(expired_access_token: The access token has expired.). Please connect Dropbox again in preferences";
    QTest::newRow("expired without a refresh token")
        << "old"
        << "" << true << "old"
        << "Failed to retrieve Dropbox account info: Dropbox no longer accepts this computer's authorization "
           "(expired_access_token: The access token has expired.). Please connect Dropbox again in preferences";
    QTest::newRow("revoked") << "old"
                             << "refresh-token" << false << "old"
                             << "Failed to retrieve Dropbox account info: Dropbox no longer accepts this computer's "
                                "authorization (invalid_access_token: The access token is not valid.). Please connect "
                                "Dropbox again in preferences";
}

void TestDropboxSyncBackend::tokenTroubleIsRefreshedOnceOrAsksToReconnect()
{
    QFETCH(QString, token);
    QFETCH(QString, refreshToken);
    QFETCH(bool, expired);
    QFETCH(QString, storedAfter);
    QFETCH(QString, error);

    m_keychain->set(u"oauth2_token"_s, token);
    if (!refreshToken.isEmpty())
        m_keychain->set(u"oauth2_refresh_token"_s, refreshToken);
    if (expired)
        m_dropbox->expireToken(token);
    auto backend = makeBackend();
    bool initialized = false;
    backend->initializeBackend([&] { initialized = true; });
    QVERIFY(initialized);
    bool handled = false;
    backend->fetchChangesWithLocalCache({}, [&](const QList<BVTmpSyncFile> &, bool) { handled = true; });
    QCOMPARE(m_captured.errors, error.isEmpty() ? QStringList() : QStringList { error });
    QCOMPARE(handled, error.isEmpty());
    QCOMPARE(m_keychain->value(u"oauth2_token"_s), storedAfter);
    // One refresh at most, whatever the agent answers.
    QCOMPARE(m_dropbox->calls().filter(u"RefreshToken"_s).size(), !refreshToken.isEmpty() && expired ? 1 : 0);
    if (error.isEmpty()) {
        QCOMPARE(m_dropbox->sessionToken(), storedAfter);
        QCOMPARE(m_keychain->value(u"oauth2_token_expiry"_s), u"2024-03-12T14:00:00Z"_s);
    }
}

void TestDropboxSyncBackend::tokenNearItsExpiryIsRefreshedBeforeTheRun_data()
{
    QTest::addColumn<qint64>("secondsLeft");
    QTest::addColumn<bool>("refreshed");

    QTest::newRow("an hour left") << qint64(3600) << false;
    QTest::newRow("five minutes and a second left") << qint64(301) << false;
    QTest::newRow("five minutes left") << qint64(300) << true;
    QTest::newRow("expired yesterday") << qint64(-86400) << true;
}

void TestDropboxSyncBackend::tokenNearItsExpiryIsRefreshedBeforeTheRun()
{
    QFETCH(qint64, secondsLeft);
    QFETCH(bool, refreshed);

    m_keychain->set(u"oauth2_refresh_token"_s, u"refresh-token"_s);
    m_keychain->set(u"oauth2_token_expiry"_s, m_clock.now().addSecs(secondsLeft).toString(Qt::ISODate));
    auto backend = makeBackend();
    bool initialized = false;
    backend->initializeBackend([&] { initialized = true; });
    QVERIFY(initialized);
    QCOMPARE(m_dropbox->calls().filter(u"RefreshToken"_s).size(), refreshed ? 1 : 0);
    QCOMPARE(m_keychain->value(u"oauth2_token"_s), refreshed ? u"refreshed-1"_s : u"tok"_s);
    QCOMPARE(m_dropbox->sessionToken(), m_keychain->value(u"oauth2_token"_s));
}

void TestDropboxSyncBackend::initializeNeedsATokenAndUpgradesTheOldScheme_data()
{
    QTest::addColumn<QString>("scheme");
    QTest::addColumn<QString>("writeFailure");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("stored");

    QTest::newRow("no token") << "none"
                              << ""
                              << "Dropbox is not connected. Please configure Dropbox sync in preferences"
                              << "";
    QTest::newRow("current token") << "oauth2"
                                   << ""
                                   << ""
                                   << "tok";
    QTest::newRow("older scheme") << "oauth"
                                  << ""
                                  << ""
                                  << "upgraded-old-secret";
    QTest::newRow("older scheme, keyring refuses") << "oauth"
                                                   << "The keyring is locked."
                                                   << "Failed to store new oauth token"
                                                   << "";
}

void TestDropboxSyncBackend::initializeNeedsATokenAndUpgradesTheOldScheme()
{
    QFETCH(QString, scheme);
    QFETCH(QString, writeFailure);
    QFETCH(QString, error);
    QFETCH(QString, stored);

    if (scheme != u"oauth2")
        m_keychain->remove(QString::fromLatin1(BvKeychain::ServiceName), u"oauth2_token"_s, [](auto) {});
    if (scheme == u"oauth") {
        m_keychain->set(u"oauth_token"_s, u"old"_s);
        m_keychain->set(u"oauth_token_secret"_s, u"secret"_s);
    }
    m_keychain->failWrites = writeFailure;
    if (!writeFailure.isEmpty())
        QTest::ignoreMessage(
            QtWarningMsg, "KeychainError - (save) failed to create keychain item: The keyring is locked.");
    auto backend = makeBackend();
    bool initialized = false;
    backend->initializeBackend([&] { initialized = true; });
    QCOMPARE(m_captured.errors, error.isEmpty() ? QStringList() : QStringList { error });
    QCOMPARE(initialized, error.isEmpty());
    QCOMPARE(m_keychain->value(u"oauth2_token"_s), stored);
    QCOMPARE(m_captured.log.contains(u"Updating oauth token..."_s), scheme == u"oauth");
    if (initialized)
        QCOMPARE(m_dropbox->sessionToken(), stored);
}

void TestDropboxSyncBackend::timeZoneIsRecordedOnceAndAdopted()
{
    auto first = makeBackend();
    QByteArray agreed;
    first->agreeTimeZone("Europe/Berlin", [&](const QByteArray &zone) { agreed = zone; });
    QCOMPARE(agreed, QByteArray("Europe/Berlin"));
    QCOMPARE(m_dropbox->content(u"timezone.json"_s), QByteArray(R"({"timeZone":"Europe/Berlin"})"));

    // A second machine adopts the recorded zone instead of its own.
    auto second = makeBackend();
    second->agreeTimeZone("America/Santiago", [&](const QByteArray &zone) { agreed = zone; });
    QCOMPARE(agreed, QByteArray("Europe/Berlin"));

    m_dropbox->putRemote(u"timezone.json"_s, R"({"timeZone":"Mars/Olympus"})");
    agreed.clear();
    second->agreeTimeZone("America/Santiago", [&](const QByteArray &zone) { agreed = zone; });
    QVERIFY(agreed.isEmpty());
    QCOMPARE(m_captured.errors.size(), 1);
    QVERIFY2(m_captured.errors.constFirst().startsWith(u"The sync folder's timezone.json cannot be used: "_s),
        qPrintable(m_captured.errors.constFirst()));
}

void TestDropboxSyncBackend::codeFlowStoresTokensAndDisconnectRevokesThem_data()
{
    QTest::addColumn<QString>("accessToken"); // at disconnect: "live", "expired" or "expiring"
    QTest::addColumn<QString>("revoked");
    QTest::addColumn<bool>("nameFetched");

    QTest::newRow("live token") << "live"
                                << "issued-token" << true;
    QTest::newRow("expired token is renewed to revoke") << "expired"
                                                        << "refreshed-1" << true;
    QTest::newRow("token about to expire is renewed to revoke") << "expiring"
                                                                << "refreshed-1" << true;
    QTest::newRow("account details unavailable still connects") << "live"
                                                                << "issued-token" << false;
}

void TestDropboxSyncBackend::codeFlowStoresTokensAndDisconnectRevokesThem()
{
    QFETCH(QString, accessToken);
    QFETCH(QString, revoked);
    QFETCH(bool, nameFetched);

    m_keychain = std::make_unique<FakeKeychain>();
    auto backend = makeBackend();
    QSignalSpy authChanged(backend.get(), &BVDropboxSyncBackend::BvDropboxAuthChanged);
    QVERIFY(!backend->isDropboxConnected());

    std::optional<QString> result;
    backend->connectDropboxAccountWithCode(
        u"wrong"_s, u"verifier"_s, u"http://127.0.0.1:5000/"_s, [&](const QString &error) { result = error; });
    QCOMPARE(result, std::optional(u"invalid_grant: The code is not valid."_s));
    QVERIFY(m_keychain->secrets().isEmpty());

    result.reset();
    if (!nameFetched) {
        m_dropbox->failNext(u"GetAccountInfo"_s, u"Dropbox did not answer"_s);
        QTest::ignoreMessage(QtWarningMsg, "Failed to retrieve Dropbox account info: Dropbox did not answer");
    }
    backend->connectDropboxAccountWithCode(
        u"the-code"_s, u"verifier"_s, u"http://127.0.0.1:5000/"_s, [&](const QString &error) { result = error; });
    QCOMPARE(result, std::optional(QString()));
    QVERIFY(m_dropbox->calls().contains(u"ExchangeCode the-code verifier http://127.0.0.1:5000/ q4mzk8ewtdrn2ya"_s));
    QCOMPARE(m_keychain->secrets(),
        (QHash<QString, QString> { { u"oauth2_token"_s, u"issued-token"_s },
            { u"oauth2_refresh_token"_s, u"refresh-token"_s },
            { u"oauth2_token_expiry"_s, u"2024-03-12T14:00:00Z"_s } }));
    QCOMPARE(m_settings->dropboxAccountName(), nameFetched ? u"Ada Lovelace"_s : QString());
    QCOMPARE(m_settings->dropboxAccountID(), u"dbid:ada"_s);
    QVERIFY(authChanged.count() >= 1);
    QVERIFY(backend->isDropboxConnected());
    // No token in the settings file.
    QFile conf(m_defaults->filePath());
    QVERIFY(conf.open(QIODevice::ReadOnly));
    QVERIFY(!conf.readAll().contains("token"));

    m_settings->setDropboxHash(u"c3"_s);
    authChanged.clear();
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"KeychainError - \\(delete\\) failed to find"_s));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"KeychainError - \\(delete\\) failed to find"_s));
    if (accessToken == u"expired")
        m_dropbox->expireToken(u"issued-token"_s);
    else if (accessToken == u"expiring")
        m_clock.set(m_clock.now().addSecs(4 * 3600 - 60));
    result.reset();
    backend->disconnectDropbox([&](const QString &error) { result = error; });
    QCOMPARE(result, std::optional(QString()));
    QCOMPARE(authChanged.count(), 1);
    QVERIFY(m_keychain->secrets().isEmpty());
    QVERIFY(m_settings->dropboxAccountName().isNull());
    QVERIFY(m_settings->dropboxAccountID().isNull());
    QVERIFY(m_settings->dropboxHash().isNull());
    QVERIFY(m_dropbox->revokedTokens().contains(revoked));
    QVERIFY(!backend->isDropboxConnected());
    // The refresh token opens nothing any more.
    std::optional<DropboxSyncServiceProtocol::Refreshed> refreshed;
    m_dropbox->refreshToken(u"refresh-token"_s, u"q4mzk8ewtdrn2ya"_s,
        [&](DropboxSyncServiceProtocol::Refreshed reply) { refreshed = reply; });
    QVERIFY(refreshed);
    QVERIFY2(refreshed->error.startsWith(u"invalid_access_token:"_s), qPrintable(refreshed->error));
}

void TestDropboxSyncBackend::implicitGrantReplacesAnEarlierRefreshToken()
{
    m_keychain->set(u"oauth2_refresh_token"_s, u"refresh-token"_s);
    m_keychain->set(u"oauth2_token_expiry"_s, u"2024-03-12T10:01:00Z"_s);
    m_dropbox->acceptToken(u"implicit"_s);
    auto backend = makeBackend();
    DropboxConnector &connector = *backend;
    connector.connectDropboxAccount(QString(), u"dbid:ada"_s, u"implicit"_s);
    QCOMPARE(m_keychain->secrets(), (QHash<QString, QString> { { u"oauth2_token"_s, u"implicit"_s } }));
    // The name arrives from the account details.
    QCOMPARE(m_settings->dropboxAccountName(), u"Ada Lovelace"_s);

    // A run no longer tries to refresh with the old refresh token.
    auto run = makeBackend();
    run->initializeBackend([] {});
    QCOMPARE(m_dropbox->calls().filter(u"RefreshToken"_s).size(), 0);
}

void TestDropboxSyncBackend::keyringRefusingTheTokenConnectsNoAccount_data()
{
    QTest::addColumn<bool>("codeFlow");

    QTest::newRow("code flow") << true;
    QTest::newRow("implicit grant") << false;
}

void TestDropboxSyncBackend::keyringRefusingTheTokenConnectsNoAccount()
{
    QFETCH(bool, codeFlow);

    m_keychain = std::make_unique<FakeKeychain>();
    m_keychain->failWrites = u"locked"_s;
    m_dropbox->acceptToken(u"implicit"_s);
    auto backend = makeBackend();
    QSignalSpy authChanged(backend.get(), &BVDropboxSyncBackend::BvDropboxAuthChanged);
    std::optional<QString> result;
    if (codeFlow)
        backend->connectDropboxAccountWithCode(
            u"the-code"_s, u"verifier"_s, QString(), [&](const QString &error) { result = error; });
    else
        backend->connectDropboxAccountWithName(QString(), u"dbid:ada"_s, u"implicit"_s);

    const QString message = u"Failed to store new oauth token"_s;
    QCOMPARE(codeFlow ? QStringList { result.value_or(QString()) } : m_captured.errors, QStringList { message });
    QVERIFY(m_settings->dropboxAccountID().isEmpty());
    QVERIFY(m_settings->dropboxAccountName().isEmpty());
    QCOMPARE(authChanged.count(), 0);
    QVERIFY(m_dropbox->calls().filter(u"GetAccountInfo"_s).isEmpty());
}

void TestDropboxSyncBackend::cursorSavedOnTheRunThreadIsReadBeforeItReachesTheFile()
{
    m_settings->setDropboxHash(u"c1"_s);
    QThread *run = QThread::create([this] { m_settings->setDropboxHash(u"c2"_s); });
    run->start();
    QVERIFY(run->wait(10000));
    delete run;
    // The write waits for this thread's event loop; reading the file meanwhile must not undo it.
    QCOMPARE(m_settings->dropboxHash(), u"c2"_s);
    QCOMPARE(m_defaults->stringForKey(u"dropbox_hash"_s), u"c1"_s);
    QTRY_COMPARE(UserDefaults(m_defaults->filePath()).stringForKey(u"dropbox_hash"_s), u"c2"_s);
    QCOMPARE(m_settings->dropboxHash(), u"c2"_s);
}

void TestDropboxSyncBackend::factoryNeedsAStoredToken()
{
    m_defaults->setInteger(1, u"syncMethod"_s);
    const BvSettingsView view(*m_defaults);
    const BVDropboxServices services { m_dropbox.get(), m_keychain.get(), m_settings.get(), &m_clock };
    auto made = BVSyncBackendFactory::backendForSettings(view, &services);
    QVERIFY(made);
    QCOMPARE((*made)->syncMethod(), 1);
    QCOMPARE((*made)->cachePrefix(), u"dropbox"_s);

    m_keychain = std::make_unique<FakeKeychain>();
    const BVDropboxServices none { m_dropbox.get(), m_keychain.get(), m_settings.get(), &m_clock };
    made = BVSyncBackendFactory::backendForSettings(view, &none);
    QVERIFY(!made);
    QCOMPARE(made.error().message(), u"Dropbox is not connected. Please configure Dropbox sync in preferences"_s);
}

void TestDropboxSyncBackend::settingsUpgradeChoosesDropboxWhenATokenIsStored_data()
{
    QTest::addColumn<QString>("account");
    QTest::addColumn<int>("method");

    QTest::newRow("current token") << "oauth2_token" << 1;
    QTest::newRow("older token") << "oauth_token" << 1;
    QTest::newRow("only a refresh token") << "oauth2_refresh_token" << 0;
    QTest::newRow("nothing") << "" << 0;
}

void TestDropboxSyncBackend::settingsUpgradeChoosesDropboxWhenATokenIsStored()
{
    QFETCH(QString, account);
    QFETCH(int, method);

    FakeKeychain keychain;
    if (!account.isEmpty())
        keychain.set(account, u"secret"_s);
    BVDropboxUpgradeHelper helper(keychain);
    BvSettings settings(m_defaults.get());
    settings.setUpgradeHelper(&helper);
    QVERIFY(settings.needsUpgrade());
    settings.upgrade();
    QCOMPARE(settings.syncMethod(), method);
}

void TestDropboxSyncBackend::keychainFailuresAreLoggedAsDesigned_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<bool>("existing");
    QTest::addColumn<QString>("failing"); // read, write, remove
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("succeeds");

    QTest::newRow("save empty") << "save empty" << false << ""
                                << "KeychainError - trying to store empty item" << false;
    QTest::newRow("save, keyring unreadable")
        << "save" << false << "read"
        << "KeychainError - (save) failed to retrieve keychain item: locked" << false;
    QTest::newRow("save new") << "save" << false << "write"
                              << "KeychainError - (save) failed to create keychain item: locked" << false;
    QTest::newRow("save over an item") << "save" << true << "write"
                                       << "KeychainError - (save) failed to update keychain item: locked" << false;
    QTest::newRow("save works") << "save" << true << ""
                                << "" << true;
    QTest::newRow("delete missing") << "delete" << false << ""
                                    << "KeychainError - (delete) failed to find keychain item: The item could not be "
                                       "found in the keyring."
                                    << false;
    QTest::newRow("delete refused") << "delete" << true << "remove"
                                    << "KeychainError - (delete) failed to delete keychain item: locked" << false;
    QTest::newRow("get unreadable") << "get" << true << "read"
                                    << "KeychainError - (get) failed to retrieve keychain item: locked" << false;
    QTest::newRow("get missing is quiet") << "get" << false << ""
                                          << "" << false;
}

void TestDropboxSyncBackend::keychainFailuresAreLoggedAsDesigned()
{
    QFETCH(QString, action);
    QFETCH(bool, existing);
    QFETCH(QString, failing);
    QFETCH(QString, message);
    QFETCH(bool, succeeds);

    FakeKeychain store;
    if (existing)
        store.set(u"oauth2_token"_s, u"before"_s);
    (failing == u"read"           ? store.failReads
            : failing == u"write" ? store.failWrites
                                  : store.failRemovals)
        = failing.isEmpty() ? QString() : u"locked"_s;
    if (!message.isEmpty())
        QTest::ignoreMessage(QtWarningMsg, qPrintable(message));
    BvKeychain keychain(store);
    bool ok = false;
    if (action == u"save empty")
        ok = keychain.saveGenericPassword(QString(), u"oauth2_token"_s);
    else if (action == u"save")
        ok = keychain.saveGenericPassword(u"after"_s, u"oauth2_token"_s);
    else if (action == u"delete")
        ok = keychain.deleteGenericPasswordForAccount(u"oauth2_token"_s);
    else
        ok = !keychain.getGenericAccountPassword(u"oauth2_token"_s).isNull();
    QCOMPARE(ok, succeeds);
}

QTEST_GUILESS_MAIN(TestDropboxSyncBackend)
#include "testdropboxsyncbackend.moc"
