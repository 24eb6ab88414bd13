#pragma once

#include <expected>

#include <QProcessEnvironment>
#include <QString>
#include <QUrl>

// Where the agent finds Dropbox: the API host (RPC routes and /oauth2/token) and the content host (upload
// and download). The browser's authorisation page is the app's business, not the agent's. They are
// Dropbox's own unless the environment names others (BRIMVALE_DROPBOX_API_URL, BRIMVALE_DROPBOX_CONTENT_URL);
// an override must be https, or plain http on the loopback address 127.0.0.1 with a port, so a test can
// point the agent at a local server but nothing can send a token in clear text across a network.
class DropboxEndpoints
{
public:
    // The endpoints of `environment`, or the text naming the variable whose value is refused.
    static std::expected<DropboxEndpoints, QString> fromEnvironment(const QProcessEnvironment &environment);

    QUrl apiUrl(const QString &path) const { return join(m_api, path); }
    QUrl contentUrl(const QString &path) const { return join(m_content, path); }

    // The app key Brimvale is registered with at Dropbox; public by design (PKCE needs no secret).
    static QString appKey();

private:
    DropboxEndpoints() = default;
    static QUrl join(const QUrl &base, const QString &path);

    QUrl m_api;
    QUrl m_content;
};
