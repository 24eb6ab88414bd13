#pragma once

#include <memory>

#include <QObject>
#include <QUrl>

class BVDropboxSyncBackend;
class DropboxAuthorization;
class DropboxLoopbackRedirect;

// One way of connecting a Dropbox account for the preferences and `brimvale dropbox connect`: an attempt
// of the code flow with PKCE whose page returns to a one-shot listener on 127.0.0.1, or shows a code to
// paste, or (where no listener can be opened and the app takes its own address) the implicit grant's
// page; then the agent's exchange of the code. Opening the page is the caller's. Main thread.
class DropboxConnectFlow : public QObject
{
    Q_OBJECT
public:
    enum class State {
        // No attempt, or one that returns through the app's URL handler (the implicit grant).
        Idle,
        // The page is open; the browser's return (or a pasted code) is awaited.
        WaitingForBrowser,
        // The agent is exchanging the code.
        Exchanging,
    };
    // Where Dropbox's page sends the user back.
    enum class Return { Loopback, PastedCode, ImplicitGrant };

    // `account` is not owned and must outlive the flow.
    explicit DropboxConnectFlow(BVDropboxSyncBackend &account, QObject *parent = nullptr);
    ~DropboxConnectFlow() override;

    // Starts an attempt (dropping one that waits) and gives its page. `wanted` Loopback opens the listener;
    // when it cannot, the attempt returns as `withoutListener` says. returnsTo() tells which it became.
    QUrl start(Return wanted, Return withoutListener);
    Return returnsTo() const { return m_returnsTo; }
    State state() const { return m_state; }
    // Stops waiting for the browser; the listener closes.
    void cancel();

    // The address the browser ended on (received by the listener, or pasted): its code is exchanged when
    // it answers this attempt, else refused() says why. Ignored unless waiting.
    void finishWithRedirect(const QUrl &url);
    // A code Dropbox showed to paste. Ignored unless waiting.
    void finishWithCode(const QString &code);

Q_SIGNALS:
    void stateChanged(DropboxConnectFlow::State state);
    // The browser came back without a code for this attempt: Dropbox's "error" ("access_denied"), or
    // "the answer did not match this request".
    void refused(const QString &reason);
    // The exchange ended: `error` is empty once the account is connected.
    void exchanged(const QString &error);

private:
    void setState(State state);

    BVDropboxSyncBackend &m_account;
    std::unique_ptr<DropboxAuthorization> m_authorization;
    // Kept after the browser returned, until the next attempt: it is still sending the browser its page.
    std::unique_ptr<DropboxLoopbackRedirect> m_redirect;
    QString m_redirectUri;
    Return m_returnsTo = Return::Loopback;
    State m_state = State::Idle;
};
