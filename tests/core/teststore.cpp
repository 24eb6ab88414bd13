#include <QtTest>

#include <QProcess>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QThread>

#include "fakes/fakeclock.h"
#include "model/activity.h"
#include "model/deletedactivity.h"
#include "model/journalqueries.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "model/storeerrors.h"
#include "support/isolatedhome.h"
#include "support/writeprotection.h"

using namespace Qt::StringLiterals;

namespace {

// Every file in `dir` with its content, to tell whether anything was written, made or left behind.
QMap<QString, QByteArray> filesIn(const QString &dir)
{
    QMap<QString, QByteArray> files;
    for (const QFileInfo &info : QDir(dir).entryInfoList(QDir::Files | QDir::Hidden | QDir::System)) {
        QFile file(info.filePath());
        files.insert(info.fileName(), file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("unreadable"));
    }
    return files;
}

// Runs `statements` on the file at `path` through a connection of its own, as another program would.
bool runSql(const QString &path, const QStringList &statements)
{
    bool done = true;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"raw"_s);
        db.setDatabaseName(path);
        done = db.open();
        QSqlQuery query(db);
        for (const QString &statement : statements) {
            if (done && !query.exec(statement)) {
                qWarning() << statement << query.lastError().text();
                done = false;
            }
        }
        query.clear();
        db.close();
    }
    QSqlDatabase::removeDatabase(u"raw"_s);
    return done;
}

} // namespace

class TestStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void opensNewStoreInWalModeWithCurrentVersion_data();
    void opensNewStoreInWalModeWithCurrentVersion();
    void refusesUnusableFiles_data();
    void refusesUnusableFiles();
    void readOnlyStoreReadsButRefusesWrites_data();
    void readOnlyStoreReadsButRefusesWrites();
    void openingRekeysNamesAndMergesCollisions();
    void failedSaveChangesNothing();
    void sameRowIsSameObject();
    void unsavedChangesSurviveRefetch();
    void changeSignalSaysWhatChangedOnTheStoresThread();
    void coalescedChangesKeepTheLastFate_data();
    void coalescedChangesKeepTheLastFate();
    void resetDropsUnsavedChanges();
    void fetchByManyUids();
    void noticesCommitsOfAnotherProcess();
    void everyCommittedActivitySurvivesAKill();
    void nameStoredElsewhereIsTakenOver_data();
    void nameStoredElsewhereIsTakenOver();
    void concurrentEditsOfOtherColumnsSurvive_data();
    void concurrentEditsOfOtherColumnsSurvive();
    void changeOfActivityDeletedElsewhereFails_data();
    void changeOfActivityDeletedElsewhereFails();
    void sqlErrorsNameTheFileOnlyWhenKnown_data();
    void sqlErrorsNameTheFileOnlyWhenKnown();

private:
    std::unique_ptr<Store> openStore();
    ActivityPtr insert(StoreContext &context, const QString &text, int minutes = 30);
    QStringList totals(Store &store, bool tasks);

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock;
};

void TestStore::init()
{
    m_home = std::make_unique<IsolatedHome>();
}

void TestStore::cleanup()
{
    m_home.reset();
}

std::unique_ptr<Store> TestStore::openStore()
{
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    auto store = Store::open(options);
    if (!store) {
        qWarning() << store.error().message();
        return nullptr;
    }
    return std::move(*store);
}

ActivityPtr TestStore::insert(StoreContext &context, const QString &text, int minutes)
{
    ActivityPtr activity = context.insertActivity();
    activity->setText(text);
    const QDateTime from(QDate(2024, 3, 12), QTime(9, 0));
    activity->setTimeFrom(from);
    activity->setTimeTo(from.addSecs(minutes * 60));
    return activity;
}

QStringList TestStore::totals(Store &store, bool tasks)
{
    QStringList lines;
    const auto all = JournalQueries(store).itemTotals(tasks);
    for (const JournalQueries::ItemTotal &total : *all)
        lines.append(u"%1 %2"_s.arg(total.name).arg(total.activities));
    return lines;
}

void TestStore::opensNewStoreInWalModeWithCurrentVersion_data()
{
    QTest::addColumn<QStringList>("existing");
    QTest::newRow("no file") << QStringList();
    QTest::newRow("empty file") << QStringList { u"PRAGMA user_version"_s };
    QTest::newRow("SQLite file whose tables were dropped")
        << QStringList { u"CREATE TABLE t (x)"_s, u"DROP TABLE t"_s };
}

void TestStore::opensNewStoreInWalModeWithCurrentVersion()
{
    QFETCH(QStringList, existing);
    const QString storeFile = m_home->applicationFilesDirectory() + u"/db/storedata"_s;
    if (!existing.isEmpty()) {
        QVERIFY(QDir().mkpath(m_home->applicationFilesDirectory() + u"/db"_s));
        QVERIFY(runSql(storeFile, existing));
        QVERIFY(QFile::exists(storeFile));
    }

    auto store = openStore();
    QVERIFY(store);
    QCOMPARE(store->storePath(), storeFile);
    QVERIFY(!store->isReadOnly());
    auto context = store->newContext();
    insert(*context, u"@Acme #design mock-ups"_s);
    QVERIFY(context->save());
    QVERIFY(QFile::exists(store->storePath() + u"-wal"_s));
    QVERIFY(QFile::exists(store->storePath() + u"-shm"_s));

    {
        QSqlQuery query(*store->database());
        QVERIFY(query.exec(u"PRAGMA user_version"_s) && query.next());
        QCOMPARE(query.value(0).toInt(), 5);
        QVERIFY(query.exec(u"PRAGMA foreign_keys"_s) && query.next());
        QCOMPARE(query.value(0).toInt(), 1);
    }

    context.reset();
    store.reset();
    store = openStore();
    QVERIFY(store);
    QCOMPARE(*store->newContext()->countActivities(), 1);
}

void TestStore::refusesUnusableFiles_data()
{
    QTest::addColumn<QString>("setup");
    QTest::addColumn<QString>("domain");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text"); // %1: the db folder, %2: the store file

    QTest::newRow("db is a file") << "dbfile"
                                  << "YOUR_ERROR_DOMAIN" << 101
                                  << "Expected a folder to store application data, found a file (%1).";
    QTest::newRow("store is not a database")
        << "garbage"
        << "NSSQLiteErrorDomain" << 26 << "Could not use the store “%2”: file is not a database.";
    QTest::newRow("store from a newer version")
        << "newer"
        << "NSCocoaErrorDomain" << 134100
        << "The store “%2” has version 6, newer than version 5, the newest this version of Brimvale knows; it was "
           "left untouched. Open it with the Brimvale that wrote it.";
    QTest::newRow("database of another program")
        << "foreign"
        << "NSCocoaErrorDomain" << 259
        << "The file “%2” is a database of another program, not a Brimvale store; Brimvale leaves it untouched. "
           "Move it elsewhere to start a new journal.";
}

void TestStore::refusesUnusableFiles()
{
    QFETCH(QString, setup);
    QFETCH(QString, domain);
    QFETCH(int, code);
    QFETCH(QString, text);

    const QString dbDir = m_home->applicationFilesDirectory() + u"/db"_s;
    const QString storeFile = dbDir + u"/storedata"_s;
    if (setup == "dbfile"_L1) {
        QDir().mkpath(m_home->applicationFilesDirectory());
        QFile file(dbDir);
        QVERIFY(file.open(QIODevice::WriteOnly));
    } else {
        QDir().mkpath(dbDir);
        if (setup == "garbage"_L1) {
            QFile file(storeFile);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(QByteArray(8192, 'x'));
        } else if (setup == "newer"_L1) {
            QVERIFY(runSql(storeFile, { u"PRAGMA journal_mode = WAL"_s, u"PRAGMA user_version = 6"_s }));
        } else {
            QVERIFY(runSql(storeFile, { u"CREATE TABLE notes (body TEXT)"_s, u"INSERT INTO notes VALUES ('mine')"_s }));
        }
    }
    const QMap<QString, QByteArray> before = filesIn(dbDir);

    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    const auto store = Store::open(options);
    QVERIFY(!store);
    QCOMPARE(store.error().domain(), domain);
    QCOMPARE(store.error().code(), code);
    QCOMPARE(store.error().message(), QString(text).replace(u"%1"_s, dbDir).replace(u"%2"_s, storeFile));
    // A file that is not ours is left exactly as it was, without side files.
    QCOMPARE(filesIn(dbDir), before);
}

void TestStore::readOnlyStoreReadsButRefusesWrites_data()
{
    QTest::addColumn<bool>("folder");
    QTest::newRow("read-only folder") << true;
    QTest::newRow("read-only file") << false;
}

void TestStore::readOnlyStoreReadsButRefusesWrites()
{
    QFETCH(bool, folder);
    const QString dbDir = m_home->applicationFilesDirectory() + u"/db"_s;
    {
        auto store = openStore();
        auto context = store->newContext();
        insert(*context, u"@Acme kept"_s);
        QVERIFY(context->save());
    }
    const QMap<QString, QByteArray> before = filesIn(dbDir);
    QCOMPARE(before.keys(), QStringList { u"storedata"_s });

    WriteProtection protection(folder ? dbDir : dbDir + u"/storedata"_s);
    if (!protection.isActive())
        QSKIP("the file system of the temporary folder cannot make a file immutable");
    {
        auto store = openStore();
        QVERIFY(store);
        QVERIFY(store->isReadOnly());
        auto context = store->newContext();
        const auto activities = context->fetchActivities();
        QVERIFY(activities);
        QCOMPARE(activities->size(), 1);
        QCOMPARE(activities->constFirst()->project()->name(), u"Acme"_s);

        insert(*context, u"@Globex refused"_s);
        const auto refused = context->save();
        QVERIFY(!refused);
        QCOMPARE(refused.error().code(), 8);
        QCOMPARE(refused.error().message(),
            u"Could not use the store “%1/storedata”: attempt to write a readonly database. Make the folder “%1” "
            "and the files in it writable."_s.arg(dbDir));
    }
    QCOMPARE(filesIn(dbDir), before);
}

void TestStore::openingRekeysNamesAndMergesCollisions()
{
    const QString storeFile = m_home->applicationFilesDirectory() + u"/db/storedata"_s;
    QVERIFY(openStore());
    // Keys as an earlier version computed them, with simple case folding only: names that are one name
    // under full folding have rows of their own.
    QStringList statements {
        u"INSERT INTO projects (id, name, name_key) VALUES (1, 'STRASSE', 'strasse'), (2, 'Straße', 'straße'),"
        " (3, 'İstanbul', 'İstanbul'), (4, 'Acme', 'acme')"_s,
        u"INSERT INTO tasks (id, name, name_key) VALUES (1, 'ﬁle', 'ﬁle'), (2, 'FILE', 'file')"_s,
    };
    // modified_at tells which spelling was used last: Straße and FILE (activity 2).
    const QList<std::tuple<int, int, qint64>> activities { { 1, 1, 1000 }, { 2, 2, 3000 }, { 3, 1, 2000 },
        { 4, 3, 1000 }, { 5, 4, 1000 } };
    for (const auto &[id, project, modified] : activities)
        statements.append(
            u"INSERT INTO activities (id, uid, text, time_from, time_to, created_at, modified_at,"
            " year_month, project_id) VALUES (%1, 'uid-%1', 'text', 0, 60000, 0, %3, 197001, %2)"_s.arg(id)
                .arg(project)
                .arg(modified));
    // Activity 3 is linked to both spellings of the task.
    statements.append(
        u"INSERT INTO activity_tasks (activity_id, task_id) VALUES (1, 1), (2, 2), (3, 1), (3, 2), (4, 1)"_s);
    QVERIFY(runSql(storeFile, statements));

    auto store = openStore();
    QVERIFY(store);
    QSqlQuery query(*store->database());
    auto rows = [&query](const QString &sql) {
        QStringList result;
        if (!query.exec(sql))
            return QStringList { query.lastError().text() };
        while (query.next()) {
            QStringList columns;
            for (int i = 0; i < query.record().count(); ++i)
                columns.append(query.value(i).toString());
            result.append(columns.join(u' '));
        }
        return result;
    };
    QCOMPARE(rows(u"SELECT id, name, name_key FROM projects ORDER BY id"_s),
        QStringList({ u"2 Straße strasse"_s, u"3 İstanbul istanbul"_s, u"4 Acme acme"_s }));
    QCOMPARE(rows(u"SELECT id, project_id FROM activities ORDER BY id"_s),
        QStringList({ u"1 2"_s, u"2 2"_s, u"3 2"_s, u"4 3"_s, u"5 4"_s }));
    QCOMPARE(rows(u"SELECT id, name, name_key FROM tasks ORDER BY id"_s), QStringList { u"2 FILE file"_s });
    QCOMPARE(rows(u"SELECT activity_id, task_id FROM activity_tasks ORDER BY activity_id"_s),
        QStringList({ u"1 2"_s, u"2 2"_s, u"3 2"_s, u"4 2"_s }));

    // Found under every spelling, and no second row can come in beside it.
    auto context = store->newContext();
    QCOMPARE(context->findProject(u"istanbul"_s)->objectId(), 3);
    insert(*context, u"@ISTANBUL #File trip"_s);
    QVERIFY(context->save());
    QCOMPARE(context->projects()->size(), 3);
    QCOMPARE(context->tasks()->size(), 1);
}

void TestStore::failedSaveChangesNothing()
{
    auto store = openStore();
    auto context = store->newContext();
    ActivityPtr kept = insert(*context, u"@Acme kept"_s);
    QVERIFY(context->save());

    // The second new activity collides with the first one's uid half-way through the transaction.
    kept->setText(u"@Acme changed #edit"_s);
    ActivityPtr fresh = insert(*context, u"@Globex #new fresh"_s);
    ActivityPtr clash = insert(*context, u"clash"_s);
    clash->setUid(kept->uid());
    const auto failed = context->save();
    QVERIFY(!failed);
    QCOMPARE(failed.error().domain(), u"NSSQLiteErrorDomain"_s);

    auto other = store->newContext();
    QCOMPARE(*other->countActivities(), 1);
    QCOMPARE((*other->activityWithUid(kept->uid()))->text(), u"@Acme kept"_s);
    QCOMPARE(other->projects()->size(), 1);
    QVERIFY(other->tasks()->isEmpty());

    // Once the cause is gone the same context saves everything it held.
    context->deleteObject(clash);
    QVERIFY(context->save());
    other->refreshObjects();
    QCOMPARE(*other->countActivities(), 2);
    QCOMPARE((*other->activityWithUid(kept->uid()))->text(), u"@Acme changed #edit"_s);
    QCOMPARE((*other->activityWithUid(fresh->uid()))->project()->name(), u"Globex"_s);
    QCOMPARE(other->projects()->size(), 2);
}

void TestStore::sameRowIsSameObject()
{
    auto store = openStore();
    auto context = store->newContext();
    ActivityPtr activity = insert(*context, u"@Acme #a #b x"_s);
    QVERIFY(context->save());
    QCOMPARE(*context->activityWithUid(activity->uid()), activity);

    auto other = store->newContext();
    ActivityPtr first = *other->activityWithUid(activity->uid());
    ActivityPtr second = other->fetchActivities()->constFirst();
    QCOMPARE(first, second);
    QVERIFY(first != activity);
    QCOMPARE(first->tasks().size(), 2);
    QCOMPARE(first->durationSecs(), 1800);
}

void TestStore::unsavedChangesSurviveRefetch()
{
    auto store = openStore();
    auto context = store->newContext();
    ActivityPtr activity = insert(*context, u"stored"_s);
    QVERIFY(context->save());
    activity->setText(u"edited"_s);
    QCOMPARE(context->fetchActivities()->constFirst()->text(), u"edited"_s);
    context->refreshObjects();
    QCOMPARE(activity->text(), u"edited"_s);
}

void TestStore::changeSignalSaysWhatChangedOnTheStoresThread()
{
    auto store = openStore();
    auto context = store->newContext();
    ActivityPtr updated = insert(*context, u"kept"_s);
    ActivityPtr deleted = insert(*context, u"goes"_s);
    QVERIFY(context->save());
    QSignalSpy spy(store.get(), &Store::changed);
    QThread *receiver = nullptr;
    connect(store.get(), &Store::changed, this, [&] { receiver = QThread::currentThread(); });
    QCoreApplication::processEvents();
    spy.clear();

    // Several commits in one turn of the event loop, one of them on a worker thread with its own
    // connection, as a sync run makes them.
    updated->setText(u"@Acme kept"_s);
    QVERIFY(context->save());
    DeletedActivity::deleteActivity(deleted, *context);
    QVERIFY(context->save());
    QString workerUid;
    QThread *worker = QThread::create([&] {
        auto own = store->newContext();
        ActivityPtr added = insert(*own, u"#sync from a thread"_s);
        if (own->save())
            workerUid = added->uid();
    });
    worker->start();
    QVERIFY(worker->wait(10000));
    delete worker;
    QVERIFY(!workerUid.isEmpty());
    QVERIFY(context->save()); // nothing to save: nothing to tell
    QCOMPARE(spy.size(), 0);

    QTRY_COMPARE(spy.size(), 1);
    QCoreApplication::processEvents();
    QCOMPARE(spy.size(), 1);
    QCOMPARE(receiver, store->thread());
    const auto changes = spy.at(0).at(0).value<StoreChanges>();
    QVERIFY(!changes.isEverything());
    QCOMPARE(changes.insertedUids(), QSet<QString> { workerUid });
    QCOMPARE(changes.updatedUids(), QSet<QString> { updated->uid() });
    QCOMPARE(changes.deletedUids(), QSet<QString> { deleted->uid() });
    QCOMPARE(changes.entities(),
        Store::Entity::Activity | Store::Entity::Project | Store::Entity::Task | Store::Entity::DeletedActivity);
    QCOMPARE(*store->newContext()->countActivities(), 2);
}

void TestStore::coalescedChangesKeepTheLastFate_data()
{
    QTest::addColumn<QStringList>("commits");
    QTest::addColumn<QString>("inserted");
    QTest::addColumn<QString>("updated");
    QTest::addColumn<QString>("deleted");

    // Each entry is one commit: "+A" inserts A, "~A" updates it, "-A" deletes it, "*" comes from another
    // process. A table that applies the result row by row must end where the store is.
    QTest::newRow("inserted, then updated") << QStringList { u"+A"_s, u"~A"_s } << "A"
                                            << ""
                                            << "";
    QTest::newRow("updated, then deleted") << QStringList { u"~A"_s, u"-A"_s } << ""
                                           << ""
                                           << "A";
    QTest::newRow("inserted, then deleted") << QStringList { u"+A"_s, u"-A"_s } << ""
                                            << ""
                                            << "A";
    QTest::newRow("deleted, then inserted again") << QStringList { u"-A"_s, u"+A"_s } << "A"
                                                  << ""
                                                  << "";
    QTest::newRow("separate rows") << QStringList { u"+A"_s, u"~B"_s, u"-C"_s } << "A"
                                   << "B"
                                   << "C";
    QTest::newRow("another process") << QStringList { u"+A"_s, u"*"_s, u"~B"_s } << "*"
                                     << "*"
                                     << "*";
}

void TestStore::coalescedChangesKeepTheLastFate()
{
    QFETCH(QStringList, commits);
    QFETCH(QString, inserted);
    QFETCH(QString, updated);
    QFETCH(QString, deleted);
    StoreChanges all;
    for (const QString &commit : std::as_const(commits)) {
        StoreChanges one = commit == "*"_L1 ? StoreChanges::everything() : StoreChanges();
        const QString uid = commit.mid(1);
        if (commit.startsWith(u'+'))
            one.addInserted(uid);
        else if (commit.startsWith(u'~'))
            one.addUpdated(uid);
        else if (commit.startsWith(u'-'))
            one.addDeleted(uid);
        all.merge(one);
    }
    auto text = [&](const QSet<QString> &uids) {
        if (all.isEverything())
            return u"*"_s;
        QStringList sorted(uids.cbegin(), uids.cend());
        sorted.sort();
        return sorted.join(u',');
    };
    QCOMPARE(text(all.insertedUids()), inserted);
    QCOMPARE(text(all.updatedUids()), updated);
    QCOMPARE(text(all.deletedUids()), deleted);
    QVERIFY(all.contains(StoreChanges::Entity::Activity));
}

void TestStore::resetDropsUnsavedChanges()
{
    auto store = openStore();
    auto context = store->newContext();
    ActivityPtr kept = insert(*context, u"@Acme kept"_s);
    QVERIFY(context->save());
    kept->setText(u"@Globex never saved"_s);
    insert(*context, u"also never saved"_s);
    ActivityPtr clash = insert(*context, u"clash"_s);
    clash->setUid(kept->uid());
    QVERIFY(!context->save());

    context->reset();
    QVERIFY(!context->hasChanges());
    QVERIFY(context->save());
    // The old objects are detached values now: changing them records nothing anywhere.
    kept->setText(u"detached"_s);
    QVERIFY(!context->hasChanges());
    const ActivityPtr fresh = *context->activityWithUid(kept->uid());
    QVERIFY(fresh != kept);
    QCOMPARE(fresh->text(), u"@Acme kept"_s);
    QCOMPARE(*context->countActivities(), 1);
    QCOMPARE(context->projects()->size(), 1);
}

void TestStore::fetchByManyUids()
{
    auto store = openStore();
    auto context = store->newContext();
    QStringList uids;
    for (int i = 0; i < 1200; ++i)
        uids.append(insert(*context, u"item %1"_s.arg(i), 1 + i % 50)->uid());
    QVERIFY(context->save());

    auto other = store->newContext();
    QStringList asked = uids.mid(100, 1050);
    asked.append(u"00000000-0000-0000-0000-000000000000"_s);
    const auto found = other->activitiesWithUids(asked);
    QVERIFY(found);
    QCOMPARE(found->size(), 1050);
    QCOMPARE(found->value(uids.at(700))->text(), u"item 700"_s);
    QVERIFY(!found->contains(uids.at(99)));

    ActivityQuery shortOnes;
    shortOnes.endsUntil = QDateTime(QDate(2024, 3, 12), QTime(9, 10));
    QCOMPARE(*other->countActivities(shortOnes), 240);
}

void TestStore::noticesCommitsOfAnotherProcess()
{
    auto app = openStore();
    auto appContext = app->newContext();
    ActivityPtr shown = insert(*appContext, u"before"_s);
    QVERIFY(appContext->save());
    QVERIFY(!app->checkForExternalChanges());

    // A second store on the same file stands for the command line running beside the app.
    auto cli = openStore();
    QSignalSpy spy(app.get(), &Store::changed);
    auto cliContext = cli->newContext();
    (*cliContext->activityWithUid(shown->uid()))->setText(u"after"_s);
    insert(*cliContext, u"added by the command line"_s);
    QVERIFY(cliContext->save());

    QVERIFY(app->checkForExternalChanges());
    QTRY_COMPARE(spy.size(), 1);
    appContext->refreshObjects();
    QCOMPARE(shown->text(), u"after"_s);
    QCOMPARE(*appContext->countActivities(), 2);
    QVERIFY(!app->checkForExternalChanges());

    // The same, noticed by the timer.
    app->setWatchesExternalChanges(true, 20);
    insert(*cliContext, u"one more"_s);
    QVERIFY(cliContext->save());
    QTRY_COMPARE(spy.size(), 2);
}

void TestStore::everyCommittedActivitySurvivesAKill()
{
    // The writer saves one activity per transaction and prints its uid once the commit returned.
    QProcess writer;
    writer.setProcessChannelMode(QProcess::SeparateChannels);
    writer.start(QStringLiteral(BRIMVALE_STORE_WRITER), { m_home->applicationFilesDirectory() });
    QVERIFY(writer.waitForStarted());
    QStringList committed;
    QDeadlineTimer deadline(30000);
    while (committed.size() < 40 && !deadline.hasExpired()) {
        writer.waitForReadyRead(1000);
        while (writer.canReadLine())
            committed.append(QString::fromLatin1(writer.readLine()).trimmed());
    }
    QVERIFY2(committed.size() >= 40, writer.readAllStandardError().constData());
    writer.kill();
    QVERIFY(writer.waitForFinished());
    while (writer.canReadLine())
        committed.append(QString::fromLatin1(writer.readLine()).trimmed());

    auto store = openStore();
    QVERIFY(store);
    {
        QSqlQuery check(*store->database());
        QVERIFY(check.exec(u"PRAGMA integrity_check"_s) && check.next());
        QCOMPARE(check.value(0).toString(), u"ok"_s);
    }
    auto context = store->newContext();
    for (const QString &uid : std::as_const(committed)) {
        const auto activity = context->activityWithUid(uid);
        QVERIFY2(activity && *activity, qPrintable(uid));
        QVERIFY((*activity)->project());
    }
}

void TestStore::nameStoredElsewhereIsTakenOver_data()
{
    QTest::addColumn<bool>("otherProcess");
    QTest::addColumn<QString>("theirs");
    QTest::addColumn<QString>("ours");
    QTest::addColumn<QStringList>("projects");
    QTest::addColumn<QStringList>("tasks");

    // The spelling typed last names the project for the whole store.
    QTest::newRow("project, another store")
        << false << "@NewProj one"
        << "@newproj two" << QStringList { u"newproj 2"_s, u"Other 1"_s } << QStringList {};
    QTest::newRow("project and task, another process")
        << true << "@NewProj #Build one"
        << "@NEWPROJ #build two" << QStringList { u"NEWPROJ 2"_s, u"Other 1"_s } << QStringList { u"build 2"_s };
    QTest::newRow("task, another store") << false << "#Review one"
                                         << "#Review two" << QStringList { u"Other 1"_s }
                                         << QStringList { u"Review 2"_s };
}

void TestStore::nameStoredElsewhereIsTakenOver()
{
    QFETCH(bool, otherProcess);
    QFETCH(QString, theirs);
    QFETCH(QString, ours);
    QFETCH(QStringList, projects);
    QFETCH(QStringList, tasks);
    // The app's long-lived context has read every project and task before the other writer adds one.
    auto app = openStore();
    auto context = app->newContext();
    ActivityPtr running = insert(*context, u"@Other running"_s);
    QVERIFY(context->save());
    QVERIFY(context->projects()->size() == 1 && context->tasks()->isEmpty());

    if (otherProcess) {
        QProcess writer;
        writer.start(QStringLiteral(BRIMVALE_STORE_WRITER), { m_home->applicationFilesDirectory(), u"add"_s, theirs });
        QVERIFY(writer.waitForFinished(30000));
        QVERIFY2(writer.exitCode() == 0, writer.readAllStandardError().constData());
    } else {
        auto cli = openStore();
        auto cliContext = cli->newContext();
        insert(*cliContext, theirs);
        QVERIFY(cliContext->save());
    }

    insert(*context, ours);
    const auto saved = context->save();
    QVERIFY2(saved, qPrintable(saved ? QString() : saved.error().message()));
    // And every later save of the same context goes on working.
    running->setTimeTo(running->timeTo().addSecs(30));
    QVERIFY(context->save());
    QCOMPARE(totals(*app, false), projects);
    QCOMPARE(totals(*app, true), tasks);
}

void TestStore::concurrentEditsOfOtherColumnsSurvive_data()
{
    QTest::addColumn<QString>("theirs");
    QTest::addColumn<QString>("ours");

    QTest::newRow("text, then invoiced") << "text"
                                         << "invoiced";
    QTest::newRow("invoiced, then text") << "invoiced"
                                         << "text";
    QTest::newRow("text, then a touch of the end") << "text"
                                                   << "end";
    QTest::newRow("start, then text") << "start"
                                      << "text";
}

void TestStore::concurrentEditsOfOtherColumnsSurvive()
{
    QFETCH(QString, theirs);
    QFETCH(QString, ours);
    auto app = openStore();
    auto appContext = app->newContext();
    const QString uid = insert(*appContext, u"@Acme #draft original"_s)->uid();
    QVERIFY(appContext->save());
    const QDateTime from(QDate(2024, 3, 12), QTime(9, 0));
    auto edit = [&](const ActivityPtr &activity, const QString &what) {
        if (what == "text"_L1)
            activity->setText(u"@Globex #review edited"_s);
        else if (what == "invoiced"_L1)
            activity->setIsInvoiced(true);
        else if (what == "end"_L1)
            activity->setTimeTo(from.addSecs(7200));
        else
            activity->setTimeFrom(from.addSecs(-3600));
        activity->setModifiedAt(m_clock.now());
    };

    // Both read the activity before either saves: the command line's edit, then the app's.
    const ActivityPtr ourCopy = *appContext->activityWithUid(uid);
    auto cli = openStore();
    auto cliContext = cli->newContext();
    edit(*cliContext->activityWithUid(uid), theirs);
    edit(ourCopy, ours);
    QVERIFY(cliContext->save());
    QVERIFY(appContext->save());

    const ActivityPtr stored = *openStore()->newContext()->activityWithUid(uid);
    const QStringList edits { theirs, ours };
    QCOMPARE(stored->text(), edits.contains(u"text"_s) ? u"@Globex #review edited"_s : u"@Acme #draft original"_s);
    QCOMPARE(stored->project()->name(), edits.contains(u"text"_s) ? u"Globex"_s : u"Acme"_s);
    QCOMPARE(stored->tasksStr(), edits.contains(u"text"_s) ? u"review"_s : u"draft"_s);
    QCOMPARE(stored->isInvoiced(), edits.contains(u"invoiced"_s));
    QCOMPARE(stored->timeFrom(), edits.contains(u"start"_s) ? from.addSecs(-3600) : from);
    QCOMPARE(stored->timeTo(), edits.contains(u"end"_s) ? from.addSecs(7200) : from.addSecs(1800));
    QCOMPARE(stored->yearMonth(), 202403);
}

void TestStore::changeOfActivityDeletedElsewhereFails_data()
{
    QTest::addColumn<QString>("change");

    QTest::newRow("new text naming a new project") << "text";
    QTest::newRow("touch of the end") << "end";
    QTest::newRow("deletion") << "delete";
}

void TestStore::changeOfActivityDeletedElsewhereFails()
{
    QFETCH(QString, change);
    auto app = openStore();
    auto appContext = app->newContext();
    const ActivityPtr activity = insert(*appContext, u"@Acme doomed"_s);
    QVERIFY(appContext->save());

    auto cli = openStore();
    auto cliContext = cli->newContext();
    DeletedActivity::deleteActivity(*cliContext->activityWithUid(activity->uid()), *cliContext);
    QVERIFY(cliContext->save());

    if (change == "text"_L1)
        activity->setText(u"@Orphan #never edited"_s);
    else if (change == "end"_L1)
        activity->setTimeTo(activity->timeTo().addSecs(30));
    else
        DeletedActivity::deleteActivity(activity, *appContext);
    const ActivityPtr added = insert(*appContext, u"@Kept added in the same save"_s);
    const auto failed = appContext->save();
    QVERIFY(!failed);
    QCOMPARE(failed.error().code(), ActivityErrors::NotFoundCode);
    QCOMPARE(failed.error().message(), u"Activity not found!"_s);
    QCOMPARE(totals(*app, false), QStringList { u"Acme 0"_s });
    QCOMPARE(totals(*app, true), QStringList {});

    // The vanished activity has left the context; the rest of the save goes through on the next try.
    QVERIFY(activity->isDeleted());
    QCOMPARE(activity->context(), nullptr);
    QVERIFY(appContext->save());
    QCOMPARE(*app->newContext()->countActivities(), 1);
    QCOMPARE((*app->newContext()->activityWithUid(added->uid()))->project()->name(), u"Kept"_s);
}

void TestStore::sqlErrorsNameTheFileOnlyWhenKnown_data()
{
    QTest::addColumn<QString>("nativeCode");
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("description");
    QTest::newRow("SQLite's code, a file") << u"13"_s << u"/j/storedata"_s << 13
                                           << u"Could not use the store “/j/storedata”: database or disk is full. "
                                              "Free space on the disk that holds “/j”."_s;
    QTest::newRow("SQLite's code, no file")
        << u"8"_s << QString() << 8 << u"Could not use the store: attempt to write a readonly database."_s;
    QTest::newRow("the driver's failure, a file")
        << QString() << u"/j/storedata"_s << 134030 << u"Could not use the store “/j/storedata”: gone."_s;
    QTest::newRow("the driver's failure, no file")
        << QString() << QString() << 134030 << u"Could not use the store: gone."_s;
}

void TestStore::sqlErrorsNameTheFileOnlyWhenKnown()
{
    QFETCH(QString, nativeCode);
    QFETCH(QString, path);
    QFETCH(int, code);
    QFETCH(QString, description);
    const BvError error = StoreErrors::fromSql(
        QSqlError(nativeCode.isEmpty() ? u"gone"_s : QString(), QString(), QSqlError::StatementError, nativeCode),
        path);
    QCOMPARE(error.code(), code);
    QCOMPARE(error.description(), description);
}

QTEST_GUILESS_MAIN(TestStore)
#include "teststore.moc"
