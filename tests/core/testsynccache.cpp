// Runs in Europe/Berlin (see CMakeLists.txt): March 31 2024 skips 02:00-03:00.
#include <QtTest>

#include <QTimeZone>

#include <QStandardPaths>

#include "fakes/fakeclock.h"
#include "fakes/fakesyncbackend.h"
#include "model/activity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/isolatedhome.h"
#include "sync/bvmonthdaterange.h"
#include "sync/bvmonthyearrange.h"
#include "sync/bvsynccache.h"
#include "sync/bvtmpsyncfile.h"

using namespace Qt::StringLiterals;

namespace {

QDateTime local(int y, int mo, int d, int h, int mi, int s)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s), Qt::LocalTime).toUTC();
}

} // namespace

class TestSyncCache : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void monthRangeBounds_data();
    void monthRangeBounds();
    void nextMonthSortsOnce();
    void remotePathsRecognised_data();
    void remotePathsRecognised();
    void revisionTextFollowsMethod_data();
    void revisionTextFollowsMethod();
    void rowRevisionReadUnderMethod_data();
    void rowRevisionReadUnderMethod();
    void storeCollapsesDuplicateRows();
    void removeDeletesEveryRowOfTheName();
    void ensureCacheFilesKeepsOnlyTheBackendsRows_data();
    void ensureCacheFilesKeepsOnlyTheBackendsRows();
    void syncFileListsSkipTheDeletionRow();
    void prepareLocalCache_data();
    void prepareLocalCache();
    void cleanupDeletesMonthsWithoutActivities_data();
    void cleanupDeletesMonthsWithoutActivities();
    void cleanupStopsWhenTheBackendFails();
    void cleanupCachesDirKeepsOnlyFilesWithRows();

private:
    void addRow(const QString &name, const QString &revision, const QString &hash = QString());
    QStringList rowNames();
    void touch(const QString &path);

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<StoreContext> m_context;
    FakeClock m_clock;
};

void TestSyncCache::init()
{
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    auto store = Store::open(options);
    QVERIFY(store);
    m_store = std::move(*store);
    m_context = m_store->newContext();
}

void TestSyncCache::cleanup()
{
    m_context.reset();
    m_store.reset();
    m_home.reset();
}

void TestSyncCache::addRow(const QString &name, const QString &revision, const QString &hash)
{
    SyncFilePtr row = m_context->insertSyncFile();
    row->setName(name);
    row->setRevision(revision);
    row->setActivityHash(hash);
}

QStringList TestSyncCache::rowNames()
{
    auto context = m_store->newContext();
    const auto rows = context->fetchSyncFiles();
    QStringList names;
    for (const SyncFilePtr &row : *rows)
        names.append(row->name());
    names.sort();
    return names;
}

void TestSyncCache::touch(const QString &path)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[]");
}

void TestSyncCache::monthRangeBounds_data()
{
    QTest::addColumn<uint>("year");
    QTest::addColumn<uint>("month");
    QTest::addColumn<QDateTime>("from");
    QTest::addColumn<QDateTime>("to");
    QTest::addColumn<QString>("name");

    QTest::newRow("February of a leap year")
        << 2024u << 2u << local(2024, 2, 1, 0, 0, 0) << local(2024, 2, 29, 23, 59, 59) << u"2024-02"_s;
    QTest::newRow("February of a common year")
        << 2023u << 2u << local(2023, 2, 1, 0, 0, 0) << local(2023, 2, 28, 23, 59, 59) << u"2023-02"_s;
    // 01:00Z is midnight in winter, 22:59:59Z the last second in summer time.
    QTest::newRow("month with the spring change")
        << 2024u << 3u << QDateTime(QDate(2024, 2, 29), QTime(23, 0), Qt::UTC)
        << QDateTime(QDate(2024, 3, 31), QTime(21, 59, 59), Qt::UTC) << u"2024-03"_s;
    QTest::newRow("December") << 2023u << 12u << local(2023, 12, 1, 0, 0, 0) << local(2023, 12, 31, 23, 59, 59)
                              << u"2023-12"_s;
    QTest::newRow("month 13 rolls over") << 2024u << 13u << local(2025, 1, 1, 0, 0, 0) << local(2025, 1, 31, 23, 59, 59)
                                         << u"2024-13"_s;
    QTest::newRow("month 0 rolls back") << 2024u << 0u << local(2023, 12, 1, 0, 0, 0) << local(2023, 12, 31, 23, 59, 59)
                                        << u"2024-00"_s;
    QTest::newRow("three-digit year") << 987u << 5u << local(987, 5, 1, 0, 0, 0) << local(987, 5, 31, 23, 59, 59)
                                      << u"987-05"_s;
}

void TestSyncCache::monthRangeBounds()
{
    QFETCH(uint, year);
    QFETCH(uint, month);
    QFETCH(QDateTime, from);
    QFETCH(QDateTime, to);
    QFETCH(QString, name);
    const BVMonthDateRange range(year, month, QTimeZone("Europe/Berlin"));
    QCOMPARE(range.dateFrom(), from);
    QCOMPARE(range.dateTo(), to);
    QCOMPARE(range.name(), name);
    QCOMPARE(qHash(range), qHash(quint64(year) * 100 + month));
}

void TestSyncCache::nextMonthSortsOnce()
{
    BVMonthYearRange months(QTimeZone("Europe/Berlin"));
    QVERIFY(!months.hasItems());
    months.addYear(2024, 5);
    months.addYear(2023, 12);
    months.addYear(2024, 1);
    months.addYear(2024, 5);
    QVERIFY(months.hasItems());
    QCOMPARE(months.nextMonth()->name(), u"2023-12"_s);
    // Added after the first take: comes after the sorted ones, in the order of adding.
    months.addYear(2022, 7);
    months.addYear(2021, 1);
    QCOMPARE(months.nextMonth()->name(), u"2024-01"_s);
    QCOMPARE(months.nextMonth()->name(), u"2024-05"_s);
    QCOMPARE(months.nextMonth()->name(), u"2022-07"_s);
    // A month taken out may be added again.
    months.addYear(2024, 5);
    QCOMPARE(months.nextMonth()->name(), u"2021-01"_s);
    QCOMPARE(months.nextMonth()->name(), u"2024-05"_s);
    QVERIFY(!months.nextMonth());
    QVERIFY(!months.hasItems());
}

void TestSyncCache::remotePathsRecognised_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("prefix"); // null: none
    QTest::addColumn<QString>("name"); // null: not a sync file

    QTest::newRow("bare month") << u"2024-03.json"_s << QString() << u"2024-03"_s;
    QTest::newRow("folder month, no prefix") << u"/folder/2024-03.json"_s << QString() << u"2024-03"_s;
    QTest::newRow("folder month, its prefix") << u"/folder/2024-03.json"_s << u"folder"_s << u"2024-03"_s;
    QTest::newRow("folder without slash") << u"folder/2024-03.json"_s << u"folder"_s << u"2024-03"_s;
    QTest::newRow("other prefix") << u"/folder/2024-03.json"_s << u"sync"_s << QString();
    QTest::newRow("prefix differs in case") << u"/Sync/2024-03.json"_s << u"sync"_s << QString();
    QTest::newRow("prefix but no folder") << u"2024-03.json"_s << u"sync"_s << QString();
    QTest::newRow("nested folder is the whole prefix") << u"/a/sync/2024-03.json"_s << u"a/sync"_s << u"2024-03"_s;
    QTest::newRow("single-digit month") << u"2024-3.json"_s << QString() << QString();
    QTest::newRow("upper-case extension") << u"2024-03.JSON"_s << QString() << QString();
    QTest::newRow("other json") << u"notes.json"_s << QString() << QString();
    QTest::newRow("month 13") << u"/sync/2024-13.json"_s << u"sync"_s << u"2024-13"_s;
    QTest::newRow("conflict copy") << u"/sync/2024-03 (conflicted copy).json"_s << u"sync"_s << QString();
    QTest::newRow("trailing line break") << u"2024-03.json\n"_s << QString() << QString();
    QTest::newRow("deletion file") << u"/sync/deleted.json"_s << u"sync"_s << u"deleted"_s;
    QTest::newRow("deletion file elsewhere") << u"/other/deleted.json"_s << u"sync"_s << QString();
    QTest::newRow("deletion file bare") << u"deleted.json"_s << QString() << u"deleted"_s;
    QTest::newRow("undeleted.json") << u"/sync/undeleted.json"_s << u"sync"_s << QString();
}

void TestSyncCache::remotePathsRecognised()
{
    QFETCH(QString, path);
    QFETCH(QString, prefix);
    QFETCH(QString, name);
    const std::optional<QString> folder = prefix.isNull() ? std::nullopt : std::optional<QString>(prefix);
    const auto file = BVTmpSyncFile::fromFileName(path, folder, 1, u"rev"_s);
    QCOMPARE(file.has_value(), !name.isNull());
    if (!file)
        return;
    QCOMPARE(file->name(), name);
    QCOMPARE(file->isDeletedIndexFile(), name == u"deleted"_s);
    QCOMPARE(file->revision(), std::optional<QString>(u"dropbox:rev"_s));
    const auto gone = BVTmpSyncFile::deletedFileFromFileName(path, folder);
    QVERIFY(gone && gone->wasDeleted());
    QCOMPARE(gone->syncMethod(), 0);
    QVERIFY(!gone->revisionValue());
}

void TestSyncCache::revisionTextFollowsMethod_data()
{
    QTest::addColumn<int>("method");
    QTest::addColumn<QString>("value"); // null: none
    QTest::addColumn<QString>("revision"); // null: none

    QTest::newRow("dropbox") << 1 << u"abc123"_s << u"dropbox:abc123"_s;
    QTest::newRow("folder") << 2 << u"abc"_s << u"folder:abc"_s;
    QTest::newRow("no method") << 0 << u"abc"_s << u"abc"_s;
    QTest::newRow("unknown method") << 5 << u"abc"_s << u"abc"_s;
    QTest::newRow("no value") << 1 << QString() << QString();
}

void TestSyncCache::revisionTextFollowsMethod()
{
    QFETCH(int, method);
    QFETCH(QString, value);
    QFETCH(QString, revision);
    BVTmpSyncFile file(2024, 3);
    file.setICloudChangeTag(u"tag"_s);
    file.setSyncMethod(method, value.isNull() ? std::nullopt : std::optional<QString>(value));
    QVERIFY(!file.iCloudChangeTag());
    QCOMPARE(file.revision().value_or(QString()), revision);
    QCOMPARE(file.revision().has_value(), !revision.isNull());
}

void TestSyncCache::rowRevisionReadUnderMethod_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<int>("method");
    QTest::addColumn<QString>("value"); // null: none

    QTest::newRow("dropbox row under dropbox") << u"dropbox:abc"_s << 1 << u"abc"_s;
    QTest::newRow("dropbox row under no method") << u"dropbox:abc"_s << 0 << QString();
    QTest::newRow("dropbox row under folder") << u"dropbox:abc"_s << 2 << QString();
    QTest::newRow("bare row under dropbox") << u"abc"_s << 1 << u"abc"_s;
    QTest::newRow("bare row under no method") << u"abc"_s << 0 << u"abc"_s;
    QTest::newRow("other family under dropbox") << u"other:abc"_s << 1 << QString();
    QTest::newRow("split at the first colon") << u"dropbox:a:b"_s << 1 << u"a:b"_s;
    QTest::newRow("no revision") << QString() << 1 << QString();
}

void TestSyncCache::rowRevisionReadUnderMethod()
{
    QFETCH(QString, stored);
    QFETCH(int, method);
    QFETCH(QString, value);
    addRow(u"2024-03"_s, stored, u"hash"_s);
    QVERIFY(m_context->save());
    const auto file = BVTmpSyncFile::fromSyncFile(m_context->fetchSyncFiles()->constFirst(), method);
    QVERIFY(file);
    QCOMPARE(file->revisionValue().value_or(QString()), value);
    QCOMPARE(file->revisionValue().has_value(), !value.isNull());
    QCOMPARE(file->activityHash(), std::optional<QString>(u"hash"_s));
    QCOMPARE(file->syncMethod(), method);
    QVERIFY(!BVTmpSyncFile::fromSyncFile(nullptr, method));
}

void TestSyncCache::storeCollapsesDuplicateRows()
{
    addRow(u"2024-03"_s, u"dropbox:a"_s);
    addRow(u"2024-03"_s, u"dropbox:b"_s);
    addRow(u"2024-04"_s, u"dropbox:c"_s);
    QVERIFY(m_context->save());
    const QList<SyncFilePtr> before = *m_context->fetchSyncFiles(u"2024-03"_s);
    const qint64 aprilId = m_context->fetchSyncFiles(u"2024-04"_s)->constFirst()->objectId();

    BVTmpSyncFile march(2024, 3, 1, u"new"_s);
    march.setActivityHash(u"h3"_s);
    QVERIFY(march.store(*m_context));
    BVTmpSyncFile april(2024, 4, 1, u"d"_s);
    QVERIFY(april.store(*m_context));
    QVERIFY(m_context->save());

    auto fresh = m_store->newContext();
    const QList<SyncFilePtr> after = *fresh->fetchSyncFiles(u"2024-03"_s);
    QCOMPARE(after.size(), 1);
    QVERIFY(after.constFirst()->objectId() != before.at(0)->objectId());
    QVERIFY(after.constFirst()->objectId() != before.at(1)->objectId());
    QCOMPARE(after.constFirst()->revision(), u"dropbox:new"_s);
    QCOMPARE(after.constFirst()->activityHash(), u"h3"_s);
    // A single row is updated in place.
    const SyncFilePtr aprilRow = fresh->fetchSyncFiles(u"2024-04"_s)->constFirst();
    QCOMPARE(aprilRow->objectId(), aprilId);
    QCOMPARE(aprilRow->revision(), u"dropbox:d"_s);
}

void TestSyncCache::removeDeletesEveryRowOfTheName()
{
    addRow(u"deleted"_s, u"dropbox:a"_s);
    addRow(u"deleted"_s, u"dropbox:b"_s);
    addRow(u"2024-03"_s, u"dropbox:c"_s);
    QVERIFY(m_context->save());
    QVERIFY(BVTmpSyncFile::initAsDeletedIndexFile().remove(*m_context));
    QVERIFY(BVTmpSyncFile(2025, 1).remove(*m_context));
    QVERIFY(m_context->save());
    QCOMPARE(rowNames(), QStringList { u"2024-03"_s });
}

void TestSyncCache::ensureCacheFilesKeepsOnlyTheBackendsRows_data()
{
    QTest::addColumn<int>("method");
    QTest::addColumn<QStringList>("kept");

    QTest::newRow("dropbox") << 1 << QStringList { u"2024-01"_s, u"deleted"_s };
    QTest::newRow("folder") << 2 << QStringList { u"2024-04"_s };
    QTest::newRow("no method") << 0 << QStringList {};
}

void TestSyncCache::ensureCacheFilesKeepsOnlyTheBackendsRows()
{
    QFETCH(int, method);
    QFETCH(QStringList, kept);
    addRow(u"2024-01"_s, u"dropbox:abc"_s);
    addRow(u"2024-02"_s, u"abc"_s);
    addRow(u"2024-03"_s, u"other:abc"_s);
    addRow(u"2024-04"_s, u"folder:abc"_s);
    addRow(u"deleted"_s, u"dropbox:d"_s);
    QVERIFY(m_context->save());

    FakeSyncBackend backend(m_home->root() + u"/remote"_s, method);
    BVSyncCache cache(backend);
    QStringList log;
    cache.setLog([&](const QString &line) { log.append(line); });
    QVERIFY(cache.ensureCacheFiles(*m_context));
    QCOMPARE(rowNames(), kept);
    QCOMPARE(log, QStringList { u"Deleted %1 items from cache"_s.arg(5 - kept.size()) });
}

void TestSyncCache::syncFileListsSkipTheDeletionRow()
{
    FakeSyncBackend backend(m_home->root() + u"/remote"_s);
    BVSyncCache cache(backend);
    // Without a row the deletion file is new: the backend's method and no revision.
    auto deleted = cache.getDeletedSyncFile(*m_context);
    QVERIFY(deleted);
    QVERIFY(deleted->isDeletedIndexFile());
    QCOMPARE(deleted->syncMethod(), 1);
    QVERIFY(!deleted->revisionValue());

    addRow(u"2024-02"_s, u"dropbox:b"_s, u"hb"_s);
    addRow(u"deleted"_s, u"dropbox:d"_s, u"hd"_s);
    addRow(u"2023-11"_s, u"dropbox:a"_s);
    addRow(u"notes"_s, u"dropbox:x"_s);
    QVERIFY(m_context->save());

    const auto files = cache.getAllSyncFiles(*m_context);
    QVERIFY(files);
    QStringList names;
    for (const BVTmpSyncFile &file : *files)
        names.append(file.name() + u":"_s + file.revisionValue().value_or(QString()));
    QCOMPARE(names, (QStringList { u"2023-11:a"_s, u"2024-02:b"_s }));
    deleted = cache.getDeletedSyncFile(*m_context);
    QCOMPARE(deleted->revisionValue(), std::optional<QString>(u"d"_s));
    QCOMPARE(deleted->activityHash(), std::optional<QString>(u"hd"_s));
}

void TestSyncCache::prepareLocalCache_data()
{
    QTest::addColumn<QString>("setup");
    QTest::addColumn<QString>("message"); // %1: the cache folder

    QTest::newRow("missing folder is made") << u"none"_s << QString();
    QTest::newRow("existing folder") << u"folder"_s << QString();
    QTest::newRow("a file in its place") << u"file"_s << u"Cache path is not a directory: \"%1\"!"_s;
    QTest::newRow("parent is a file") << u"parentfile"_s << u"Failed to create caches directory: \"%1\"!"_s;
}

void TestSyncCache::prepareLocalCache()
{
    QFETCH(QString, setup);
    QFETCH(QString, message);
    FakeSyncBackend backend(m_home->root() + u"/remote"_s);
    BVSyncCache cache(backend);
    const QString folder = cache.cacheFolder();
    QCOMPARE(
        folder, QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) + u"/Brimvale/dropbox-sync"_s);
    QVERIFY(folder.startsWith(m_home->root()));
    const QString parent = QFileInfo(folder).path();
    if (setup == u"folder"_s)
        QVERIFY(QDir().mkpath(folder));
    if (setup == u"file"_s) {
        QVERIFY(QDir().mkpath(parent));
        touch(folder);
    }
    if (setup == u"parentfile"_s) {
        QVERIFY(QDir().mkpath(QFileInfo(parent).path()));
        touch(parent);
    }
    const auto prepared = cache.prepareLocalCache();
    if (message.isNull()) {
        QVERIFY(prepared);
        QVERIFY(QFileInfo(folder).isDir());
    } else {
        QVERIFY(!prepared);
        QCOMPARE(prepared.error().description(), message.arg(folder));
    }
}

void TestSyncCache::cleanupDeletesMonthsWithoutActivities_data()
{
    QTest::addColumn<bool>("otherThread");
    QTest::newRow("completions on the run's thread") << false;
    QTest::newRow("completions on another thread") << true;
}

void TestSyncCache::cleanupDeletesMonthsWithoutActivities()
{
    QFETCH(bool, otherThread);
    FakeSyncBackend backend(m_home->root() + u"/remote"_s);
    backend.setCallbacks(otherThread ? FakeSyncBackend::Callbacks::OtherThread : FakeSyncBackend::Callbacks::Direct);
    BVSyncCache cache(backend);
    QVERIFY(cache.prepareLocalCache());

    auto add = [&](const QDateTime &from, const QDateTime &to) {
        ActivityPtr activity = m_context->insertActivity();
        activity->setText(u"work"_s);
        activity->setTimeFrom(from);
        activity->setTimeTo(to);
    };
    add(local(2024, 1, 10, 9, 0, 0), local(2024, 1, 10, 10, 0, 0));
    // Starts on the month's last day and ends in the next: filed under March, and counted there as the
    // export files it, so March's file stays.
    add(local(2024, 3, 31, 23, 30, 0), local(2024, 4, 1, 0, 30, 0));
    for (const QString &name : { u"2024-01"_s, u"2024-02"_s, u"2024-03"_s, u"deleted"_s }) {
        addRow(name, u"dropbox:r"_s);
        touch(cache.cacheFolder() + u"/"_s + name + u".json"_s);
        touch(backend.remoteFolder() + u"/"_s + name + u".json"_s);
    }
    QVERIFY(m_context->save());

    QStringList progress;
    cache.setProgress([&](const QString &line) { progress.append(line); });
    std::optional<std::expected<void, BvError>> result;
    cache.cleanupFiles(
        *m_context, QTimeZone("Europe/Berlin"), [&](const std::expected<void, BvError> &done) { result = done; });
    QTRY_VERIFY(result.has_value());
    QVERIFY(*result);
    QCOMPARE(progress, QStringList { u"Cleaning up files ..."_s });
    QCOMPARE(backend.calls(), (QStringList { u"delete 2024-02.json"_s }));
    const QStringList kept { u"2024-01"_s, u"2024-03"_s, u"deleted"_s };
    QCOMPARE(rowNames(), kept);
    const QStringList keptFiles { u"2024-01.json"_s, u"2024-03.json"_s, u"deleted.json"_s };
    QCOMPARE(QDir(cache.cacheFolder()).entryList(QDir::Files), keptFiles);
    QCOMPARE(QDir(backend.remoteFolder()).entryList(QDir::Files), keptFiles);
    if (otherThread)
        QVERIFY(backend.lastCallbackThread() != QThread::currentThread());
}

void TestSyncCache::cleanupStopsWhenTheBackendFails()
{
    FakeSyncBackend backend(m_home->root() + u"/remote"_s);
    QStringList errors;
    backend.setErrorHandler([&](const QString &message) { errors.append(message); });
    BVSyncCache cache(backend);
    QVERIFY(cache.prepareLocalCache());
    for (const QString &name : { u"2024-02"_s, u"2024-03"_s }) {
        addRow(name, u"dropbox:r"_s);
        touch(cache.cacheFolder() + u"/"_s + name + u".json"_s);
    }
    QVERIFY(m_context->save());

    backend.failNext(FakeSyncBackend::Operation::Delete, u"Dropbox is down"_s);
    bool called = false;
    cache.cleanupFiles(
        *m_context, QTimeZone("Europe/Berlin"), [&](const std::expected<void, BvError> &) { called = true; });
    QTest::qWait(50);
    QVERIFY(!called);
    QCOMPARE(errors, QStringList { u"Dropbox is down"_s });
    // Nothing of the failed file, nor of the files after it, was touched.
    QCOMPARE(rowNames(), (QStringList { u"2024-02"_s, u"2024-03"_s }));
    QCOMPARE(QDir(cache.cacheFolder()).entryList(QDir::Files).size(), 2);
}

void TestSyncCache::cleanupCachesDirKeepsOnlyFilesWithRows()
{
    FakeSyncBackend backend(m_home->root() + u"/remote"_s);
    BVSyncCache cache(backend);
    QVERIFY(cache.prepareLocalCache());
    const QString folder = cache.cacheFolder();
    addRow(u"2024-03"_s, u"dropbox:r"_s);
    addRow(u"deleted"_s, u"dropbox:d"_s);
    QVERIFY(m_context->save());
    touch(folder + u"/2024-03.json"_s);
    touch(folder + u"/deleted.json"_s);
    touch(folder + u"/2024-04.json"_s);
    touch(folder + u"/.2024-03.json.tmp"_s);
    QVERIFY(QDir().mkpath(folder + u"/stray/inner"_s));
    const QString outside = m_home->root() + u"/outside"_s;
    QVERIFY(QDir().mkpath(outside));
    touch(outside + u"/keep.json"_s);
    QVERIFY(QFile::link(outside, folder + u"/link"_s));

    cache.cleanupCachesDir(*m_context);
    QCOMPARE(QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot),
        (QStringList { u"2024-03.json"_s, u"deleted.json"_s }));
    // A link is removed as a link, never followed.
    QVERIFY(QFile::exists(outside + u"/keep.json"_s));
}

QTEST_GUILESS_MAIN(TestSyncCache)
#include "testsynccache.moc"
