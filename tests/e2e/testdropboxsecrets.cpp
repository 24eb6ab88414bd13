// The command line connecting, showing and disconnecting a Dropbox account through the real agent and the
// local Dropbox server, with a real Secret Service (gnome-keyring) on a private session bus: the tokens
// live in the keyring and nowhere else (settings, output, the agent's argv or environment).
#include <QtTest>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <csignal>

#include "fakes/fakedropbox.h"
#include "settings/userdefaults.h"

using namespace Qt::StringLiterals;

class TestDropboxSecrets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void tokensLiveInTheKeyringOnly();

private:
    QProcessEnvironment environment() const { return m_fake->agentEnvironment(); }
    // Runs the command line to its end; its exit status, with its output.
    int brimvale(const QStringList &arguments, QString *out, QString *err = nullptr);
    // Secrets of the Dropbox service in the keyring, by key.
    QHash<QString, QString> keyring();
    void stop(const QString &busName);

    std::unique_ptr<FakeDropbox> m_fake;
};

void TestDropboxSecrets::initTestCase()
{
    QVERIFY2(QDBusConnection::sessionBus().isConnected(), "the test needs a session bus");
    // An unlocked login keyring in this test's own HOME; without one the keyring would ask for a password
    // on a display there is none of.
    QProcess keyring;
    keyring.start(
        u"/bin/sh"_s, { u"-c"_s, u"printf pw | gnome-keyring-daemon --unlock --components=secrets >/dev/null 2>&1"_s });
    QVERIFY(keyring.waitForFinished(20000));
    QTRY_VERIFY_WITH_TIMEOUT(
        QDBusConnection::sessionBus().interface()->isServiceRegistered(u"org.freedesktop.secrets"_s), 10000);
    m_fake = std::make_unique<FakeDropbox>(QStringList {});
    QVERIFY2(m_fake->start(), qPrintable(m_fake->errorString()));
}

void TestDropboxSecrets::stop(const QString &busName)
{
    QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    if (!bus->isServiceRegistered(busName))
        return;
    ::kill(pid_t(bus->servicePid(busName).value()), SIGTERM);
    QTRY_VERIFY(!bus->isServiceRegistered(busName));
}

void TestDropboxSecrets::cleanupTestCase()
{
    stop(u"com.brimvaleapp.DropboxSyncService"_s);
    stop(u"org.freedesktop.secrets"_s);
    m_fake.reset();
}

int TestDropboxSecrets::brimvale(const QStringList &arguments, QString *out, QString *err)
{
    QProcess process;
    process.setProcessEnvironment(environment());
    process.start(QStringLiteral(BRIMVALE_EXECUTABLE), arguments);
    if (!process.waitForFinished(60000))
        return -1;
    *out = QString::fromUtf8(process.readAllStandardOutput());
    if (err)
        *err = QString::fromUtf8(process.readAllStandardError());
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

QHash<QString, QString> TestDropboxSecrets::keyring()
{
    QProcess search;
    search.start(u"secret-tool"_s, { u"search"_s, u"--all"_s, u"server"_s, u"com.brimvaleapp.dropbox-oauth"_s });
    search.waitForFinished(20000);
    // One block per item; its key is its "attribute.user" line.
    QStringList keys;
    const QString output = QString::fromUtf8(search.readAllStandardOutput() + search.readAllStandardError());
    for (const QString &line : output.split(u'\n')) {
        if (line.startsWith(u"attribute.user = "_s))
            keys.append(line.mid(17));
    }
    QHash<QString, QString> secrets;
    for (const QString &key : std::as_const(keys)) {
        QProcess lookup;
        lookup.start(
            u"secret-tool"_s, { u"lookup"_s, u"server"_s, u"com.brimvaleapp.dropbox-oauth"_s, u"user"_s, key });
        lookup.waitForFinished(20000);
        secrets.insert(key, QString::fromUtf8(lookup.readAllStandardOutput()));
    }
    return secrets;
}

void TestDropboxSecrets::tokensLiveInTheKeyringOnly()
{
    QProcess connect;
    connect.setProcessEnvironment(environment());
    connect.start(QStringLiteral(BRIMVALE_EXECUTABLE), { u"dropbox"_s, u"connect"_s, u"--no-browser"_s });
    QVERIFY(connect.waitForStarted());
    QString page;
    QString printed;
    while (page.isEmpty() && connect.waitForReadyRead(20000)) {
        printed += QString::fromUtf8(connect.readAllStandardOutput());
        for (const QString &line : printed.split(u'\n'))
            if (line.trimmed().startsWith(u"https://www.dropbox.com/oauth2/authorize?"_s))
                page = line.trimmed();
    }
    QVERIFY2(!page.isEmpty(), qPrintable(printed));
    const QUrl url(page);
    QCOMPARE(url.query().contains(u"token_access_type=offline"_s), true);
    QCOMPARE(url.query().contains(u"code_challenge_method=S256"_s), true);

    // The browser: the consent page (here approved at once) sends it back to the command line's listener.
    QNetworkAccessManager browser;
    browser.setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
    QUrl consent(m_fake->apiUrl());
    consent.setPath(url.path());
    consent.setQuery(url.query(QUrl::FullyEncoded), QUrl::StrictMode);
    std::unique_ptr<QNetworkReply> reply(browser.get(QNetworkRequest(consent)));
    QTRY_VERIFY_WITH_TIMEOUT(reply->isFinished(), 20000);
    const QUrl back = reply->header(QNetworkRequest::LocationHeader).toUrl();
    QVERIFY2(back.host() == u"127.0.0.1"_s, qPrintable(back.toString()));
    // Another page on this computer that finds the port cannot hand in a code of its own.
    QUrl forged = back;
    QUrlQuery forgedQuery(back);
    QVERIFY(forgedQuery.hasQueryItem(u"state"_s));
    forgedQuery.removeQueryItem(u"state"_s);
    forgedQuery.addQueryItem(u"state"_s, u"guessed"_s);
    forged.setQuery(forgedQuery);
    std::unique_ptr<QNetworkReply> intruder(browser.get(QNetworkRequest(forged)));
    QTRY_VERIFY_WITH_TIMEOUT(intruder->isFinished(), 20000);
    QCOMPARE(intruder->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 404);
    std::unique_ptr<QNetworkReply> landing(browser.get(QNetworkRequest(back)));
    QTRY_VERIFY_WITH_TIMEOUT(landing->isFinished(), 20000);
    QCOMPARE(landing->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 200);

    // It may have ended already, while the landing page was read.
    QVERIFY(connect.state() == QProcess::NotRunning || connect.waitForFinished(60000));
    printed += QString::fromUtf8(connect.readAllStandardOutput());
    const QString connectErrors = QString::fromUtf8(connect.readAllStandardError());
    QCOMPARE(connect.exitCode(), 0);
    QVERIFY2(printed.contains(u"Connected with Dropbox as Zoë Brimvale."_s), qPrintable(printed + connectErrors));

    const QHash<QString, QString> secrets = keyring();
    QCOMPARE(QStringList(secrets.keys()).size(), 3);
    QVERIFY(!secrets.value(u"oauth2_token"_s).isEmpty());
    QVERIFY(!secrets.value(u"oauth2_refresh_token"_s).isEmpty());
    QVERIFY(secrets.contains(u"oauth2_token_expiry"_s));

    // The command line syncs through the connected account.
    {
        UserDefaults defaults(UserDefaults::standardFilePath());
        defaults.setInteger(1, u"syncMethod"_s);
        QVERIFY(defaults.synchronize());
    }
    QString synced;
    QString syncErrors;
    const QDateTime beforeSync = QDateTime::currentDateTime().addMSecs(-1000);
    QCOMPARE(brimvale({ u"sync"_s }, &synced, &syncErrors), 0);
    const QDateTime afterSync = QDateTime::currentDateTime();
    QVERIFY2(synced.contains(u"Sync operation completed!"_s), qPrintable(synced + syncErrors));
    QVERIFY(m_fake->files().contains(u"/sync/timezone.json"_s));

    QString status;
    QString statusErrors;
    QCOMPARE(brimvale({ u"dropbox"_s, u"status"_s }, &status, &statusErrors), 0);
    QVERIFY2(status.contains(u"Dropbox: Zoë Brimvale <zoe@example.com>"_s), qPrintable(status + statusErrors));
    // The run recorded when it ended.
    const QRegularExpressionMatch lastSync = QRegularExpression(u"Last sync: (\\S+)"_s).match(status);
    QVERIFY2(lastSync.hasMatch(), qPrintable(status));
    const QDateTime syncedAt = QDateTime::fromString(lastSync.captured(1), Qt::ISODate);
    QVERIFY2(syncedAt >= beforeSync && syncedAt <= afterSync, qPrintable(status));

    // No token anywhere else: the settings file, what the commands printed, the agent's argv and environment.
    QFile settings(UserDefaults::standardFilePath());
    QVERIFY(settings.open(QIODevice::ReadOnly));
    const QByteArray settingsText = settings.readAll();
    QVERIFY(settingsText.contains("dropbox_account_id"));
    const uint agentPid
        = QDBusConnection::sessionBus().interface()->servicePid(u"com.brimvaleapp.DropboxSyncService"_s).value();
    QVERIFY(agentPid > 0);
    QFile argv(u"/proc/%1/cmdline"_s.arg(agentPid));
    QFile environ(u"/proc/%1/environ"_s.arg(agentPid));
    QVERIFY(argv.open(QIODevice::ReadOnly) && environ.open(QIODevice::ReadOnly));
    const QByteArray agentText = argv.readAll() + environ.readAll();
    for (const QString &key : { u"oauth2_token"_s, u"oauth2_refresh_token"_s }) {
        const QByteArray secret = secrets.value(key).toUtf8();
        QVERIFY2(!settingsText.contains(secret), qPrintable(key));
        QVERIFY2(!printed.toUtf8().contains(secret) && !connectErrors.toUtf8().contains(secret), qPrintable(key));
        QVERIFY2(!status.toUtf8().contains(secret), qPrintable(key));
        QVERIFY2(!agentText.contains(secret), qPrintable(key));
    }

    QString disconnected;
    QCOMPARE(brimvale({ u"dropbox"_s, u"disconnect"_s }, &disconnected), 0);
    QVERIFY(disconnected.contains(u"Disconnected from Dropbox."_s));
    QCOMPARE(keyring(), (QHash<QString, QString> {}));
    QCOMPARE(m_fake->requests(u"auth/token/revoke"_s).size(), 1);
    QString after;
    QCOMPARE(brimvale({ u"dropbox"_s, u"status"_s }, &after, &after), 1);
    QVERIFY(after.contains(u"Dropbox is not connected."_s));
}

QTEST_GUILESS_MAIN(TestDropboxSecrets)
#include "testdropboxsecrets.moc"
