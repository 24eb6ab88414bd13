// Runs in Europe/Berlin (see CMakeLists.txt). Whole runs of one machine against a sync folder whose
// files were written by hand, by another version or by another tool: what the user sees, what the
// journal ends with, and that the next run after a repair completes.
#include <QtTest>

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QSignalSpy>

#include "model/activity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/isolatedhome.h"
#include "sync/bvfoldersyncbackend.h"
#include "sync/bvsyncservice.h"

using namespace Qt::StringLiterals;

namespace {

QJsonObject record(const QString &uid, const QString &from, const QString &to, const QString &text,
    const QString &modified = u"2024-03-20T08:00:00"_s)
{
    return { { u"uid"_s, uid }, { u"time_from"_s, from }, { u"time_to"_s, to },
        { u"created_at"_s, u"2024-03-01T08:00:00"_s }, { u"modified_at"_s, modified }, { u"is_invoiced"_s, 0 },
        { u"text"_s, text } };
}

QByteArray json(const QJsonArray &records)
{
    return QJsonDocument(records).toJson(QJsonDocument::Compact);
}

struct Outcome
{
    bool succeeded = false;
    QString details;
};

} // namespace

class TestFolderSyncRun : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void filesOfTheFolderAreMergedOrRefused_data();
    void filesOfTheFolderAreMergedOrRefused();
    void monthThirteenIsMergedAndFiledUnderItsRealMonth();
    void aMissingFolderIsNotAnEmptyJournal_data();
    void aMissingFolderIsNotAnEmptyJournal();
    void secondRunAfterATouchedButEqualFileWritesNothing();

private:
    Outcome sync();
    void write(const QString &name, const QByteArray &content);
    QStringList journal();

    std::unique_ptr<IsolatedHome> m_home;
    QString m_folder;
    std::unique_ptr<Store> m_store;
};

void TestFolderSyncRun::init()
{
    QLoggingCategory::setFilterRules(u"brimvale.sync.info=false"_s);
    m_home = std::make_unique<IsolatedHome>();
    m_folder = m_home->root() + u"/Sync"_s;
    QVERIFY(QDir().mkpath(m_folder));
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    auto store = Store::open(options);
    QVERIFY(store.has_value());
    m_store = std::move(*store);
}

void TestFolderSyncRun::cleanup()
{
    m_store.reset();
    m_home.reset();
}

Outcome TestFolderSyncRun::sync()
{
    BVSyncService service(std::make_unique<BVFolderSyncBackend>(m_folder), std::nullopt);
    service.setMOC(*m_store);
    QSignalSpy finished(&service, &BVSyncService::syncServiceFinish);
    QSignalSpy errors(&service, &BVSyncService::syncServiceError);
    service.sync();
    if (!QTest::qWaitFor([&] { return finished.count() + errors.count() > 0; }, 30000))
        return { false, u"the run did not end"_s };
    return { !finished.isEmpty(), errors.isEmpty() ? QString() : errors.constFirst().constFirst().toString() };
}

void TestFolderSyncRun::write(const QString &name, const QByteArray &content)
{
    QFile file(m_folder + u"/"_s + name);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
}

QStringList TestFolderSyncRun::journal()
{
    auto context = m_store->newContext();
    auto activities = context->fetchActivities();
    QStringList lines;
    for (const ActivityPtr &a : activities.value_or(QList<ActivityPtr>())) {
        lines.append(a->uid() + u" "_s + a->timeFrom().toLocalTime().toString(u"yyyy-MM-dd HH:mm"_s) + u" "_s
            + a->text());
    }
    lines.sort();
    return lines;
}

void TestFolderSyncRun::filesOfTheFolderAreMergedOrRefused_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("details"); // empty: the run succeeds
    QTest::addColumn<QStringList>("journal");

    const QJsonObject good = record(u"A1"_s, u"2024-03-05T10:00:00"_s, u"2024-03-05T11:00:00"_s, u"@Acme plan"_s);
    // Dates in the files carry no zone: 10:00 written anywhere is 10:00 here, as a diary would have it.
    QTest::newRow("a month of another machine") << u"2024-03.json"_s << json({ good }) << QString()
                                                << QStringList { u"A1 2024-03-05 10:00 @Acme plan"_s };
    QTest::newRow("files of other tools are left alone")
        << u"notes.txt"_s << QByteArray("not a month") << QString() << QStringList();
    QTest::newRow("a month named without its leading zero")
        << u"2024-3.json"_s << json({ good }) << QString() << QStringList();
    QTest::newRow("a Syncthing temporary file")
        << u"~syncthing~2024-03.json.tmp"_s << json({ good }) << QString() << QStringList();
    QTest::newRow("not JSON") << u"2024-03.json"_s << QByteArray("{\"uid\": ") << u"Failed to load json file. "_s
                              << QStringList();
    QTest::newRow("an empty record") << u"2024-03.json"_s << json({ QJsonObject(good).value(u"x"_s).toObject() })
                            << u"Invalid data for activity(1)!"_s << QStringList();
    QJsonObject backwards = good;
    backwards.insert(u"time_to"_s, u"2024-03-05T09:00:00"_s);
    QTest::newRow("ends before it starts") << u"2024-03.json"_s << json({ backwards })
                                           << u"Start time for activity is greater than end time"_s << QStringList();
    QJsonObject invoicedTwice = good;
    invoicedTwice.insert(u"is_invoiced"_s, 2);
    QTest::newRow("invoiced 2") << u"2024-03.json"_s << json({ invoicedTwice })
                                << u"Invalid invoiced value for activity (0/1)!"_s << QStringList();
    QTest::newRow("a deletion file that is no list") << u"deleted.json"_s << QByteArray("{}")
                                                     << u"Failed to read deleted items!"_s
                                                     << QStringList();
}

void TestFolderSyncRun::filesOfTheFolderAreMergedOrRefused()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, content);
    QFETCH(QString, details);
    QFETCH(QStringList, journal);

    write(name, content);
    for (int run = 0; run < 2; ++run) {
        const Outcome outcome = sync();
        if (details.isEmpty()) {
            QVERIFY2(outcome.succeeded, qPrintable(outcome.details));
        } else {
            // Refused on every run, with the same words, until the file is repaired.
            QVERIFY(!outcome.succeeded);
            QVERIFY2(outcome.details.startsWith(details), qPrintable(outcome.details));
        }
        QCOMPARE(this->journal(), journal);
    }
    // What another tool put there is still there, untouched.
    QFile file(m_folder + u"/"_s + name);
    QVERIFY(file.open(QIODevice::ReadOnly));
    if (details.isEmpty() && name.endsWith(u".json"_s) && journal.isEmpty())
        QCOMPARE(file.readAll(), content);

    if (!details.isEmpty()) {
        QVERIFY(QFile::remove(m_folder + u"/"_s + name));
        const Outcome repaired = sync();
        QVERIFY2(repaired.succeeded, qPrintable(repaired.details));
    }
}

void TestFolderSyncRun::monthThirteenIsMergedAndFiledUnderItsRealMonth()
{
    // A month number past December names the months that follow: 2024-13 is January 2025.
    write(u"2024-13.json"_s,
        json({ record(u"M13"_s, u"2025-01-07T09:00:00"_s, u"2025-01-07T10:00:00"_s, u"@Acme new year"_s) }));
    const Outcome outcome = sync();
    QVERIFY2(outcome.succeeded, qPrintable(outcome.details));
    QCOMPARE(journal(), QStringList { u"M13 2025-01-07 09:00 @Acme new year"_s });
    const QStringList files = QDir(m_folder).entryList(QDir::Files, QDir::Name);
    QVERIFY2(files.contains(u"2025-01.json"_s), qPrintable(files.join(u", "_s)));
}

void TestFolderSyncRun::aMissingFolderIsNotAnEmptyJournal_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QString>("details");
    QTest::newRow("not there") << u"/Unmounted"_s << u"does not exist"_s;
    QTest::newRow("a file") << u"/file"_s << u"is not a folder"_s;
}

void TestFolderSyncRun::aMissingFolderIsNotAnEmptyJournal()
{
    QFETCH(QString, folder);
    QFETCH(QString, details);
    write(u"../file"_s, "x");
    auto context = m_store->newContext();
    ActivityPtr activity = context->insertActivity();
    activity->setTimeFrom(QDateTime(QDate(2024, 3, 5), QTime(10, 0)));
    activity->setTimeTo(QDateTime(QDate(2024, 3, 5), QTime(11, 0)));
    activity->setText(u"@Acme plan"_s);
    QVERIFY(context->save());

    m_folder = m_home->root() + folder;
    const Outcome outcome = sync();
    QVERIFY(!outcome.succeeded);
    QVERIFY2(outcome.details.contains(details), qPrintable(outcome.details));
    QVERIFY(!QFileInfo(m_folder).isDir());
    QCOMPARE(journal().size(), 1);
}

void TestFolderSyncRun::secondRunAfterATouchedButEqualFileWritesNothing()
{
    write(u"2024-03.json"_s,
        json({ record(u"A1"_s, u"2024-03-05T10:00:00"_s, u"2024-03-05T11:00:00"_s, u"@Acme plan"_s) }));
    QVERIFY(sync().succeeded);
    const QString path = m_folder + u"/2024-03.json"_s;
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray content = file.readAll();
    file.close();

    // A sync tool that rewrites a file with the same bytes gives it a new identity but the same revision.
    QVERIFY(QFile::remove(path));
    write(u"2024-03.json"_s, content);
    const QDateTime before = QFileInfo(path).metadataChangeTime();
    QVERIFY(sync().succeeded);
    QCOMPARE(QFileInfo(path).metadataChangeTime(), before);
}

QTEST_GUILESS_MAIN(TestFolderSyncRun)
#include "testfoldersyncrun.moc"
