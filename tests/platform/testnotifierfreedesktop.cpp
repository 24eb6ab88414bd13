#include <QtTest>

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QProcess>

#include "platform/notifierfreedesktop.h"
#include "support/dbusmock.h"

using namespace Qt::StringLiterals;

namespace {

const QString Service = u"org.freedesktop.Notifications"_s;
const QString Path = u"/org/freedesktop/Notifications"_s;

bool serverRuns()
{
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(Service).value();
}

QDBusMessage callMock(const QString &method, const QVariantList &arguments)
{
    QDBusMessage call = QDBusMessage::createMethodCall(Service, Path, u"org.freedesktop.DBus.Mock"_s, method);
    call.setArguments(arguments);
    return QDBusConnection::sessionBus().call(call);
}

// The arguments of every call of `method` the server received, oldest first, with a{sv} as QVariantMap.
QList<QVariantList> callsOf(const QString &method)
{
    return DBusMock::decodeMethodCalls(callMock(u"GetMethodCalls"_s, { method }));
}

void emitFromServer(const QString &signal, const QString &signature, const QVariantList &arguments)
{
    QCOMPARE(callMock(u"EmitSignal"_s, { QString(), signal, signature, arguments }).type(), QDBusMessage::ReplyMessage);
}

// The server answered Notify before it answered the last call of the test on the same connection; the
// answer reaches the notifier once the event loop runs.
void letAnswersArrive()
{
    callsOf(u"Notify"_s);
    QTest::qWait(20);
}

UserNotification reminder()
{
    return { u"Reminder of activity"_s, u"Brimvale"_s, u"Are you still working on: @Acme #x"_s,
        { { u"stop"_s, u"Stop tracking"_s } } };
}

} // namespace

// Against python3-dbusmock's notification_daemon template on the test's private session bus.
class TestNotifierFreedesktop : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void notifySendsTheDesignedArguments_data();
    void notifySendsTheDesignedArguments();
    void postingAgainReplacesOnlyTheSameName();
    void clicksComeBackByName();
    void withdrawClosesWhatIsOnScreen();
    void withoutServerNothingIsPosted();

private:
    void startServer(const QString &capabilities = u"body actions"_s);

    QProcess m_server;
};

void TestNotifierFreedesktop::startServer(const QString &capabilities)
{
    m_server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_server.start(u"/usr/bin/python3"_s,
        { u"-m"_s, u"dbusmock"_s, u"--template"_s, u"notification_daemon"_s, u"-p"_s,
            u"{\"capabilities\": \"%1\"}"_s.arg(capabilities) });
    QVERIFY(m_server.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(serverRuns(), 10000);
}

void TestNotifierFreedesktop::cleanup()
{
    if (m_server.state() != QProcess::NotRunning) {
        m_server.terminate();
        m_server.waitForFinished();
    }
    QTRY_VERIFY(!serverRuns());
}

void TestNotifierFreedesktop::notifySendsTheDesignedArguments_data()
{
    QTest::addColumn<QString>("capabilities");
    QTest::addColumn<QStringList>("actions");

    QTest::newRow("server with buttons") << "body actions"
                                         << QStringList { u"default"_s, u"Show Brimvale"_s, u"stop"_s,
                                                u"Stop tracking"_s };
    // A click on the body is reported by servers without buttons too.
    QTest::newRow("server without buttons") << "body body-markup" << QStringList { u"default"_s, u"Show Brimvale"_s };
}

void TestNotifierFreedesktop::notifySendsTheDesignedArguments()
{
    QFETCH(QString, capabilities);
    QFETCH(QStringList, actions);

    startServer(capabilities);
    NotifierFreedesktop notifier(QDBusConnection::sessionBus());
    QVERIFY(notifier.isAvailable());
    QCOMPARE(notifier.supportsActions(), actions.size() > 2);
    notifier.post(reminder());
    QTRY_COMPARE(callsOf(u"Notify"_s).size(), 1);
    const QVariantList arguments = callsOf(u"Notify"_s).constFirst();
    const QVariantList expected { u"Brimvale"_s, 0u, u"brimvale"_s, u"Brimvale"_s,
        u"Are you still working on: @Acme #x"_s, actions, QVariantMap { { u"desktop-entry"_s, u"brimvale"_s } }, -1 };
    QCOMPARE(arguments.size(), expected.size());
    for (qsizetype i = 0; i < expected.size(); ++i)
        QCOMPARE(arguments.at(i), expected.at(i));
}

void TestNotifierFreedesktop::postingAgainReplacesOnlyTheSameName()
{
    startServer();
    NotifierFreedesktop notifier(QDBusConnection::sessionBus());
    notifier.post(reminder());
    QTRY_COMPARE(callsOf(u"Notify"_s).size(), 1);
    letAnswersArrive();
    UserNotification again = reminder();
    again.body = u"Are you still working on: @Acme #y"_s;
    notifier.post(again);
    QTRY_COMPARE(callsOf(u"Notify"_s).size(), 2);
    letAnswersArrive();
    UserNotification other { u"When not tracking"_s, u"Brimvale"_s, u"Are you working on something?"_s, {} };
    notifier.post(other);
    QTRY_COMPARE(callsOf(u"Notify"_s).size(), 3);
    const QList<QVariantList> calls = callsOf(u"Notify"_s);
    QCOMPARE(calls.at(1).at(1).toUInt(), 1u);
    QCOMPARE(calls.at(2).at(1).toUInt(), 0u);
}

void TestNotifierFreedesktop::clicksComeBackByName()
{
    startServer();
    NotifierFreedesktop notifier(QDBusConnection::sessionBus());
    QSignalSpy clicks(&notifier, &Notifier::actionInvoked);
    notifier.post(reminder());
    QTRY_COMPARE(callsOf(u"Notify"_s).size(), 1);
    letAnswersArrive();

    emitFromServer(u"ActionInvoked"_s, u"us"_s, { 1u, u"default"_s });
    QTRY_COMPARE(clicks.size(), 1);
    QCOMPARE(clicks.constFirst(), (QVariantList { u"Reminder of activity"_s, u"default"_s }));
    emitFromServer(u"ActionInvoked"_s, u"us"_s, { 1u, u"stop"_s });
    QTRY_COMPARE(clicks.size(), 2);
    QCOMPARE(clicks.at(1), (QVariantList { u"Reminder of activity"_s, u"stop"_s }));

    // Another application's notification, and ours once the server closed it, are not ours to report.
    emitFromServer(u"ActionInvoked"_s, u"us"_s, { 7u, u"default"_s });
    emitFromServer(u"NotificationClosed"_s, u"uu"_s, { 1u, 2u });
    emitFromServer(u"ActionInvoked"_s, u"us"_s, { 1u, u"default"_s });
    QTest::qWait(200);
    QCOMPARE(clicks.size(), 2);
}

void TestNotifierFreedesktop::withdrawClosesWhatIsOnScreen()
{
    startServer();
    NotifierFreedesktop notifier(QDBusConnection::sessionBus());
    notifier.post(reminder());
    QTRY_COMPARE(callsOf(u"Notify"_s).size(), 1);
    letAnswersArrive();
    notifier.withdraw(u"Reminder of activity"_s);
    notifier.withdraw(u"When not tracking"_s);
    QTRY_COMPARE(callsOf(u"CloseNotification"_s).size(), 1);
    QCOMPARE(callsOf(u"CloseNotification"_s).constFirst().constFirst().toUInt(), 1u);
}

void TestNotifierFreedesktop::withoutServerNothingIsPosted()
{
    NotifierFreedesktop notifier(QDBusConnection::sessionBus());
    QVERIFY(!notifier.isAvailable());
    QVERIFY(!notifier.supportsActions());
    notifier.post(reminder());
    // Availability is asked live: a server that starts later is used from then on.
    startServer();
    QVERIFY(notifier.isAvailable());
    QTest::qWait(100);
    QVERIFY(callsOf(u"Notify"_s).isEmpty());
    notifier.post(reminder());
    QTRY_COMPARE(callsOf(u"Notify"_s).size(), 1);
}

QTEST_GUILESS_MAIN(TestNotifierFreedesktop)
#include "testnotifierfreedesktop.moc"
