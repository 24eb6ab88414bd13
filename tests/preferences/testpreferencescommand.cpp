#include <QtTest>

#include "app/inprocessapp.h"
#include "cli/commandline.h"
#include "platform/brimvaledbus.h"

using namespace Qt::StringLiterals;

// `brimvale preferences [TAB]` and the bus's ShowPreferences(i), against the app's bus interface served in
// this process on the test's private bus and called through a connection of its own, as another process
// would.
class TestPreferencesCommand : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void busOpensTheWindowAtATab();
    void commandNamesTheTab_data();
    void commandNamesTheTab();

private:
    void makeApp(bool registered = true);
    int run(const QStringList &arguments);

    std::unique_ptr<InProcessApp> m_app;
    std::function<bool()> m_launch;
    QString m_out;
    QString m_err;
};

void TestPreferencesCommand::makeApp(bool registered)
{
    m_app = std::make_unique<InProcessApp>();
    if (registered)
        QVERIFY(m_app->service->registerOnSessionBus());
}

void TestPreferencesCommand::cleanup()
{
    m_launch = {};
    m_app.reset();
}

int TestPreferencesCommand::run(const QStringList &arguments)
{
    m_out.clear();
    m_err.clear();
    QTextStream out(&m_out);
    QTextStream err(&m_err);
    StoreOptions options;
    options.applicationFilesDirectory = m_app->home.applicationFilesDirectory();
    options.clock = &m_app->clock;
    CliEnvironment environment { out, err, options, {}, &otherClientConnection, m_launch };
    const int status = CommandLine().run(arguments, environment);
    out.flush();
    err.flush();
    return status;
}

void TestPreferencesCommand::busOpensTheWindowAtATab()
{
    makeApp();
    QSignalSpy requested(m_app->service.get(), &BrimvaleDBusService::showPreferencesRequested);
    const QDBusMessage reply = callApp(otherClientConnection(), u"ShowPreferences"_s, { 2 });
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
    QCOMPARE(requested.size(), 1);
    QCOMPARE(requested.constFirst().constFirst().toInt(), int(PreferencesTab::Sync));
    // The bus takes an int32 only.
    const QDBusMessage wrong = callApp(otherClientConnection(), u"ShowPreferences"_s, { u"sync"_s });
    QCOMPARE(wrong.type(), QDBusMessage::ErrorMessage);
    QCOMPARE(requested.size(), 1);
}

void TestPreferencesCommand::commandNamesTheTab_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("tab"); // asked of the app; none when -2
    QTest::addColumn<QString>("err");

    QTest::newRow("general") << QStringList { u"general"_s } << 0 << int(PreferencesTab::General) << QString();
    QTest::newRow("export") << QStringList { u"export"_s } << 0 << int(PreferencesTab::Export) << QString();
    QTest::newRow("sync") << QStringList { u"sync"_s } << 0 << 2 << QString();
    QTest::newRow("Attention in any case")
        << QStringList { u"Attention"_s } << 0 << int(PreferencesTab::Attention) << QString();
    QTest::newRow("no tab keeps the last") << QStringList {} << 0 << -1 << QString();
    QTest::newRow("unknown tab") << QStringList { u"colours"_s } << 1 << -2
                                 << u"Unknown tab “colours”: general, attention, export or sync.\n"_s;
    QTest::newRow("two tabs") << QStringList { u"sync"_s, u"general"_s } << 1 << -2
                              << u"preferences takes one tab at most (see brimvale preferences --help).\n"_s;
}

void TestPreferencesCommand::commandNamesTheTab()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(int, tab);
    QFETCH(QString, err);

    makeApp();
    QSignalSpy requested(m_app->service.get(), &BrimvaleDBusService::showPreferencesRequested);
    QCOMPARE(run(QStringList { u"preferences"_s } + arguments), status);
    QCOMPARE(m_err, err);
    QCOMPARE(requested.size(), tab == -2 ? 0 : 1);
    if (tab != -2)
        QCOMPARE(requested.constFirst().constFirst().toInt(), tab);
}

QTEST_MAIN(TestPreferencesCommand)
#include "testpreferencescommand.moc"
