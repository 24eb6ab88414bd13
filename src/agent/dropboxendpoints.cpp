#include "agent/dropboxendpoints.h"

using namespace Qt::StringLiterals;

namespace {

std::expected<QUrl, QString> endpoint(
    const QProcessEnvironment &environment, const QString &variable, const QString &fallback)
{
    const QString value = environment.value(variable);
    if (value.isEmpty())
        return QUrl(fallback);
    QUrl url(value, QUrl::StrictMode);
    const bool bare = url.path().isEmpty() || url.path() == u"/"_s;
    const bool https = url.scheme() == u"https"_s && !url.host().isEmpty();
    const bool loopback = url.scheme() == u"http"_s && url.host() == u"127.0.0.1"_s && url.port() > 0;
    if (!url.isValid() || !bare || url.hasQuery() || url.hasFragment() || !url.userInfo().isEmpty()
        || !(https || loopback)) {
        return std::unexpected(
            u"%1=%2 is refused: it must be an https URL, or http://127.0.0.1:PORT, without a path"_s.arg(
                variable, value));
    }
    url.setPath(QString());
    return url;
}

} // namespace

std::expected<DropboxEndpoints, QString> DropboxEndpoints::fromEnvironment(const QProcessEnvironment &environment)
{
    const auto api = endpoint(environment, u"BRIMVALE_DROPBOX_API_URL"_s, u"https://api.dropboxapi.com"_s);
    if (!api)
        return std::unexpected(api.error());
    const auto content = endpoint(environment, u"BRIMVALE_DROPBOX_CONTENT_URL"_s, u"https://content.dropboxapi.com"_s);
    if (!content)
        return std::unexpected(content.error());
    DropboxEndpoints endpoints;
    endpoints.m_api = *api;
    endpoints.m_content = *content;
    return endpoints;
}

QString DropboxEndpoints::appKey()
{
    return u"q4mzk8ewtdrn2ya"_s;
}

QUrl DropboxEndpoints::join(const QUrl &base, const QString &path)
{
    QUrl url = base;
    url.setPath(path);
    return url;
}
