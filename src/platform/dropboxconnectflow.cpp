#include "platform/dropboxconnectflow.h"

#include <QCoreApplication>
#include <QPointer>

#include "platform/dropboxloopbackredirect.h"
#include "sync/bvdropboxsyncbackend.h"
#include "sync/dropboxauthorization.h"

DropboxConnectFlow::DropboxConnectFlow(BVDropboxSyncBackend &account, QObject *parent)
    : QObject(parent)
    , m_account(account)
{ }

DropboxConnectFlow::~DropboxConnectFlow() = default;

QUrl DropboxConnectFlow::start(Return wanted, Return withoutListener)
{
    m_authorization = std::make_unique<DropboxAuthorization>();
    m_redirect.reset();
    m_redirectUri.clear();
    m_returnsTo = wanted;
    if (wanted == Return::Loopback) {
        m_redirect = std::make_unique<DropboxLoopbackRedirect>(m_authorization->state());
        if (m_redirect->listen()) {
            // Read now: the listener stops listening, and forgets its port, once the browser is back.
            m_redirectUri = m_redirect->redirectUri();
            connect(
                m_redirect.get(), &DropboxLoopbackRedirect::redirected, this, &DropboxConnectFlow::finishWithRedirect);
        } else {
            m_redirect.reset();
            m_returnsTo = withoutListener;
        }
    }
    QUrl page;
    switch (m_returnsTo) {
    case Return::Loopback:
        page = m_authorization->codeFlowUrl(m_redirectUri);
        break;
    case Return::PastedCode:
        page = m_authorization->codeFlowUrl();
        break;
    case Return::ImplicitGrant:
        // The app's own address brings the browser back, with a short-lived token, to the URL handler.
        page = BVDropboxSyncBackend::authorize();
        break;
    }
    setState(m_returnsTo == Return::ImplicitGrant ? State::Idle : State::WaitingForBrowser);
    return page;
}

void DropboxConnectFlow::cancel()
{
    m_redirect.reset();
    if (m_state == State::WaitingForBrowser)
        setState(State::Idle);
}

void DropboxConnectFlow::finishWithRedirect(const QUrl &url)
{
    if (m_state != State::WaitingForBrowser)
        return;
    if (const std::optional<QString> code = m_authorization->codeFromRedirect(url)) {
        finishWithCode(*code);
        return;
    }
    setState(State::Idle);
    Q_EMIT refused(DropboxAuthorization::queryItems(url.query(QUrl::FullyEncoded))
                       .value(QStringLiteral("error"), QStringLiteral("the answer did not match this request")));
}

void DropboxConnectFlow::finishWithCode(const QString &code)
{
    if (m_state != State::WaitingForBrowser)
        return;
    setState(State::Exchanging);
    QPointer<DropboxConnectFlow> self(this);
    // The exchange names the redirect URI the page was given (none for a pasted code).
    m_account.connectDropboxAccountWithCode(code, m_authorization->codeVerifier(),
        m_returnsTo == Return::Loopback ? m_redirectUri : QString(), [self](const QString &error) {
            // The agent may answer on a thread of its own; the flow may be gone by then.
            QMetaObject::invokeMethod(
                QCoreApplication::instance(),
                [self, error] {
                    if (!self)
                        return;
                    self->setState(State::Idle);
                    Q_EMIT self->exchanged(error);
                },
                Qt::QueuedConnection);
        });
}

void DropboxConnectFlow::setState(State state)
{
    if (m_state == state)
        return;
    m_state = state;
    Q_EMIT stateChanged(state);
}
