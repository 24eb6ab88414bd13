#pragma once

#include <optional>

#include <QHash>
#include <QString>
#include <QUrl>

// The browser side of connecting a Dropbox account: the authorisation page's address and the answer the
// browser brings back. Two flows:
// - the implicit grant: the page returns "brimvaleapp://dropbox#access_token=...&token_type=bearer&..."
//   to the app. Dropbox now gives it only short-lived tokens and no refresh token;
// - the authorisation code flow with PKCE and offline access: the page returns a code to a loopback
//   address ("http://127.0.0.1:PORT/...?code=...&state=...") or shows it to be pasted; the agent
//   exchanges it for an access token and a refresh token.
// Any thread.
class DropboxAuthorization
{
public:
    static constexpr auto AppKey = "q4mzk8ewtdrn2ya";
    static constexpr auto RedirectUri = "brimvaleapp://dropbox";

    // The page of the implicit grant, returning to RedirectUri.
    static QUrl implicitGrantUrl();

    // One attempt of the code flow: a fresh verifier (128 characters of [A-Za-z0-9-_]) and state.
    DropboxAuthorization();
    // For tests: a fixed verifier and state.
    DropboxAuthorization(const QString &codeVerifier, const QString &state);

    QString codeVerifier() const { return m_codeVerifier; }
    QString state() const { return m_state; }
    // base64url without padding of the SHA-256 of the verifier.
    QString codeChallenge() const;
    // The page of the code flow; without a redirect URI Dropbox shows the code to paste.
    QUrl codeFlowUrl(const QString &redirectUri = {}) const;

    // The code of a loopback redirect ("/?code=...&state=..."), when its state is this attempt's; a
    // redirect carrying "error" or another state gives nothing, and so does a denial.
    std::optional<QString> codeFromRedirect(const QUrl &redirect) const;

    // The pieces "key=value" of a URL fragment or query, split at "&" and "=", percent-decoded as UTF-8;
    // pieces that do not split into exactly two parts are skipped, and a later key replaces an earlier one.
    static QHash<QString, QString> queryItems(const QString &text);

    struct ImplicitGrant
    {
        QString accountId;
        QString accessToken;
    };
    // The token of an implicit-grant redirect: scheme "brimvaleapp", host "dropbox", a fragment whose
    // "token_type" is exactly "bearer". Nothing for any other URL.
    static std::optional<ImplicitGrant> implicitGrantFromRedirect(const QUrl &redirect);

private:
    QString m_codeVerifier;
    QString m_state;
};
