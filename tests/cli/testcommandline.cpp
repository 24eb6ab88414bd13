#include <QtTest>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include "cli/commandline.h"
#include "fakes/fakeclock.h"
#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

// The commands run in-process on a temporary store; Europe/Berlin (see CMakeLists.txt) so that local
// times and a DST change are known.
class TestCommandLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void wrongArgumentsChangeNothing_data();
    void wrongArgumentsChangeNothing();
    void addThenListAsJson();
    void addedTimesAsListed_data();
    void addedTimesAsListed();
    void uidPrefixes_data();
    void uidPrefixes();
    void listFilters_data();
    void listFilters();
    void editChangesOnlyWhatIsGiven();
    void deleteLeavesTombstonesOrNothing();
    void projectsAndTasksWithTotals();
    void unusableStoreGivesStatusTwo();
    void helpForEveryCommand_data();
    void helpForEveryCommand();
    void exportedCsvReadsBackFieldForField();
    void exportImportRoundTrip();
    void importRefusesBadFilesAndKeepsStore_data();
    void importRefusesBadFilesAndKeepsStore();

private:
    int run(const QStringList &arguments);
    QString add(const QString &text, const QString &from, const QString &to, bool invoiced = false);
    QJsonArray listJson(const QStringList &filters);

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
    FakeClock m_clock { QDateTime(QDate(2024, 3, 20), QTime(12, 0), Qt::UTC) };
    QString m_out;
    QString m_err;
};

void TestCommandLine::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale/Brimvale.conf"_s);
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
}

void TestCommandLine::cleanup()
{
    m_settings.reset();
    m_defaults.reset();
    m_home.reset();
}

int TestCommandLine::run(const QStringList &arguments)
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

QString TestCommandLine::add(const QString &text, const QString &from, const QString &to, bool invoiced)
{
    QStringList arguments { u"add"_s, text, u"--from"_s, from, u"--to"_s, to };
    if (invoiced)
        arguments.append(u"--invoiced"_s);
    if (run(arguments) != 0)
        qWarning() << m_err;
    return m_out.trimmed();
}

QJsonArray TestCommandLine::listJson(const QStringList &filters)
{
    const int status = run(QStringList { u"list"_s, u"--json"_s } + filters);
    if (status != 0)
        qWarning() << m_err;
    return QJsonDocument::fromJson(m_out.toUtf8()).array();
}

void TestCommandLine::wrongArgumentsChangeNothing_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");

    const QString from = u"--from"_s;
    const QString to = u"--to"_s;
    QTest::newRow("unknown command") << QStringList { u"frobnicate"_s }
                                     << "Unknown command “frobnicate” (see brimvale --help).";
    QTest::newRow("too short") << QStringList { u"add"_s, u"x"_s, from, u"2024-03-12T10:00"_s, to,
        u"2024-03-12T10:00"_s } << "Duration must be atleast one second long";
    QTest::newRow("end before start") << QStringList { u"add"_s, u"x"_s, from, u"2024-03-12T10:00"_s, to,
        u"2024-03-12T09:00"_s } << "Duration must be atleast one second long";
    QTest::newRow("blank text") << QStringList { u"add"_s, u"  "_s, from, u"2024-03-12"_s, to, u"2024-03-13"_s }
                                << "Activity can not be empty!";
    QTest::newRow("missing end") << QStringList { u"add"_s, u"x"_s, from, u"2024-03-12"_s }
                                 << "Both --from and --to are required (see brimvale add --help).";
    QTest::newRow("month 13") << QStringList {
        u"add"_s, u"x"_s, from, u"2024-13-01"_s, to, u"2024-13-02"_s
    } << "Invalid time for --from: “2024-13-01” (use yyyy-MM-dd, yyyy-MM-ddTHH:mm or yyyy-MM-ddTHH:mm:ss).";
    QTest::newRow("blank instead of T") << QStringList {
        u"list"_s, to, u"2024-03-12 10:00"_s
    } << "Invalid time for --to: “2024-03-12 10:00” (use yyyy-MM-dd, yyyy-MM-ddTHH:mm or yyyy-MM-ddTHH:mm:ss).";
    QTest::newRow("unknown option") << QStringList { u"list"_s, u"--colour"_s }
                                    << "Unknown option 'colour'. (see brimvale list --help)";
    QTest::newRow("both invoiced filters") << QStringList { u"list"_s, u"--invoiced"_s, u"--not-invoiced"_s }
                                           << "--invoiced and --not-invoiced exclude each other.";
    QTest::newRow("unknown project") << QStringList { u"list"_s, u"--project"_s, u"Nope"_s }
                                     << "No project named “Nope”.";
    QTest::newRow("unknown uid on edit") << QStringList { u"edit"_s, u"00000000"_s, u"--text"_s, u"y"_s }
                                         << "Activity not found!";
    QTest::newRow("edit without change") << QStringList { u"edit"_s, u"0000"_s }
                                         << "Nothing to change: give --text, --from, --to or --invoiced.";
    QTest::newRow("edit invoiced word") << QStringList { u"edit"_s, u"0000"_s, u"--invoiced"_s, u"maybe"_s }
                                        << "--invoiced takes yes or no, not “maybe”.";
    QTest::newRow("edit into refusal") << QStringList { u"edit"_s, u"$UID"_s, to, u"2024-03-12T08:00"_s }
                                       << "Duration must be atleast one second long";
    QTest::newRow("delete one unknown of two")
        << QStringList { u"delete"_s, u"$UID"_s, u"00000000"_s } << "Activity not found! (00000000)";
    QTest::newRow("export into a missing folder") << QStringList { u"export"_s, u"--format"_s, u"csv"_s, u"--output"_s,
        u"/nonexistent/week.csv"_s } << "Failed to write CSV data to file! No such file or directory";
}

void TestCommandLine::wrongArgumentsChangeNothing()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);
    const QString uid = add(u"@Acme kept"_s, u"2024-03-12T09:00"_s, u"2024-03-12T10:00"_s);
    arguments.replaceInStrings(u"$UID"_s, uid);
    const QJsonArray before = listJson({});

    QCOMPARE(run(arguments), 1);
    QCOMPARE(m_err.trimmed(), error);
    QCOMPARE(m_err.count(u'\n'), 1);
    QCOMPARE(listJson({}), before);
}

void TestCommandLine::addThenListAsJson()
{
    const QString uid = add(u"@Acme #design #Review mock-ups"_s, u"2024-03-12T09:00"_s, u"2024-03-12T10:30:15"_s, true);
    QVERIFY(QUuid::fromString(uid).isNull() == false);
    add(u"no project"_s, u"2024-03-13"_s, u"2024-03-13T00:01"_s);

    const QJsonArray list = listJson({});
    QCOMPARE(list.size(), 2);
    const QJsonObject newest = list.at(0).toObject();
    QCOMPARE(newest.value(u"text"_s).toString(), u"no project"_s);
    QVERIFY(newest.value(u"project"_s).isNull());
    QCOMPARE(newest.value(u"tasks"_s).toArray(), QJsonArray());
    QCOMPARE(newest.value(u"invoiced"_s).toBool(), false);

    const QJsonObject first = list.at(1).toObject();
    QCOMPARE(first.value(u"uid"_s).toString(), uid);
    QCOMPARE(first.value(u"project"_s).toString(), u"Acme"_s);
    QCOMPARE(first.value(u"tasks"_s).toArray(), (QJsonArray { u"Review"_s, u"design"_s }));
    QCOMPARE(first.value(u"from"_s).toString(), u"2024-03-12T09:00:00+01:00"_s);
    QCOMPARE(first.value(u"to"_s).toString(), u"2024-03-12T10:30:15+01:00"_s);
    QCOMPARE(first.value(u"duration_secs"_s).toInteger(), 5415);
    QCOMPARE(first.value(u"invoiced"_s).toBool(), true);
    // The fake clock is 12:00 UTC, 13:00 in Berlin.
    QCOMPARE(first.value(u"created_at"_s).toString(), u"2024-03-20T13:00:00+01:00"_s);
    QCOMPARE(first.value(u"modified_at"_s).toString(), u"2024-03-20T13:00:00+01:00"_s);
    QCOMPARE(first.keys().size(), 10);

    QCOMPARE(run({ u"list"_s }), 0);
    QVERIFY2(m_out.endsWith(u"Total: 1:31:15 (2 activities)\n"_s), qPrintable(m_out));
    QVERIFY(m_out.contains(uid));
}

void TestCommandLine::addedTimesAsListed_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<QString>("line"); // the times as the table shows them
    QTest::addColumn<QString>("jsonFrom");
    QTest::addColumn<QString>("jsonTo");

    QTest::newRow("one day") << "2024-03-12T09:00"
                             << "2024-03-12T10:30:15"
                             << "2024-03-12 09:00 – 10:30"
                             << "2024-03-12T09:00:00+01:00"
                             << "2024-03-12T10:30:15+01:00";
    QTest::newRow("across midnight") << "2024-03-12T23:00"
                                     << "2024-03-13T01:00"
                                     << "2024-03-12 23:00 – 2024-03-13 01:00"
                                     << "2024-03-12T23:00:00+01:00"
                                     << "2024-03-13T01:00:00+01:00";
    QTest::newRow("up to midnight") << "2024-03-12T23:00"
                                    << "2024-03-13"
                                    << "2024-03-12 23:00 – 2024-03-13 00:00"
                                    << "2024-03-12T23:00:00+01:00"
                                    << "2024-03-13T00:00:00+01:00";
    // 31 March 2024: Berlin's clocks jump from 02:00 to 03:00; a time in between moves forward an hour.
    QTest::newRow("ends in the spring gap") << "2024-03-31T01:30"
                                            << "2024-03-31T02:30"
                                            << "2024-03-31 01:30 – 03:30"
                                            << "2024-03-31T01:30:00+01:00"
                                            << "2024-03-31T03:30:00+02:00";
    QTest::newRow("starts in the spring gap") << "2024-03-31T02:15"
                                              << "2024-03-31T04:00"
                                              << "2024-03-31 03:15 – 04:00"
                                              << "2024-03-31T03:15:00+02:00"
                                              << "2024-03-31T04:00:00+02:00";
    // 27 October 2024: 02:00-03:00 happens twice; the later one is meant.
    QTest::newRow("repeated autumn hour") << "2024-10-27T02:30"
                                          << "2024-10-27T03:00"
                                          << "2024-10-27 02:30 – 03:00"
                                          << "2024-10-27T02:30:00+01:00"
                                          << "2024-10-27T03:00:00+01:00";
}

void TestCommandLine::addedTimesAsListed()
{
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(QString, line);
    QFETCH(QString, jsonFrom);
    QFETCH(QString, jsonTo);
    const QString uid = add(u"x"_s, from, to);
    QVERIFY(!uid.isEmpty());
    const QJsonObject listed = listJson({}).at(0).toObject();
    QCOMPARE(listed.value(u"from"_s).toString(), jsonFrom);
    QCOMPARE(listed.value(u"to"_s).toString(), jsonTo);
    const qint64 seconds
        = QDateTime::fromString(jsonFrom, Qt::ISODate).secsTo(QDateTime::fromString(jsonTo, Qt::ISODate));
    QCOMPARE(listed.value(u"duration_secs"_s).toInteger(), seconds);
    QCOMPARE(run({ u"list"_s }), 0);
    QVERIFY2(m_out.startsWith(uid + u"  "_s + line + u"  "_s), qPrintable(m_out));
}

void TestCommandLine::uidPrefixes_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QStringList>("texts"); // afterwards, newest first

    const QStringList all { u"three"_s, u"two"_s, u"one"_s };
    QTest::newRow("edit by unique prefix, any case") << QStringList { u"edit"_s, u" aaaaaaaa-1"_s, u"--text"_s,
        u"first"_s } << QString() << QStringList { u"three"_s, u"two"_s, u"first"_s };
    QTest::newRow("whole uid") << QStringList { u"edit"_s, u"BBBBBBBB-3333-4000-8000-000000000003"_s, u"--text"_s,
        u"third"_s } << QString()
                               << QStringList { u"third"_s, u"two"_s, u"one"_s };
    QTest::newRow("delete by prefixes") << QStringList { u"delete"_s, u"AAAAAAAA-2"_s, u"bbbbbbbb"_s } << QString()
                                        << QStringList { u"one"_s };
    QTest::newRow("ambiguous prefix") << QStringList { u"edit"_s, u"aaaaaaaa"_s, u"--text"_s, u"x"_s }
                                      << u"“aaaaaaaa” is the start of 2 UIDs; give more characters."_s << all;
    QTest::newRow("ambiguous prefix deletes nothing")
        << QStringList { u"delete"_s, u"BBBBBBBB"_s, u"AAAAAAAA-"_s }
        << u"“AAAAAAAA-” is the start of 2 UIDs; give more characters."_s << all;
    QTest::newRow("seven characters") << QStringList { u"edit"_s, u"BBBBBBB"_s, u"--text"_s, u"x"_s }
                                      << u"A UID needs at least 8 characters: “BBBBBBB”."_s << all;
    QTest::newRow("no such prefix") << QStringList { u"delete"_s, u"AAAAAAAA-3"_s }
                                    << u"Activity not found! (AAAAAAAA-3)"_s << all;
    QTest::newRow("wildcards are characters")
        << QStringList { u"delete"_s, u"AAAAAAA%"_s } << u"Activity not found! (AAAAAAA%)"_s << all;
}

void TestCommandLine::uidPrefixes()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);
    QFETCH(QStringList, texts);
    {
        StoreOptions options;
        options.applicationFilesDirectory = m_home->applicationFilesDirectory();
        auto store = Store::open(options);
        QVERIFY(store);
        std::unique_ptr<StoreContext> context = (*store)->newContext();
        const QStringList uids { u"AAAAAAAA-1111-4000-8000-000000000001"_s, u"AAAAAAAA-2222-4000-8000-000000000002"_s,
            u"BBBBBBBB-3333-4000-8000-000000000003"_s };
        const QStringList names { u"one"_s, u"two"_s, u"three"_s };
        for (qsizetype i = 0; i < uids.size(); ++i) {
            ActivityPtr activity = context->insertActivity();
            activity->setUid(uids.at(i));
            activity->setText(names.at(i));
            activity->setTimeFrom(m_clock.now().addSecs(3600 * i));
            activity->setTimeTo(m_clock.now().addSecs(3600 * i + 60));
            activity->setModifiedAt(m_clock.now());
        }
        QVERIFY(context->save());
    }
    QCOMPARE(run(arguments), error.isNull() ? 0 : 1);
    QCOMPARE(m_err.trimmed(), error);
    QStringList got;
    for (const QJsonValue &value : listJson({}))
        got.append(value.toObject().value(u"text"_s).toString());
    QCOMPARE(got, texts);
}

void TestCommandLine::listFilters_data()
{
    QTest::addColumn<QStringList>("filters");
    QTest::addColumn<QStringList>("texts");

    QTest::newRow("no filter") << QStringList {}
                               << QStringList { u"@Globex #call b"_s, u"late"_s, u"@acme #Call xABy"_s,
                                      u"@Acme #design a"_s };
    QTest::newRow("a day lists what overlaps it") << QStringList { u"--from"_s, u"2024-03-12"_s, u"--to"_s,
        u"2024-03-12"_s } << QStringList { u"late"_s, u"@acme #Call xABy"_s, u"@Acme #design a"_s };
    QTest::newRow("the next day too") << QStringList { u"--from"_s, u"2024-03-13"_s, u"--to"_s, u"2024-03-13"_s }
                                      << QStringList { u"@Globex #call b"_s, u"late"_s };
    QTest::newRow("end bound is exclusive") << QStringList { u"--to"_s, u"2024-03-12T09:00"_s } << QStringList {};
    QTest::newRow("search regardless of case")
        << QStringList { u"--search"_s, u"ab"_s } << QStringList { u"@acme #Call xABy"_s };
    QTest::newRow("project regardless of case")
        << QStringList { u"--project"_s, u"ACME"_s } << QStringList { u"@acme #Call xABy"_s, u"@Acme #design a"_s };
    QTest::newRow("two projects") << QStringList { u"--project"_s, u"acme"_s, u"--project"_s, u"globex"_s }
                                  << QStringList { u"@Globex #call b"_s, u"@acme #Call xABy"_s, u"@Acme #design a"_s };
    QTest::newRow("task and project") << QStringList { u"--task"_s, u"CALL"_s, u"--project"_s, u"Globex"_s }
                                      << QStringList { u"@Globex #call b"_s };
    QTest::newRow("invoiced") << QStringList { u"--invoiced"_s } << QStringList { u"@Globex #call b"_s };
    QTest::newRow("not invoiced") << QStringList { u"--not-invoiced"_s }
                                  << QStringList { u"late"_s, u"@acme #Call xABy"_s, u"@Acme #design a"_s };
}

void TestCommandLine::listFilters()
{
    QFETCH(QStringList, filters);
    QFETCH(QStringList, texts);
    add(u"@Acme #design a"_s, u"2024-03-12T09:00"_s, u"2024-03-12T10:00"_s);
    add(u"@acme #Call xABy"_s, u"2024-03-12T11:00"_s, u"2024-03-12T12:00"_s);
    add(u"late"_s, u"2024-03-12T23:00"_s, u"2024-03-13T01:00"_s);
    add(u"@Globex #call b"_s, u"2024-03-13T09:00"_s, u"2024-03-13T10:00"_s, true);

    QStringList got;
    for (const QJsonValue &value : listJson(filters))
        got.append(value.toObject().value(u"text"_s).toString());
    QCOMPARE(got, texts);
}

void TestCommandLine::editChangesOnlyWhatIsGiven()
{
    const QString uid = add(u"@Acme #design a"_s, u"2024-03-12T09:00"_s, u"2024-03-12T10:00"_s);
    m_clock.advance(3600 * 1000);
    QCOMPARE(run({ u"edit"_s, uid.toLower(), u"--text"_s, u"@Globex b"_s, u"--invoiced"_s, u"yes"_s }), 0);
    QJsonObject edited = listJson({}).at(0).toObject();
    QCOMPARE(edited.value(u"text"_s).toString(), u"@Globex b"_s);
    QCOMPARE(edited.value(u"project"_s).toString(), u"Globex"_s);
    QCOMPARE(edited.value(u"tasks"_s).toArray(), QJsonArray());
    QCOMPARE(edited.value(u"from"_s).toString(), u"2024-03-12T09:00:00+01:00"_s);
    QCOMPARE(edited.value(u"invoiced"_s).toBool(), true);
    QCOMPARE(edited.value(u"created_at"_s).toString(), u"2024-03-20T13:00:00+01:00"_s);
    QCOMPARE(edited.value(u"modified_at"_s).toString(), u"2024-03-20T14:00:00+01:00"_s);

    // Across the change to summer time (31 March, 02:00 → 03:00 in Berlin) an hour of wall clock is missing.
    QCOMPARE(run({ u"edit"_s, uid, u"--from"_s, u"2024-03-31T01:30"_s, u"--to"_s, u"2024-03-31T03:30"_s }), 0);
    QCOMPARE(listJson({}).at(0).toObject().value(u"duration_secs"_s).toInteger(), 3600);
}

void TestCommandLine::deleteLeavesTombstonesOrNothing()
{
    const QString one = add(u"one"_s, u"2024-03-12T09:00"_s, u"2024-03-12T10:00"_s);
    const QString two = add(u"two"_s, u"2024-03-12T11:00"_s, u"2024-03-12T12:00"_s);
    add(u"three"_s, u"2024-03-12T13:00"_s, u"2024-03-12T14:00"_s);
    QCOMPARE(run({ u"delete"_s, one, two, one }), 0);
    QCOMPARE(m_out.trimmed(), u"Deleted 2 activities."_s);
    QCOMPARE(listJson({}).size(), 1);

    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    auto store = Store::open(options);
    auto tombstones = (*store)->newContext()->fetchDeletedActivities();
    QCOMPARE(tombstones->size(), 2);
    QStringList uids { tombstones->at(0)->uid(), tombstones->at(1)->uid() };
    uids.sort();
    QStringList expected { one, two };
    expected.sort();
    QCOMPARE(uids, expected);
    QCOMPARE(tombstones->at(0)->deletedAt(), m_clock.now());
}

void TestCommandLine::projectsAndTasksWithTotals()
{
    add(u"@Acme #design a"_s, u"2024-03-12T09:00"_s, u"2024-03-12T10:00"_s);
    add(u"@acme #design #call b"_s, u"2024-03-12T11:00"_s, u"2024-03-12T11:30"_s);
    add(u"@Globex c"_s, u"2024-03-12T12:00"_s, u"2024-03-12T12:00:30"_s);
    QCOMPARE(run({ u"projects"_s }), 0);
    QCOMPARE(m_out, u"acme          2     1:30:00\nGlobex        1     0:00:30\n"_s);
    QCOMPARE(run({ u"tasks"_s }), 0);
    QCOMPARE(m_out, u"call          1     0:30:00\ndesign        2     1:30:00\n"_s);
}

void TestCommandLine::unusableStoreGivesStatusTwo()
{
    QDir().mkpath(m_home->applicationFilesDirectory());
    QFile blocker(m_home->applicationFilesDirectory() + u"/db"_s);
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    QCOMPARE(run({ u"list"_s }), 2);
    QVERIFY2(m_err.startsWith(u"Expected a folder to store application data, found a file ("_s), qPrintable(m_err));
    QCOMPARE(run({ u"add"_s, u"x"_s, u"--from"_s, u"2024-03-12"_s, u"--to"_s, u"2024-03-13"_s }), 2);
}

void TestCommandLine::helpForEveryCommand_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("expected");

    QTest::newRow("overview") << QStringList { u"--help"_s } << "Usage: brimvale [COMMAND [ARGUMENTS...]]";
    QTest::newRow("nothing") << QStringList {} << "Usage: brimvale [COMMAND [ARGUMENTS...]]";
    QTest::newRow("search wildcards") << QStringList { u"list"_s, u"--help"_s } << "* and ? are wildcards";
    for (const QString &command :
        { u"add"_s, u"list"_s, u"edit"_s, u"delete"_s, u"projects"_s, u"tasks"_s, u"export"_s, u"import"_s }) {
        QTest::addRow("%s --help", qPrintable(command))
            << QStringList { command, u"--help"_s } << u"Usage: brimvale "_s + command;
        QTest::addRow("help %s", qPrintable(command))
            << QStringList { u"help"_s, command } << u"Usage: brimvale "_s + command;
    }
}

void TestCommandLine::helpForEveryCommand()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, expected);
    QCOMPARE(run(arguments), 0);
    QVERIFY2(m_out.contains(expected), qPrintable(m_out));
    QVERIFY(m_err.isEmpty());
    // Help never creates a store.
    QVERIFY(!QFile::exists(m_home->applicationFilesDirectory() + u"/db/storedata"_s));
}

void TestCommandLine::exportedCsvReadsBackFieldForField()
{
    add(u"@Acme #design \"quoted\"; semi"_s, u"2024-03-12T09:00"_s, u"2024-03-12T10:00"_s);
    add(u"two\nlines"_s, u"2024-03-13T09:00"_s, u"2024-03-13T09:30"_s, true);
    m_settings->setCsvFieldSeparator(u"{TAB}"_s);
    // Task names are read only for a layout that shows them.
    m_settings->setCSVFormat(
        BvSettings::getDefaultCSVFormat() << CSVTokenField::initWithActivityFieldMode(
            CSVTokenField::CSVMode, ActivityTokenType::ActivityType, ActivityTokenValue::TaskTags));
    const QString file = m_home->root() + u"/week.csv"_s;
    QCOMPARE(run({ u"export"_s, u"--format"_s, u"csv"_s, u"--from"_s, u"2024-03-11"_s, u"--to"_s, u"2024-03-17"_s,
                 u"--output"_s, file }),
        0);
    QVERIFY(m_err.isEmpty());

    // Read back the way a spreadsheet user's script would.
    QProcess python;
    python.start(u"/usr/bin/python3"_s,
        { u"-c"_s,
            u"import csv,sys,json\nrows=list(csv.reader(open(sys.argv[1],newline='',encoding='utf-8'),"
            "delimiter='\\t'))\nprint(json.dumps(rows))"_s,
            file });
    QVERIFY(python.waitForFinished(30000));
    QCOMPARE(python.exitCode(), 0);
    const QJsonArray rows = QJsonDocument::fromJson(python.readAllStandardOutput()).array();
    QCOMPARE(rows.size(), 2);
    bool sawQuoted = false;
    bool sawLines = false;
    bool sawTask = false;
    for (const QJsonValue &row : rows) {
        for (const QJsonValue &field : row.toArray()) {
            sawQuoted |= field.toString() == u"@Acme #design \"quoted\"; semi"_s;
            sawLines |= field.toString() == u"two\nlines"_s;
            sawTask |= field.toString() == u"design"_s;
        }
    }
    QVERIFY(sawQuoted);
    QVERIFY(sawLines);
    QVERIFY(sawTask);

    QCOMPARE(run({ u"export"_s, u"--format"_s, u"pdf"_s }), 1);
    QCOMPARE(m_err.trimmed(), u"--format takes csv or xml, not “pdf”."_s);
}

void TestCommandLine::exportImportRoundTrip()
{
    add(u"@Acme #design a"_s, u"2024-03-12T09:00:05"_s, u"2024-03-12T10:00:59"_s, true);
    add(u"b <&> \"x\""_s, u"2024-03-13T09:00"_s, u"2024-03-13T09:30"_s);
    const QJsonArray original = listJson({});
    QTemporaryDir outside;
    const QString file = outside.filePath(u"all.xml"_s);
    QCOMPARE(run({ u"export"_s, u"--format"_s, u"xml"_s, u"--output"_s, file }), 0);

    QProcess xmllint;
    xmllint.start(u"xmllint"_s, { u"--noout"_s, file });
    QVERIFY(xmllint.waitForFinished(30000));
    QCOMPARE(xmllint.exitCode(), 0);

    // Into an empty journal: the same activities come back.
    m_home = std::make_unique<IsolatedHome>();
    QCOMPARE(run({ u"import"_s, file, u"--dry-run"_s }), 0);
    QVERIFY(m_out.endsWith(u"Would import 2 activities\n"_s));
    QCOMPARE(listJson({}).size(), 0);
    QCOMPARE(run({ u"import"_s, file }), 0);
    QCOMPARE(m_out.trimmed(), u"Imported 2 activities"_s);
    const QJsonArray imported = listJson({});
    QCOMPARE(imported.size(), 2);
    for (qsizetype i = 0; i < imported.size(); ++i) {
        const QJsonObject a = original.at(i).toObject();
        const QJsonObject b = imported.at(i).toObject();
        for (const QString &key : { u"uid"_s, u"text"_s, u"from"_s, u"to"_s, u"invoiced"_s, u"project"_s, u"tasks"_s })
            QCOMPARE(b.value(key), a.value(key));
    }
}

void TestCommandLine::importRefusesBadFilesAndKeepsStore_data()
{
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("not XML") << QByteArray("uid;from;to\n1;2;3\n");
    QTest::newRow("another root") << QByteArray("<?xml version=\"1.0\"?><items><activity/></items>");
    QTest::newRow("entities") << QByteArray("<?xml version=\"1.0\"?><!DOCTYPE a [<!ENTITY x \"y\">]>"
                                            "<activities><activity from=\"2024-03-12T09:00:00\" "
                                            "to=\"2024-03-12T10:00:00\">&x;</activity></activities>");
    QTest::newRow("cut off") << QByteArray("<?xml version=\"1.0\"?><activities><activity from=\"2024-03-12T09:00:00\"");
}

void TestCommandLine::importRefusesBadFilesAndKeepsStore()
{
    QFETCH(QByteArray, content);
    add(u"kept"_s, u"2024-03-12T09:00"_s, u"2024-03-12T10:00"_s);
    const QJsonArray before = listJson({});
    const QString file = m_home->root() + u"/bad.xml"_s;
    QFile out(file);
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write(content);
    out.close();
    QCOMPARE(run({ u"import"_s, file }), 1);
    QCOMPARE(m_err.count(u'\n'), 1);
    QVERIFY(!m_err.trimmed().isEmpty());
    QCOMPARE(listJson({}), before);
}

QTEST_GUILESS_MAIN(TestCommandLine)
#include "testcommandline.moc"
