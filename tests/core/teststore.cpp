#include <QtTest>

#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QThread>

#include "fakes/fakeclock.h"
#include "model/activity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

class TestStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void opensNewStoreInWalModeWithCurrentVersion();
    void refusesUnusableFiles_data();
    void refusesUnusableFiles();
    void failedSaveChangesNothing();
    void sameRowIsSameObject();
    void unsavedChangesSurviveRefetch();
    void changeSignalAfterEveryCommit();
    void resetDropsUnsavedChanges();
    void fetchByManyUids();
    void noticesCommitsOfAnotherProcess();
    void workerThreadUsesItsOwnConnection();
    void everyCommittedActivitySurvivesAKill();

private:
    std::unique_ptr<Store> openStore();
    ActivityPtr insert(StoreContext &context, const QString &text, int minutes = 30);

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

void TestStore::opensNewStoreInWalModeWithCurrentVersion()
{
    auto store = openStore();
    QVERIFY(store);
    QCOMPARE(store->storePath(), m_home->applicationFilesDirectory() + u"/db/storedata"_s);
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
    QTest::addColumn<QString>("text");

    QTest::newRow("db is a file") << "dbfile"
                                  << "YOUR_ERROR_DOMAIN" << 101
                                  << "Expected a folder to store application data, found a file (%1).";
    QTest::newRow("store is not a database") << "garbage"
                                             << "NSSQLiteErrorDomain" << 26 << QString();
    QTest::newRow("store from a newer version") << "newer"
                                                << "NSCocoaErrorDomain" << 134100 << QString();
}

void TestStore::refusesUnusableFiles()
{
    QFETCH(QString, setup);
    QFETCH(QString, domain);
    QFETCH(int, code);
    QFETCH(QString, text);

    const QString dbDir = m_home->applicationFilesDirectory() + u"/db"_s;
    const QString storeFile = dbDir + u"/storedata"_s;
    QByteArray original;
    if (setup == "dbfile"_L1) {
        QDir().mkpath(m_home->applicationFilesDirectory());
        QFile file(dbDir);
        QVERIFY(file.open(QIODevice::WriteOnly));
    } else if (setup == "garbage"_L1) {
        QDir().mkpath(dbDir);
        QFile file(storeFile);
        QVERIFY(file.open(QIODevice::WriteOnly));
        original = QByteArray(8192, 'x');
        file.write(original);
    } else {
        QDir().mkpath(dbDir);
        {
            QSqlDatabase db = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"newer"_s);
            db.setDatabaseName(storeFile);
            QVERIFY(db.open());
            QSqlQuery(db).exec(u"PRAGMA user_version = 6"_s);
            db.close();
        }
        QSqlDatabase::removeDatabase(u"newer"_s);
    }

    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    const auto store = Store::open(options);
    QVERIFY(!store);
    QCOMPARE(store.error().domain(), domain);
    QCOMPARE(store.error().code(), code);
    if (!text.isEmpty())
        QCOMPARE(store.error().description(), text.arg(dbDir));
    QVERIFY(!store.error().message().isEmpty());
    if (!original.isEmpty()) {
        // A file we cannot read is never overwritten.
        QFile file(storeFile);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), original);
    }
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

void TestStore::changeSignalAfterEveryCommit()
{
    auto store = openStore();
    QSignalSpy spy(store.get(), &Store::changed);
    auto context = store->newContext();
    QVERIFY(context->save()); // nothing to save: no commit, no signal
    QCOMPARE(spy.size(), 0);
    insert(*context, u"@Acme #xy work"_s);
    QVERIFY(context->save());
    QTRY_COMPARE(spy.size(), 1);
    const auto changes = spy.at(0).at(0).value<StoreChanges>();
    QCOMPARE(changes.entities(), Store::Entity::Activity | Store::Entity::Project | Store::Entity::Task);
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

void TestStore::workerThreadUsesItsOwnConnection()
{
    auto store = openStore();
    QSignalSpy spy(store.get(), &Store::changed);
    bool saved = false;
    QThread *worker = QThread::create([&] {
        auto context = store->newContext();
        insert(*context, u"@Worker from a thread"_s);
        saved = context->save().has_value();
    });
    worker->start();
    QVERIFY(worker->wait(10000));
    delete worker;
    QVERIFY(saved);
    QTRY_COMPARE(spy.size(), 1);
    QCOMPARE(*store->newContext()->countActivities(), 1);
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

QTEST_GUILESS_MAIN(TestStore)
#include "teststore.moc"
