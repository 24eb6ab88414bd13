#include <csignal>

#include <sys/stat.h>

#include <QtTest>

#include <QProcess>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

#include "fakes/fakeclock.h"
#include "model/bvmigrationmanager.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {

// 2024-03-03 10:00 in Berlin; the n-th activity starts n hours later.
const QDateTime kFirstStart(QDate(2024, 3, 3), QTime(10, 0), QTimeZone("Europe/Berlin"));

QString uidOf(int i)
{
    return u"%1-0000-4000-8000-000000000000"_s.arg(i, 8, 16, QLatin1Char('0')).toUpper();
}

QStringList logLines;

void captureStoreLog(QtMsgType, const QMessageLogContext &context, const QString &message)
{
    if (qstrcmp(context.category, "brimvale.store") == 0)
        logLines.append(message);
}

// Every file under `dir` with its content and time, to tell whether anything was written, made or moved.
QMap<QString, QString> filesIn(const QString &dir)
{
    QMap<QString, QString> files;
    QDirIterator it(dir, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        files.insert(QDir(dir).relativeFilePath(path),
            QString::fromLatin1(QCryptographicHash::hash(file.readAll(), QCryptographicHash::Md5).toHex()) + u' '
                + QString::number(it.fileInfo().lastModified().toMSecsSinceEpoch()));
    }
    return files;
}

// Runs `body` on a connection of its own to `path`, as another program (or an older Brimvale) would.
template<typename Body> bool withDatabase(const QString &path, Body body)
{
    bool done = false;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"fixture"_s);
        db.setDatabaseName(path);
        done = db.open() && body(db);
        db.close();
    }
    QSqlDatabase::removeDatabase(u"fixture"_s);
    return done;
}

bool exec(QSqlQuery &query, const QString &sql, const QVariantList &binds = {})
{
    query.prepare(sql);
    for (const QVariant &bind : binds)
        query.addBindValue(bind);
    if (query.exec())
        return true;
    qWarning() << sql << query.lastError().text();
    return false;
}

// A store as an older Brimvale wrote it: its schema, two projects and tasks, `count` activities an hour
// apart (the first linked to both tasks), one deletion record and one month file record. With `walPath`
// it is the image a crash leaves: the last activities and the version are committed only to the
// write-ahead log, which goes to `walPath`.
bool writeStore(const QString &path, int version, int count, const QString &walPath = {})
{
    QTemporaryDir scratch;
    const QString written = walPath.isEmpty() ? path : scratch.filePath(u"storedata"_s);
    QDir().mkpath(QFileInfo(path).absolutePath());
    return withDatabase(written, [&](QSqlDatabase &db) {
        QSqlQuery query(db);
        bool ok = exec(query, u"PRAGMA journal_mode = WAL"_s) && exec(query, u"PRAGMA wal_autocheckpoint = 0"_s)
            && db.transaction();
        for (const QString &statement : BvMigrationManager::models().value(version))
            ok = ok && exec(query, statement);
        ok = ok
            && exec(query,
                u"INSERT INTO projects (id, name, name_key) VALUES (1, 'Acme', 'acme'), (2, 'Globex', 'globex')"_s)
            && exec(query,
                u"INSERT INTO tasks (id, name, name_key) VALUES (1, 'design', 'design'), (2, 'Review', 'review')"_s)
            && exec(query,
                u"INSERT INTO deleted_activities (uid, deleted_at, is_synced) VALUES ('GONE', 1709459000000, 1)"_s)
            && exec(query, u"INSERT INTO sync_files (name, revision, activity_hash) VALUES ('2024-03', 'x:1', 'ab')"_s);
        // Version 5 keeps the month key; the fixtures of this suite start in March 2024.
        const bool yearMonth = version >= 5;
        ok = ok
            && query.prepare(u"INSERT INTO activities (id, uid, text, time_from, time_to, created_at, modified_at,"
                             " is_invoiced, project_id%1) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?%2)"_s.arg(
                                 yearMonth ? u", year_month"_s : QString(), yearMonth ? u", 202403"_s : QString()));
        for (int i = 0; ok && i < count; ++i) {
            if (!walPath.isEmpty() && i == count - count / 10)
                ok = db.commit() && QSqlQuery(db).exec(u"PRAGMA wal_checkpoint(TRUNCATE)"_s) && db.transaction();
            const qint64 from = kFirstStart.addSecs(i * 3600LL).toMSecsSinceEpoch();
            for (const QVariant &value :
                QVariantList { i + 1, uidOf(i), u"@Acme #design #Review work %1"_s.arg(i), from,
                    from + (i % 50 + 1) * 60000LL, from, from, i % 2, i % 3 == 0 ? QVariant() : QVariant(1 + i % 2) })
                query.addBindValue(value);
            ok = ok && query.exec();
        }
        ok = ok && exec(query, u"INSERT INTO activity_tasks VALUES (1, 1), (1, 2)"_s)
            && exec(query, u"PRAGMA user_version = %1"_s.arg(version)) && db.commit();
        // Copied while the connection is open, before closing folds the log into the file.
        return ok
            && (walPath.isEmpty()
                || (QFile::copy(written, path) && QFile::copy(written + u"-wal"_s, walPath)
                    && QFileInfo(walPath).size() > 0));
    });
}

QVariant scalar(QSqlDatabase &db, const QString &sql)
{
    QSqlQuery query(db);
    return query.exec(sql) && query.next() ? query.value(0) : QVariant();
}

// The tables and indexes of a file as SQLite keeps them, to compare schemas.
QStringList schemaOf(QSqlDatabase &db)
{
    QSqlQuery query(u"SELECT type, name, sql FROM sqlite_master ORDER BY type, name"_s, db);
    QStringList schema;
    while (query.next())
        schema.append(query.value(0).toString() + u' ' + query.value(1).toString() + u' ' + query.value(2).toString());
    return schema;
}

// The permission bits of `path`, as the system keeps them.
int modeOf(const QString &path)
{
    struct stat status
    {
    };
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? int(status.st_mode & 07777) : -1;
}

bool run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    return process.waitForFinished() && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

} // namespace

class TestBvMigrationManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void migratesOlderStoresInOneLaunch_data();
    void migratesOlderStoresInOneLaunch();
    void leavesStoresItNeedNotOrMayNotMigrateUntouched_data();
    void leavesStoresItNeedNotOrMayNotMigrateUntouched();
    void stepsNeedTheirMappingAndFirstErrorWins_data();
    void stepsNeedTheirMappingAndFirstErrorWins();
    void skipMigrationsOpensTheFileAsItIs();
    void layoutMoveRefusesWrongKinds_data();
    void layoutMoveRefusesWrongKinds();
    void failedMigrationLeavesStoreAsItWas_data();
    void failedMigrationLeavesStoreAsItWas();
    void interruptedMigrationLosesNothing_data();
    void interruptedMigrationLosesNothing();
    void simultaneousOpeningsLoseNoWrite();
    void waitsOnlySoLongForAnotherProgram_data();
    void waitsOnlySoLongForAnotherProgram();

private:
    QString dataDir() const { return m_home->applicationFilesDirectory(); }
    QString dbDir() const { return dataDir() + u"/db"_s; }
    QString storeFile() const { return dbDir() + u"/storedata"_s; }
    std::expected<std::unique_ptr<Store>, BvError> open();
    bool mountTmpfs(const QString &dir, qint64 bytes);

    std::unique_ptr<IsolatedHome> m_home;
    QString m_tmp;
    QStringList m_mounts;
    FakeClock m_clock { QDateTime(QDate(2024, 3, 12), QTime(9, 30), QTimeZone("Europe/Berlin")) };
    QtMessageHandler m_previousHandler = nullptr;
};

void TestBvMigrationManager::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_tmp = m_home->root() + u"/tmp"_s;
    QDir().mkpath(m_tmp);
    qputenv("TMPDIR", QFile::encodeName(m_tmp));
    logLines.clear();
    m_previousHandler = qInstallMessageHandler(captureStoreLog);
}

void TestBvMigrationManager::cleanup()
{
    qInstallMessageHandler(m_previousHandler);
    for (const QString &mount : std::as_const(m_mounts))
        run(u"umount"_s, { u"-l"_s, mount });
    m_mounts.clear();
    qunsetenv("TMPDIR");
    m_home.reset();
}

std::expected<std::unique_ptr<Store>, BvError> TestBvMigrationManager::open()
{
    StoreOptions options;
    options.applicationFilesDirectory = dataDir();
    options.clock = &m_clock;
    return Store::open(options);
}

bool TestBvMigrationManager::mountTmpfs(const QString &dir, qint64 bytes)
{
    QDir().mkpath(dir);
    if (!run(u"mount"_s, { u"-t"_s, u"tmpfs"_s, u"-o"_s, u"size=%1"_s.arg(bytes), u"tmpfs"_s, dir }))
        return false;
    m_mounts.append(dir);
    return true;
}

void TestBvMigrationManager::migratesOlderStoresInOneLaunch_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<QString>("layout");
    QTest::addColumn<QStringList>("steps");
    QTest::newRow("version 3") << 3 << u"db"_s << QStringList { u"3-4"_s, u"4-5"_s };
    QTest::newRow("version 4") << 4 << u"db"_s << QStringList { u"4-5"_s };
    QTest::newRow("version 3, db a link to another disk") << 3 << u"link"_s << QStringList { u"3-4"_s, u"4-5"_s };
    QTest::newRow("version 3 beside db") << 3 << u"beside"_s << QStringList { u"3-4"_s, u"4-5"_s };
    QTest::newRow("version 3, its move killed before the log")
        << 3 << u"half moved"_s << QStringList { u"3-4"_s, u"4-5"_s };
}

void TestBvMigrationManager::migratesOlderStoresInOneLaunch()
{
    QFETCH(int, version);
    QFETCH(QString, layout);
    QFETCH(QStringList, steps);
    // 700 hours reach into April: 2024-04-01 00:30 in Berlin is still March in UTC.
    constexpr int count = 700;
    // The store folder is the user's: what else is in it stays, and so do its permissions.
    QString folder = dbDir();
    if (layout == u"link"_s) {
        const QString disk = m_home->root() + u"/disk"_s;
        if (!mountTmpfs(disk, 64 << 20))
            QVERIFY(QDir().mkpath(disk));
        folder = disk + u"/journal"_s;
        QVERIFY(QDir().mkpath(folder) && QDir().mkpath(dataDir()));
        QVERIFY(QFile::link(folder, dbDir()));
    }
    // The old layout is what a crash of an old version left: the last activities only in the log.
    const QString beside = dataDir() + u"/storedata"_s;
    if (layout == u"beside"_s)
        QVERIFY(writeStore(beside, version, count, beside + u"-wal"_s));
    else if (layout == u"half moved"_s)
        QVERIFY(writeStore(storeFile(), version, count, beside + u"-wal"_s));
    else
        QVERIFY(writeStore(storeFile(), version, count));
    const bool hadFolder = layout != u"beside"_s;
    if (hadFolder) {
        QVERIFY(QDir().mkpath(folder + u"/sync"_s));
        for (const QString &extra : { u"/notes.txt"_s, u"/sync/cache.json"_s }) {
            QFile file(folder + extra);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(extra.toUtf8());
        }
        QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QVERIFY(QFile::setPermissions(storeFile(), QFile::ReadOwner | QFile::WriteOwner));
    }

    {
        auto store = open();
        QVERIFY2(store, qPrintable(store ? QString() : store.error().message()));
        QCOMPARE(*(*store)->newContext()->countActivities(), count);
    }

    if (hadFolder) {
        QCOMPARE(QFileInfo(dbDir()).isSymLink(), layout == u"link"_s);
        QCOMPARE(QFileInfo(folder).absoluteDir().entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
            QStringList { QFileInfo(folder).fileName() });
        for (const QString &extra : { u"/notes.txt"_s, u"/sync/cache.json"_s }) {
            QFile file(dbDir() + extra);
            QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(extra));
            QCOMPARE(file.readAll(), extra.toUtf8());
        }
        QCOMPARE(modeOf(folder), 0700);
        QCOMPARE(modeOf(storeFile()), 0600);
    }

    QStringList made;
    for (const QString &line : std::as_const(logLines))
        if (line.startsWith(u"Migration store path: "_s))
            made.append(line.mid(22));
    QCOMPARE(made.size(), steps.size());
    for (qsizetype i = 0; i < made.size(); ++i) {
        QVERIFY2(QRegularExpression(u"^%1/brimvale-migration-%2\\.[A-Za-z0-9]{8}$"_s.arg(m_tmp, steps.at(i)))
                     .match(made.at(i))
                     .hasMatch(),
            qPrintable(made.at(i)));
        QVERIFY(!QFileInfo::exists(made.at(i)));
    }
    if (layout != u"link"_s)
        QCOMPARE(QDir(dataDir()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList { u"db"_s });

    QString freshFile = m_home->root() + u"/fresh/storedata"_s;
    QDir().mkpath(QFileInfo(freshFile).absolutePath());
    QStringList fresh;
    QVERIFY(withDatabase(freshFile, [&](QSqlDatabase &db) {
        for (const QString &statement : BvMigrationManager::models().value(5))
            QSqlQuery(statement, db);
        fresh = schemaOf(db);
        return true;
    }));
    QVERIFY(withDatabase(storeFile(), [&](QSqlDatabase &db) {
        [&] {
            QCOMPARE(scalar(db, u"PRAGMA user_version"_s).toInt(), 5);
            QCOMPARE(scalar(db, u"PRAGMA journal_mode"_s).toString(), u"wal"_s);
            QCOMPARE(schemaOf(db), fresh);
            QCOMPARE(
                scalar(db, u"SELECT count(DISTINCT uid) FROM activities WHERE uid GLOB '*-0000-4000-8000-*'"_s).toInt(),
                count);
            // The month key is the start's month in the local calendar (TZ=Europe/Berlin).
            QCOMPARE(scalar(db, u"SELECT year_month FROM activities WHERE uid = '%1'"_s.arg(uidOf(0))).toInt(), 202403);
            const int april
                = int(kFirstStart.secsTo(QDateTime(QDate(2024, 4, 1), QTime(0, 0), QTimeZone("Europe/Berlin"))) / 3600);
            QCOMPARE(scalar(db, u"SELECT year_month FROM activities WHERE uid = '%1'"_s.arg(uidOf(april - 1))).toInt(),
                202403);
            QCOMPARE(
                scalar(db, u"SELECT year_month FROM activities WHERE uid = '%1'"_s.arg(uidOf(april))).toInt(), 202404);
            QCOMPARE(scalar(db, u"SELECT count(*) FROM activities WHERE year_month = 0"_s).toInt(), 0);
            QCOMPARE(scalar(db,
                         u"SELECT group_concat(t.name) FROM activity_tasks l JOIN tasks t ON t.id = l.task_id"
                         " WHERE l.activity_id = 1"_s)
                         .toString(),
                u"design,Review"_s);
            QCOMPARE(scalar(db, u"SELECT count(*) FROM activities WHERE project_id = 2"_s).toInt(), count / 3);
            QCOMPARE(scalar(db, u"SELECT uid || is_synced FROM deleted_activities"_s).toString(), u"GONE1"_s);
            QCOMPARE(scalar(db, u"SELECT name || revision || activity_hash FROM sync_files"_s).toString(),
                u"2024-03x:1ab"_s);
            // Version 3 had no bound on spans; the step to 4 sets it from the activities, the longest 50 minutes.
            QCOMPARE(scalar(db, u"SELECT group_concat(max_span) FROM activity_bounds"_s).toLongLong(),
                version == 3 ? 50 * 60000LL : 0LL);
        }();
        return !QTest::currentTestFailed();
    }));
}

void TestBvMigrationManager::leavesStoresItNeedNotOrMayNotMigrateUntouched_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("error"); // %1: the store file
    QTest::addColumn<QString>("log");
    QTest::newRow("current version") << u"5"_s << QString() << QString();
    QTest::newRow("newer version")
        << u"6"_s
        << u"The store “%1” has version 6, newer than version 5, the newest this version of Brimvale knows; it was "
           "left untouched. Open it with the Brimvale that wrote it."_s
        << u"Error occurred while trying to migrating store: %1; "_s;
    QTest::newRow("older than any known") << u"2"_s
                                          << u"The store “%1” has version 2, which this version of Brimvale (store "
                                             "version 5) cannot open."_s
                                          << u"Error occurred while trying to migrating store: %1; "_s;
    QTest::newRow("not SQLite") << u"garbage"_s << QString()
                                << u"Failed to get metadata when performing migration, will skip migration. Error "
                                   "domain: NSSQLiteErrorDomain, error code: 26, description: Could not use the store "
                                   "“%1”: file is not a database."_s;
    QTest::newRow("no store") << u"none"_s << QString() << QString();
}

void TestBvMigrationManager::leavesStoresItNeedNotOrMayNotMigrateUntouched()
{
    QFETCH(QString, kind);
    QFETCH(QString, error);
    QFETCH(QString, log);
    if (kind == u"garbage"_s) {
        QDir().mkpath(dbDir());
        QFile file(storeFile());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(8192, 'x'));
    } else if (kind != u"none"_s) {
        QVERIFY(writeStore(storeFile(), kind.toInt() == 6 ? 5 : kind.toInt() == 2 ? 3 : kind.toInt(), 3));
        if (kind.toInt() != 5)
            QVERIFY(withDatabase(storeFile(),
                [&](QSqlDatabase &db) { return QSqlQuery(db).exec(u"PRAGMA user_version = %1"_s.arg(kind)); }));
    }
    const auto before = filesIn(m_home->root());

    for (int launch = 0; launch < 2; ++launch) {
        logLines.clear();
        const auto upgraded = BvMigrationManager::upgrade(dataDir(), u"storedata"_s, &m_clock);
        QCOMPARE(upgraded ? QString() : upgraded.error().description(), QString(error).replace(u"%1"_s, storeFile()));
        QCOMPARE(filesIn(m_home->root()), before);
        if (!log.isEmpty())
            QVERIFY2(logLines.join(u'\n').contains(QString(log).replace(u"%1"_s, storeFile())),
                qPrintable(logLines.join(u'\n')));
        QVERIFY(!logLines.join(u'\n').contains(u"Migrate store to version"_s));
    }
    QCOMPARE(QFileInfo(dbDir()).isDir(), true);
}

void TestBvMigrationManager::stepsNeedTheirMappingAndFirstErrorWins_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<QList<int>>("steps"); // the version of each step; negative: without mapping model
    QTest::addColumn<QList<bool>>("answers");
    QTest::addColumn<int>("finalVersion");
    QTest::addColumn<QString>("error"); // the start of the first error; %1: the temporary folder
    QTest::addColumn<qint64>("maxSpan"); // the bound on spans afterwards; -1: no bound yet
    // The five activities of the fixture last one to five minutes.
    QTest::newRow("inferred step to 4, mapped step to 5")
        << 3 << QList<int> { -4, 5 } << QList<bool> { true, true } << 5 << QString() << 5 * 60000LL;
    QTest::newRow("from 3 straight to 5")
        << 3 << QList<int> { 5, 4 } << QList<bool> { false, false } << 3 << u"Mapping model not found!"_s << -1LL;
    QTest::newRow("inferred step cannot fill the month key")
        << 4 << QList<int> { -5, 5 } << QList<bool> { false, false } << 4
        << u"Could not use the store “%1/brimvale-migration-4-5."_s << 0LL;
    QTest::newRow("unknown version") << 4 << QList<int> { 6, 5 } << QList<bool> { false, false } << 4
                                     << u"No model found for version 6"_s << 0LL;
    QTest::newRow("nothing older to do") << 4 << QList<int> { 3, -4 } << QList<bool> { true, true } << 4 << QString()
                                         << 0LL;
}

void TestBvMigrationManager::stepsNeedTheirMappingAndFirstErrorWins()
{
    QFETCH(int, version);
    QFETCH(QList<int>, steps);
    QFETCH(QList<bool>, answers);
    QFETCH(int, finalVersion);
    QFETCH(QString, error);
    QFETCH(qint64, maxSpan);
    QVERIFY(writeStore(storeFile(), version, 5));
    const auto before = filesIn(dataDir());

    BvMigrationManager manager(dbDir(), u"storedata"_s, &m_clock);
    QVERIFY(manager.requiresMigrations());
    QList<bool> answered;
    for (int step : std::as_const(steps))
        answered.append(manager.migrateToVersion(std::abs(step), step > 0));
    QCOMPARE(answered, answers);
    QCOMPARE(manager.currentModelVersion(), finalVersion);
    QCOMPARE(manager.error().has_value(), !error.isEmpty());
    if (!error.isEmpty()) {
        QVERIFY2(manager.error()->description().startsWith(error.arg(m_tmp)), qPrintable(manager.error()->message()));
        QCOMPARE(filesIn(dataDir()), before);
    }
    QVERIFY(withDatabase(storeFile(), [&](QSqlDatabase &db) {
        const QVariant span = scalar(db, u"SELECT max_span FROM activity_bounds"_s);
        return scalar(db, u"PRAGMA user_version"_s).toInt() == finalVersion
            && (span.isValid() ? span.toLongLong() : -1) == maxSpan;
    }));
}

void TestBvMigrationManager::skipMigrationsOpensTheFileAsItIs()
{
    QVERIFY(writeStore(storeFile(), 3, 3));
    const auto before = filesIn(dataDir());
    StoreOptions options;
    options.applicationFilesDirectory = dataDir();
    options.skipMigrations = true;
    const auto skipped = Store::open(options);
    QVERIFY(!skipped);
    QCOMPARE(skipped.error().description(),
        u"The store “%1” has version 3, which this version of Brimvale (store version 5) cannot open."_s.arg(
            storeFile()));
    QVERIFY(logLines.contains(u"Skipping migrations"_s));
    QVERIFY(!logLines.join(u'\n').contains(u"Migrate store to version"_s));
    QCOMPARE(filesIn(dataDir()), before);
    QVERIFY(open());
}

void TestBvMigrationManager::layoutMoveRefusesWrongKinds_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("error"); // %1: db/storedata
    QTest::addColumn<QString>("log");
    QTest::newRow("storedata is a folder")
        << u"storedata folder"_s << 101 << u"Expected a file to store application data, found a directory (%1)."_s
        << u"Error: Expects db/storedata to be a file, but it's a directory"_s;
    QTest::newRow("db is a file") << u"db file"_s << 102
                                  << u"Expected a directory to store application data, found a file (%1)."_s
                                  << u"Error: Expects db/ to be a directory but it's a file"_s;
}

void TestBvMigrationManager::layoutMoveRefusesWrongKinds()
{
    QFETCH(QString, kind);
    QFETCH(int, code);
    QFETCH(QString, error);
    QFETCH(QString, log);
    QVERIFY(writeStore(dataDir() + u"/storedata"_s, 3, 3));
    if (kind == u"storedata folder"_s) {
        QVERIFY(QDir().mkpath(storeFile()));
    } else {
        QFile file(dbDir());
        QVERIFY(file.open(QIODevice::WriteOnly));
    }
    const auto before = filesIn(m_home->root());
    for (int launch = 0; launch < 2; ++launch) {
        const auto moved = BvMigrationManager::migrateStore(u"storedata"_s, dataDir());
        QVERIFY(!moved);
        QCOMPARE(moved.error().domain(), u"BV_STORE_ERROR"_s);
        QCOMPARE(moved.error().code(), code);
        QCOMPARE(moved.error().description(), error.arg(storeFile()));
        QVERIFY(logLines.contains(log));
        QCOMPARE(filesIn(m_home->root()), before);
    }
}

void TestBvMigrationManager::failedMigrationLeavesStoreAsItWas_data()
{
    QTest::addColumn<QString>("cause");
    QTest::addColumn<QString>("domain");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("error"); // %1: the temporary folder, %2: the data folder
    QTest::newRow("temporary folder missing")
        << u"no tmp"_s << u"NSCocoaErrorDomain"_s << 512
        << u"The folder “%1/brimvale-migration-3-4.XXXXXXXX” could not be created."_s;
    QTest::newRow("temporary disk full") << u"full tmp"_s << u"NSSQLiteErrorDomain"_s << 13
                                         << u"Could not use the store “%1/brimvale-migration-3-4."_s;
    QTest::newRow("store disk full") << u"full data"_s << u"NSCocoaErrorDomain"_s << 512
                                     << u"“%1/brimvale-migration-3-4."_s;
    QTest::newRow("every backup name taken") << u"backups"_s << u"Brimvale"_s << 8001
                                             << u"Can't create backup of current store, can't generate unique dir"_s;
}

void TestBvMigrationManager::failedMigrationLeavesStoreAsItWas()
{
    QFETCH(QString, cause);
    QFETCH(QString, domain);
    QFETCH(int, code);
    QFETCH(QString, error);
    constexpr int count = 4000;
    QVERIFY(writeStore(storeFile(), 3, count));
    const qint64 storeBytes = QFileInfo(storeFile()).size();
    QString tmp = m_tmp;
    if (cause == u"no tmp"_s) {
        tmp = m_tmp + u"/missing"_s;
    } else if (cause == u"full tmp"_s) {
        tmp = m_tmp + u"/small"_s;
        if (!mountTmpfs(tmp, storeBytes / 2))
            QSKIP("mounting a tmpfs needs root");
    } else if (cause == u"full data"_s) {
        // Room for the store, not for its migrated copy beside it.
        const QString saved = m_home->root() + u"/saved"_s;
        QVERIFY(QDir().rename(dataDir(), saved));
        if (!mountTmpfs(dataDir(), storeBytes * 3 / 2))
            QSKIP("mounting a tmpfs needs root");
        QVERIFY(QDir().mkpath(dbDir()));
        QVERIFY(QFile::copy(saved + u"/db/storedata"_s, storeFile()));
    } else {
        for (int i = 0; i < 100; ++i)
            QVERIFY(QDir().mkpath(dataDir() + u"/db-backup-2024-03-12-09-30"_s + (i ? u"-%1"_s.arg(i) : QString())));
    }
    qputenv("TMPDIR", QFile::encodeName(tmp));
    const auto before = filesIn(dataDir());

    QString firstError;
    for (int launch = 0; launch < 2; ++launch) {
        const auto store = open();
        QVERIFY(!store);
        QCOMPARE(store.error().domain(), domain);
        QCOMPARE(store.error().code(), code);
        QVERIFY2(store.error().description().startsWith(error.arg(tmp)), qPrintable(store.error().message()));
        if (launch == 0)
            firstError = store.error().message();
        // The next launch meets the same state and says the same, apart from the temporary name.
        QCOMPARE(store.error().message().section(u"brimvale-migration"_s, 0, 0),
            firstError.section(u"brimvale-migration"_s, 0, 0));
        QCOMPARE(filesIn(dataDir()), before);
        QCOMPARE(QDir(tmp).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    }
    QVERIFY(logLines.join(u'\n').contains(u"Error occurred while trying to migrating store: %1"_s.arg(storeFile())));

    // Once the cause is gone the store migrates with everything in it.
    qputenv("TMPDIR", QFile::encodeName(m_tmp));
    if (cause == u"backups"_s)
        m_clock.advance(60 * 1000);
    if (cause == u"full data"_s)
        QVERIFY(run(u"mount"_s, { u"-o"_s, u"remount,size=%1"_s.arg(storeBytes * 4), dataDir() }));
    const auto store = open();
    QVERIFY2(store, qPrintable(store ? QString() : store.error().message()));
    QCOMPARE(*(*store)->newContext()->countActivities(), count);
}

void TestBvMigrationManager::interruptedMigrationLosesNothing_data()
{
    QTest::addColumn<QString>("killWhen");
    QTest::newRow("killed while migrating to 4") << u"brimvale-migration-3-4.*"_s;
    QTest::newRow("killed while migrating to 5") << u"brimvale-migration-4-5.*"_s;
    QTest::newRow("killed between backup and swap") << QString();
}

void TestBvMigrationManager::interruptedMigrationLosesNothing()
{
    QFETCH(QString, killWhen);
    constexpr int count = 60000;
    QVERIFY(writeStore(storeFile(), 3, count));

    if (killWhen.isEmpty()) {
        // What a kill after the store folder went to its backup leaves: no store, the backup, and a
        // migrated copy that may be incomplete.
        QVERIFY(QDir().rename(dbDir(), dataDir() + u"/db-backup-2024-03-12-09-30-99"_s));
        QVERIFY(QDir().mkpath(dataDir() + u"/db-migrated"_s));
        QFile partial(dataDir() + u"/db-migrated/storedata"_s);
        QVERIFY(partial.open(QIODevice::WriteOnly));
        partial.write(QByteArray(4096, '\0'));
    } else {
        QProcess writer;
        writer.start(QStringLiteral(BRIMVALE_STORE_WRITER), { dataDir() });
        QVERIFY(writer.waitForStarted());
        // Poll for the step's temporary store: the migration is then half-way through that step.
        QString seen;
        while (seen.isEmpty() && writer.state() == QProcess::Running) {
            for (const QFileInfo &dir : QDir(m_tmp).entryInfoList({ killWhen }, QDir::Dirs))
                if (QFileInfo::exists(dir.filePath() + u"/storedata"_s))
                    seen = dir.filePath();
        }
        QVERIFY2(!seen.isEmpty(), "the migration ended before the step could be interrupted");
        // It holds a copy of the journal: only its owner may look into it.
        QCOMPARE(modeOf(seen), 0700);
        QVERIFY(::kill(pid_t(writer.processId()), SIGKILL) == 0);
        QVERIFY(writer.waitForFinished());
        // Whatever the state, the store in "db" is complete and readable.
        QVERIFY(withDatabase(storeFile(),
            [&](QSqlDatabase &db) { return scalar(db, u"SELECT count(*) FROM activities"_s).toInt() == count; }));
    }

    auto store = open();
    QVERIFY2(store, qPrintable(store ? QString() : store.error().message()));
    QCOMPARE(*(*store)->newContext()->countActivities(), count);
    store->reset();
    QCOMPARE(QDir(dataDir()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList { u"db"_s });
    // The copy the killed step left is gone with the next migration.
    QCOMPARE(QDir(m_tmp).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
}

void TestBvMigrationManager::waitsOnlySoLongForAnotherProgram_data()
{
    QTest::addColumn<QString>("holder");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("error"); // %1: the data folder
    QTest::newRow("migration lock of another machine")
        << u"lock"_s << 8001
        << u"The store could not be opened: “%1/db-migration.lock” says that brimvale (process 4242 on elsewhere) is "
           "upgrading it. If that program is no longer running, remove the file and try again."_s;
    QTest::newRow("migration lock of another machine, stale") << u"stale lock"_s << 0 << QString();
    QTest::newRow("old store open in another program") << u"reader"_s << 0 << QString();
    QTest::newRow("old store in a write of another program")
        << u"writer"_s << 5
        << u"Could not use the store “%1/db/storedata”: database is locked. Another program holds the store; try "
           "again."_s;
}

void TestBvMigrationManager::waitsOnlySoLongForAnotherProgram()
{
    QFETCH(QString, holder);
    QFETCH(int, code);
    QFETCH(QString, error);
    constexpr int count = 50;
    QVERIFY(writeStore(storeFile(), 3, count));
    QProcess writer;
    if (holder == u"reader"_s) {
        // An older Brimvale left open: the migration goes on, and keeps the old store where it can still write.
        writer.start(u"sqlite3"_s, { storeFile() });
        if (!writer.waitForStarted())
            QSKIP("the sqlite3 shell is not installed");
        writer.write("SELECT count(*) FROM tasks;\n");
        QVERIFY(writer.waitForBytesWritten());
        while (!QFileInfo::exists(storeFile() + u"-wal"_s))
            QVERIFY(writer.state() == QProcess::Running);
    } else if (holder == u"writer"_s) {
        // An older Brimvale in the middle of a save; what it commits afterwards must not be lost.
        writer.start(u"sqlite3"_s, { storeFile() });
        if (!writer.waitForStarted())
            QSKIP("the sqlite3 shell is not installed");
        writer.write(".timeout 60000\nBEGIN IMMEDIATE;\nINSERT INTO tasks (name, name_key) VALUES ('held', 'held');\n");
        QVERIFY(writer.waitForBytesWritten());
        bool held = false;
        while (!held) {
            QVERIFY(withDatabase(storeFile(), [&](QSqlDatabase &db) {
                held = QSqlQuery(db).exec(u"PRAGMA busy_timeout = 0"_s) && !QSqlQuery(db).exec(u"BEGIN IMMEDIATE"_s);
                return held || QSqlQuery(db).exec(u"ROLLBACK"_s);
            }));
        }
    } else {
        QFile lock(dataDir() + u"/db-migration.lock"_s);
        QVERIFY(lock.open(QIODevice::WriteOnly));
        lock.write("4242\nbrimvale\nelsewhere\n");
        lock.close();
        if (holder == u"stale lock"_s)
            QVERIFY(lock.open(QIODevice::ReadWrite)
                && lock.setFileTime(QDateTime::currentDateTime().addDays(-1), QFileDevice::FileModificationTime));
    }
    // The log and index change under a program that has the store open; the store and the backups do not.
    auto unchanged = [this] {
        auto files = filesIn(m_home->root());
        files.removeIf([](const auto &file) { return file.key().endsWith(u"-shm"_s); });
        return files;
    };
    const auto before = unchanged();

    const auto upgraded
        = BvMigrationManager::upgrade(dataDir(), u"storedata"_s, &m_clock, std::chrono::milliseconds(200));
    QVERIFY2((upgraded ? 0 : upgraded.error().code()) == code,
        qPrintable(upgraded ? QString() : upgraded.error().message() + u' ' + upgraded.error().failureReason()));
    if (!upgraded) {
        QCOMPARE(upgraded.error().description(), error.arg(dataDir()));
        QCOMPARE(unchanged(), before);
        if (holder == u"writer"_s) {
            writer.write("COMMIT;\n.quit\n");
            QVERIFY(writer.waitForFinished());
        } else {
            QVERIFY(QFile::remove(dataDir() + u"/db-migration.lock"_s));
        }
        QVERIFY(BvMigrationManager::upgrade(dataDir(), u"storedata"_s, &m_clock));
    }
    QVERIFY(withDatabase(storeFile(), [&](QSqlDatabase &db) {
        return scalar(db, u"PRAGMA user_version"_s).toInt() == 5
            && scalar(db, u"SELECT count(*) FROM activities"_s).toInt() == count
            && scalar(db, u"SELECT count(*) FROM tasks WHERE name = 'held'"_s).toInt() == (holder == u"writer"_s);
    }));
    // The first step's backup is kept for the program that still has it open; the second step's, which
    // nobody has open, takes the name before it and goes.
    const QStringList kept { u"db-backup-%1-99"_s.arg(m_clock.now().toLocalTime().toString(u"yyyy-MM-dd-HH-mm"_s)) };
    QCOMPARE(QDir(dataDir()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
        QStringList { u"db"_s } + (holder == u"reader"_s ? kept : QStringList()));
}

void TestBvMigrationManager::simultaneousOpeningsLoseNoWrite()
{
    constexpr int count = 20000;
    QVERIFY(writeStore(storeFile(), 3, count));
    // Two processes open the old store at once and each writes as soon as its opening is done.
    QProcess writers[2];
    for (QProcess &writer : writers)
        writer.start(QStringLiteral(BRIMVALE_STORE_WRITER), { dataDir() });
    for (QProcess &writer : writers)
        QVERIFY(writer.waitForStarted());
    QStringList written[2];
    while (written[0].size() < 20 || written[1].size() < 20) {
        for (int i = 0; i < 2; ++i) {
            QVERIFY2(writers[i].state() == QProcess::Running, writers[i].readAllStandardError().constData());
            writers[i].waitForReadyRead(10);
            while (writers[i].canReadLine())
                written[i].append(QString::fromLatin1(writers[i].readLine().trimmed()));
        }
    }
    for (QProcess &writer : writers) {
        writer.kill();
        writer.waitForFinished();
    }

    QVERIFY(open());
    const QStringList all = written[0] + written[1];
    QVERIFY(withDatabase(storeFile(), [&](QSqlDatabase &db) {
        return scalar(db, u"SELECT count(*) FROM activities WHERE uid IN ('%1')"_s.arg(all.join(u"','"_s))).toInt()
            == all.size()
            && scalar(db, u"SELECT count(*) FROM activities WHERE uid GLOB '*-0000-4000-8000-*'"_s).toInt() == count;
    }));
}

QTEST_GUILESS_MAIN(TestBvMigrationManager)
#include "testbvmigrationmanager.moc"
