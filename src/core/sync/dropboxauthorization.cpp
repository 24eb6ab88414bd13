#include "sync/dropboxauthorization.h"

#include <QCryptographicHash>
#include <QRandomGenerator>
#include <QUrlQuery>

namespace {

const auto AuthorizePage = QStringLiteral("https://www.dropbox.com/oauth2/authorize");

QString randomText(int bytes)
{
    QByteArray random(bytes, Qt::Uninitialized);
    QRandomGenerator::system()->generate(random.begin(), random.end());
    return QString::fromLatin1(random.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

QString encoded(const QString &value)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(value));
}

QUrl page(const QList<std::pair<QString, QString>> &parameters)
{
    // Every value is escaped in full (":" and "/" of a redirect URI too), as the page expects.
    QString query;
    for (const auto &[key, value] : parameters) {
        if (!query.isEmpty())
            query += QLatin1Char('&');
        query += key + QLatin1Char('=') + encoded(value);
    }
    QUrl url(AuthorizePage);
    url.setQuery(query, QUrl::StrictMode);
    return url;
}

} // namespace

QUrl DropboxAuthorization::implicitGrantUrl()
{
    return page({ { QStringLiteral("response_type"), QStringLiteral("token") },
        { QStringLiteral("client_id"), QString::fromLatin1(AppKey) },
        { QStringLiteral("redirect_uri"), QString::fromLatin1(RedirectUri) } });
}

DropboxAuthorization::DropboxAuthorization()
    // 96 random bytes are 128 characters of base64url, the longest verifier allowed.
    : m_codeVerifier(randomText(96))
    , m_state(randomText(16))
{ }

DropboxAuthorization::DropboxAuthorization(const QString &codeVerifier, const QString &state)
    : m_codeVerifier(codeVerifier)
    , m_state(state)
{ }

QString DropboxAuthorization::codeChallenge() const
{
    const QByteArray digest = QCryptographicHash::hash(m_codeVerifier.toLatin1(), QCryptographicHash::Sha256);
    return QString::fromLatin1(digest.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

QUrl DropboxAuthorization::codeFlowUrl(const QString &redirectUri) const
{
    QList<std::pair<QString, QString>> parameters { { QStringLiteral("response_type"), QStringLiteral("code") },
        { QStringLiteral("client_id"), QString::fromLatin1(AppKey) } };
    if (!redirectUri.isEmpty())
        parameters.append({ QStringLiteral("redirect_uri"), redirectUri });
    parameters.append({ QStringLiteral("state"), m_state });
    parameters.append({ QStringLiteral("token_access_type"), QStringLiteral("offline") });
    parameters.append({ QStringLiteral("code_challenge_method"), QStringLiteral("S256") });
    parameters.append({ QStringLiteral("code_challenge"), codeChallenge() });
    return page(parameters);
}

std::optional<QString> DropboxAuthorization::codeFromRedirect(const QUrl &redirect) const
{
    const QHash<QString, QString> items = queryItems(redirect.query(QUrl::FullyEncoded));
    // The state proves that the answer belongs to the page this attempt opened, not to a page another
    // program sent the browser to.
    if (items.contains(QStringLiteral("error")) || items.value(QStringLiteral("state")) != m_state)
        return std::nullopt;
    const QString code = items.value(QStringLiteral("code"));
    if (code.isEmpty())
        return std::nullopt;
    return code;
}

QHash<QString, QString> DropboxAuthorization::queryItems(const QString &text)
{
    QHash<QString, QString> items;
    const auto decode
        = [](const QString &part) { return QString::fromUtf8(QByteArray::fromPercentEncoding(part.toUtf8())); };
    for (const QString &piece : text.split(QLatin1Char('&'))) {
        const QStringList parts = piece.split(QLatin1Char('='));
        if (parts.size() != 2)
            continue;
        items.insert(decode(parts.at(0)), decode(parts.at(1)));
    }
    return items;
}

std::optional<DropboxAuthorization::ImplicitGrant> DropboxAuthorization::implicitGrantFromRedirect(const QUrl &redirect)
{
    if (redirect.scheme() != QLatin1String("brimvaleapp") || redirect.host() != QLatin1String("dropbox"))
        return std::nullopt;
    const QHash<QString, QString> items = queryItems(redirect.fragment(QUrl::FullyEncoded));
    if (items.isEmpty() || items.value(QStringLiteral("token_type")) != QLatin1String("bearer"))
        return std::nullopt;
    return ImplicitGrant { items.value(QStringLiteral("account_id")), items.value(QStringLiteral("access_token")) };
}
