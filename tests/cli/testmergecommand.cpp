#include <QtTest>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "cli/commandline.h"
#include "fakes/fakeclock.h"
#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

// brimvale merge, in-process on a temporary store in Europe/Berlin (see CMakeLists.txt).
class TestMergeCommand : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void mergesIntoTheLatestStart();
    void refusalsChangeNothing_data();
    void refusalsChangeNothing();

private:
    int run(const QStringList &arguments);
    QString add(const QString &text, const QString &from, const QString &to, bool invoiced = false);
    QJsonArray list();
    QStringList deletionRecords();

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
    FakeClock m_clock { QDateTime(QDate(2024, 3, 20), QTime(12, 0), Qt::UTC) };
    QString m_out;
    QString m_err;
};

void TestMergeCommand::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale/Brimvale.conf"_s);
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
}

void TestMergeCommand::cleanup()
{
    m_settings.reset();
    m_defaults.reset();
    m_home.reset();
}

int TestMergeCommand::run(const QStringList &arguments)
{
    m_out.clear();
    m_err.clear();
    QTextStream out(&m_out);
    QTextStream err(&m_err);
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    CliEnvironment environment { out, err, options, [this] { return m_settings->view(); } };
    CommandLine commandLine;
    const int status = commandLine.run(arguments, environment);
    out.flush();
    err.flush();
    return status;
}

QString TestMergeCommand::add(const QString &text, const QString &from, const QString &to, bool invoiced)
{
    QStringList arguments { u"add"_s, text, u"--from"_s, from, u"--to"_s, to };
    if (invoiced)
        arguments.append(u"--invoiced"_s);
    if (run(arguments) != 0)
        qWarning() << m_err;
    return m_out.trimmed();
}

QJsonArray TestMergeCommand::list()
{
    if (run({ u"list"_s, u"--json"_s }) != 0)
        qWarning() << m_err;
    return QJsonDocument::fromJson(m_out.toUtf8()).array();
}

QStringList TestMergeCommand::deletionRecords()
{
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    auto store = Store::open(options);
    if (!store)
        return { u"store failed"_s };
    auto context = (*store)->newContext();
    const QList<DeletedActivityPtr> records = context->fetchDeletedActivities().value();
    QStringList uids;
    for (const DeletedActivityPtr &record : records)
        uids.append(record->uid());
    uids.sort();
    return uids;
}

void TestMergeCommand::mergesIntoTheLatestStart()
{
    const QString draft = add(u"@Acme draft"_s, u"2024-03-12T09:00"_s, u"2024-03-12T09:10"_s, true);
    const QString review = add(u"@Acme review"_s, u"2024-03-12T11:00"_s, u"2024-03-12T11:20"_s);

    // Prefixes in any case, as edit and delete take them; the invoiced word in any case too.
    QCOMPARE(run({ u"merge"_s, review.left(8).toLower(), draft.left(10), u"--invoiced"_s, u"NO"_s }), 0);
    QCOMPARE(m_out, u"Merged 2 activities into %1.\n"_s.arg(review));
    const QJsonArray listed = list();
    QCOMPARE(listed.size(), 1);
    QCOMPARE(listed.at(0).toObject().value(u"uid"_s).toString(), review);
    QCOMPARE(listed.at(0).toObject().value(u"invoiced"_s).toBool(), false);
}

void TestMergeCommand::refusalsChangeNothing_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");
    QTest::newRow("one uid") << QStringList { u"merge"_s, u"$A"_s }
                             << u"Give at least two UIDs (see brimvale merge --help)."_s;
    QTest::newRow("the same twice") << QStringList { u"merge"_s, u"$A"_s, u"$A8"_s }
                                    << u"Give at least two different activities to merge."_s;
    QTest::newRow("one unknown") << QStringList { u"merge"_s, u"$A"_s, u"00000000"_s }
                                 << u"Activity not found! (00000000)"_s;
    QTest::newRow("mixed invoiced without a decision")
        << QStringList { u"merge"_s, u"$A"_s, u"$B"_s } << u"Please specify invoiced status (--invoiced yes or no)."_s;
    QTest::newRow("invoiced word") << QStringList { u"merge"_s, u"$A"_s, u"$B"_s, u"--invoiced"_s, u"maybe"_s }
                                   << u"--invoiced takes yes or no, not “maybe”."_s;
}

void TestMergeCommand::refusalsChangeNothing()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);
    const QString a = add(u"a"_s, u"2024-03-12T09:00"_s, u"2024-03-12T10:00"_s, true);
    const QString b = add(u"b"_s, u"2024-03-12T11:00"_s, u"2024-03-12T12:00"_s);
    arguments.replaceInStrings(u"$A8"_s, a.left(8));
    arguments.replaceInStrings(u"$A"_s, a);
    arguments.replaceInStrings(u"$B"_s, b);
    const QJsonArray before = list();
    QCOMPARE(run(arguments), 1);
    QCOMPARE(m_err.trimmed(), error);
    QCOMPARE(list(), before);
    QVERIFY(deletionRecords().isEmpty());
}

QTEST_GUILESS_MAIN(TestMergeCommand)
#include "testmergecommand.moc"
