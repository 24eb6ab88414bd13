// Connecting a Dropbox account the way the preferences and `brimvale dropbox connect` do, against the
// in-memory agent and keyring: the browser's return to the loopback listener, a pasted code or address,
// refusals, a failed exchange, cancelling.
#include <QtTest>

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QUrlQuery>

#include "fakes/fakeclock.h"
#include "fakes/fakedropboxservice.h"
#include "fakes/fakekeychain.h"
#include "platform/dropboxconnectflow.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"
#include "sync/bvdropboxsettings.h"
#include "sync/bvdropboxsyncbackend.h"

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(DropboxConnectFlow::State)

class TestDropboxConnectFlow : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void browserReturnEndsTheAttempt_data();
    void browserReturnEndsTheAttempt();
    void pastedCodeIsExchangedWithoutRedirect();
    void cancelClosesTheListener();
    void implicitGrantWaitsForTheUrlHandler();

private:
    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BVDropboxSettings> m_settings;
    std::unique_ptr<FakeKeychain> m_keychain;
    std::unique_ptr<FakeDropboxService> m_dropbox;
    std::unique_ptr<BVDropboxSyncBackend> m_account;
    FakeClock m_clock;
};

void TestDropboxConnectFlow::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale/Brimvale.conf"_s);
    m_settings = std::make_unique<BVDropboxSettings>(*m_defaults);
    m_keychain = std::make_unique<FakeKeychain>();
    m_dropbox = std::make_unique<FakeDropboxService>();
    // As the agent does: the answer comes on another thread.
    m_dropbox->setCallbacks(FakeDropboxService::Callbacks::OtherThread);
    m_account = std::make_unique<BVDropboxSyncBackend>(
        BVDropboxServices { m_dropbox.get(), m_keychain.get(), m_settings.get(), &m_clock });
}

void TestDropboxConnectFlow::cleanup()
{
    m_account.reset();
    m_dropbox.reset();
    m_keychain.reset();
    m_settings.reset();
    m_defaults.reset();
    m_home.reset();
}

void TestDropboxConnectFlow::browserReturnEndsTheAttempt_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<bool>("pasted");
    QTest::addColumn<QString>("refusal");
    QTest::addColumn<QString>("exchangeError");
    // CODE is the code Dropbox issued, STATE the attempt's state.
    QTest::newRow("allowed") << u"code=CODE&state=STATE"_s << false << QString() << QString();
    QTest::newRow("allowed, address pasted") << u"code=CODE&state=STATE"_s << true << QString() << QString();
    QTest::newRow("denied") << u"error=access_denied&state=STATE"_s << false << u"access_denied"_s << QString();
    QTest::newRow("pasted address of another attempt")
        << u"code=CODE&state=other"_s << true << u"the answer did not match this request"_s << QString();
    QTest::newRow("code the agent cannot exchange")
        << u"code=stale&state=STATE"_s << false << QString() << u"invalid_grant: The code is not valid."_s;
}

void TestDropboxConnectFlow::browserReturnEndsTheAttempt()
{
    QFETCH(QString, query);
    QFETCH(bool, pasted);
    QFETCH(QString, refusal);
    QFETCH(QString, exchangeError);
    DropboxConnectFlow flow(*m_account);
    QSignalSpy states(&flow, &DropboxConnectFlow::stateChanged);
    QSignalSpy refused(&flow, &DropboxConnectFlow::refused);
    QSignalSpy exchanged(&flow, &DropboxConnectFlow::exchanged);

    const QUrl page = flow.start(DropboxConnectFlow::Return::Loopback, DropboxConnectFlow::Return::PastedCode);
    QCOMPARE(flow.returnsTo(), DropboxConnectFlow::Return::Loopback);
    QCOMPARE(flow.state(), DropboxConnectFlow::State::WaitingForBrowser);
    const QUrlQuery pageQuery(page);
    const QString redirectUri = pageQuery.queryItemValue(u"redirect_uri"_s, QUrl::FullyDecoded);
    QVERIFY(redirectUri.startsWith(u"http://127.0.0.1:"_s));

    QUrl back(redirectUri);
    back.setQuery(QString(query)
                      .replace(u"CODE"_s, m_dropbox->expectedCode)
                      .replace(u"STATE"_s, pageQuery.queryItemValue(u"state"_s)));
    if (pasted) {
        flow.finishWithRedirect(back);
    } else {
        QNetworkAccessManager browser;
        std::unique_ptr<QNetworkReply> reply(browser.get(QNetworkRequest(back)));
        QTRY_VERIFY(reply->isFinished());
    }

    if (!refusal.isEmpty()) {
        QTRY_COMPARE(refused.size(), 1);
        QCOMPARE(refused.constFirst().constFirst().toString(), refusal);
        QVERIFY(m_dropbox->calls().filter(u"ExchangeCode"_s).isEmpty());
        QCOMPARE(flow.state(), DropboxConnectFlow::State::Idle);
        return;
    }
    QTRY_COMPARE(exchanged.size(), 1);
    QCOMPARE(exchanged.constFirst().constFirst().toString(), exchangeError);
    QVERIFY(refused.isEmpty());
    QCOMPARE(flow.state(), DropboxConnectFlow::State::Idle);
    QCOMPARE(states.size(), 3);
    QCOMPARE(states.at(1).constFirst().value<DropboxConnectFlow::State>(), DropboxConnectFlow::State::Exchanging);
    // Dropbox accepts the code only with the redirect URI its page was given, though the listener has
    // stopped listening by now.
    const QStringList exchanges = m_dropbox->calls().filter(u"ExchangeCode"_s);
    QCOMPARE(exchanges.size(), 1);
    QCOMPARE(exchanges.constFirst().split(u' ').value(3), redirectUri);
    QCOMPARE(m_account->isDropboxConnected(), exchangeError.isEmpty());
    // Once the attempt ended, a late return is not exchanged again.
    flow.finishWithRedirect(back);
    QCOMPARE(m_dropbox->calls().filter(u"ExchangeCode"_s).size(), 1);
}

void TestDropboxConnectFlow::pastedCodeIsExchangedWithoutRedirect()
{
    DropboxConnectFlow flow(*m_account);
    QSignalSpy exchanged(&flow, &DropboxConnectFlow::exchanged);
    const QUrl page = flow.start(DropboxConnectFlow::Return::PastedCode, DropboxConnectFlow::Return::PastedCode);
    QVERIFY(!QUrlQuery(page).hasQueryItem(u"redirect_uri"_s));
    QCOMPARE(flow.state(), DropboxConnectFlow::State::WaitingForBrowser);
    flow.finishWithCode(m_dropbox->expectedCode);
    // A second paste while the agent works is not a second exchange.
    flow.finishWithCode(m_dropbox->expectedCode);
    QTRY_COMPARE(exchanged.size(), 1);
    QCOMPARE(exchanged.constFirst().constFirst().toString(), QString());
    const QStringList exchanges = m_dropbox->calls().filter(u"ExchangeCode"_s);
    QCOMPARE(exchanges.size(), 1);
    // Dropbox showed the code on its own page: the exchange names no redirect URI.
    QCOMPARE(exchanges.constFirst().split(u' ').value(3), QString());
    QVERIFY(m_account->isDropboxConnected());
}

void TestDropboxConnectFlow::cancelClosesTheListener()
{
    DropboxConnectFlow flow(*m_account);
    QSignalSpy refused(&flow, &DropboxConnectFlow::refused);
    QSignalSpy exchanged(&flow, &DropboxConnectFlow::exchanged);
    const QUrl page = flow.start(DropboxConnectFlow::Return::Loopback, DropboxConnectFlow::Return::PastedCode);
    const QUrlQuery pageQuery(page);
    flow.cancel();
    QCOMPARE(flow.state(), DropboxConnectFlow::State::Idle);

    QUrl back(pageQuery.queryItemValue(u"redirect_uri"_s, QUrl::FullyDecoded));
    back.setQuery(u"code=%1&state=%2"_s.arg(m_dropbox->expectedCode, pageQuery.queryItemValue(u"state"_s)));
    QNetworkAccessManager browser;
    std::unique_ptr<QNetworkReply> reply(browser.get(QNetworkRequest(back)));
    QTRY_VERIFY(reply->isFinished());
    QCOMPARE(reply->error(), QNetworkReply::ConnectionRefusedError);
    flow.finishWithRedirect(back);
    QVERIFY(refused.isEmpty());
    QVERIFY(exchanged.isEmpty());
    QVERIFY(m_dropbox->calls().filter(u"ExchangeCode"_s).isEmpty());
}

void TestDropboxConnectFlow::implicitGrantWaitsForTheUrlHandler()
{
    DropboxConnectFlow flow(*m_account);
    const QUrl page = flow.start(DropboxConnectFlow::Return::ImplicitGrant, DropboxConnectFlow::Return::ImplicitGrant);
    QCOMPARE(page, BVDropboxSyncBackend::authorize());
    // The app's URL handler takes the browser's return: nothing to wait for here.
    QCOMPARE(flow.state(), DropboxConnectFlow::State::Idle);
}

QTEST_GUILESS_MAIN(TestDropboxConnectFlow)
#include "testdropboxconnectflow.moc"
