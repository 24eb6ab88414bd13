// The real app under Xvfb syncing with Dropbox: the real agent, the local Dropbox server and a real Secret
// Service (gnome-keyring) on a private session bus. The account is connected the way the browser does it,
// by handing the app its redirect URL; `brimvale sync` then hands the run to the app.
#include <QtTest>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <QRegularExpression>
#include <csignal>

#include "fakes/fakedropbox.h"
#include "settings/userdefaults.h"
#include "support/appprocess.h"

using namespace Qt::StringLiterals;

using AppProcess::registered;
using Run = AppProcess::Run;

namespace {

Run brimvale(const QStringList &arguments)
{
    return AppProcess::run(QStringLiteral(BRIMVALE_EXECUTABLE), arguments, 60000);
}

const QString AppService = u"com.brimvaleapp.Brimvale"_s;

void stop(const QString &busName)
{
    if (!registered(busName))
        return;
    ::kill(pid_t(QDBusConnection::sessionBus().interface()->servicePid(busName).value()), SIGTERM);
    QTRY_VERIFY_WITH_TIMEOUT(!registered(busName), 10000);
}

QString setting(const QString &key)
{
    // Read afresh: the app writes the file.
    return UserDefaults(UserDefaults::standardFilePath()).stringForKey(key);
}

} // namespace

class TestAppDropboxProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void redirectConnectsAndCommandLineSyncRunsInTheApp();

private:
    std::unique_ptr<FakeDropbox> m_fake;
};

void TestAppDropboxProcess::initTestCase()
{
    QVERIFY2(QDBusConnection::sessionBus().isConnected(), "the test needs a session bus");
    // An unlocked login keyring in this test's own HOME; without one the keyring would ask for a password.
    QProcess keyring;
    keyring.start(
        u"/bin/sh"_s, { u"-c"_s, u"printf pw | gnome-keyring-daemon --unlock --components=secrets >/dev/null 2>&1"_s });
    QVERIFY(keyring.waitForFinished(20000));
    QTRY_VERIFY_WITH_TIMEOUT(registered(u"org.freedesktop.secrets"_s), 10000);
    m_fake = std::make_unique<FakeDropbox>(QStringList { u"e2e-token"_s });
    QVERIFY2(m_fake->start(), qPrintable(m_fake->errorString()));
    // Only the agent reads these; it inherits them from the app that starts it.
    const QProcessEnvironment environment = m_fake->agentEnvironment(QProcessEnvironment());
    for (const QString &key : environment.keys())
        qputenv(key.toLocal8Bit(), environment.value(key).toLocal8Bit());
}

void TestAppDropboxProcess::cleanupTestCase()
{
    stop(AppService);
    stop(u"com.brimvaleapp.DropboxSyncService"_s);
    stop(u"org.freedesktop.secrets"_s);
    m_fake.reset();
}

void TestAppDropboxProcess::redirectConnectsAndCommandLineSyncRunsInTheApp()
{
    // Dropbox chosen, automatic runs off: every run here is one the test asks for.
    {
        UserDefaults defaults(UserDefaults::standardFilePath());
        defaults.setInteger(1, u"syncMethod"_s);
        defaults.setInteger(0, u"dropboxSyncInterval"_s);
        QVERIFY(defaults.synchronize());
    }
    Run run = brimvale({ u"start"_s, u"@Acme #e2e synced through the app"_s });
    QCOMPARE(run.err, QString());
    QCOMPARE(run.status, 0);
    QVERIFY(registered(AppService));
    QCOMPARE(brimvale({ u"stop"_s }).status, 0);

    // Not connected yet: the app's run fails and says why.
    run = brimvale({ u"sync"_s });
    QCOMPARE(run.status, 1);
    QVERIFY2(run.err.contains(u"Dropbox is not connected"_s), qPrintable(run.err));

    // The browser's return: a second `brimvale` hands the URL to the running app and ends.
    run = brimvale({ u"brimvaleapp://dropbox#access_token=e2e-token&token_type=bearer&account_id=dbid%3Ae2e"_s });
    QCOMPARE(run.status, 0);
    // The redirect's account id first, then the account as Dropbox describes it.
    QTRY_VERIFY_WITH_TIMEOUT(!setting(u"dropbox_account_name"_s).isEmpty(), 20000);
    QVERIFY(setting(u"dropbox_account_id"_s).startsWith(u"dbid:"_s));

    run = brimvale({ u"sync"_s });
    QCOMPARE(run.err, QString());
    QCOMPARE(run.out, u"Syncing in the running Brimvale app...\nSync operation completed!\n"_s);
    QCOMPARE(run.status, 0);

    const QJsonObject files = m_fake->files();
    const QRegularExpression monthFile(u"^/sync/\\d{4}-\\d{2}\\.json$"_s);
    QString months;
    for (auto it = files.begin(); it != files.end(); ++it) {
        if (monthFile.match(it.key()).hasMatch())
            months += it.value().toObject().value(u"content"_s).toString();
    }
    QVERIFY2(months.contains(u"synced through the app"_s), qPrintable(QStringList(files.keys()).join(u' ')));
    // The token is the keyring's: the settings file never holds it.
    QFile settingsFile(UserDefaults::standardFilePath());
    QVERIFY(settingsFile.open(QIODevice::ReadOnly));
    QVERIFY(!settingsFile.readAll().contains("e2e-token"));
}

QTEST_GUILESS_MAIN(TestAppDropboxProcess)
#include "testappdropboxprocess.moc"
