#include <QtTest>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QProcess>

#include "support/appprocess.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {
AppProcess::Run brimvale(const QStringList &arguments)
{
    return AppProcess::run(QStringLiteral(BRIMVALE_EXECUTABLE), arguments);
}

bool reportShown()
{
    return AppProcess::xdotool({ u"search"_s, u"--onlyvisible"_s, u"--name"_s, u"^Report$"_s });
}
} // namespace

// The report window of the real app under Xvfb and a private session bus.
class TestReportProcess : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init() { m_home = std::make_unique<IsolatedHome>(); }
    void cleanup()
    {
        QVERIFY(AppProcess::terminateOwner());
        m_home.reset();
    }
    void reportCommandAndShowReportOpenTheWindow();

private:
    std::unique_ptr<IsolatedHome> m_home;
};

void TestReportProcess::reportCommandAndShowReportOpenTheWindow()
{
    QCOMPARE(brimvale({ u"add"_s, u"@Acme #design mock-ups"_s, u"--from"_s, u"2024-03-12T09:00"_s, u"--to"_s,
                          u"2024-03-12T10:00"_s })
                 .status,
        0);
    // Not running yet: the command launches the app in the background, then asks it for the report.
    const AppProcess::Run run = brimvale({ u"report"_s });
    QCOMPARE(run.status, 0);
    QTRY_VERIFY_WITH_TIMEOUT(reportShown(), 10000);
    // Launched as at login, the app keeps its main window closed.
    QVERIFY(!AppProcess::mainWindowShown());

    QVERIFY(AppProcess::terminateOwner());
    QTRY_VERIFY_WITH_TIMEOUT(!reportShown(), 10000);

    // The app started at login, its windows closed: ShowReport() on the bus opens the report.
    QVERIFY(QProcess::startDetached(QStringLiteral(BRIMVALE_EXECUTABLE), { u"launchFromHelper"_s }));
    QTRY_VERIFY_WITH_TIMEOUT(AppProcess::registered(), 10000);
    QVERIFY(!reportShown());
    QDBusMessage call = QDBusMessage::createMethodCall(
        u"com.brimvaleapp.Brimvale"_s, u"/com/brimvaleapp/Brimvale"_s, u"com.brimvaleapp.Brimvale1"_s, u"ShowReport"_s);
    // The name is claimed before the interface is published at the end of the launch.
    QTRY_VERIFY_WITH_TIMEOUT(
        QDBusConnection::sessionBus().call(call, QDBus::Block, 10000).type() == QDBusMessage::ReplyMessage, 10000);
    QTRY_VERIFY_WITH_TIMEOUT(reportShown(), 10000);
}

QTEST_GUILESS_MAIN(TestReportProcess)
#include "testreportprocess.moc"
