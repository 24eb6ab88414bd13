// Runs in Europe/Berlin (see CMakeLists.txt): the times in the files are local times.
#include <QtTest>

#include <QRandomGenerator>
#include <QTimeZone>

#include <sys/resource.h>

#include "export/activityimport.h"
#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {

const QTimeZone kBerlin("Europe/Berlin");

QByteArray activityXml(const QByteArray &attributes, const QByteArray &text = "work")
{
    return "<activity " + attributes + ">" + text + "</activity>";
}

QByteArray document(const QByteArray &children)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<activities>" + children + "</activities>\n";
}

const QByteArray kTimes = "from=\"2024-03-12T09:00:00\" to=\"2024-03-12T10:30:00\"";

// One line per activity read: uid (or "fresh" for a new one), invoiced, start and end in Berlin, text.
QString describe(const Activity &activity, const QStringList &givenUids)
{
    static const QRegularExpression uuid(u"^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$"_s);
    const QString uid = givenUids.contains(activity.uid()) ? activity.uid()
        : uuid.match(activity.uid()).hasMatch()            ? u"fresh"_s
                                                           : u"bad uid "_s + activity.uid();
    const QString format = u"yyyy-MM-dd'T'HH:mm:ss"_s;
    return QStringList { uid, activity.isInvoiced() ? u"1"_s : u"0"_s,
        activity.timeFrom().toTimeZone(kBerlin).toString(format),
        activity.timeTo().toTimeZone(kBerlin).toString(format), activity.text() }
        .join(u'|');
}

long maxRssKiB()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

// Writes big files a piece at a time, so that making them costs the test no memory.
void writeRepeated(QFile &file, const QByteArray &piece, qint64 totalBytes)
{
    for (qint64 written = 0; written < totalBytes; written += piece.size())
        file.write(piece);
}

} // namespace

class TestActivityImport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void readsActivityElements_data();
    void readsActivityElements();
    void wallTimesResolveAndSkipsAreCounted_data();
    void wallTimesResolveAndSkipsAreCounted();
    void refusesBadFiles_data();
    void refusesBadFiles();
    void importMatchesByUidAndRevivesDeleted_data();
    void importMatchesByUidAndRevivesDeleted();
    void failedImportChangesNothing();
    void temporaryStoreIsPrivateAndRemoved();

private:
    QString writeFile(const QString &name, const QByteArray &content) const;
    ActivityPtr insert(StoreContext &context, const QString &text, const QDateTime &from, qint64 seconds);
    // What the real store holds, one line per activity, plus the uids of its deletion records.
    QStringList snapshot();

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<Store> m_store;
};

void TestActivityImport::init()
{
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    auto store = Store::open(options);
    QVERIFY(store);
    m_store = std::move(*store);
}

void TestActivityImport::cleanup()
{
    m_store.reset();
    m_home.reset();
}

QString TestActivityImport::writeFile(const QString &name, const QByteArray &content) const
{
    const QString path = m_home->root() + u'/' + name;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

ActivityPtr TestActivityImport::insert(
    StoreContext &context, const QString &text, const QDateTime &from, qint64 seconds)
{
    ActivityPtr activity = context.insertActivity();
    activity->setText(text);
    activity->setTimeFrom(from);
    activity->setTimeTo(from.addSecs(seconds));
    return activity;
}

QStringList TestActivityImport::snapshot()
{
    auto context = m_store->newContext();
    QStringList lines;
    const QList<ActivityPtr> activities = context->fetchActivities().value_or(QList<ActivityPtr>());
    for (const ActivityPtr &activity : activities)
        lines.append(activity->uid() + u'|' + describe(*activity, { activity->uid() }));
    const QList<DeletedActivityPtr> tombstones
        = context->fetchDeletedActivities().value_or(QList<DeletedActivityPtr>());
    for (const DeletedActivityPtr &tombstone : tombstones)
        lines.append(u"deleted "_s + tombstone->uid());
    lines.sort();
    return lines;
}

void TestActivityImport::readsActivityElements_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("attributes and untrimmed text")
        << document(activityXml(
               " uid=\" A-1 \n\" invoiced=\"1\" project=\"ignored\" " + kTimes, "  text &amp; &lt;more&gt; "))
        << QStringList { u"A-1|1|2024-03-12T09:00:00|2024-03-12T10:30:00|  text & <more> "_s };
    QTest::newRow("missing uid gets a fresh one")
        << document(activityXml(kTimes) + activityXml("uid=\"  \" " + kTimes))
        << QStringList { u"fresh|0|2024-03-12T09:00:00|2024-03-12T10:30:00|work"_s,
               u"fresh|0|2024-03-12T09:00:00|2024-03-12T10:30:00|work"_s };
    QTest::newRow("invoiced only when 1") << document(
        activityXml("uid=\"T\" invoiced=\"true\" " + kTimes) + activityXml("uid=\"Z\" invoiced=\"01\" " + kTimes))
                                          << QStringList { u"T|0|2024-03-12T09:00:00|2024-03-12T10:30:00|work"_s,
                                                 u"Z|0|2024-03-12T09:00:00|2024-03-12T10:30:00|work"_s };
    QTest::newRow("skipped without valid times")
        << document(activityXml("uid=\"a\" from=\"2024-03-12T09:00:00\"")
               + activityXml("uid=\"b\" to=\"2024-03-12T09:00:00\"")
               + activityXml("uid=\"c\" from=\"2024-02-30T09:00:00\" to=\"2024-03-12T09:00:00\"")
               + activityXml("uid=\"d\" from=\"2024-03-12 09:00:00\" to=\"2024-03-12T10:00:00\"")
               + activityXml("uid=\"f\" from=\"2024-03-12T10:00:00\" to=\"2024-03-12T09:00:00\"")
               + activityXml("uid=\"g\" from=\"2024-03-12T09:00:00\" to=\"2024-03-12T09:00:01\""))
        << QStringList { u"g|0|2024-03-12T09:00:00|2024-03-12T09:00:01|work"_s };
    QTest::newRow("whole string value of the element")
        << document(activityXml("uid=\"n\" " + kTimes, "a<b>b<i>c</i></b><!-- not text -->d<![CDATA[<e>]]>\n"))
        << QStringList { u"n|0|2024-03-12T09:00:00|2024-03-12T10:30:00|abcd<e>\n"_s };
    QTest::newRow("only children of the root")
        << document("<group>" + activityXml("uid=\"deep\" " + kTimes) + "</group>stray text<note/>"
               + activityXml("uid=\"top\" " + kTimes))
        << QStringList { u"top|0|2024-03-12T09:00:00|2024-03-12T10:30:00|work"_s };
    QTest::newRow("repeated uid keeps the last") << document(activityXml("uid=\"R\" " + kTimes, "first")
        + activityXml("uid=\"R\" invoiced=\"1\" from=\"2024-03-13T08:00:00\" to=\"2024-03-13T09:00:00\"",
            "second")) << QStringList { u"R|1|2024-03-13T08:00:00|2024-03-13T09:00:00|second"_s };
    QTest::newRow("declared encoding") << QByteArray("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><activities>"
        + activityXml("uid=\"L\" " + kTimes, "caf\xe9") + "</activities>")
                                       << QStringList { u"L|0|2024-03-12T09:00:00|2024-03-12T10:30:00|café"_s };
    QTest::newRow("summer time change inside")
        << document(activityXml("uid=\"S\" from=\"2024-03-31T01:30:00\" to=\"2024-03-31T03:30:00\""))
        << QStringList { u"S|0|2024-03-31T01:30:00|2024-03-31T03:30:00|work"_s };
    QTest::newRow("no activities") << document("<note/>") << QStringList();
}

void TestActivityImport::readsActivityElements()
{
    QFETCH(QByteArray, xml);
    QFETCH(QStringList, expected);

    ActivityImport import;
    auto read = import.importActivitiesFromURL(writeFile(u"in.xml"_s, xml));
    if (!read)
        QFAIL(qPrintable(read.error().message()));
    const QStringList given { u"A-1"_s, u"T"_s, u"Z"_s, u"g"_s, u"n"_s, u"top"_s, u"R"_s, u"L"_s, u"S"_s };
    QStringList lines;
    for (const ActivityPtr &activity : std::as_const(*read))
        lines.append(describe(*activity, given));
    QCOMPARE(lines, expected);
    // Everything read is in the temporary store; a file without activities does not even make one.
    QCOMPARE(import.temporaryStore() != nullptr, !expected.isEmpty());
    QCOMPARE(import.listedActivities()->size(), expected.size());
}

void TestActivityImport::wallTimesResolveAndSkipsAreCounted_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<QDateTime>("start"); // invalid: the element is skipped
    QTest::addColumn<QDateTime>("end");
    QTest::addColumn<QString>("report");

    const QDateTime nine(QDate(2024, 3, 12), QTime(8, 0), QTimeZone::utc());
    const QDateTime halfPastTen(QDate(2024, 3, 12), QTime(9, 30), QTimeZone::utc());
    // Exports made under fa_IR and ar_EG write the locale's digits.
    QTest::newRow("Persian digits") << u"۲۰۲۴-۰۳-۱۲T۰۹:۰۰:۰۰"_s << u"۲۰۲۴-۰۳-۱۲T۱۰:۳۰:۰۰"_s << nine << halfPastTen
                                    << QString();
    QTest::newRow("Arabic-Indic digits") << u"٢٠٢٤-٠٣-١٢T٠٩:٠٠:٠٠"_s << u"2024-03-12T١٠:٣٠:٠٠"_s << nine << halfPastTen
                                         << QString();
    QTest::newRow("digits beyond the first plane")
        << u"𝟐𝟎𝟐𝟒-𝟎𝟑-𝟏𝟐T𝟎𝟗:𝟎𝟎:𝟎𝟎"_s << u"2024-03-12T10:30:00"_s << nine << halfPastTen << QString();
    // Berlin repeats 02:00-02:59 on 27 October 2024; 00:30Z-01:30Z is written "02:30"-"02:30".
    QTest::newRow("the repeated autumn hour")
        << u"2024-10-27T02:30:00"_s << u"2024-10-27T02:30:00"_s
        << QDateTime(QDate(2024, 10, 27), QTime(0, 30), QTimeZone::utc())
        << QDateTime(QDate(2024, 10, 27), QTime(1, 30), QTimeZone::utc()) << QString();
    QTest::newRow("start equals end") << u"2024-03-12T09:00:00"_s << u"2024-03-12T09:00:00"_s << nine << nine.addSecs(1)
                                      << u"Kept 1 element that starts and ends in one second one second long"_s;
    QTest::newRow("end before start") << u"2024-03-12T10:00:00"_s << u"2024-03-12T09:00:00"_s << QDateTime()
                                      << QDateTime() << u"Skipped 1 element: 1 ending before it starts"_s;
    QTest::newRow("impossible day") << u"2024-02-30T09:00:00"_s << u"2024-03-12T10:30:00"_s << QDateTime()
                                    << QDateTime()
                                    << u"Skipped 1 element: 1 without readable \"from\" and \"to\" times"_s;
    QTest::newRow("superscript is no decimal digit")
        << u"2024-03-12T09:00:0²"_s << u"2024-03-12T10:30:00"_s << QDateTime() << QDateTime()
        << u"Skipped 1 element: 1 without readable \"from\" and \"to\" times"_s;
}

void TestActivityImport::wallTimesResolveAndSkipsAreCounted()
{
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(QDateTime, start);
    QFETCH(QDateTime, end);
    QFETCH(QString, report);

    const QByteArray attributes = "uid=\"U\" from=\"" + from.toUtf8() + "\" to=\"" + to.toUtf8() + "\"";
    ActivityImport import;
    const auto read = import.importActivitiesFromURL(writeFile(u"in.xml"_s, document(activityXml(attributes))));
    QVERIFY(read);
    QCOMPARE(read->size(), start.isValid() ? 1 : 0);
    if (start.isValid()) {
        QCOMPARE(read->constFirst()->timeFrom(), start);
        QCOMPARE(read->constFirst()->timeTo(), end);
        // The real store takes what stage 1 read: nothing under one second is left for it to refuse.
        QVERIFY(!ActivityImport::importActivities(*read, *m_store).isError());
    }
    QCOMPARE(import.skipped().text(), report);
}

void TestActivityImport::refusesBadFiles_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");

    using namespace ActivityImportErrors;
    QTest::newRow("binary") << u"binary"_s << NotXmlCode << u"Not a well-formed XML file"_s;
    QTest::newRow("plain text") << u"text"_s << NotXmlCode << u"Start tag expected"_s;
    QTest::newRow("empty file") << u"empty"_s << NotXmlCode << u"Premature end of document"_s;
    QTest::newRow("cut off") << u"cut"_s << NotXmlCode << u"Premature end of document"_s;
    QTest::newRow("second root") << u"second root"_s << NotXmlCode << u"Extra content"_s;
    QTest::newRow("undeclared entity") << u"undeclared"_s << NotXmlCode << u"not declared"_s;
    QTest::newRow("root activity") << u"root activity"_s << WrongRootCode << u"\"activity\", not \"activities\""_s;
    QTest::newRow("namespaced root") << u"namespaced"_s << WrongRootCode << u"\"x:activities\""_s;
    QTest::newRow("50 MB of garbage") << u"garbage"_s << NotXmlCode << u"Not a well-formed XML file"_s;
    QTest::newRow("50 MB of text in the root") << u"big text"_s << TooLargeCode << u"larger than 4 MB"_s;
    QTest::newRow("50 MB attribute") << u"big attribute"_s << TooLargeCode << u"larger than 4 MB"_s;
    QTest::newRow("2 MB activity text") << u"long activity"_s << TooLargeCode << u"longer than 1048576"_s;
    QTest::newRow("100,000 deep") << u"deep"_s << TooDeepCode << u"deeper than 32 levels"_s;
    QTest::newRow("billion laughs") << u"laughs"_s << DocumentTypeCode << u"document type or entities"_s;
    QTest::newRow("external entity") << u"external"_s << DocumentTypeCode << u"document type or entities"_s;
    QTest::newRow("missing file") << u"missing"_s << UnreadableCode << u"No such file"_s;
}

void TestActivityImport::refusesBadFiles()
{
    QFETCH(QString, kind);
    QFETCH(int, code);
    QFETCH(QString, message);

    // The real store holds an activity and a deletion record; none of it may change.
    {
        auto context = m_store->newContext();
        ActivityPtr kept = insert(*context, u"kept"_s, QDateTime(QDate(2024, 1, 5), QTime(9, 0), kBerlin), 600);
        kept->setUid(u"KEPT"_s);
        ActivityPtr gone = insert(*context, u"gone"_s, QDateTime(QDate(2024, 1, 6), QTime(9, 0), kBerlin), 600);
        gone->setUid(u"GONE"_s);
        QVERIFY(context->save());
        DeletedActivity::deleteActivity(gone, *context);
        QVERIFY(context->save());
    }
    const QStringList before = snapshot();

    const QByteArray valid = activityXml("uid=\"GONE\" " + kTimes, "would revive");
    const QString secret = writeFile(u"secret.txt"_s, "the secret");
    const qint64 fifty = 50LL * 1024 * 1024;
    QString path = m_home->root() + u"/bad.xml"_s;
    QFile file(path);
    if (kind != u"missing"_s)
        QVERIFY(file.open(QIODevice::WriteOnly));
    if (kind == u"binary"_s) {
        file.write(QByteArray("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16));
    } else if (kind == u"text"_s) {
        file.write("activities: none\n");
    } else if (kind == u"cut"_s) {
        file.write(document(valid).chopped(20));
    } else if (kind == u"second root"_s) {
        file.write(document(valid) + "<activities/>");
    } else if (kind == u"undeclared"_s) {
        file.write(document(activityXml(kTimes, "&foo;") + valid));
    } else if (kind == u"root activity"_s) {
        file.write(valid);
    } else if (kind == u"namespaced"_s) {
        file.write("<x:activities xmlns:x=\"urn:x\">" + valid + "</x:activities>");
    } else if (kind == u"garbage"_s) {
        QByteArray block(1024 * 1024, Qt::Uninitialized);
        QRandomGenerator random(42);
        for (qint64 written = 0; written < fifty; written += block.size()) {
            random.fillRange(reinterpret_cast<quint32 *>(block.data()), block.size() / 4);
            file.write(block);
        }
    } else if (kind == u"big text"_s) {
        file.write("<activities>" + valid);
        writeRepeated(file, QByteArray(1024 * 1024, 'A'), fifty);
        file.write("</activities>");
    } else if (kind == u"big attribute"_s) {
        file.write("<activities>" + valid + "<activity " + kTimes + " note=\"");
        writeRepeated(file, QByteArray(1024 * 1024, 'B'), fifty);
        file.write("\">x</activity></activities>");
    } else if (kind == u"long activity"_s) {
        // Short pieces, so that no single token is large: only the text of the element grows.
        file.write("<activities>" + valid + "<activity " + kTimes + ">");
        writeRepeated(file, QByteArray(1000, 'C') + "<b/>", 2 * 1024 * 1024);
        file.write("</activity></activities>");
    } else if (kind == u"deep"_s) {
        file.write("<activities>" + valid);
        writeRepeated(file, "<a>", 3 * 100000);
        writeRepeated(file, "</a>", 4 * 100000);
        file.write("</activities>");
    } else if (kind == u"laughs"_s) {
        QByteArray dtd = "<?xml version=\"1.0\"?>\n<!DOCTYPE activities [\n <!ENTITY lol \"lol\">\n";
        dtd += " <!ENTITY lol1 \"&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;&lol;\">\n";
        for (int level = 2; level <= 9; ++level) {
            const QByteArray previous = "&lol" + QByteArray::number(level - 1) + ";";
            dtd += " <!ENTITY lol" + QByteArray::number(level) + " \"" + previous.repeated(10) + "\">\n";
        }
        file.write(dtd + "]>\n<activities>" + activityXml(kTimes, "&lol9;") + valid + "</activities>");
    } else if (kind == u"external"_s) {
        file.write("<?xml version=\"1.0\"?>\n<!DOCTYPE activities [ <!ENTITY secret SYSTEM \""
            + QUrl::fromLocalFile(secret).toEncoded() + "\"> ]>\n<activities>"
            + activityXml("from=\"&secret;\" to=\"2024-03-12T10:30:00\"", "&secret;") + valid + "</activities>");
    }
    file.close();

    const long rssBefore = maxRssKiB();
    ActivityImport import;
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"^Import refused: "_s));
    auto read = import.importActivitiesFromURL(path);
    const long grownMiB = (maxRssKiB() - rssBefore) / 1024;

    QVERIFY(!read);
    QCOMPARE(read.error().domain(), u"brimvale.import"_s);
    QCOMPARE(read.error().code(), code);
    QVERIFY2(read.error().description().contains(message), qPrintable(read.error().description()));
    // A file read whole, or expanded, would take several times its 50 MB.
    QVERIFY2(grownMiB < 100, qPrintable(u"memory grew by %1 MiB"_s.arg(grownMiB)));
    QVERIFY(import.listedActivities()->isEmpty());
    QCOMPARE(snapshot(), before);
}

void TestActivityImport::importMatchesByUidAndRevivesDeleted_data()
{
    QTest::addColumn<int>("padding");
    QTest::newRow("looked up one by one") << 0;
    QTest::newRow("looked up in bulk") << 300;
}

void TestActivityImport::importMatchesByUidAndRevivesDeleted()
{
    QFETCH(int, padding);
    const QDateTime monday(QDate(2024, 3, 11), QTime(9, 0), kBerlin);
    qint64 keptId = 0;
    QDateTime keptCreated;
    {
        auto context = m_store->newContext();
        ActivityPtr existing = insert(*context, u"@Old text"_s, monday, 3600);
        existing->setUid(u"SAME"_s);
        ActivityPtr other = insert(*context, u"untouched"_s, monday.addDays(1), 60);
        other->setUid(u"OTHER"_s);
        ActivityPtr deleted = insert(*context, u"deleted once"_s, monday.addDays(2), 60);
        deleted->setUid(u"BACK"_s);
        QVERIFY(context->save());
        keptId = existing->objectId();
        keptCreated = existing->createdAt();
        DeletedActivity::deleteActivity(deleted, *context);
        QVERIFY(context->save());
    }

    QByteArray children = activityXml("uid=\"SAME\" invoiced=\"1\" from=\"2024-03-12T08:00:00\" "
                                      "to=\"2024-03-12T08:45:30\"",
                              "@New text #edited")
        + activityXml("uid=\"BACK\" from=\"2024-03-13T09:00:00\" to=\"2024-03-13T09:01:00\"", "deleted once")
        + activityXml("uid=\"NEW\" " + kTimes, "brand new");
    for (int i = 0; i < padding; ++i)
        children += activityXml("uid=\"PAD-" + QByteArray::number(i) + "\" " + kTimes, "padding");
    ActivityImport import;
    auto read = import.importActivitiesFromURL(writeFile(u"in.xml"_s, document(children)));
    QVERIFY(read);

    const ActivityImportResult result = ActivityImport::importActivities(*read, *m_store);
    QVERIFY(!result.isError());
    QCOMPARE(result.count, 3 + padding);
    QCOMPARE(ActivityImportResult::title(), u"Activity import!"_s);
    QCOMPARE(result.text(), u"Imported %1 activities"_s.arg(3 + padding));

    auto context = m_store->newContext();
    const ActivityPtr same = *context->activityWithUid(u"SAME"_s);
    QCOMPARE(same->objectId(), keptId);
    QCOMPARE(same->createdAt(), keptCreated);
    QCOMPARE(describe(*same, { u"SAME"_s }), u"SAME|1|2024-03-12T08:00:00|2024-03-12T08:45:30|@New text #edited"_s);
    QCOMPARE(same->project()->name(), u"New"_s);
    QCOMPARE(same->tasksStr(), u"edited"_s);
    QCOMPARE((*context->activityWithUid(u"OTHER"_s))->text(), u"untouched"_s);
    QVERIFY(*context->activityWithUid(u"BACK"_s));
    QVERIFY(context->fetchDeletedActivities(u"BACK"_s)->isEmpty());
    QCOMPARE((*context->activityWithUid(u"NEW"_s))->text(), u"brand new"_s);
    QCOMPARE(*context->countActivities(), 4 + padding);
}

void TestActivityImport::failedImportChangesNothing()
{
    {
        auto context = m_store->newContext();
        ActivityPtr existing = insert(*context, u"original"_s, QDateTime(QDate(2024, 3, 11), QTime(9, 0), kBerlin), 60);
        existing->setUid(u"SAME"_s);
        ActivityPtr deleted = insert(*context, u"deleted"_s, QDateTime(QDate(2024, 3, 11), QTime(11, 0), kBerlin), 60);
        deleted->setUid(u"BACK"_s);
        QVERIFY(context->save());
        DeletedActivity::deleteActivity(deleted, *context);
        QVERIFY(context->save());
    }
    const QStringList before = snapshot();

    ActivityImport import;
    auto read = import.importActivitiesFromURL(writeFile(u"in.xml"_s,
        document(activityXml("uid=\"SAME\" " + kTimes, "changed") + activityXml("uid=\"BACK\" " + kTimes))));
    QVERIFY(read);
    // An activity the store refuses (it lasts no time at all) fails the whole import.
    auto broken = std::make_shared<Activity>();
    broken->setUid(u"BROKEN"_s);
    broken->setTimeFrom(QDateTime(QDate(2024, 3, 11), QTime(9, 0), kBerlin));
    broken->setTimeTo(broken->timeFrom());
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"^Import failed: "_s));

    const ActivityImportResult result = ActivityImport::importActivities(*read << broken, *m_store);
    QVERIFY(result.isError());
    QCOMPARE(result.count, 0);
    QCOMPARE(result.text(), u"Error occurred!"_s);
    QCOMPARE(snapshot(), before);
}

void TestActivityImport::temporaryStoreIsPrivateAndRemoved()
{
    QString folder;
    {
        ActivityImport import;
        QVERIFY(import.ensurePersistentStore());
        const QString storePath = import.temporaryStore()->storePath();
        QVERIFY2(storePath.startsWith(QDir::tempPath() + u"/brimVale."_s), qPrintable(storePath));
        folder = QFileInfo(storePath).dir().absolutePath();
        QVERIFY(QFileInfo::exists(storePath));
        ActivityImport second;
        QVERIFY(second.ensurePersistentStore());
        QVERIFY(second.temporaryStore()->storePath() != storePath);
    }
    QVERIFY(!QFileInfo::exists(folder));
}

QTEST_GUILESS_MAIN(TestActivityImport)
#include "testactivityimport.moc"
