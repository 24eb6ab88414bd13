// The browser side of connecting Dropbox: the pages' addresses and the answers the browser brings back.
#include <QtTest>

#include "sync/dropboxauthorization.h"

using namespace Qt::StringLiterals;

class TestDropboxAuthorization : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pagesCarryTheFlowsParameters();
    void verifiersAreFreshAndWellFormed();
    void codeIsTakenOnlyFromThisAttemptsAnswer_data();
    void codeIsTakenOnlyFromThisAttemptsAnswer();
    void implicitGrantRedirect_data();
    void implicitGrantRedirect();
};

void TestDropboxAuthorization::pagesCarryTheFlowsParameters()
{
    QCOMPARE(DropboxAuthorization::implicitGrantUrl().toString(QUrl::FullyEncoded),
        u"https://www.dropbox.com/oauth2/authorize?response_type=token&client_id=q4mzk8ewtdrn2ya&redirect_uri=brimvaleapp%3A%2F%2Fdropbox"_s);
    // The verifier and challenge of RFC 7636's example.
    const DropboxAuthorization attempt(u"dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"_s, u"st4te"_s);
    QCOMPARE(attempt.codeChallenge(), u"E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"_s);
    QCOMPARE(attempt.codeFlowUrl(u"http://127.0.0.1:5000/"_s).toString(QUrl::FullyEncoded),
        u"https://www.dropbox.com/oauth2/authorize?response_type=code&client_id=q4mzk8ewtdrn2ya&redirect_uri=http%3A%2F%2F127.0.0.1%3A5000%2F&state=st4te&token_access_type=offline&code_challenge_method=S256&code_challenge=E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"_s);
    // Without a redirect Dropbox shows the code to paste.
    QVERIFY(!attempt.codeFlowUrl().query().contains(u"redirect_uri"_s));
}

void TestDropboxAuthorization::verifiersAreFreshAndWellFormed()
{
    const DropboxAuthorization first;
    const DropboxAuthorization second;
    QCOMPARE(first.codeVerifier().size(), 128);
    QVERIFY(QRegularExpression(u"\\A[A-Za-z0-9_-]{128}\\z"_s).match(first.codeVerifier()).hasMatch());
    QVERIFY(first.codeVerifier() != second.codeVerifier());
    QVERIFY(first.state() != second.state());
}

void TestDropboxAuthorization::codeIsTakenOnlyFromThisAttemptsAnswer_data()
{
    QTest::addColumn<QString>("redirect");
    QTest::addColumn<QString>("code");

    QTest::newRow("answer") << "http://127.0.0.1:5000/?code=abc%2Bd&state=st4te"
                            << "abc+d";
    QTest::newRow("another attempt's state") << "http://127.0.0.1:5000/?code=abc&state=other"
                                             << "";
    QTest::newRow("no state") << "http://127.0.0.1:5000/?code=abc"
                              << "";
    QTest::newRow("denied") << "http://127.0.0.1:5000/?error=access_denied&state=st4te"
                            << "";
    QTest::newRow("empty code") << "http://127.0.0.1:5000/?code=&state=st4te"
                                << "";
}

void TestDropboxAuthorization::codeIsTakenOnlyFromThisAttemptsAnswer()
{
    QFETCH(QString, redirect);
    QFETCH(QString, code);
    const DropboxAuthorization attempt(u"verifier"_s, u"st4te"_s);
    QCOMPARE(attempt.codeFromRedirect(QUrl(redirect)).value_or(QString()), code);
}

void TestDropboxAuthorization::implicitGrantRedirect_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("token"); // "" none
    QTest::addColumn<QString>("accountId");

    QTest::newRow("bearer") << "brimvaleapp://dropbox#access_token=sl.A%2Bb&token_type=bearer&account_id=dbid%3A1"
                            << "sl.A+b"
                            << "dbid:1";
    QTest::newRow("later key wins") << "brimvaleapp://dropbox#access_token=a&access_token=b&token_type=bearer"
                                    << "b"
                                    << "";
    QTest::newRow("pieces without one = are skipped")
        << "brimvaleapp://dropbox#x&y=1=2&access_token=t&token_type=bearer"
        << "t"
        << "";
    QTest::newRow("Bearer is not bearer") << "brimvaleapp://dropbox#access_token=t&token_type=Bearer"
                                          << ""
                                          << "";
    QTest::newRow("other host") << "brimvaleapp://other#access_token=t&token_type=bearer"
                                << ""
                                << "";
    QTest::newRow("other scheme") << "https://dropbox#access_token=t&token_type=bearer"
                                  << ""
                                  << "";
    QTest::newRow("no fragment") << "brimvaleapp://dropbox"
                                 << ""
                                 << "";
}

void TestDropboxAuthorization::implicitGrantRedirect()
{
    QFETCH(QString, url);
    QFETCH(QString, token);
    QFETCH(QString, accountId);
    const auto grant = DropboxAuthorization::implicitGrantFromRedirect(QUrl(url));
    QCOMPARE(grant.has_value(), !token.isEmpty());
    if (grant) {
        QCOMPARE(grant->accessToken, token);
        QCOMPARE(grant->accountId, accountId);
    }
}

QTEST_GUILESS_MAIN(TestDropboxAuthorization)
#include "testdropboxauthorization.moc"
