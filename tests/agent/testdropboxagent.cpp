#include <QtTest>

#include <QCryptographicHash>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCall>
#include <QDBusUnixFileDescriptor>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QUrlQuery>

#include "agent/dropboxendpoints.h"
#include "agent/dropboxsyncservice.h"
#include "fakes/fakedropbox.h"

using namespace Qt::StringLiterals;

namespace {

const QString token = u"test-token"_s;

QJsonArray parseArray(const QString &json)
{
    return QJsonDocument::fromJson(json.toUtf8()).array();
}

QJsonObject parseObject(const QString &json)
{
    return QJsonDocument::fromJson(json.toUtf8()).object();
}

QByteArray readDescriptor(const QDBusUnixFileDescriptor &descriptor)
{
    QFile file;
    if (!file.open(descriptor.fileDescriptor(), QIODevice::ReadOnly, QFileDevice::DontCloseHandle))
        return "<unreadable>";
    return file.readAll();
}

QDBusUnixFileDescriptor descriptorWith(const QByteArray &content)
{
    QTemporaryFile file;
    if (!file.open() || file.write(content) != content.size() || !file.flush())
        return {};
    // The agent reads from offset 0 whatever the descriptor's position.
    return QDBusUnixFileDescriptor(file.handle());
}

QStringList entryPaths(const QJsonArray &entries)
{
    QStringList paths;
    for (const QJsonValue &entry : entries)
        paths << entry[u".tag"_s].toString() + u":"_s + entry[u"path_lower"_s].toString();
    return paths;
}

} // namespace

class TestDropboxAgent : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void endpointsAcceptOnlyHttpsOrLoopback_data();
    void endpointsAcceptOnlyHttpsOrLoopback();
    void accountInfoNamesTheAccount();
    void callsBeforeSyncInitAskForIt();
    void listingPagesThroughHasMoreThenGivesOnlyChanges();
    void refusedCursorListsFromScratch_data();
    void refusedCursorListsFromScratch();
    void missingFolderIsAnEmptyFirstListing();
    void downloadGivesContentOrNotFound_data();
    void downloadGivesContentOrNotFound();
    void uploadAddsUpdatesAndRefusesConflicts();
    void nonAsciiNamesTravelEscaped();
    void transientFailuresAreRetried_data();
    void transientFailuresAreRetried();
    void failuresBecomeOneClearText_data();
    void failuresBecomeOneClearText();
    void deleteRemovesAndAlreadyGoneIsDone();
    void callsAreServedWhileAnotherWaits();
    void codeExchangeRefreshAndRevoke();
    void oldTokenIsUpgraded();
    void everyRequestDeclaresItsBody();
    void idleAgentExits();
    void busActivatesTheAgent();

private:
    bool startAgent(const QProcessEnvironment &extra = {});
    QDBusMessage call(const QString &method, const QVariantList &arguments = {});
    void syncInit(const QString &accessToken = token) { call(u"SyncInit"_s, { u"sync"_s, accessToken }); }
    QString codeFor(const QString &challenge, const QString &redirectUri);

    std::unique_ptr<FakeDropbox> m_fake;
    std::unique_ptr<QProcess> m_agent;
};

void TestDropboxAgent::init()
{
    m_fake = std::make_unique<FakeDropbox>();
    QVERIFY2(m_fake->start(), qPrintable(m_fake->errorString()));
    const QString test = QString::fromLatin1(QTest::currentTestFunction());
    if (test != u"busActivatesTheAgent"_s && test != u"idleAgentExits"_s
        && test != u"endpointsAcceptOnlyHttpsOrLoopback"_s)
        QVERIFY(startAgent());
}

void TestDropboxAgent::cleanup()
{
    if (m_agent && m_agent->state() != QProcess::NotRunning) {
        m_agent->terminate();
        m_agent->waitForFinished(5000);
    }
    if (m_agent) {
        // The agent logs at debug level here, and still no token or secret may show.
        const QByteArray log = m_agent->readAllStandardError();
        for (const char *secret : { "test-token", "sl.fake-", "old-token", "old-secret", "rt." })
            QVERIFY2(!log.contains(secret), log.constData());
    }
    m_agent.reset();
    // Whatever a test started through the bus goes too, so the next test's agent can own the name.
    QTRY_VERIFY_WITH_TIMEOUT(
        !QDBusConnection::sessionBus().interface()->isServiceRegistered(DropboxSyncService::serviceName()), 10000);
    m_fake.reset();
}

bool TestDropboxAgent::startAgent(const QProcessEnvironment &extra)
{
    m_agent = std::make_unique<QProcess>();
    QProcessEnvironment environment = m_fake->agentEnvironment();
    for (const QString &key : extra.keys())
        environment.insert(key, extra.value(key));
    environment.insert(u"QT_LOGGING_RULES"_s, u"brimvale.agent.debug=true"_s);
    m_agent->setProcessEnvironment(environment);
    m_agent->start(QStringLiteral(BRIMVALE_AGENT), {});
    if (!m_agent->waitForStarted(10000))
        return false;
    QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    QDeadlineTimer deadline(10000);
    while (!bus->isServiceRegistered(DropboxSyncService::serviceName()) && !deadline.hasExpired())
        QTest::qWait(20);
    return bus->isServiceRegistered(DropboxSyncService::serviceName());
}

QDBusMessage TestDropboxAgent::call(const QString &method, const QVariantList &arguments)
{
    QDBusMessage message = QDBusMessage::createMethodCall(DropboxSyncService::serviceName(),
        DropboxSyncService::objectPath(), u"com.brimvaleapp.DropboxSyncService1"_s, method);
    message.setArguments(arguments);
    const QDBusMessage reply = QDBusConnection::sessionBus().call(message, QDBus::Block, 120000);
    if (reply.type() != QDBusMessage::ReplyMessage)
        qWarning("%s: %s", qPrintable(method), qPrintable(reply.errorMessage()));
    return reply;
}

QString TestDropboxAgent::codeFor(const QString &challenge, const QString &redirectUri)
{
    // The consent page approves at once and redirects with the code, as Dropbox does after "Allow".
    QUrl url(m_fake->apiUrl() + u"/oauth2/authorize"_s);
    QUrlQuery query;
    query.addQueryItem(u"response_type"_s, u"code"_s);
    query.addQueryItem(u"client_id"_s, DropboxEndpoints::appKey());
    query.addQueryItem(u"redirect_uri"_s, redirectUri);
    query.addQueryItem(u"token_access_type"_s, u"offline"_s);
    query.addQueryItem(u"code_challenge_method"_s, u"S256"_s);
    query.addQueryItem(u"code_challenge"_s, challenge);
    url.setQuery(query);
    QNetworkAccessManager network;
    network.setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
    QNetworkReply *reply = network.get(QNetworkRequest(url));
    QSignalSpy finished(reply, &QNetworkReply::finished);
    finished.wait(10000);
    const QUrl location = reply->header(QNetworkRequest::LocationHeader).toUrl();
    reply->deleteLater();
    return QUrlQuery(location).queryItemValue(u"code"_s);
}

void TestDropboxAgent::endpointsAcceptOnlyHttpsOrLoopback_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("unset") << QString() << true;
    QTest::newRow("https host") << u"https://api.dropboxapi.com"_s << true;
    QTest::newRow("https with port and slash") << u"https://dropbox.example:8443/"_s << true;
    QTest::newRow("loopback with port") << u"http://127.0.0.1:8080"_s << true;
    QTest::newRow("loopback without port") << u"http://127.0.0.1"_s << false;
    QTest::newRow("plain http elsewhere") << u"http://api.dropboxapi.com"_s << false;
    QTest::newRow("localhost by name") << u"http://localhost:8080"_s << false;
    QTest::newRow("with a path") << u"https://api.dropboxapi.com/2"_s << false;
    QTest::newRow("with credentials") << u"https://user:pw@api.dropboxapi.com"_s << false;
    QTest::newRow("another scheme") << u"ftp://127.0.0.1:21"_s << false;
}

void TestDropboxAgent::endpointsAcceptOnlyHttpsOrLoopback()
{
    QFETCH(QString, value);
    QFETCH(bool, accepted);
    for (const QString &variable : { u"BRIMVALE_DROPBOX_API_URL"_s, u"BRIMVALE_DROPBOX_CONTENT_URL"_s }) {
        QProcessEnvironment environment;
        if (!value.isNull())
            environment.insert(variable, value);
        const auto endpoints = DropboxEndpoints::fromEnvironment(environment);
        QCOMPARE(endpoints.has_value(), accepted);
        if (!accepted)
            QVERIFY2(endpoints.error().contains(variable), qPrintable(endpoints.error()));
    }
    // A refused endpoint stops the agent before it takes its name, so nothing talks to the wrong host.
    if (!accepted) {
        QProcess agent;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"BRIMVALE_DROPBOX_API_URL"_s, value);
        agent.setProcessEnvironment(environment);
        agent.start(QStringLiteral(BRIMVALE_AGENT), {});
        QVERIFY(agent.waitForFinished(10000));
        QCOMPARE(agent.exitCode(), 1);
        QVERIFY(agent.readAllStandardError().contains("BRIMVALE_DROPBOX_API_URL"));
    }
}

void TestDropboxAgent::accountInfoNamesTheAccount()
{
    syncInit();
    const QVariantList reply = call(u"GetAccountInfo"_s).arguments();
    QCOMPARE(reply,
        (QVariantList {
            u"Zoë Brimvale"_s, u"dbid:AADf4bv9Wc-nTq0sKDq9dGRT-BrimvaleTe"_s, u"zoe@example.com"_s, QString() }));
}

void TestDropboxAgent::callsBeforeSyncInitAskForIt()
{
    const QVariantList reply = call(u"GetChanges"_s, { QString() }).arguments();
    QCOMPARE(reply.size(), 4);
    QVERIFY2(reply.at(3).toString().startsWith(u"not_initialized:"_s), qPrintable(reply.at(3).toString()));
    QCOMPARE(m_fake->requests().size(), 0);
}

void TestDropboxAgent::listingPagesThroughHasMoreThenGivesOnlyChanges()
{
    for (int month = 1; month <= 5; ++month)
        m_fake->writeFile(u"/sync/2024-%1.json"_s.arg(month, 2, 10, QChar(u'0')), "{}");
    m_fake->writeFile(u"/elsewhere/2024-01.json"_s, "{}");
    m_fake->setPageSize(2);
    syncInit();

    QVariantList reply = call(u"GetChanges"_s, { QString() }).arguments();
    QCOMPARE(reply.at(3).toString(), QString());
    QCOMPARE(reply.at(2).toBool(), true);
    QCOMPARE(entryPaths(parseArray(reply.at(0).toString())),
        (QStringList { u"folder:/sync"_s, u"file:/sync/2024-01.json"_s, u"file:/sync/2024-02.json"_s,
            u"file:/sync/2024-03.json"_s, u"file:/sync/2024-04.json"_s, u"file:/sync/2024-05.json"_s }));
    QCOMPARE(m_fake->requests(u"files/list_folder"_s).size(), 1);
    QCOMPARE(m_fake->requests(u"files/list_folder/continue"_s).size(), 2);
    QCOMPARE(m_fake->requests(u"files/list_folder"_s).at(0)[u"body"_s].toString(),
        uR"({"path":"/sync","recursive":true})"_s);

    // Another machine changes one month and deletes another; a change outside the folder is not ours.
    const QString rev = m_fake->writeFile(u"/sync/2024-03.json"_s, "{\"changed\":1}").value(u"rev"_s).toString();
    m_fake->deleteFile(u"/sync/2024-05.json"_s);
    m_fake->writeFile(u"/elsewhere/2024-02.json"_s, "{}");
    reply = call(u"GetChanges"_s, { reply.at(1) }).arguments();
    QCOMPARE(reply.at(3).toString(), QString());
    QCOMPARE(reply.at(2).toBool(), false);
    const QJsonArray changes = parseArray(reply.at(0).toString());
    QCOMPARE(entryPaths(changes), (QStringList { u"file:/sync/2024-03.json"_s, u"deleted:/sync/2024-05.json"_s }));
    QCOMPARE(changes.at(0)[u"rev"_s].toString(), rev);

    // Nothing changed: one request, no entries, a cursor that still works.
    m_fake->clearRequests();
    reply = call(u"GetChanges"_s, { reply.at(1) }).arguments();
    QCOMPARE(reply.at(0).toString(), u"[]"_s);
    QCOMPARE(reply.at(2).toBool(), false);
    QCOMPARE(m_fake->requests().size(), 1);
}

void TestDropboxAgent::refusedCursorListsFromScratch_data()
{
    QTest::addColumn<QString>("how");
    QTest::newRow("reset") << u"reset"_s;
    QTest::newRow("garbled cursor") << u"garbled"_s;
    QTest::newRow("folder gone") << u"folder gone"_s;
}

void TestDropboxAgent::refusedCursorListsFromScratch()
{
    QFETCH(QString, how);
    m_fake->writeFile(u"/sync/2024-01.json"_s, "{}");
    syncInit();
    QString cursor = call(u"GetChanges"_s, { QString() }).arguments().at(1).toString();
    if (how == u"reset"_s) {
        m_fake->resetCursors();
    } else if (how == u"garbled"_s) {
        cursor = u"AAFnot-a-cursor"_s;
    } else {
        m_fake->deleteFile(u"/sync"_s);
    }
    const QVariantList reply = call(u"GetChanges"_s, { cursor }).arguments();
    QCOMPARE(reply.at(3).toString(), QString());
    QCOMPARE(reply.at(2).toBool(), true);
    // A folder deleted on Dropbox lists as a first sync: nothing there, no cursor yet.
    const bool gone = how == u"folder gone"_s;
    QCOMPARE(entryPaths(parseArray(reply.at(0).toString())),
        gone ? QStringList() : (QStringList { u"folder:/sync"_s, u"file:/sync/2024-01.json"_s }));
    QCOMPARE(reply.at(1).toString().isEmpty(), gone);
}

void TestDropboxAgent::missingFolderIsAnEmptyFirstListing()
{
    syncInit();
    const QVariantList reply = call(u"GetChanges"_s, { QString() }).arguments();
    QCOMPARE(reply, (QVariantList { u"[]"_s, QString(), true, QString() }));
}

void TestDropboxAgent::downloadGivesContentOrNotFound_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("error");
    QTest::newRow("present") << u"2024-03.json"_s << 0 << QString();
    QTest::newRow("missing") << u"2024-04.json"_s << 404 << QString();
    QTest::newRow("a folder") << u"archive"_s << 409 << u"path/not_file"_s;
}

void TestDropboxAgent::downloadGivesContentOrNotFound()
{
    QFETCH(QString, name);
    QFETCH(int, status);
    QFETCH(QString, error);
    // Content with bytes that are not text: nothing on the way may decode or re-encode it.
    const QByteArray content = QByteArray("{\"Zoë\":1}\n") + QByteArray(1, '\0') + QByteArray(70000, '\xff');
    const QString rev = m_fake->writeFile(u"/sync/2024-03.json"_s, content).value(u"rev"_s).toString();
    m_fake->writeFile(u"/sync/archive/old.json"_s, "{}");
    syncInit();

    const QVariantList reply = call(u"GetFile"_s, { name }).arguments();
    QCOMPARE(reply.size(), 4);
    QCOMPARE(reply.at(2).toInt(), status);
    QVERIFY2(reply.at(3).toString().contains(error), qPrintable(reply.at(3).toString()));
    QCOMPARE(reply.at(3).toString().isEmpty(), error.isEmpty());
    const auto descriptor = qvariant_cast<QDBusUnixFileDescriptor>(reply.at(0));
    QVERIFY(descriptor.isValid());
    if (status == 0) {
        QCOMPARE(readDescriptor(descriptor), content);
        const QJsonObject metadata = parseObject(reply.at(1).toString());
        QCOMPARE(metadata[u"rev"_s].toString(), rev);
        QCOMPARE(metadata[u"path_lower"_s].toString(), u"/sync/2024-03.json"_s);
    } else {
        QCOMPARE(readDescriptor(descriptor), QByteArray());
    }
    const QJsonObject request = m_fake->requests(u"files/download"_s).at(0).toObject();
    QCOMPARE(request[u"host"_s].toString(), u"content"_s);
    QCOMPARE(request[u"headers"_s][u"dropbox-api-arg"_s].toString(), uR"({"path":"/sync/%1"})"_s.arg(name));
}

void TestDropboxAgent::uploadAddsUpdatesAndRefusesConflicts()
{
    syncInit();
    // A new file: "add".
    QVariantList reply
        = call(u"PutFile"_s, { QVariant::fromValue(descriptorWith("v1")), u"2024-03.json"_s, QString() }).arguments();
    QCOMPARE(reply.at(1).toString(), QString());
    const QString rev1 = parseObject(reply.at(0).toString())[u"rev"_s].toString();
    QCOMPARE(m_fake->files()[u"/sync/2024-03.json"_s][u"rev"_s].toString(), rev1);
    QCOMPARE(m_fake->requests(u"files/upload"_s).last()[u"headers"_s][u"dropbox-api-arg"_s].toString(),
        uR"({"autorename":false,"mode":"add","mute":true,"path":"/sync/2024-03.json"})"_s);

    // Over the revision it was based on: an update, a new revision.
    reply = call(u"PutFile"_s, { QVariant::fromValue(descriptorWith("v2")), u"2024-03.json"_s, rev1 }).arguments();
    QCOMPARE(reply.at(1).toString(), QString());
    const QString rev2 = parseObject(reply.at(0).toString())[u"rev"_s].toString();
    QVERIFY(rev2 != rev1);
    QCOMPARE(m_fake->files()[u"/sync/2024-03.json"_s][u"content"_s].toString(), u"v2"_s);
    QCOMPARE(m_fake->requests(u"files/upload"_s).last()[u"headers"_s][u"dropbox-api-arg"_s].toString(),
        uR"({"autorename":false,"mode":{".tag":"update","update":"%1"},"mute":true,"path":"/sync/2024-03.json"})"_s.arg(
            rev1));

    // Another machine uploaded meanwhile: an update over the old revision, and an add, are both conflicts.
    const QString theirs = m_fake->writeFile(u"/sync/2024-03.json"_s, "theirs").value(u"rev"_s).toString();
    for (const QString &revision : { rev2, QString() }) {
        reply = call(u"PutFile"_s, { QVariant::fromValue(descriptorWith("mine")), u"2024-03.json"_s, revision })
                    .arguments();
        QCOMPARE(reply.at(0).toString(), QString());
        QVERIFY2(reply.at(1).toString().contains(u"path/conflict/file"_s), qPrintable(reply.at(1).toString()));
        QVERIFY2(reply.at(1).toString().contains(u"another machine"_s), qPrintable(reply.at(1).toString()));
        QCOMPARE(m_fake->files()[u"/sync/2024-03.json"_s][u"rev"_s].toString(), theirs);
    }
}

void TestDropboxAgent::nonAsciiNamesTravelEscaped()
{
    syncInit();
    const QString name = u"Zoë-😀.json"_s;
    const QVariantList reply
        = call(u"PutFile"_s, { QVariant::fromValue(descriptorWith("x")), name, QString() }).arguments();
    QCOMPARE(reply.at(1).toString(), QString());
    QCOMPARE(parseObject(reply.at(0).toString())[u"name"_s].toString(), name);
    const QString header = m_fake->requests(u"files/upload"_s).last()[u"headers"_s][u"dropbox-api-arg"_s].toString();
    QVERIFY2(header.contains(uR"("path":"/sync/Zo\u00eb-\ud83d\ude00.json")"_s), qPrintable(header));
    const QVariantList download = call(u"GetFile"_s, { name }).arguments();
    QCOMPARE(download.at(3).toString(), QString());
    QCOMPARE(readDescriptor(qvariant_cast<QDBusUnixFileDescriptor>(download.at(0))), QByteArray("x"));
}

void TestDropboxAgent::transientFailuresAreRetried_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QJsonObject>("fault");
    QTest::addColumn<QString>("route");
    const auto fault = [](const char *route, const char *kind) {
        return QJsonObject { { u"route"_s, QString::fromLatin1(route) }, { u"kind"_s, QString::fromLatin1(kind) } };
    };
    QTest::newRow("429 with Retry-After")
        << u"GetChanges"_s << fault("files/list_folder", "429") << u"files/list_folder"_s;
    QJsonObject textual = fault("files/download", "429");
    textual[u"text"_s] = true;
    QTest::newRow("429 as text") << u"GetFile"_s << textual << u"files/download"_s;
    QJsonObject unavailable = fault("users/get_current_account", "status");
    unavailable[u"status"_s] = 503;
    QTest::newRow("503") << u"GetAccountInfo"_s << unavailable << u"users/get_current_account"_s;
    QJsonObject internal = fault("files/upload", "status");
    internal[u"status"_s] = 500;
    QTest::newRow("500 on upload") << u"PutFile"_s << internal << u"files/upload"_s;
    QTest::newRow("dropped before the answer")
        << u"GetChanges"_s << fault("files/list_folder", "drop") << u"files/list_folder"_s;
    QTest::newRow("answer lost after the upload")
        << u"PutFile"_s << fault("files/upload", "drop_after") << u"files/upload"_s;
    QTest::newRow("download cut short") << u"GetFile"_s << fault("files/download", "truncate") << u"files/download"_s;
    QTest::newRow("delete dropped") << u"DeleteFile"_s << fault("files/delete_v2", "drop_after")
                                    << u"files/delete_v2"_s;
}

void TestDropboxAgent::transientFailuresAreRetried()
{
    QFETCH(QString, method);
    QFETCH(QJsonObject, fault);
    QFETCH(QString, route);
    const QByteArray content(5000, 'c');
    const QString rev = m_fake->writeFile(u"/sync/2024-03.json"_s, content).value(u"rev"_s).toString();
    syncInit();
    m_fake->injectFault(fault);
    QVariantList arguments;
    if (method == u"GetChanges"_s)
        arguments = { QString() };
    else if (method == u"GetFile"_s || method == u"DeleteFile"_s)
        arguments = { u"2024-03.json"_s };
    else if (method == u"PutFile"_s)
        arguments = { QVariant::fromValue(descriptorWith("new content")), u"2024-03.json"_s, rev };
    const QVariantList reply = call(method, arguments).arguments();
    QVERIFY(!reply.isEmpty());
    QCOMPARE(reply.last().toString(), QString());
    QCOMPARE(m_fake->requests(route).size(), 2);
    if (method == u"GetFile"_s)
        QCOMPARE(readDescriptor(qvariant_cast<QDBusUnixFileDescriptor>(reply.at(0))), content);
    if (method == u"PutFile"_s) {
        // Sent twice, written once: the second upload of the same content over the first one changes nothing.
        QCOMPARE(parseObject(reply.at(0).toString())[u"rev"_s].toString(),
            m_fake->files()[u"/sync/2024-03.json"_s][u"rev"_s].toString());
        QCOMPARE(m_fake->files()[u"/sync/2024-03.json"_s][u"content"_s].toString(), u"new content"_s);
    }
    if (method == u"DeleteFile"_s)
        QVERIFY(!m_fake->files().contains(u"/sync/2024-03.json"_s));
}

void TestDropboxAgent::failuresBecomeOneClearText_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("tokenState");
    QTest::addColumn<QJsonObject>("fault");
    QTest::addColumn<QString>("textStart");
    QTest::addColumn<QString>("textPart");
    QTest::addColumn<int>("requests");
    QTest::newRow("expired token") << u"GetAccountInfo"_s << u"expired"_s << QJsonObject() << u"expired_access_token:"_s
                                   << u"has expired"_s << 1;
    QTest::newRow("expired token on download") << u"GetFile"_s << u"expired"_s << QJsonObject()
                                               << u"expired_access_token:"_s << u"Download of 2024-03.json"_s << 1;
    QTest::newRow("revoked token") << u"GetChanges"_s << u"invalid"_s << QJsonObject() << u"invalid_access_token:"_s
                                   << u"connect Dropbox again"_s << 1;
    QTest::newRow("revoked token on upload") << u"PutFile"_s << u"invalid"_s << QJsonObject()
                                             << u"invalid_access_token:"_s << u"Upload of 2024-03.json"_s << 1;
    const QJsonObject full { { u"route"_s, u"files/delete_v2"_s }, { u"kind"_s, u"error"_s }, { u"status"_s, 409 },
        { u"body"_s,
            QJsonObject { { u"error_summary"_s, u"path_write/insufficient_space/.."_s },
                { u"error"_s,
                    QJsonObject { { u".tag"_s, u"path_write"_s },
                        { u"path_write"_s, QJsonObject { { u".tag"_s, u"insufficient_space"_s } } } } } } } };
    QTest::newRow("account full") << u"DeleteFile"_s << u"valid"_s << full << u"Deleting 2024-03.json failed: "_s
                                  << u"path_write/insufficient_space (the Dropbox account is full)"_s << 1;
    const QJsonObject down { { u"route"_s, u"files/upload"_s }, { u"kind"_s, u"status"_s }, { u"status"_s, 503 },
        { u"count"_s, 10 } };
    QTest::newRow("5xx that does not end") << u"PutFile"_s << u"valid"_s << down << u"Upload of 2024-03.json"_s
                                           << u"Dropbox is unavailable (HTTP 503), 5 attempts"_s << 5;
    const QJsonObject bad { { u"route"_s, u"files/list_folder"_s }, { u"kind"_s, u"error"_s }, { u"status"_s, 403 },
        { u"body"_s,
            QJsonObject { { u"error_summary"_s, u"no_permission/."_s },
                { u"error"_s, QJsonObject { { u".tag"_s, u"no_permission"_s } } } } } };
    QTest::newRow("403") << u"GetChanges"_s << u"valid"_s << bad << u"Listing the Dropbox folder /sync failed: "_s
                         << u"no_permission (the account may not use this operation)"_s << 1;
}

void TestDropboxAgent::failuresBecomeOneClearText()
{
    QFETCH(QString, method);
    QFETCH(QString, tokenState);
    QFETCH(QJsonObject, fault);
    QFETCH(QString, textStart);
    QFETCH(QString, textPart);
    QFETCH(int, requests);
    m_fake->writeFile(u"/sync/2024-03.json"_s, "{}");
    syncInit();
    m_fake->setToken(token, tokenState);
    if (!fault.isEmpty())
        m_fake->injectFault(fault);
    QVariantList arguments;
    if (method == u"GetChanges"_s)
        arguments = { QString() };
    else if (method == u"GetFile"_s || method == u"DeleteFile"_s)
        arguments = { u"2024-03.json"_s };
    else if (method == u"PutFile"_s)
        arguments = { QVariant::fromValue(descriptorWith("x")), u"2024-03.json"_s, QString() };
    const QVariantList reply = call(method, arguments).arguments();
    QVERIFY(!reply.isEmpty());
    const QString text = reply.last().toString();
    QVERIFY2(text.startsWith(textStart), qPrintable(text));
    QVERIFY2(text.contains(textPart), qPrintable(text));
    QVERIFY2(!text.contains(token), "an error text shows the token");
    QCOMPARE(m_fake->requests().size(), requests);
}

void TestDropboxAgent::deleteRemovesAndAlreadyGoneIsDone()
{
    m_fake->writeFile(u"/sync/2024-03.json"_s, "{}");
    syncInit();
    QCOMPARE(call(u"DeleteFile"_s, { u"2024-03.json"_s }).arguments(), QVariantList { QString() });
    QVERIFY(!m_fake->files().contains(u"/sync/2024-03.json"_s));
    QCOMPARE(call(u"DeleteFile"_s, { u"2024-03.json"_s }).arguments(), QVariantList { QString() });
    QCOMPARE(m_fake->requests(u"files/delete_v2"_s).at(0)[u"body"_s].toString(), uR"({"path":"/sync/2024-03.json"})"_s);
}

void TestDropboxAgent::callsAreServedWhileAnotherWaits()
{
    syncInit();
    // The listing waits out a rate limit; the account call that follows must not queue behind it.
    m_fake->injectFault({ { u"route"_s, u"files/list_folder"_s }, { u"kind"_s, u"429"_s }, { u"retry_after"_s, 3 } });
    const auto asyncCall = [](const QString &method, const QVariantList &arguments) {
        QDBusMessage message = QDBusMessage::createMethodCall(DropboxSyncService::serviceName(),
            DropboxSyncService::objectPath(), u"com.brimvaleapp.DropboxSyncService1"_s, method);
        message.setArguments(arguments);
        return QDBusConnection::sessionBus().asyncCall(message, 60000);
    };
    QDBusPendingCall listing = asyncCall(u"GetChanges"_s, { QString() });
    QTRY_COMPARE(m_fake->requests(u"files/list_folder"_s).size(), 1);
    QDBusPendingCall account = asyncCall(u"GetAccountInfo"_s, {});
    account.waitForFinished();
    QCOMPARE(account.reply().arguments().value(3).toString(), QString());
    QVERIFY(!listing.isFinished());
    listing.waitForFinished();
    QCOMPARE(listing.reply().arguments().value(3).toString(), QString());
    QCOMPARE(m_fake->requests(u"files/list_folder"_s).size(), 2);
}

void TestDropboxAgent::codeExchangeRefreshAndRevoke()
{
    const QString verifier = u"v"_s.repeated(64);
    const QString challenge
        = QString::fromLatin1(QCryptographicHash::hash(verifier.toLatin1(), QCryptographicHash::Sha256)
                                  .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
    const QString redirect = u"http://127.0.0.1:53682/callback"_s;

    // A verifier that does not match the challenge is refused, and the code is spent.
    QString code = codeFor(challenge, redirect);
    QVERIFY(!code.isEmpty());
    QVariantList reply
        = call(u"ExchangeCode"_s, { code, u"w"_s.repeated(64), redirect, DropboxEndpoints::appKey() }).arguments();
    QVERIFY2(reply.at(4).toString().startsWith(u"invalid_access_token:"_s), qPrintable(reply.at(4).toString()));

    code = codeFor(challenge, redirect);
    reply = call(u"ExchangeCode"_s, { code, verifier, redirect, DropboxEndpoints::appKey() }).arguments();
    QCOMPARE(reply.at(4).toString(), QString());
    const QString refresh = reply.at(1).toString();
    QVERIFY(!reply.at(0).toString().isEmpty());
    QVERIFY(!refresh.isEmpty());
    QCOMPARE(reply.at(2).toLongLong(), 14400);
    QCOMPARE(reply.at(3).toString(), u"dbid:AADf4bv9Wc-nTq0sKDq9dGRT-BrimvaleTe"_s);
    const QJsonObject exchange = m_fake->requests(u"oauth2/token"_s).last().toObject();
    QCOMPARE(exchange[u"headers"_s][u"content-type"_s].toString(), u"application/x-www-form-urlencoded"_s);
    QVERIFY(!exchange[u"headers"_s].toObject().contains(u"authorization"_s));

    // The agent works with a refreshed token at once, and a revoked one ends the refresh token too.
    m_fake->control(u"tokens"_s, { { u"expires_in"_s, 0 } });
    reply = call(u"RefreshToken"_s, { refresh, DropboxEndpoints::appKey() }).arguments();
    QCOMPARE(reply.at(2).toString(), QString());
    QCOMPARE(call(u"GetAccountInfo"_s).arguments().at(3).toString(), QString());
    QCOMPARE(call(u"RevokeToken"_s).arguments(), QVariantList { QString() });
    QCOMPARE(m_fake->requests(u"auth/token/revoke"_s).at(0)[u"body_size"_s].toInt(), 0);
    syncInit(reply.at(0).toString());
    QVERIFY(call(u"GetAccountInfo"_s).arguments().at(3).toString().startsWith(u"invalid_access_token:"_s));
    reply = call(u"RefreshToken"_s, { refresh, DropboxEndpoints::appKey() }).arguments();
    QVERIFY2(reply.at(2).toString().startsWith(u"invalid_access_token:"_s), qPrintable(reply.at(2).toString()));
}

void TestDropboxAgent::oldTokenIsUpgraded()
{
    m_fake->control(
        u"tokens"_s, { { u"oauth1_token"_s, u"old-token"_s }, { u"oauth1_token_secret"_s, u"old-secret"_s } });
    syncInit(u"old-token"_s);
    QVariantList reply = call(u"UpgradeToken"_s, { u"wrong-secret"_s }).arguments();
    QVERIFY2(reply.at(1).toString().contains(u"invalid_oauth1_token_info"_s), qPrintable(reply.at(1).toString()));
    reply = call(u"UpgradeToken"_s, { u"old-secret"_s }).arguments();
    QCOMPARE(reply.at(1).toString(), QString());
    QVERIFY(!reply.at(0).toString().isEmpty());
    QCOMPARE(call(u"GetAccountInfo"_s).arguments().at(3).toString(), QString());
}

void TestDropboxAgent::everyRequestDeclaresItsBody()
{
    const QString rev = m_fake->writeFile(u"/sync/2024-03.json"_s, "{}").value(u"rev"_s).toString();
    syncInit();
    call(u"GetAccountInfo"_s);
    const QString cursor = call(u"GetChanges"_s, { QString() }).arguments().at(1).toString();
    call(u"GetChanges"_s, { cursor });
    call(u"GetFile"_s, { u"2024-03.json"_s });
    call(u"PutFile"_s, { QVariant::fromValue(descriptorWith("{}\n")), u"2024-03.json"_s, rev });
    call(u"DeleteFile"_s, { u"2024-03.json"_s });
    call(u"RevokeToken"_s);
    const QJsonArray requests = m_fake->requests();
    QCOMPARE(requests.size(), 7);
    for (const QJsonValue &value : requests) {
        const QJsonObject request = value.toObject();
        const QString route = request[u"route"_s].toString();
        const QJsonObject headers = request[u"headers"_s].toObject();
        QVERIFY2(request[u"status"_s].toInt() == 200, qPrintable(route));
        QCOMPARE(headers[u"authorization"_s].toString(), u"Bearer "_s + token);
        if (route == u"users/get_current_account"_s || route == u"auth/token/revoke"_s
            || route == u"files/download"_s) {
            QVERIFY2(!headers.contains(u"content-type"_s), qPrintable(route));
            QCOMPARE(request[u"body_size"_s].toInt(), 0);
        } else if (route == u"files/upload"_s) {
            QCOMPARE(headers[u"content-type"_s].toString(), u"application/octet-stream"_s);
        } else {
            QVERIFY2(headers[u"content-type"_s].toString() == u"application/json"_s, qPrintable(route));
        }
        QCOMPARE(request[u"host"_s].toString(),
            route == u"files/upload"_s || route == u"files/download"_s ? u"content"_s : u"api"_s);
    }
}

void TestDropboxAgent::idleAgentExits()
{
    QProcessEnvironment idle;
    idle.insert(u"BRIMVALE_DROPBOX_AGENT_IDLE_SECS"_s, u"1"_s);
    QVERIFY(startAgent(idle));
    syncInit();
    QCOMPARE(call(u"GetAccountInfo"_s).arguments().at(3).toString(), QString());
    QVERIFY(m_agent->waitForFinished(20000));
    QCOMPARE(m_agent->exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_agent->exitCode(), 0);
}

void TestDropboxAgent::busActivatesTheAgent()
{
    // The bus's own service folder under XDG_DATA_HOME, with the build tree's activation file.
    const QString services
        = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + u"/dbus-1/services"_s;
    QVERIFY(QDir().mkpath(services));
    QFile::remove(services + u"/com.brimvaleapp.DropboxSyncService.service"_s);
    QVERIFY(QFile::copy(
        QStringLiteral(BRIMVALE_AGENT_SERVICE_FILE), services + u"/com.brimvaleapp.DropboxSyncService.service"_s));
    qDBusRegisterMetaType<QMap<QString, QString>>();
    QDBusConnection bus = QDBusConnection::sessionBus();
    const auto busCall = [&bus](const QString &method, const QVariantList &arguments) {
        QDBusMessage message = QDBusMessage::createMethodCall(
            u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s, u"org.freedesktop.DBus"_s, method);
        message.setArguments(arguments);
        return bus.call(message);
    };
    QCOMPARE(busCall(u"ReloadConfig"_s, {}).type(), QDBusMessage::ReplyMessage);
    QMap<QString, QString> environment;
    const QProcessEnvironment fake = m_fake->agentEnvironment(QProcessEnvironment());
    for (const QString &key : fake.keys())
        environment.insert(key, fake.value(key));
    environment.insert(u"BRIMVALE_DROPBOX_AGENT_IDLE_SECS"_s, u"2"_s);
    QCOMPARE(busCall(u"UpdateActivationEnvironment"_s, { QVariant::fromValue(environment) }).type(),
        QDBusMessage::ReplyMessage);

    QVERIFY(!bus.interface()->isServiceRegistered(DropboxSyncService::serviceName()));
    syncInit();
    QCOMPARE(call(u"GetAccountInfo"_s).arguments().at(0).toString(), u"Zoë Brimvale"_s);
    // Gone when idle; the next call brings it back (without the token, which the client gives again).
    QTRY_VERIFY_WITH_TIMEOUT(!bus.interface()->isServiceRegistered(DropboxSyncService::serviceName()), 20000);
    QVERIFY(call(u"GetAccountInfo"_s).arguments().at(3).toString().startsWith(u"not_initialized:"_s));
}

QTEST_GUILESS_MAIN(TestDropboxAgent)
#include "testdropboxagent.moc"
