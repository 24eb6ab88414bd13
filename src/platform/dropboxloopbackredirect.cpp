#include "platform/dropboxloopbackredirect.h"

#include <QTcpSocket>
#include <QUrlQuery>

DropboxLoopbackRedirect::DropboxLoopbackRedirect(const QString &state, QObject *parent)
    : QObject(parent)
    , m_state(state)
{
    connect(&m_server, &QTcpServer::newConnection, this, &DropboxLoopbackRedirect::onConnection);
}

bool DropboxLoopbackRedirect::listen()
{
    // The loopback address only: nothing else on the network can hand us a code.
    return m_server.listen(QHostAddress::LocalHost, 0);
}

QString DropboxLoopbackRedirect::redirectUri() const
{
    return QStringLiteral("http://127.0.0.1:%1/").arg(m_server.serverPort());
}

void DropboxLoopbackRedirect::onConnection()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
            if (!socket->canReadLine())
                return;
            // "GET /?code=...&state=... HTTP/1.1"
            const QList<QByteArray> requestLine = socket->readLine().trimmed().split(' ');
            const QString target = QString::fromLatin1(requestLine.value(1));
            const QUrl url(redirectUri().chopped(1) + target, QUrl::StrictMode);
            const QUrlQuery query(url);
            const bool answer = !m_done && requestLine.value(0) == "GET" && url.isValid()
                && (query.hasQueryItem(QStringLiteral("code")) || query.hasQueryItem(QStringLiteral("error")))
                && query.queryItemValue(QStringLiteral("state"), QUrl::FullyDecoded) == m_state;
            const QByteArray body = answer
                ? QByteArrayLiteral("<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>Brimvale</title></head>"
                                    "<body><p>Brimvale received Dropbox's answer. You can close this page.</p>"
                                    "</body></html>")
                : QByteArrayLiteral("Not found");
            socket->write((answer ? "HTTP/1.1 200 OK\r\n" : "HTTP/1.1 404 Not Found\r\n")
                + QByteArrayLiteral("Content-Type: text/html; charset=utf-8\r\nConnection: close\r\nContent-Length: ")
                + QByteArray::number(body.size()) + "\r\n\r\n" + body);
            socket->disconnectFromHost();
            if (answer) {
                m_done = true;
                m_server.close();
                Q_EMIT redirected(url);
            }
        });
    }
}
