#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include <QByteArray>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QUrl>

class QNetworkReply;

// Sends one Dropbox request and hands back its final answer, riding out what is transient: a 429 waits for
// the Retry-After the server asks for (each wait at most rateLimitWaitCap, at most rateLimitWaits times), a
// 5xx or a connection that breaks before the whole answer arrived is sent again after an exponential backoff
// (at most transientRetries times). Every other answer is final. Runs on the thread that owns it; the
// callback is called exactly once, from its event loop.
class DropboxHttpClient : public QObject
{
    Q_OBJECT

public:
    struct Request
    {
        QString route; // for the log and error texts: "files/upload", "oauth2/token", ...
        QUrl url;
        QByteArray authorization; // the whole header value ("Bearer ...", "Basic ..."), or empty
        QByteArray contentType; // empty: no Content-Type, allowed only with an empty body
        QByteArray apiArg; // Dropbox-API-Arg, already ASCII (see headerJson)
        QByteArray body;
    };

    struct Response
    {
        // The HTTP status; 0 when no complete answer arrived (transportError says why).
        int status = 0;
        QByteArray body;
        QByteArray contentType;
        QByteArray apiResult; // Dropbox-API-Result of a download
        QString transportError;
        int attempts = 0;
        int rateLimitWaits = 0;
    };

    using Callback = std::function<void(const Response &)>;

    explicit DropboxHttpClient(QObject *parent = nullptr);

    void send(const Request &request, Callback callback);

    // JSON for a Dropbox-API-Arg header: compact, with every character from U+007F on written as \uXXXX
    // (UTF-16 units, so a character beyond the BMP becomes a surrogate pair), as HTTP headers must be ASCII.
    static QByteArray headerJson(const QJsonObject &object);

    static constexpr int transientRetries = 4;
    static constexpr int rateLimitWaits = 4;
    static constexpr std::chrono::seconds rateLimitWaitCap { 60 };
    static constexpr std::chrono::milliseconds firstBackoff { 250 };
    static constexpr std::chrono::seconds transferTimeout { 90 };

private:
    struct Call;
    void attempt(const std::shared_ptr<Call> &call);
    void onFinished(const std::shared_ptr<Call> &call, QNetworkReply *reply);
    void retryLater(const std::shared_ptr<Call> &call, std::chrono::milliseconds delay);

    QNetworkAccessManager m_network;
};
