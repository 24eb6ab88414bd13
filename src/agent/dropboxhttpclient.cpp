#include "agent/dropboxhttpclient.h"

#include <algorithm>
#include <random>

#include <QJsonDocument>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include "agent/agentlogging.h"

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

struct DropboxHttpClient::Call
{
    Request request;
    Callback callback;
    Response response;
    int transientFailures = 0;
};

namespace {

// Seconds to wait from a 429: the Retry-After header, else the JSON body's retry_after, else Dropbox's
// documented default of a few seconds.
std::chrono::seconds retryAfter(QNetworkReply *reply, const QByteArray &body)
{
    bool ok = false;
    const qint64 header = reply->rawHeader("Retry-After").trimmed().toLongLong(&ok);
    if (ok && header >= 0)
        return std::chrono::seconds(header);
    const QJsonValue value
        = QJsonDocument::fromJson(body).object().value(u"error"_s).toObject().value(u"retry_after"_s);
    if (value.isDouble() && value.toDouble() >= 0)
        return std::chrono::seconds(qint64(value.toDouble()));
    return 5s;
}

// Network and proxy failures: the answer, if any began, is incomplete and nothing can be read from it.
bool isTransportFailure(QNetworkReply::NetworkError error)
{
    return error != QNetworkReply::NoError && error < QNetworkReply::ContentAccessDenied;
}

} // namespace

DropboxHttpClient::DropboxHttpClient(QObject *parent)
    : QObject(parent)
{
    m_network.setRedirectPolicy(QNetworkRequest::ManualRedirectPolicy);
}

void DropboxHttpClient::send(const Request &request, Callback callback)
{
    Q_ASSERT(!request.body.size() || !request.contentType.isEmpty());
    auto call = std::make_shared<Call>();
    call->request = request;
    call->callback = std::move(callback);
    attempt(call);
}

QByteArray DropboxHttpClient::headerJson(const QJsonObject &object)
{
    const QString json = QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
    QByteArray ascii;
    ascii.reserve(json.size());
    for (const QChar c : json) {
        if (c.unicode() < 0x7f)
            ascii.append(char(c.unicode()));
        else
            ascii.append("\\u" + QByteArray::number(c.unicode(), 16).rightJustified(4, '0'));
    }
    return ascii;
}

void DropboxHttpClient::attempt(const std::shared_ptr<Call> &call)
{
    const Request &request = call->request;
    QNetworkRequest http(request.url);
    http.setTransferTimeout(int(std::chrono::milliseconds(transferTimeout).count()));
    http.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    if (!request.authorization.isEmpty())
        http.setRawHeader("Authorization", request.authorization);
    if (!request.contentType.isEmpty())
        http.setHeader(QNetworkRequest::ContentTypeHeader, request.contentType);
    if (!request.apiArg.isEmpty())
        http.setRawHeader("Dropbox-API-Arg", request.apiArg);
    ++call->response.attempts;
    qCDebug(lcAgent) << "POST" << request.route << "attempt" << call->response.attempts;
    QNetworkReply *reply = m_network.post(http, request.body);
    connect(reply, &QNetworkReply::finished, this, [this, call, reply] { onFinished(call, reply); });
}

void DropboxHttpClient::onFinished(const std::shared_ptr<Call> &call, QNetworkReply *reply)
{
    reply->deleteLater();
    Response &response = call->response;
    const QString route = call->request.route;
    const QVariant statusAttribute = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (isTransportFailure(reply->error()) || !statusAttribute.isValid()) {
        response.status = 0;
        response.transportError = reply->errorString();
        if (++call->transientFailures <= transientRetries) {
            qCWarning(lcAgent) << route << "failed:" << reply->errorString() << "- retrying";
            retryLater(call, firstBackoff * (1 << (call->transientFailures - 1)));
            return;
        }
        qCWarning(lcAgent) << route << "failed:" << reply->errorString() << "- giving up after" << response.attempts
                           << "attempts";
        call->callback(response);
        return;
    }
    response.status = statusAttribute.toInt();
    response.body = reply->readAll();
    response.contentType = reply->header(QNetworkRequest::ContentTypeHeader).toByteArray();
    response.apiResult = reply->rawHeader("Dropbox-API-Result");
    response.transportError.clear();
    if (response.status == 429 && response.rateLimitWaits < rateLimitWaits) {
        const auto wait = std::min<std::chrono::seconds>(retryAfter(reply, response.body), rateLimitWaitCap);
        ++response.rateLimitWaits;
        qCInfo(lcAgent) << route << "rate-limited; retrying in" << wait.count() << "s";
        retryLater(call, wait);
        return;
    }
    if (response.status >= 500 && ++call->transientFailures <= transientRetries) {
        qCWarning(lcAgent) << route << "answered" << response.status << "- retrying";
        retryLater(call, firstBackoff * (1 << (call->transientFailures - 1)));
        return;
    }
    qCDebug(lcAgent) << route << "answered" << response.status;
    call->callback(response);
}

void DropboxHttpClient::retryLater(const std::shared_ptr<Call> &call, std::chrono::milliseconds delay)
{
    // Jitter spreads the retries of several machines that failed together.
    static thread_local std::minstd_rand random { std::random_device {}() };
    const auto jitter
        = std::chrono::milliseconds(std::uniform_int_distribution<int>(0, int(delay.count() / 4))(random));
    QTimer::singleShot(delay + jitter, this, [this, call] { attempt(call); });
}
