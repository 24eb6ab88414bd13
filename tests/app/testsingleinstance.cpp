#include <QtTest>

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QProcess>

#include "app/services/singleinstance.h"
#include "platform/brimvaledbus.h"
#include "support/dbusmock.h"

using namespace Qt::StringLiterals;

namespace {

const QString MockInterface = u"org.freedesktop.DBus.Mock"_s;

QString serviceName()
{
    return QString::fromLatin1(BrimvaleDBus::ServiceName);
}

bool nameHasOwner()
{
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(serviceName()).value();
}

QDBusMessage callMock(const QString &method, const QVariantList &arguments)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        serviceName(), QString::fromLatin1(BrimvaleDBus::ObjectPath), MockInterface, method);
    call.setArguments(arguments);
    return QDBusConnection::sessionBus().call(call);
}

// The arguments of every call of `method` the mock received, oldest first.
QList<QVariantList> callsOf(const QString &method)
{
    return DBusMock::decodeMethodCalls(callMock(u"GetMethodCalls"_s, { method }));
}

} // namespace

// A stand-in for the running app (python3-dbusmock holding the app's name and object) in another process.
class TestSingleInstance : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void requestsReachTheRunningApp_data();
    void requestsReachTheRunningApp();
    void asksAgainUntilTheAppPublishedItsObject();
    void nobodyToForwardTo();
    void claimFailsWhileAnotherProcessHoldsTheName();

private:
    void startRunningApp(bool withMethods);

    QProcess m_mock;
};

void TestSingleInstance::startRunningApp(bool withMethods)
{
    m_mock.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_mock.start(u"/usr/bin/python3"_s,
        { u"-m"_s, u"dbusmock"_s, serviceName(), QString::fromLatin1(BrimvaleDBus::ObjectPath),
            QString::fromLatin1(BrimvaleDBus::InterfaceName) });
    QVERIFY(m_mock.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(nameHasOwner(), 10000);
    if (!withMethods)
        return;
    QCOMPARE(callMock(u"AddMethod"_s, { QString(), u"ShowMainWindow"_s, QString(), QString(), QString() }).type(),
        QDBusMessage::ReplyMessage);
    QCOMPARE(callMock(u"AddMethod"_s, { QString(), u"OpenUrl"_s, u"s"_s, QString(), QString() }).type(),
        QDBusMessage::ReplyMessage);
}

void TestSingleInstance::cleanup()
{
    if (m_mock.state() != QProcess::NotRunning) {
        m_mock.terminate();
        m_mock.waitForFinished();
    }
    QTRY_VERIFY(!nameHasOwner());
}

void TestSingleInstance::requestsReachTheRunningApp_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("method");

    QTest::newRow("plain second start raises the window") << ""
                                                          << "ShowMainWindow";
    QTest::newRow("browser redirect is handed over")
        << "brimvaleapp://dropbox#access_token=T%2Bk&token_type=bearer&account_id=dbid%3A1"
        << "OpenUrl";
}

void TestSingleInstance::requestsReachTheRunningApp()
{
    QFETCH(QString, url);
    QFETCH(QString, method);

    startRunningApp(true);
    QVERIFY(!SingleInstance::claim());
    QVERIFY(SingleInstance::forwardToRunning(url));
    const QList<QVariantList> calls = callsOf(method);
    QCOMPARE(calls.size(), 1);
    QCOMPARE(calls.constFirst(), url.isEmpty() ? QVariantList {} : QVariantList { url });
    const QString other = method == u"OpenUrl"_s ? u"ShowMainWindow"_s : u"OpenUrl"_s;
    QVERIFY(callsOf(other).isEmpty());
}

void TestSingleInstance::asksAgainUntilTheAppPublishedItsObject()
{
    // The app holds its name before its interface answers; a second start in that gap is answered once it does.
    startRunningApp(false);
    QProcess::startDetached(u"sh"_s,
        { u"-c"_s,
            u"sleep 0.5; gdbus call --session --dest %1 --object-path %2 --method %3.AddMethod '' ShowMainWindow '' '' ''"_s
                .arg(serviceName(), QString::fromLatin1(BrimvaleDBus::ObjectPath), MockInterface) });
    QVERIFY(SingleInstance::forwardToRunning(QString()));
    QCOMPARE(callsOf(u"ShowMainWindow"_s).size(), 1);
}

void TestSingleInstance::nobodyToForwardTo()
{
    QVERIFY(!SingleInstance::forwardToRunning(QString()));
    QVERIFY(!SingleInstance::forwardToRunning(u"brimvaleapp://dropbox#token_type=bearer"_s));
}

void TestSingleInstance::claimFailsWhileAnotherProcessHoldsTheName()
{
    startRunningApp(true);
    QVERIFY(!SingleInstance::claim());
    m_mock.terminate();
    QVERIFY(m_mock.waitForFinished());
    // Once that app has quit, the next start is the app.
    QTRY_VERIFY(SingleInstance::claim());
    QVERIFY(SingleInstance::claim());
    QVERIFY(QDBusConnection::sessionBus().unregisterService(serviceName()));
}

QTEST_GUILESS_MAIN(TestSingleInstance)
#include "testsingleinstance.moc"
