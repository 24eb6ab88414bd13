#include <QtTest>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDir>
#include <QDirIterator>
#include <QTemporaryDir>

#include "app/services/brimvaledbus.h"
#include "inprocessapp.h"
#include "model/storecontext.h"

using namespace Qt::StringLiterals;

namespace {

// Keeps every TrackingChanged the bus delivers to another client, with its signature.
class SignalRecorder : public QObject
{
    Q_OBJECT
public:
    QList<QDBusMessage> messages;

public Q_SLOTS:
    void record(const QDBusMessage &message) { messages.append(message); }
};

QString signatureOf(const QDBusMessage &message)
{
    return message.signature();
}

} // namespace

// The app's bus interface over a real TrackingController, called from another connection as the command
// line calls it.
class TestBrimvaleDBusService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void commandsAnswerTheErrorLine_data();
    void commandsAnswerTheErrorLine();
    void trackingChangedCarriesTheStatus();
    void windowAndUrlRequestsReachTheApp_data();
    void windowAndUrlRequestsReachTheApp();
    void syncAnswersEveryCallerWithTheOneRun();
    void syncWithoutMethodAnswersTheError();

private:
    void makeApp(const InProcessApp::Options &options = {});

    std::unique_ptr<InProcessApp> m_app;
};

void TestBrimvaleDBusService::makeApp(const InProcessApp::Options &options)
{
    m_app = std::make_unique<InProcessApp>(options);
    QVERIFY(m_app->service->registerOnSessionBus());
}

void TestBrimvaleDBusService::cleanup()
{
    m_app.reset();
}

void TestBrimvaleDBusService::commandsAnswerTheErrorLine_data()
{
    QTest::addColumn<bool>("endCurrentActivityOnTrack");
    QTest::addColumn<QString>("running"); // what runs before the call, "" for nothing
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("runningAfter");
    QTest::addColumn<bool>("startedByCall");

    QTest::newRow("start when idle") << true << ""
                                     << "StartTrack"
                                     << "@Acme #design mock-ups"
                                     << ""
                                     << "@Acme #design mock-ups" << true;
    QTest::newRow("start while tracking, end off") << false << "@Acme a"
                                                   << "StartTrack"
                                                   << "@Beta b"
                                                   << "Stop previous activity before tracking new!"
                                                   << "@Acme a" << false;
    QTest::newRow("start while tracking, end on") << true << "@Acme a"
                                                  << "StartTrack"
                                                  << "@Beta b"
                                                  << ""
                                                  << "@Beta b" << true;
    QTest::newRow("start blank") << true << ""
                                 << "StartTrack"
                                 << " \t"
                                 << "Activity can not be empty!"
                                 << "" << false;
    QTest::newRow("update when idle") << true << ""
                                      << "UpdateTrack"
                                      << "@Acme x"
                                      << "Can not update. Not tracking..."
                                      << "" << false;
    QTest::newRow("update while tracking") << true << "@Acme a"
                                           << "UpdateTrack"
                                           << "@Acme #review b"
                                           << ""
                                           << "@Acme #review b" << false;
}

void TestBrimvaleDBusService::commandsAnswerTheErrorLine()
{
    QFETCH(bool, endCurrentActivityOnTrack);
    QFETCH(QString, running);
    QFETCH(QString, method);
    QFETCH(QString, argument);
    QFETCH(QString, answer);
    QFETCH(QString, runningAfter);
    QFETCH(bool, startedByCall);

    makeApp({ .endCurrentActivityOnTrack = endCurrentActivityOnTrack, .syncFolder = {} });
    QDBusConnection client = otherClientConnection();
    const QDateTime firstStart = m_app->clock.now();
    QString firstUid;
    if (!running.isEmpty()) {
        QCOMPARE(callApp(client, u"StartTrack"_s, { running }).arguments(), QVariantList { QString() });
        firstUid = m_app->activityManager->currentActivity()->uid();
    }
    m_app->clock.advance(90 * 1000);

    const QDBusMessage reply = callApp(client, method, { argument });
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QCOMPARE(signatureOf(reply), u"s"_s);
    QCOMPARE(reply.arguments().constFirst().toString(), answer);

    const QDBusMessage status = callApp(client, u"Status"_s);
    QCOMPARE(signatureOf(status), u"bsx"_s);
    const QVariantList fields = status.arguments();
    QCOMPARE(fields.at(0).toBool(), !runningAfter.isEmpty());
    QCOMPARE(fields.at(1).toString(), runningAfter);
    const QDateTime expectedStart = startedByCall ? m_app->clock.now() : firstStart;
    QCOMPARE(fields.at(2).toLongLong(), runningAfter.isEmpty() ? 0 : expectedStart.toSecsSinceEpoch());

    // What runs is stored from its first second, whichever way it started.
    if (!runningAfter.isEmpty()) {
        auto context = m_app->store->newContext();
        const ActivityPtr stored = *context->activityWithUid(m_app->activityManager->currentActivity()->uid());
        QVERIFY(stored);
        QCOMPARE(stored->timeFrom(), expectedStart);
    }
    // Ending the running activity for a new one ends it now.
    if (startedByCall && !firstUid.isEmpty()) {
        auto context = m_app->store->newContext();
        QCOMPARE((*context->activityWithUid(firstUid))->timeTo(), m_app->clock.now());
    }
}

void TestBrimvaleDBusService::trackingChangedCarriesTheStatus()
{
    makeApp();
    QDBusConnection client = otherClientConnection();
    SignalRecorder recorder;
    QVERIFY(client.connect(QString::fromLatin1(BrimvaleDBus::ServiceName),
        QString::fromLatin1(BrimvaleDBus::ObjectPath), QString::fromLatin1(BrimvaleDBus::InterfaceName),
        u"TrackingChanged"_s, &recorder, SLOT(record(QDBusMessage))));

    const qint64 start = m_app->clock.now().toSecsSinceEpoch();
    callApp(client, u"StartTrack"_s, { u"@Acme #x"_s });
    m_app->clock.advance(60 * 1000);
    callApp(client, u"StopTrack"_s);
    QTRY_COMPARE(recorder.messages.size(), 2);
    for (const QDBusMessage &message : std::as_const(recorder.messages))
        QCOMPARE(signatureOf(message), u"bsx"_s);
    QCOMPARE(recorder.messages.at(0).arguments(), (QVariantList { true, u"@Acme #x"_s, start }));
    QCOMPARE(recorder.messages.at(1).arguments(), (QVariantList { false, QString(), qint64(0) }));
    QVERIFY(client.disconnect(QString::fromLatin1(BrimvaleDBus::ServiceName),
        QString::fromLatin1(BrimvaleDBus::ObjectPath), QString::fromLatin1(BrimvaleDBus::InterfaceName),
        u"TrackingChanged"_s, &recorder, SLOT(record(QDBusMessage))));
}

void TestBrimvaleDBusService::windowAndUrlRequestsReachTheApp_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("url");

    QTest::newRow("show window") << "ShowMainWindow"
                                 << "";
    QTest::newRow("dropbox redirect") << "OpenUrl"
                                      << "brimvaleapp://dropbox#access_token=a%2Bb&token_type=bearer";
}

void TestBrimvaleDBusService::windowAndUrlRequestsReachTheApp()
{
    QFETCH(QString, method);
    QFETCH(QString, url);

    makeApp();
    QSignalSpy shown(m_app->service.get(), &BrimvaleDBusService::showMainWindowRequested);
    QSignalSpy opened(m_app->service.get(), &BrimvaleDBusService::openUrlRequested);
    const QDBusMessage reply
        = callApp(otherClientConnection(), method, url.isEmpty() ? QVariantList {} : QVariantList { url });
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QCOMPARE(shown.size(), url.isEmpty() ? 1 : 0);
    QCOMPARE(opened.size(), url.isEmpty() ? 0 : 1);
    if (!url.isEmpty())
        QCOMPARE(opened.constFirst().constFirst().toString(), url);
    // Neither touches tracking.
    QVERIFY(!m_app->tracking->isTracking());
}

void TestBrimvaleDBusService::syncAnswersEveryCallerWithTheOneRun()
{
    QTemporaryDir folder;
    makeApp({ .endCurrentActivityOnTrack = true, .syncFolder = folder.path() });
    QDBusConnection client = otherClientConnection();
    callApp(client, u"StartTrack"_s, { u"@Acme finished"_s });
    const QString finishedUid = m_app->activityManager->currentActivity()->uid();
    m_app->clock.advance(3600 * 1000);
    callApp(client, u"StartTrack"_s, { u"@Acme running"_s });
    const QString runningUid = m_app->activityManager->currentActivity()->uid();

    QSignalSpy runs(m_app->syncRunner.get(), &SyncRunner::syncFinished);
    QDBusMessage call = QDBusMessage::createMethodCall(QString::fromLatin1(BrimvaleDBus::ServiceName),
        QString::fromLatin1(BrimvaleDBus::ObjectPath), QString::fromLatin1(BrimvaleDBus::InterfaceName), u"Sync"_s);
    QDBusPendingCall first = client.asyncCall(call);
    QDBusPendingCall second = client.asyncCall(call);
    QTRY_VERIFY_WITH_TIMEOUT(first.isFinished() && second.isFinished(), 20000);
    QCOMPARE(first.reply().arguments(), QVariantList { u"Sync operation completed!"_s });
    QCOMPARE(second.reply().arguments(), QVariantList { u"Sync operation completed!"_s });
    QCOMPARE(runs.size(), 1);

    // The files hold what is finished and leave out what still runs.
    QString files;
    QDirIterator it(folder.path(), { u"*.json"_s }, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile file(it.next());
        QVERIFY(file.open(QIODevice::ReadOnly));
        files += QString::fromUtf8(file.readAll());
    }
    QVERIFY(files.contains(finishedUid, Qt::CaseInsensitive));
    QVERIFY(!files.contains(runningUid, Qt::CaseInsensitive));
}

void TestBrimvaleDBusService::syncWithoutMethodAnswersTheError()
{
    makeApp();
    const QDBusMessage reply = callApp(otherClientConnection(), u"Sync"_s);
    QCOMPARE(reply.arguments(),
        QVariantList { u"Error occurred\nSync is turned off. Please choose a sync method in preferences"_s });
    QVERIFY(!m_app->syncRunner->isRunning());
}

QTEST_GUILESS_MAIN(TestBrimvaleDBusService)
#include "testbrimvaledbusservice.moc"
