// Runs in America/New_York (see CMakeLists.txt): March 10 2024 skips 02:00-03:00, November 3 repeats 01:00-02:00.
#include <QtTest>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimeZone>

#include "base/datahelpers.h"
#include "base/datehelpers.h"
#include "base/stringhelpers.h"
#include "fakes/fakeclock.h"
#include "model/activity.h"
#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/isolatedhome.h"
#include "sync/activityhashitem.h"
#include "sync/bvdeletedfile.h"
#include "sync/bvmonthdaterange.h"
#include "sync/bvmonthfile.h"
#include "sync/bvsyncdateformatter.h"
#include "sync/bvtmpsyncfile.h"

using namespace Qt::StringLiterals;

namespace {

const QString kUid1 = u"0F8FAD5B-D9CB-469F-A165-70867728950E"_s;
const QString kUid2 = u"7C9E6679-7425-40DE-944B-E07FC1F90AE7"_s;
const QString kEmptyMd5 = u"d41d8cd98f00b204e9800998ecf8427e"_s;
// The suite runs with TZ=America/New_York; the sync zone is the same unless a test says otherwise.
const QTimeZone kZone("America/New_York");
const BVSyncDateFormatter kDates(kZone);

QDateTime utc(int y, int mo, int d, int h, int mi, int s, int ms = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s, ms), Qt::UTC);
}

// An element with every key valid; `changes` replaces keys, `removed` drops them.
QJsonObject element(const QJsonObject &changes = {}, const QStringList &removed = {})
{
    QJsonObject object { { u"uid"_s, kUid1 }, { u"time_from"_s, u"2024-03-12T09:00:00"_s },
        { u"time_to"_s, u"2024-03-12T10:00:00"_s }, { u"created_at"_s, u"2024-03-12T09:00:00"_s },
        { u"modified_at"_s, u"2024-03-12T10:00:00"_s }, { u"is_invoiced"_s, 0 },
        { u"text"_s, u"@Acme #design mock-ups"_s } };
    for (auto it = changes.begin(); it != changes.end(); ++it)
        object.insert(it.key(), it.value());
    for (const QString &key : removed)
        object.remove(key);
    return object;
}

QByteArray json(const QJsonArray &array)
{
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

} // namespace

class TestSyncFileFormat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void dateTextIsTheSyncZonesWallTime_data();
    void dateTextIsTheSyncZonesWallTime();
    void dateTextParsesOnlyTheWholePattern_data();
    void dateTextParsesOnlyTheWholePattern();
    void fileIsReadInTheSyncZoneNotTheMachines();
    void ambiguousAndZeroLengthElements_data();
    void ambiguousAndZeroLengthElements();
    void sameSecondTieGoesToTheGreaterEncoding_data();
    void sameSecondTieGoesToTheGreaterEncoding();
    void compareBySecondsIgnoresFractions_data();
    void compareBySecondsIgnoresFractions();

    void hashesArePinned_data();
    void hashesArePinned();
    void stringHelpers_data();
    void stringHelpers();
    void queryItems_data();
    void queryItems();

    void monthFileHoldsTheMonthsActivitiesByStart();
    void roundTripKeepsEveryField();
    void readingChecksInOrder_data();
    void readingChecksInOrder();
    void everySpellingOfAnElementReadsAlike_data();
    void everySpellingOfAnElementReadsAlike();
    void failedElementLeavesStoreAndRowUntouched();
    void mergeByWholeSeconds_data();
    void mergeByWholeSeconds();
    void deletionCheck_data();
    void deletionCheck();
    void repeatedUidInOneFileMergesIntoOneActivity();
    void month13FileMergesLikeAnyOther();
    void writeFailureNamesThePath();

    void deletionFileReading_data();
    void deletionFileReading();
    void deletionFileApply_data();
    void deletionFileApply();
    void deletionFileWrittenOnlyWhenChanged();
    void deletionFileMergeStoresItsRow();

private:
    std::unique_ptr<Store> openStore(const QString &folder);
    ActivityPtr addActivity(StoreContext &context, const QString &uid, const QDateTime &from, const QDateTime &modified,
        const QString &text = u"@Acme #design mock-ups"_s);
    QString writeFile(const QString &name, const QByteArray &bytes);

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<StoreContext> m_context;
    FakeClock m_clock { utc(2024, 4, 1, 12, 0, 0) };
};

void TestSyncFileFormat::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_store = openStore(m_home->applicationFilesDirectory());
    QVERIFY(m_store);
    m_context = m_store->newContext();
}

void TestSyncFileFormat::cleanup()
{
    m_context.reset();
    m_store.reset();
    m_home.reset();
}

std::unique_ptr<Store> TestSyncFileFormat::openStore(const QString &folder)
{
    StoreOptions options;
    options.applicationFilesDirectory = folder;
    options.clock = &m_clock;
    auto store = Store::open(options);
    return store ? std::move(*store) : nullptr;
}

ActivityPtr TestSyncFileFormat::addActivity(
    StoreContext &context, const QString &uid, const QDateTime &from, const QDateTime &modified, const QString &text)
{
    ActivityPtr activity = context.insertActivity();
    activity->setUid(uid);
    activity->setText(text);
    activity->setTimeFrom(from);
    activity->setTimeTo(from.addSecs(1800));
    activity->setCreatedAt(from);
    activity->setModifiedAt(modified);
    return activity;
}

QString TestSyncFileFormat::writeFile(const QString &name, const QByteArray &bytes)
{
    const QString path = m_home->root() + u"/"_s + name;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return {};
    return path;
}

void TestSyncFileFormat::dateTextIsTheSyncZonesWallTime_data()
{
    QTest::addColumn<QDateTime>("instant");
    QTest::addColumn<QString>("text");

    QTest::newRow("daylight time") << utc(2024, 3, 12, 13, 30, 5) << u"2024-03-12T09:30:05"_s;
    QTest::newRow("standard time") << utc(2024, 1, 15, 14, 0, 0) << u"2024-01-15T09:00:00"_s;
    QTest::newRow("fraction dropped") << utc(2024, 3, 12, 13, 30, 5, 999) << u"2024-03-12T09:30:05"_s;
    QTest::newRow("last standard second") << utc(2024, 3, 10, 6, 59, 59) << u"2024-03-10T01:59:59"_s;
    QTest::newRow("first daylight second") << utc(2024, 3, 10, 7, 0, 0) << u"2024-03-10T03:00:00"_s;
    QTest::newRow("three-digit year") << utc(987, 6, 1, 12, 0, 0) << u"987-06-01T07:03:58"_s;
    QTest::newRow("year padded to three") << utc(45, 6, 1, 12, 0, 0) << u"045-06-01T07:03:58"_s;
    QTest::newRow("five-digit year") << utc(12024, 6, 1, 12, 0, 0) << u"12024-06-01T08:00:00"_s;
}

void TestSyncFileFormat::dateTextIsTheSyncZonesWallTime()
{
    QFETCH(QDateTime, instant);
    QFETCH(QString, text);
    QCOMPARE(kDates.stringFromDate(instant), text);
    // Reading gives the instant back, in whole seconds.
    QCOMPARE(kDates.dateFromString(text).toMSecsSinceEpoch(), DateHelpers::floorSeconds(instant) * 1000);
}

void TestSyncFileFormat::dateTextParsesOnlyTheWholePattern_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QDateTime>("instant"); // invalid: refused

    QTest::newRow("single-digit fields") << u"2024-3-5T9:7:1"_s << utc(2024, 3, 5, 14, 7, 1);
    QTest::newRow("two-digit year is that year")
        << u"24-03-05T09:00:00"_s << QDateTime(QDate(24, 3, 5), QTime(13, 56, 2), Qt::UTC);
    // A wall time the clocks skip lands as far after the change as it names past it.
    QTest::newRow("skipped hour") << u"2024-03-10T02:30:00"_s << utc(2024, 3, 10, 7, 30, 0);
    // A wall time the clocks repeat is the later of its two instants.
    QTest::newRow("repeated hour") << u"2024-11-03T01:30:00"_s << utc(2024, 11, 3, 6, 30, 0);
    QTest::newRow("day before repeat") << u"2024-11-03T00:59:59"_s << utc(2024, 11, 3, 4, 59, 59);
    QTest::newRow("February 30") << u"2024-02-30T10:00:00"_s << QDateTime();
    QTest::newRow("29 February in a common year") << u"2023-02-29T10:00:00"_s << QDateTime();
    QTest::newRow("month 13") << u"2024-13-01T10:00:00"_s << QDateTime();
    QTest::newRow("hour 24") << u"2024-03-12T24:00:00"_s << QDateTime();
    QTest::newRow("minute 60") << u"2024-03-12T10:60:00"_s << QDateTime();
    QTest::newRow("second 60") << u"2024-03-12T10:00:60"_s << QDateTime();
    QTest::newRow("year 0") << u"0000-03-12T10:00:00"_s << QDateTime();
    QTest::newRow("space for T") << u"2024-03-12 10:00:00"_s << QDateTime();
    QTest::newRow("lower-case t") << u"2024-03-12t10:00:00"_s << QDateTime();
    QTest::newRow("zone designator") << u"2024-03-12T10:00:00Z"_s << QDateTime();
    QTest::newRow("fraction") << u"2024-03-12T10:00:00.000"_s << QDateTime();
    QTest::newRow("leading space") << u" 2024-03-12T10:00:00"_s << QDateTime();
    QTest::newRow("three-digit month") << u"2024-003-12T10:00:00"_s << QDateTime();
    QTest::newRow("sign") << u"-2024-03-12T10:00:00"_s << QDateTime();
    QTest::newRow("Arabic-Indic digits") << u"٢٠٢٤-03-12T10:00:00"_s << QDateTime();
    QTest::newRow("superscript digit") << u"2024-03-12T10:00:0²"_s << QDateTime();
    QTest::newRow("empty") << QString() << QDateTime();
}

void TestSyncFileFormat::dateTextParsesOnlyTheWholePattern()
{
    QFETCH(QString, text);
    QFETCH(QDateTime, instant);
    const QDateTime parsed = kDates.dateFromString(text);
    QCOMPARE(parsed.isValid(), instant.isValid());
    if (instant.isValid())
        QCOMPARE(parsed.toMSecsSinceEpoch(), instant.toMSecsSinceEpoch());

    // Month files hand their dates over as bytes; whatever Latin-1 can hold must read the same from them.
    const QByteArray latin1 = text.toLatin1();
    if (QString::fromLatin1(latin1) != text)
        return;
    const QDateTime fromBytes = kDates.dateFromString(QLatin1StringView(latin1));
    QCOMPARE(fromBytes.isValid(), instant.isValid());
    if (instant.isValid())
        QCOMPARE(fromBytes.toMSecsSinceEpoch(), instant.toMSecsSinceEpoch());
}

void TestSyncFileFormat::fileIsReadInTheSyncZoneNotTheMachines()
{
    // The journal's sync zone is Berlin; this machine is in New York (the suite's TZ). The file's texts
    // are Berlin wall times and must give the instants back exactly, and its hash must be the one a
    // machine in Berlin makes.
    const QTimeZone berlin("Europe/Berlin");
    QVERIFY(berlin.isValid());
    const QDateTime start = utc(2024, 3, 20, 8, 0, 0); // 09:00 in Berlin (CET), 04:00 here (EDT)
    const QDateTime modified = utc(2024, 3, 20, 8, 30, 0);
    auto berlinText
        = [&](const QDateTime &instant) { return instant.toTimeZone(berlin).toString(u"yyyy-MM-dd'T'HH:mm:ss"_s); };
    const QString path = writeFile(u"2024-03.json"_s,
        json({ element({ { u"time_from"_s, berlinText(start) }, { u"time_to"_s, berlinText(start.addSecs(3600)) },
            { u"created_at"_s, berlinText(start) }, { u"modified_at"_s, berlinText(modified) } }) }));
    BVTmpSyncFile file(2024, 3, 1, u"rev1"_s);
    QVERIFY(BVMonthFile::merge(*m_context, path, file, berlin));

    const ActivityPtr merged = *m_context->activityWithUid(kUid1);
    QVERIFY(merged);
    QCOMPARE(merged->timeFrom(), start);
    QCOMPARE(merged->timeTo(), start.addSecs(3600));
    QCOMPARE(merged->modifiedAt(), modified);
    // The hash text is the Berlin wall time, whatever zone this machine is in.
    QCOMPARE(*file.activityHash(), StringHelpers::md5String(berlinText(modified) + kUid1));
    QCOMPARE(BVMonthFile::json({ merged }, berlin),
        json({ element({ { u"time_from"_s, berlinText(start) }, { u"time_to"_s, berlinText(start.addSecs(3600)) },
            { u"created_at"_s, berlinText(start) }, { u"modified_at"_s, berlinText(modified) } }) }));
    // The month of the sync zone files it: 23:30 on 31 March in New York is April in Berlin.
    const ActivityPtr late = addActivity(*m_context, kUid2, utc(2024, 4, 1, 3, 30, 0), modified);
    QVERIFY(m_context->save());
    const auto march = BVMonthFile::activitiesForMonth(*m_context, BVMonthDateRange(2024, 3, berlin), QString());
    const auto april = BVMonthFile::activitiesForMonth(*m_context, BVMonthDateRange(2024, 4, berlin), QString());
    QCOMPARE(march->size(), 1);
    QCOMPARE(april->size(), 1);
    QCOMPARE(april->constFirst()->uid(), kUid2);
}

void TestSyncFileFormat::ambiguousAndZeroLengthElements_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<QDateTime>("start");
    QTest::addColumn<QDateTime>("end"); // invalid: the element is refused

    // Berlin repeats 02:00-02:59 on 27 October 2024: first CEST (00:00Z-00:59Z), then CET (01:00Z-01:59Z).
    QTest::newRow("the repeated hour itself") << u"2024-10-27T02:30:00"_s << u"2024-10-27T02:30:00"_s
                                              << utc(2024, 10, 27, 0, 30, 0) << utc(2024, 10, 27, 1, 30, 0);
    QTest::newRow("end before start on the wall clock") << u"2024-10-27T02:50:00"_s << u"2024-10-27T02:10:00"_s
                                                        << utc(2024, 10, 27, 0, 50, 0) << utc(2024, 10, 27, 1, 10, 0);
    QTest::newRow("both later when that is consistent") << u"2024-10-27T02:10:00"_s << u"2024-10-27T02:50:00"_s
                                                        << utc(2024, 10, 27, 1, 10, 0) << utc(2024, 10, 27, 1, 50, 0);
    QTest::newRow("start before the repeated hour") << u"2024-10-27T01:50:00"_s << u"2024-10-27T02:10:00"_s
                                                    << utc(2024, 10, 26, 23, 50, 0) << utc(2024, 10, 27, 1, 10, 0);
    QTest::newRow("hand-edited zero length is one second") << u"2024-03-12T10:00:00"_s << u"2024-03-12T10:00:00"_s
                                                           << utc(2024, 3, 12, 9, 0, 0) << utc(2024, 3, 12, 9, 0, 1);
    QTest::newRow("end a second before start")
        << u"2024-03-12T10:00:01"_s << u"2024-03-12T10:00:00"_s << QDateTime() << QDateTime();
    // 03:10 CET is 02:10Z, after the later reading of "02:30" already: that reading stands.
    QTest::newRow("repeated start, end after both readings")
        << u"2024-10-27T02:30:00"_s << u"2024-10-27T03:10:00"_s << utc(2024, 10, 27, 1, 30, 0)
        << utc(2024, 10, 27, 2, 10, 0);
}

void TestSyncFileFormat::ambiguousAndZeroLengthElements()
{
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(QDateTime, start);
    QFETCH(QDateTime, end);
    const QTimeZone berlin("Europe/Berlin");
    const QByteArray content
        = json({ element({ { u"time_from"_s, from }, { u"time_to"_s, to }, { u"created_at"_s, from } }) });
    const QString path = writeFile(u"2024-10.json"_s, content);
    BVTmpSyncFile file(2024, 10, 1, u"rev1"_s);
    const auto merged = BVMonthFile::merge(*m_context, path, file, berlin);
    QCOMPARE(bool(BVMonthFile::check(content, berlin)), end.isValid());
    if (!end.isValid()) {
        QVERIFY(!merged);
        QCOMPARE(merged.error().message(), u"Start time for activity is greater than end time"_s);
        return;
    }
    QVERIFY2(merged, qPrintable(merged ? QString() : merged.error().message()));
    // Saved, so the store took it: a zero-length activity would have been "Local storage error (25)".
    const ActivityPtr stored = *m_store->newContext()->activityWithUid(kUid1);
    QVERIFY(stored);
    QCOMPARE(stored->timeFrom(), start);
    QCOMPARE(stored->timeTo(), end);
}

void TestSyncFileFormat::sameSecondTieGoesToTheGreaterEncoding_data()
{
    QTest::addColumn<QString>("localText");
    QTest::addColumn<QString>("fileText");
    QTest::addColumn<QString>("kept");
    QTest::addColumn<bool>("fileHashKept");

    QTest::newRow("file's version greater") << u"@Acme a"_s << u"@Acme b"_s << u"@Acme b"_s << true;
    QTest::newRow("local version greater") << u"@Acme b"_s << u"@Acme a"_s << u"@Acme b"_s << false;
    QTest::newRow("same version") << u"@Acme a"_s << u"@Acme a"_s << u"@Acme a"_s << true;
}

void TestSyncFileFormat::sameSecondTieGoesToTheGreaterEncoding()
{
    QFETCH(QString, localText);
    QFETCH(QString, fileText);
    QFETCH(QString, kept);
    QFETCH(bool, fileHashKept);
    // Both machines edited in the second 09:00:00; the fractions differ and must not matter.
    const QDateTime modified = utc(2024, 3, 12, 13, 0, 0, 700);
    const QDateTime start = utc(2024, 3, 12, 13, 0, 0);
    const ActivityPtr local = addActivity(*m_context, kUid1, start, modified, localText);
    local->setTimeTo(start.addSecs(3600));
    local->setCreatedAt(start);
    QVERIFY(m_context->save());

    const QString path = writeFile(u"2024-03.json"_s,
        json({ element({ { u"time_from"_s, u"2024-03-12T09:00:00"_s }, { u"time_to"_s, u"2024-03-12T10:00:00"_s },
            { u"created_at"_s, u"2024-03-12T09:00:00"_s }, { u"modified_at"_s, u"2024-03-12T09:00:00"_s },
            { u"text"_s, fileText } }) }));
    BVTmpSyncFile file(2024, 3, 1, u"rev1"_s);
    QVERIFY(BVMonthFile::merge(*m_context, path, file, kZone));
    QCOMPARE((*m_store->newContext()->activityWithUid(kUid1))->text(), kept);
    // A local winner leaves the file without a hash, so the month is written and uploaded again.
    QCOMPARE(file.activityHash().has_value(), fileHashKept);
}

void TestSyncFileFormat::compareBySecondsIgnoresFractions_data()
{
    QTest::addColumn<QDateTime>("date");
    QTest::addColumn<QDateTime>("other");
    QTest::addColumn<int>("result");

    const QDateTime base = utc(2024, 3, 12, 10, 0, 0);
    QTest::newRow("same second, later fraction") << base.addMSecs(999) << base << 0;
    QTest::newRow("next second by one millisecond") << base.addMSecs(1000) << base.addMSecs(999) << 1;
    QTest::newRow("earlier second") << base.addMSecs(-1) << base << -1;
    QTest::newRow("before 1970 rounds down")
        << QDateTime::fromMSecsSinceEpoch(-1, Qt::UTC) << QDateTime::fromMSecsSinceEpoch(-999, Qt::UTC) << 0;
    QTest::newRow("before 1970 across a second")
        << QDateTime::fromMSecsSinceEpoch(-1001, Qt::UTC) << QDateTime::fromMSecsSinceEpoch(-1000, Qt::UTC) << -1;
    QTest::newRow("invalid is earliest") << QDateTime() << base << -1;
}

void TestSyncFileFormat::compareBySecondsIgnoresFractions()
{
    QFETCH(QDateTime, date);
    QFETCH(QDateTime, other);
    QFETCH(int, result);
    QCOMPARE(DateHelpers::compareBySeconds(date, other), result);
    QCOMPARE(DateHelpers::compareBySeconds(other, date), -result);
}

void TestSyncFileFormat::hashesArePinned_data()
{
    QTest::addColumn<QList<ActivityHashItem>>("items");
    QTest::addColumn<QString>("hash");

    const QDateTime tenAm = utc(2024, 3, 12, 14, 0, 0); // 10:00:00 here
    const QDateTime halfPastNine = utc(2024, 3, 12, 13, 30, 5);
    QTest::newRow("empty list") << QList<ActivityHashItem>() << kEmptyMd5;
    QTest::newRow("one item: date then uid")
        << QList { ActivityHashItem(u"A"_s, tenAm) } << u"f6a0c544e46e875dd7df505c48289223"_s;
    QTest::newRow("sorted by uid") << QList { ActivityHashItem(u"B"_s, halfPastNine), ActivityHashItem(u"A"_s, tenAm) }
                                   << u"485834a63cbd3d01cc7816df0a442550"_s;
    QTest::newRow("order of the list does not matter") << QList { ActivityHashItem(u"A"_s, tenAm),
        ActivityHashItem(u"B"_s, halfPastNine) } << u"485834a63cbd3d01cc7816df0a442550"_s;
    QTest::newRow("fraction of a second does not matter")
        << QList { ActivityHashItem(u"A"_s, tenAm.addMSecs(999)), ActivityHashItem(u"B"_s, halfPastNine.addMSecs(1)) }
        << u"485834a63cbd3d01cc7816df0a442550"_s;
    QTest::newRow("a whole second does") << QList { ActivityHashItem(u"A"_s, tenAm.addSecs(1)),
        ActivityHashItem(u"B"_s, halfPastNine) }
                                         << StringHelpers::md5String(u"2024-03-12T10:00:01A2024-03-12T09:30:05B"_s);
    QTest::newRow("uids compare case-sensitively") << QList { ActivityHashItem(u"a"_s, tenAm),
        ActivityHashItem(u"B"_s, tenAm) } << StringHelpers::md5String(u"2024-03-12T10:00:00B2024-03-12T10:00:00a"_s);
    QTest::newRow("equal uids by time") << QList { ActivityHashItem(u"A"_s, tenAm),
        ActivityHashItem(u"A"_s, halfPastNine) }
                                        << StringHelpers::md5String(u"2024-03-12T09:30:05A2024-03-12T10:00:00A"_s);
    QTest::newRow("UTF-8 bytes") << QList { ActivityHashItem(u"Ä"_s, tenAm) } << u"79fcd8e438b82653e3c6a51ad040d687"_s;
}

void TestSyncFileFormat::hashesArePinned()
{
    QFETCH(QList<ActivityHashItem>, items);
    QFETCH(QString, hash);
    QCOMPARE(ActivityHashItem::hashForItems(items, kZone), hash);
}

void TestSyncFileFormat::stringHelpers_data()
{
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("expected");

    QTest::newRow("md5 of nothing") << StringHelpers::md5String(QString()) << kEmptyMd5;
    QTest::newRow("md5 lower-case hex") << StringHelpers::md5String(u"abcABD"_s)
                                        << u"975c70329a208b9743c1479e9f28ec12"_s;
    QTest::newRow("hex keeps leading zeros")
        << DataHelpers::hexadecimalString(QByteArray("\x00\x0f\xa0\xff", 4)) << u"000fa0ff"_s;
    QTest::newRow("uids sorted ignoring case")
        << ActivityHashItem::hashForUIDs({ u"b"_s, u"C"_s, u"a"_s }) << u"36cf1fa7e384dfd385f07a50ffdf0418"_s;
    QTest::newRow("no uids") << ActivityHashItem::hashForUIDs({}) << kEmptyMd5;
    QTest::newRow("item description") << ActivityHashItem::itemForUID(u"X"_s, utc(2024, 3, 12, 9, 30, 5)).description()
                                      << u"UID: X; Modified At: 2024-03-12 09:30:05 +0000"_s;
}

void TestSyncFileFormat::stringHelpers()
{
    QFETCH(QString, result);
    QFETCH(QString, expected);
    QCOMPARE(result, expected);
}

void TestSyncFileFormat::queryItems_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<QStringList>("pairs"); // key, value, key, value ...

    QTest::newRow("two pairs") << u"code=abc&state=xyz"_s << QStringList { u"code"_s, u"abc"_s, u"state"_s, u"xyz"_s };
    QTest::newRow("escapes removed after splitting") << u"a%3Db=c%26d"_s << QStringList { u"a=b"_s, u"c&d"_s };
    QTest::newRow("UTF-8 escapes") << u"name=J%C3%B6rg"_s << QStringList { u"name"_s, u"Jörg"_s };
    QTest::newRow("plus stays plus") << u"q=a+b"_s << QStringList { u"q"_s, u"a+b"_s };
    QTest::newRow("empty value kept") << u"a=&b=1"_s << QStringList { u"a"_s, QString(), u"b"_s, u"1"_s };
    QTest::newRow("one part dropped") << u"flag&b=1"_s << QStringList { u"b"_s, u"1"_s };
    QTest::newRow("three parts dropped") << u"a=b=c&d=e"_s << QStringList { u"d"_s, u"e"_s };
    QTest::newRow("bad escape dropped") << u"a=%zz&b=%4"_s << QStringList {};
    QTest::newRow("invalid UTF-8 dropped") << u"a=%C3&b=2"_s << QStringList { u"b"_s, u"2"_s };
    QTest::newRow("later value wins") << u"a=1&a=2"_s << QStringList { u"a"_s, u"2"_s };
    QTest::newRow("empty query") << QString() << QStringList {};
}

void TestSyncFileFormat::queryItems()
{
    QFETCH(QString, query);
    QFETCH(QStringList, pairs);
    const QHash<QString, QString> items = StringHelpers::queryItems(query);
    QCOMPARE(items.size(), pairs.size() / 2);
    for (qsizetype i = 0; i < pairs.size(); i += 2) {
        QVERIFY2(items.contains(pairs.at(i)), qPrintable(pairs.at(i)));
        QCOMPARE(items.value(pairs.at(i)), pairs.at(i + 1));
    }
}

void TestSyncFileFormat::monthFileHoldsTheMonthsActivitiesByStart()
{
    // Month bounds are local: March 2024 here is 2024-03-01T05:00Z .. 2024-04-01T03:59:59Z.
    const QDateTime modified = utc(2024, 3, 20, 12, 0, 0);
    addActivity(*m_context, u"LAST-FEBRUARY"_s, utc(2024, 3, 1, 4, 59, 59, 999), modified);
    addActivity(*m_context, u"FIRST"_s, utc(2024, 3, 1, 5, 0, 0), modified.addSecs(30));
    addActivity(*m_context, u"CROSSES-MIDNIGHT"_s, utc(2024, 4, 1, 3, 30, 0), modified.addSecs(-30));
    addActivity(*m_context, u"LAST-SECOND"_s, utc(2024, 4, 1, 3, 59, 59, 500), modified.addSecs(10));
    addActivity(*m_context, u"FIRST-APRIL"_s, utc(2024, 4, 1, 4, 0, 0), modified);
    addActivity(*m_context, u"RUNNING"_s, utc(2024, 3, 15, 12, 0, 0), modified);
    QVERIFY(m_context->save());

    const auto activities = BVMonthFile::activitiesForMonth(*m_context, BVMonthDateRange(2024, 3, kZone), u"RUNNING"_s);
    QVERIFY(activities);
    QStringList uids;
    for (const ActivityPtr &activity : *activities)
        uids.append(activity->uid());
    // By modifiedAt ascending; the running activity is never written.
    QCOMPARE(uids, (QStringList { u"CROSSES-MIDNIGHT"_s, u"LAST-SECOND"_s, u"FIRST"_s }));

    const QString path = m_home->root() + u"/2024-03.json"_s;
    QVERIFY(BVMonthFile::write(*activities, path, kZone));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray bytes = file.readAll();
    QVERIFY(!bytes.contains('\n'));
    const QJsonArray array = QJsonDocument::fromJson(bytes).array();
    QCOMPARE(array.size(), 3);
    const QJsonObject first = array.at(0).toObject();
    QCOMPARE(first.keys(),
        (QStringList {
            u"created_at"_s, u"is_invoiced"_s, u"modified_at"_s, u"text"_s, u"time_from"_s, u"time_to"_s, u"uid"_s }));
    QCOMPARE(first.value(u"time_from"_s).toString(), u"2024-03-31T23:30:00"_s);
    QCOMPARE(first.value(u"time_to"_s).toString(), u"2024-04-01T00:00:00"_s);
    QCOMPARE(first.value(u"is_invoiced"_s), QJsonValue(0));
    QCOMPARE(first.value(u"text"_s).toString(), u"@Acme #design mock-ups"_s);
    QCOMPARE(array.at(1).toObject().value(u"time_from"_s).toString(), u"2024-03-31T23:59:59"_s);
    QCOMPARE(BVMonthFile::hashForActivities(*activities, kZone),
        ActivityHashItem::hashForItems(BVMonthFile::hashItems(*activities), kZone));
    // The quick look a run takes at every month tells the same month, the same bounds and exclusion.
    const auto summary = BVMonthFile::summaryForMonth(*m_context, BVMonthDateRange(2024, 3, kZone), u"RUNNING"_s);
    QVERIFY(summary);
    QCOMPARE(summary->count, 3);
    QCOMPARE(summary->hash, BVMonthFile::hashForActivities(*activities, kZone));
    QCOMPARE(BVMonthFile::summaryForMonth(*m_context, BVMonthDateRange(2024, 2, kZone), QString())->count, 1);
}

void TestSyncFileFormat::roundTripKeepsEveryField()
{
    ActivityPtr a = addActivity(*m_context, kUid1, utc(2024, 3, 12, 13, 0, 0, 250), utc(2024, 3, 12, 15, 0, 0, 750),
        u"@Acme #design #review \"quoted\" \\ é 日本"_s);
    a->setTimeTo(utc(2024, 3, 12, 14, 45, 30, 900));
    a->setCreatedAt(utc(2024, 3, 12, 12, 59, 0));
    a->setIsInvoiced(true);
    addActivity(*m_context, kUid2, utc(2024, 3, 10, 7, 15, 0), utc(2024, 3, 10, 7, 45, 0), u"plain"_s);
    QVERIFY(m_context->save());
    const auto activities = BVMonthFile::activitiesForMonth(*m_context, BVMonthDateRange(2024, 3, kZone), QString());
    QVERIFY(activities);
    const QString path = m_home->root() + u"/2024-03.json"_s;
    QVERIFY(BVMonthFile::write(*activities, path, kZone));

    QTemporaryDir other;
    auto otherStore = openStore(other.path());
    QVERIFY(otherStore);
    auto otherContext = otherStore->newContext();
    BVTmpSyncFile file(2024, 3, 1, u"abc"_s);
    QVERIFY(BVMonthFile::merge(*otherContext, path, file, kZone));

    for (const ActivityPtr &original : *activities) {
        const ActivityPtr copy = *otherContext->activityWithUid(original->uid());
        QVERIFY(copy);
        QCOMPARE(copy->text(), original->text());
        QCOMPARE(DateHelpers::floorSeconds(copy->timeFrom()), DateHelpers::floorSeconds(original->timeFrom()));
        QCOMPARE(DateHelpers::floorSeconds(copy->timeTo()), DateHelpers::floorSeconds(original->timeTo()));
        QCOMPARE(DateHelpers::floorSeconds(copy->createdAt()), DateHelpers::floorSeconds(original->createdAt()));
        QCOMPARE(DateHelpers::floorSeconds(copy->modifiedAt()), DateHelpers::floorSeconds(original->modifiedAt()));
        QCOMPARE(copy->isInvoiced(), original->isInvoiced());
        QCOMPARE(copy->yearMonth(), 202403);
    }
    const ActivityPtr copy = *otherContext->activityWithUid(kUid1);
    QVERIFY(copy->project());
    QCOMPARE(copy->project()->name(), u"Acme"_s);
    QCOMPARE(copy->tasks().size(), 2);

    // Both machines now agree on the content hash, and the reader stored it with the revision.
    QCOMPARE(*file.activityHash(), BVMonthFile::hashForActivities(*activities, kZone));
    const auto rows = otherContext->fetchSyncFiles(u"2024-03"_s);
    QVERIFY(rows && rows->size() == 1);
    QCOMPARE(rows->constFirst()->revision(), u"dropbox:abc"_s);
    QCOMPARE(rows->constFirst()->activityHash(), *file.activityHash());
}

void TestSyncFileFormat::readingChecksInOrder_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message"); // null: merged

    QTest::newRow("valid") << json({ element() }) << QString();
    QTest::newRow("empty array") << QByteArray("[]") << QString();
    QTest::newRow("top level object") << QByteArray("{\"uid\":\"x\"}") << u"Failed to load json file. (null)"_s;
    QTest::newRow("not an object") << json({ element(), 5 }) << u"Invalid json file content!"_s;
    QTest::newRow("time_from number") << json({ element({ { u"time_from"_s, 5 } }) })
                                      << u"Invalid data for activity(1)!"_s;
    QTest::newRow("time_from missing") << json({ element({}, { u"time_from"_s }) })
                                       << u"Invalid data for activity(1)!"_s;
    QTest::newRow("time_to null") << json({ element({ { u"time_to"_s, QJsonValue() } }) })
                                  << u"Invalid data for activity(2)!"_s;
    QTest::newRow("created_at missing") << json({ element({}, { u"created_at"_s }) })
                                        << u"Invalid data for activity(3)!"_s;
    QTest::newRow("modified_at bool") << json({ element({ { u"modified_at"_s, true } }) })
                                      << u"Invalid data for activity(4)!"_s;
    QTest::newRow("string checks before uid")
        << json({ element({ { u"time_to"_s, 1 } }, { u"uid"_s }) }) << u"Invalid data for activity(2)!"_s;
    QTest::newRow("uid missing") << json({ element({}, { u"uid"_s }) }) << u"No UID for activity!"_s;
    QTest::newRow("uid empty") << json({ element({ { u"uid"_s, u""_s } }) }) << u"No UID for activity!"_s;
    QTest::newRow("uid number") << json({ element({ { u"uid"_s, 7 } }) }) << u"No UID for activity!"_s;
    QTest::newRow("uid before dates") << json({ element({ { u"time_from"_s, u"x"_s } }, { u"uid"_s }) })
                                      << u"No UID for activity!"_s;
    QTest::newRow("time_from unparsable")
        << json({ element({ { u"time_from"_s, u"2024-03-12 09:00"_s } }) }) << u"No start time for activity!"_s;
    QTest::newRow("time_to unparsable") << json({ element({ { u"time_to"_s, u"yesterday"_s } }) })
                                        << u"No end time for activity!"_s;
    QTest::newRow("start one second after end") << json({ element({ { u"time_from"_s, u"2024-03-12T10:00:01"_s } }) })
                                                << u"Start time for activity is greater than end time"_s;
    QTest::newRow("order check before created_at")
        << json({ element({ { u"time_from"_s, u"2024-03-12T10:00:01"_s }, { u"created_at"_s, u"bad"_s } }) })
        << u"Start time for activity is greater than end time"_s;
    QTest::newRow("created_at unparsable")
        << json({ element({ { u"created_at"_s, u""_s } }) }) << u"No 'created at' time for activity!"_s;
    QTest::newRow("modified_at unparsable") << json({ element({ { u"modified_at"_s, u"2024-02-30T10:00:00"_s } }) })
                                            << u"No 'modified at' time for activity!"_s;
    QTest::newRow("text missing") << json({ element({}, { u"text"_s }) }) << u"No text for activity!"_s;
    QTest::newRow("text empty") << json({ element({ { u"text"_s, u""_s } }) }) << u"No text for activity!"_s;
    QTest::newRow("invoiced missing") << json({ element({}, { u"is_invoiced"_s }) })
                                      << u"Invalid invoiced value for activity!"_s;
    QTest::newRow("invoiced string") << json({ element({ { u"is_invoiced"_s, u"1"_s } }) })
                                     << u"Invalid invoiced value for activity!"_s;
    QTest::newRow("invoiced 2") << json({ element({ { u"is_invoiced"_s, 2 } }) })
                                << u"Invalid invoiced value for activity (0/1)!"_s;
    QTest::newRow("invoiced -1") << json({ element({ { u"is_invoiced"_s, -1 } }) })
                                 << u"Invalid invoiced value for activity (0/1)!"_s;
    QTest::newRow("invoiced true") << json({ element({ { u"is_invoiced"_s, true } }) }) << QString();
    QTest::newRow("invoiced 1") << json({ element({ { u"is_invoiced"_s, 1 } }) }) << QString();
    QTest::newRow("invoiced 1.5 is 1") << json({ element({ { u"is_invoiced"_s, 1.5 } }) }) << QString();
    QTest::newRow("unknown keys ignored") << json({ element({ { u"project"_s, u"x"_s } }) }) << QString();
}

void TestSyncFileFormat::readingChecksInOrder()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    const QString path = writeFile(u"2024-03.json"_s, content);
    BVTmpSyncFile file(2024, 3, 1, u"r1"_s);
    const auto merged = BVMonthFile::merge(*m_context, path, file, kZone);
    if (message.isNull()) {
        QVERIFY2(merged, qPrintable(merged ? QString() : merged.error().description()));
    } else {
        QVERIFY(!merged);
        QCOMPARE(merged.error().description(), message);
    }
}

void TestSyncFileFormat::everySpellingOfAnElementReadsAlike_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("text"); // null: the file is refused as QJsonDocument refuses it
    QTest::addColumn<bool>("invoiced");

    // Written by hand, so that the bytes are exactly the ones named; `members` come after the fixed ones.
    auto file = [](const QByteArray &members) -> QByteArray {
        return "[{\"uid\":\"" + kUid1.toLatin1()
            + "\",\"time_from\":\"2024-03-12T09:00:00\",\"time_to\":\"2024-03-12T10:00:00\","
              "\"created_at\":\"2024-03-12T09:00:00\",\"modified_at\":\"2024-03-12T10:00:00\","
            + members + "}]";
    };
    const QByteArray plain = file("\"is_invoiced\":1,\"text\":\"mock-ups\"");

    QTest::newRow("compact") << plain << u"mock-ups"_s << true;
    QTest::newRow("indented")
        << QJsonDocument(QJsonArray { element({ { u"text"_s, u"indented"_s } }) }).toJson(QJsonDocument::Indented)
        << u"indented"_s << false;
    QTest::newRow("spaces around every token")
        << QByteArray(" \r\n[ {\t\"text\" : \"spaced\" ,\"is_invoiced\" : 0 ,\"uid\":\"" + kUid1.toLatin1()
               + "\",\"time_from\":\"2024-03-12T09:00:00\",\"time_to\":\"2024-03-12T10:00:00\","
                 "\"created_at\":\"2024-03-12T09:00:00\",\"modified_at\":\"2024-03-12T10:00:00\" } ]\n")
        << u"spaced"_s << false;
    QTest::newRow("byte order mark") << QByteArray("\xEF\xBB\xBF" + plain) << u"mock-ups"_s << true;
    QTest::newRow("escapes") << file(R"("is_invoiced":0,"text":"say \"hi\" \\ \/ a\tb\nc")")
                             << u"say \"hi\" \\ / a\tb\nc"_s << false;
    QTest::newRow("unicode escape") << file(R"("is_invoiced":0,"text":"M\u00fcller \ud83d\ude00")") << u"Müller 😀"_s
                                    << false;
    QTest::newRow("non-ASCII text") << file(
        "\"is_invoiced\":0,\"text\":\"M\xC3\xBCller \xE6\x97\xA5 \xF0\x9F\x98\x80\"")
                                    << u"Müller 日 😀"_s << false;
    QTest::newRow("raw control character") << file("\"is_invoiced\":0,\"text\":\"a\tb\"") << u"a\tb"_s << false;
    QTest::newRow("repeated key, the last wins")
        << file("\"text\":\"first\",\"is_invoiced\":0,\"text\":\"last\"") << u"last"_s << false;
    QTest::newRow("invoiced 1.0") << file("\"is_invoiced\":1.0,\"text\":\"x\"") << u"x"_s << true;
    QTest::newRow("invoiced false") << file("\"is_invoiced\":false,\"text\":\"x\"") << u"x"_s << false;
    QTest::newRow("invoiced 10") << file("\"is_invoiced\":10,\"text\":\"x\"") << QString() << false;
    QTest::newRow("truncated UTF-8") << file("\"is_invoiced\":0,\"text\":\"M\xC3\"") << QString() << false;
    QTest::newRow("overlong UTF-8") << file("\"is_invoiced\":0,\"text\":\"\xC0\xAF\"") << QString() << false;
    QTest::newRow("UTF-8 surrogate") << file("\"is_invoiced\":0,\"text\":\"\xED\xA0\x80\"") << QString() << false;
    QTest::newRow("trailing comma") << QByteArray(plain).insert(plain.size() - 1, ',') << QString() << false;
    QTest::newRow("garbage after the array") << QByteArray(plain + "x") << QString() << false;
    QTest::newRow("unterminated string") << plain.left(plain.size() - 4) << QString() << false;
}

void TestSyncFileFormat::everySpellingOfAnElementReadsAlike()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, text);
    QFETCH(bool, invoiced);
    const QString path = writeFile(u"2024-03.json"_s, content);
    BVTmpSyncFile file(2024, 3, 1, u"r1"_s);
    const auto merged = BVMonthFile::merge(*m_context, path, file, kZone);
    if (text.isNull()) {
        QVERIFY(!merged);
        QJsonParseError parsed;
        QJsonDocument::fromJson(content, &parsed);
        const QString expected = parsed.error == QJsonParseError::NoError
            ? u"Invalid invoiced value for activity (0/1)!"_s
            : u"Failed to load json file. "_s + parsed.errorString();
        QCOMPARE(merged.error().description(), expected);
        return;
    }
    QVERIFY2(merged, qPrintable(merged ? QString() : merged.error().description()));
    const ActivityPtr activity = *m_store->newContext()->activityWithUid(kUid1);
    QVERIFY(activity);
    QCOMPARE(activity->text(), text);
    QCOMPARE(activity->isInvoiced(), invoiced);
    QCOMPARE(activity->timeFrom(), utc(2024, 3, 12, 13, 0, 0));
}

void TestSyncFileFormat::failedElementLeavesStoreAndRowUntouched()
{
    const QString path
        = writeFile(u"2024-03.json"_s, json({ element(), element({ { u"uid"_s, kUid2 }, { u"text"_s, u""_s } }) }));
    BVTmpSyncFile file(2024, 3, 1, u"r1"_s);
    const auto merged = BVMonthFile::merge(*m_context, path, file, kZone);
    QVERIFY(!merged);
    QCOMPARE(merged.error().description(), u"No text for activity!"_s);
    QVERIFY(!file.activityHash());

    auto fresh = m_store->newContext();
    QCOMPARE(*fresh->countActivities(), 0);
    QVERIFY(fresh->fetchSyncFiles()->isEmpty());

    const QString broken = writeFile(u"broken.json"_s, "[{\"uid\": ");
    const auto unparsable = BVMonthFile::merge(*fresh, broken, file, kZone);
    QVERIFY(!unparsable);
    QVERIFY(unparsable.error().description().startsWith(u"Failed to load json file. "_s));
    QVERIFY(unparsable.error().description() != u"Failed to load json file. (null)"_s);
}

void TestSyncFileFormat::mergeByWholeSeconds_data()
{
    QTest::addColumn<QDateTime>("localModified");
    QTest::addColumn<QString>("remoteModified");
    QTest::addColumn<bool>("replaced");

    // The remote text 2024-03-12T10:00:00 is 14:00:00Z here. Ties: sameSecondTieGoesToTheGreaterEncoding.
    QTest::newRow("remote one second later") << utc(2024, 3, 12, 14, 0, 0, 900) << u"2024-03-12T10:00:01"_s << true;
    QTest::newRow("remote earlier") << utc(2024, 3, 12, 14, 0, 0) << u"2024-03-12T09:59:59"_s << false;
    QTest::newRow("remote much later") << utc(2024, 3, 1, 14, 0, 0) << u"2024-03-12T10:00:00"_s << true;
}

void TestSyncFileFormat::mergeByWholeSeconds()
{
    QFETCH(QDateTime, localModified);
    QFETCH(QString, remoteModified);
    QFETCH(bool, replaced);

    ActivityPtr local = addActivity(*m_context, kUid1, utc(2024, 3, 12, 12, 0, 0), localModified, u"local @Old"_s);
    QVERIFY(m_context->save());
    const QString path = writeFile(
        u"2024-03.json"_s, json({ element({ { u"modified_at"_s, remoteModified }, { u"is_invoiced"_s, 1 } }) }));
    BVTmpSyncFile file(2024, 3, 1, u"r1"_s);
    QVERIFY(BVMonthFile::merge(*m_context, path, file, kZone));

    auto fresh = m_store->newContext();
    const ActivityPtr stored = *fresh->activityWithUid(kUid1);
    QCOMPARE(*fresh->countActivities(), 1);
    if (replaced) {
        QCOMPARE(stored->text(), u"@Acme #design mock-ups"_s);
        QCOMPARE(stored->timeFrom(), utc(2024, 3, 12, 13, 0, 0));
        QCOMPARE(stored->timeTo(), utc(2024, 3, 12, 14, 0, 0));
        QCOMPARE(stored->createdAt(), utc(2024, 3, 12, 13, 0, 0));
        QCOMPARE(stored->modifiedAt(), kDates.dateFromString(remoteModified));
        QVERIFY(stored->isInvoiced());
        QCOMPARE(stored->project()->name(), u"Acme"_s);
    } else {
        QCOMPARE(stored->text(), u"local @Old"_s);
        QCOMPARE(stored->modifiedAt(), localModified);
        QVERIFY(!stored->isInvoiced());
    }
    // Either way the file's element counts in its hash.
    QCOMPARE(*file.activityHash(),
        ActivityHashItem::hashForItems({ ActivityHashItem(kUid1, kDates.dateFromString(remoteModified)) }, kZone));
}

void TestSyncFileFormat::deletionCheck_data()
{
    QTest::addColumn<QDateTime>("deletedAt");
    QTest::addColumn<bool>("comesBack");

    // The element was modified at 2024-03-12T10:00:00 local, 14:00:00Z.
    QTest::newRow("edited a second after the deletion") << utc(2024, 3, 12, 13, 59, 59, 999) << true;
    QTest::newRow("edited in the second of the deletion") << utc(2024, 3, 12, 14, 0, 0, 500) << false;
    QTest::newRow("deleted after the edit") << utc(2024, 3, 12, 15, 0, 0) << false;
}

void TestSyncFileFormat::deletionCheck()
{
    QFETCH(QDateTime, deletedAt);
    QFETCH(bool, comesBack);

    DeletedActivityPtr record = m_context->insertDeletedActivity();
    record->setUid(kUid1);
    record->setDeletedAt(deletedAt);
    QVERIFY(m_context->save());
    const QString path = writeFile(u"2024-03.json"_s, json({ element(), element({ { u"uid"_s, kUid2 } }) }));
    BVTmpSyncFile file(2024, 3, 1, u"r1"_s);
    QStringList log;
    QVERIFY(BVMonthFile::merge(*m_context, path, file, kZone, [&](const QString &line) { log.append(line); }));

    auto fresh = m_store->newContext();
    QCOMPARE(bool(*fresh->activityWithUid(kUid1)), comesBack);
    QCOMPARE(fresh->fetchDeletedActivities(kUid1)->size(), comesBack ? 0 : 1);
    QVERIFY(*fresh->activityWithUid(kUid2));
    const QDateTime modified = utc(2024, 3, 12, 14, 0, 0);
    QList<ActivityHashItem> expected { ActivityHashItem(kUid2, modified) };
    if (comesBack)
        expected.append(ActivityHashItem(kUid1, modified));
    QCOMPARE(*file.activityHash(), ActivityHashItem::hashForItems(expected, kZone));
    QCOMPARE(log,
        comesBack ? QStringList() : QStringList { u"Activity (UID: %1) is marked as deleted, skipping"_s.arg(kUid1) });
}

void TestSyncFileFormat::repeatedUidInOneFileMergesIntoOneActivity()
{
    const QString path = writeFile(u"2024-03.json"_s,
        json({ element(), element({ { u"modified_at"_s, u"2024-03-12T11:00:00"_s }, { u"text"_s, u"second copy"_s } }),
            element({ { u"modified_at"_s, u"2024-03-12T10:30:00"_s }, { u"text"_s, u"older copy"_s } }) }));
    BVTmpSyncFile file(2024, 3, 1, u"r1"_s);
    QVERIFY(BVMonthFile::merge(*m_context, path, file, kZone));
    auto fresh = m_store->newContext();
    QCOMPARE(*fresh->countActivities(), 1);
    QCOMPARE((*fresh->activityWithUid(kUid1))->text(), u"second copy"_s);
}

void TestSyncFileFormat::month13FileMergesLikeAnyOther()
{
    const auto file = BVTmpSyncFile::fromFileName(u"/sync/2024-13.json"_s, u"sync"_s, 1, u"r13"_s);
    QVERIFY(file);
    QCOMPARE(file->month(), 13u);
    QCOMPARE(file->name(), u"2024-13"_s);
    const QString path = writeFile(file->fileName(), json({ element() }));
    BVTmpSyncFile descriptor = *file;
    QVERIFY(BVMonthFile::merge(*m_context, path, descriptor, kZone));
    QCOMPARE(m_context->fetchSyncFiles(u"2024-13"_s)->size(), 1);

    // The calendar rolls month 13 over into January of the next year.
    const BVMonthDateRange range(2024, 13, kZone);
    QCOMPARE(range.name(), u"2024-13"_s);
    QCOMPARE(range.dateFrom(), utc(2025, 1, 1, 5, 0, 0));
    QCOMPARE(range.dateTo(), utc(2025, 2, 1, 4, 59, 59));
}

void TestSyncFileFormat::writeFailureNamesThePath()
{
    const QString path = m_home->root() + u"/missing/2024-03.json"_s;
    const auto written = BVMonthFile::write({}, path, kZone);
    QVERIFY(!written);
    QVERIFY2(written.error().description().startsWith(u"Failed to write json data file %1! "_s.arg(path)),
        qPrintable(written.error().description()));
    QVERIFY(written.error().description().size() > u"Failed to write json data file %1! "_s.arg(path).size());
}

void TestSyncFileFormat::deletionFileReading_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("message"); // null: read
    QTest::addColumn<int>("count");

    QTest::newRow("two entries") << QByteArray(R"([{"uid":"A","deleted_at":"2024-03-12T10:00:00"},)"
                                               R"({"uid":"B","deleted_at":"2024-03-12T11:00:00","x":1}])")
                                 << QString() << 2;
    QTest::newRow("empty") << QByteArray("[]") << QString() << 0;
    QTest::newRow("object") << QByteArray("{}") << u"deleted.json does not contain array of items!"_s << 0;
    QTest::newRow("no uid") << QByteArray(
        R"([{"uid":"A","deleted_at":"2024-03-12T10:00:00"},{"deleted_at":"2024-03-12T10:00:00"}])")
                            << u"Invalid deleted.json entity (uid: (null); deleted_at: 2024-03-12T10:00:00)."_s << 0;
    QTest::newRow("no date") << QByteArray(R"([{"uid":"A"}])")
                             << u"Invalid deleted.json entity (uid: A; deleted_at: (null))."_s << 0;
    QTest::newRow("not an object") << QByteArray(R"(["A"])")
                                   << u"Invalid deleted.json entity (uid: (null); deleted_at: (null))."_s << 0;
    QTest::newRow("bad date") << QByteArray(R"([{"uid":"A","deleted_at":"2024-03-12"}])")
                              << u"Invalid date for deleted.json entity (uid: A; deleted_at: 2024-03-12)."_s << 0;
}

void TestSyncFileFormat::deletionFileReading()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, message);
    QFETCH(int, count);
    const QString path = writeFile(u"deleted.json"_s, content);
    QStringList log;
    const auto items = BVDeletedFile::read(path, kZone, [&](const QString &line) { log.append(line); });
    if (message.isNull()) {
        QVERIFY(items);
        QCOMPARE(items->size(), count);
        if (count)
            QCOMPARE(items->constFirst(), ActivityHashItem(u"A"_s, utc(2024, 3, 12, 14, 0, 0)));
        return;
    }
    QVERIFY(!items);
    QCOMPARE(items.error().description(), message);
    if (message.startsWith(u"Invalid"_s))
        QCOMPARE(log, QStringList { message });

    // A refused file changes nothing.
    addActivity(*m_context, u"A"_s, utc(2024, 3, 1, 12, 0, 0), utc(2024, 3, 1, 12, 0, 0));
    QVERIFY(m_context->save());
    BVTmpSyncFile file = BVTmpSyncFile::initAsDeletedIndexFileWithSyncMethod(1, u"d1"_s);
    const auto merged = BVDeletedFile::merge(*m_context, path, file, kZone);
    QVERIFY(!merged);
    QCOMPARE(merged.error().description(), u"Failed to read deleted items! "_s + message);
    QCOMPARE(*m_store->newContext()->countActivities(), 1);
    QVERIFY(m_store->newContext()->fetchSyncFiles()->isEmpty());
}

void TestSyncFileFormat::deletionFileApply_data()
{
    QTest::addColumn<QDateTime>("activityModified"); // invalid: no activity
    QTest::addColumn<QDateTime>("localDeletedAt"); // invalid: no local record
    QTest::addColumn<bool>("activityRemains");
    QTest::addColumn<QList<QDateTime>>("records"); // deletedAt of the uid's records afterwards

    // The remote entry deletes the uid at 14:00:00Z.
    const QDateTime entry = utc(2024, 3, 12, 14, 0, 0);
    QTest::newRow("older activity is deleted")
        << entry.addSecs(-60) << QDateTime() << false << QList<QDateTime> { entry };
    QTest::newRow("same second goes to the deletion")
        << entry.addMSecs(999) << QDateTime() << false << QList<QDateTime> { entry };
    QTest::newRow("later edit wins") << entry.addSecs(1) << QDateTime() << true << QList<QDateTime> {};
    QTest::newRow("no activity still records") << QDateTime() << QDateTime() << false << QList<QDateTime> { entry };
    QTest::newRow("older local record replaced")
        << QDateTime() << entry.addSecs(-5) << false << QList<QDateTime> { entry };
    QTest::newRow("same-second local record replaced")
        << QDateTime() << entry.addMSecs(400) << false << QList<QDateTime> { entry };
    QTest::newRow("later local record kept")
        << QDateTime() << entry.addSecs(5) << false << QList<QDateTime> { entry.addSecs(5) };
    QTest::newRow("local record older than edit is dropped")
        << entry.addSecs(10) << entry.addSecs(-5) << true << QList<QDateTime> {};
}

void TestSyncFileFormat::deletionFileApply()
{
    QFETCH(QDateTime, activityModified);
    QFETCH(QDateTime, localDeletedAt);
    QFETCH(bool, activityRemains);
    QFETCH(QList<QDateTime>, records);

    if (activityModified.isValid())
        addActivity(*m_context, kUid1, utc(2024, 3, 12, 12, 0, 0), activityModified);
    if (localDeletedAt.isValid()) {
        DeletedActivityPtr record = m_context->insertDeletedActivity();
        record->setUid(kUid1);
        record->setDeletedAt(localDeletedAt);
    }
    addActivity(*m_context, kUid2, utc(2024, 3, 12, 12, 0, 0), utc(2024, 3, 12, 12, 0, 0));
    QVERIFY(m_context->save());

    const QString path
        = writeFile(u"deleted.json"_s, R"([{"uid":")" + kUid1.toUtf8() + R"(","deleted_at":"2024-03-12T10:00:00"}])");
    BVTmpSyncFile file = BVTmpSyncFile::initAsDeletedIndexFileWithSyncMethod(1, u"d1"_s);
    QVERIFY(BVDeletedFile::merge(*m_context, path, file, kZone));

    auto fresh = m_store->newContext();
    QCOMPARE(bool(*fresh->activityWithUid(kUid1)), activityRemains);
    QVERIFY(*fresh->activityWithUid(kUid2));
    const auto remaining = fresh->fetchDeletedActivities(kUid1);
    QVERIFY(remaining);
    QList<QDateTime> after;
    for (const DeletedActivityPtr &record : *remaining)
        after.append(record->deletedAt());
    QCOMPARE(after, records);
    // Records that came from the remote file are already synced.
    for (const DeletedActivityPtr &record : *remaining)
        QCOMPARE(record->isSynced(), !localDeletedAt.isValid() || record->deletedAt() == utc(2024, 3, 12, 14, 0, 0));
    const auto rows = fresh->fetchSyncFiles(u"deleted"_s);
    QVERIFY(rows && rows->size() == 1);
    QCOMPARE(rows->constFirst()->revision(), u"dropbox:d1"_s);
    QCOMPARE(rows->constFirst()->activityHash(),
        ActivityHashItem::hashForItems({ ActivityHashItem(kUid1, utc(2024, 3, 12, 14, 0, 0)) }, kZone));
}

void TestSyncFileFormat::deletionFileWrittenOnlyWhenChanged()
{
    const QString path = m_home->root() + u"/deleted.json"_s;
    BVTmpSyncFile file = BVTmpSyncFile::initAsDeletedIndexFile();
    QStringList log;
    auto logger = [&](const QString &line) { log.append(line); };

    // No records and no hash yet: the empty list's hash is assumed, so nothing is written.
    auto written = BVDeletedFile::write(*m_context, file, path, kZone, logger);
    QVERIFY(written && !*written);
    QCOMPARE(*file.activityHash(), kEmptyMd5);
    QVERIFY(!QFile::exists(path));
    QCOMPARE(log, QStringList { u"Deleted activities not changed, not uploading ..."_s });

    ActivityPtr activity = addActivity(*m_context, kUid1, utc(2024, 3, 12, 12, 0, 0), utc(2024, 3, 12, 12, 0, 0));
    QVERIFY(m_context->save());
    m_clock.set(utc(2024, 3, 12, 14, 0, 0, 300));
    DeletedActivity::deleteActivity(activity, *m_context);
    QVERIFY(m_context->save());

    written = BVDeletedFile::write(*m_context, file, path, kZone, logger);
    QVERIFY(written && *written);
    const QString hash = **written;
    QCOMPARE(hash, ActivityHashItem::hashForItems({ ActivityHashItem(kUid1, utc(2024, 3, 12, 14, 0, 0)) }, kZone));
    const auto items = BVDeletedFile::read(path, kZone);
    QVERIFY(items);
    QCOMPARE(*items, (QList { ActivityHashItem(kUid1, utc(2024, 3, 12, 14, 0, 0)) }));

    file.setActivityHash(hash);
    written = BVDeletedFile::write(*m_context, file, path, kZone, logger);
    QVERIFY(written && !*written);
}

void TestSyncFileFormat::deletionFileMergeStoresItsRow()
{
    // Applying removes every local activity that a local record covers, not only the file's.
    ActivityPtr stale = addActivity(*m_context, kUid2, utc(2024, 3, 12, 12, 0, 0), utc(2024, 3, 12, 12, 0, 0));
    QVERIFY(m_context->save());
    DeletedActivityPtr record = m_context->insertDeletedActivity();
    record->setUid(kUid2);
    record->setDeletedAt(utc(2024, 3, 12, 13, 0, 0));
    QVERIFY(m_context->save());

    const QString path = writeFile(u"deleted.json"_s, "[]");
    BVTmpSyncFile file = BVTmpSyncFile::initAsDeletedIndexFileWithSyncMethod(1, u"d2"_s);
    QVERIFY(BVDeletedFile::merge(*m_context, path, file, kZone));
    auto fresh = m_store->newContext();
    QVERIFY(!*fresh->activityWithUid(kUid2));
    QCOMPARE(fresh->fetchDeletedActivities(kUid2)->size(), 1);
    QCOMPARE(fresh->fetchSyncFiles(u"deleted"_s)->constFirst()->activityHash(), kEmptyMd5);
}

QTEST_GUILESS_MAIN(TestSyncFileFormat)
#include "testsyncfileformat.moc"
