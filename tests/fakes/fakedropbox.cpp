#include "fakes/fakedropbox.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

using namespace Qt::StringLiterals;

FakeDropbox::FakeDropbox(const QStringList &tokens)
    : m_tokens(tokens)
{ }

FakeDropbox::~FakeDropbox()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

bool FakeDropbox::start()
{
    QStringList arguments { QStringLiteral(BRIMVALE_FAKE_DROPBOX), u"--watch-stdin"_s };
    for (const QString &token : std::as_const(m_tokens))
        arguments << u"--token"_s << token;
    m_process.setProcessChannelMode(QProcess::SeparateChannels);
    m_process.setReadChannel(QProcess::StandardOutput);
    m_process.start(u"/usr/bin/python3"_s, arguments);
    if (!m_process.waitForStarted(10000)) {
        m_error = m_process.errorString();
        return false;
    }
    while (!m_process.canReadLine()) {
        if (!m_process.waitForReadyRead(10000)) {
            m_error
                = u"the fake Dropbox server printed no ports: "_s + QString::fromUtf8(m_process.readAllStandardError());
            return false;
        }
    }
    const QJsonObject ports = QJsonDocument::fromJson(m_process.readLine()).object();
    m_apiPort = ports.value(u"api_port"_s).toInt();
    m_contentPort = ports.value(u"content_port"_s).toInt();
    if (m_apiPort <= 0 || m_contentPort <= 0) {
        m_error = u"the fake Dropbox server printed no ports"_s;
        return false;
    }
    return true;
}

QString FakeDropbox::apiUrl() const
{
    return u"http://127.0.0.1:%1"_s.arg(m_apiPort);
}

QString FakeDropbox::contentUrl() const
{
    return u"http://127.0.0.1:%1"_s.arg(m_contentPort);
}

QProcessEnvironment FakeDropbox::agentEnvironment(QProcessEnvironment base) const
{
    base.insert(u"BRIMVALE_DROPBOX_API_URL"_s, apiUrl());
    base.insert(u"BRIMVALE_DROPBOX_CONTENT_URL"_s, contentUrl());
    return base;
}

QJsonObject FakeDropbox::writeFile(const QString &path, const QByteArray &content)
{
    return control(
        u"files"_s, { { u"path"_s, path }, { u"content_base64"_s, QString::fromLatin1(content.toBase64()) } })
        .toObject();
}

void FakeDropbox::deleteFile(const QString &path)
{
    control(u"delete"_s, { { u"path"_s, path } });
}

void FakeDropbox::resetCursors()
{
    control(u"reset"_s);
}

void FakeDropbox::injectFault(const QJsonObject &fault)
{
    control(u"faults"_s, fault);
}

void FakeDropbox::setToken(const QString &token, const QString &state)
{
    control(u"tokens"_s, { { u"token"_s, token }, { u"state"_s, state } });
}

void FakeDropbox::setPageSize(int limit)
{
    control(u"page_size"_s, { { u"limit"_s, limit } });
}

QJsonObject FakeDropbox::files()
{
    return read(u"state"_s).toObject().value(u"files"_s).toObject();
}

QJsonArray FakeDropbox::requests()
{
    return read(u"requests"_s).toArray();
}

QJsonArray FakeDropbox::requests(const QString &route)
{
    QJsonArray matching;
    for (const QJsonValue &request : requests()) {
        if (request.toObject().value(u"route"_s).toString() == route)
            matching.append(request);
    }
    return matching;
}

void FakeDropbox::clearRequests()
{
    control(u"requests/clear"_s);
}

QJsonValue FakeDropbox::control(const QString &name, const QJsonObject &argument)
{
    const QJsonDocument answer
        = QJsonDocument::fromJson(http("POST", name, QJsonDocument(argument).toJson(QJsonDocument::Compact)));
    return answer.isArray() ? QJsonValue(answer.array()) : QJsonValue(answer.object());
}

QJsonValue FakeDropbox::read(const QString &name)
{
    const QJsonDocument answer = QJsonDocument::fromJson(http("GET", name, {}));
    return answer.isArray() ? QJsonValue(answer.array()) : QJsonValue(answer.object());
}

QByteArray FakeDropbox::http(const QByteArray &verb, const QString &name, const QByteArray &body)
{
    QNetworkAccessManager network;
    QNetworkRequest request(QUrl(apiUrl() + u"/_control/"_s + name));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArray("application/json"));
    QNetworkReply *reply = network.sendCustomRequest(request, verb, body);
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    const QByteArray answer = reply->readAll();
    if (reply->error() != QNetworkReply::NoError)
        qWarning("fake Dropbox control %s failed: %s", qPrintable(name), qPrintable(reply->errorString()));
    reply->deleteLater();
    return answer;
}
