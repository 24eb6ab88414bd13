#pragma once

#include <QObject>
#include <QTcpServer>
#include <QUrl>

// Where the browser returns after the user allowed Brimvale on Dropbox's page: a one-shot HTTP listener
// on 127.0.0.1 (any free port). The first request that carries "code" or "error" in its query, with the
// expected "state", is answered with a short page and ends the listening; other requests (a favicon, a
// page elsewhere on this computer guessing the port) get 404. Main thread.
class DropboxLoopbackRedirect : public QObject
{
    Q_OBJECT
public:
    // `state` is the authorisation attempt's: a redirect carrying another is not Dropbox's answer to it.
    explicit DropboxLoopbackRedirect(const QString &state, QObject *parent = nullptr);

    // Starts listening; false with the reason in errorString() when no port could be opened.
    bool listen();
    QString errorString() const { return m_server.errorString(); }
    // "http://127.0.0.1:PORT/": the redirect URI to give the authorisation page.
    QString redirectUri() const;

Q_SIGNALS:
    // The request the browser made, as a URL on redirectUri().
    void redirected(const QUrl &url);

private:
    void onConnection();

    QString m_state;
    QTcpServer m_server;
    bool m_done = false;
};
