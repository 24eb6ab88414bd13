#include <QtTest>

#include "base/datehelpers.h"
#include "fakes/fakeclock.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

// Wall-clock times that a change of clocks skips or repeats. The user's zone is America/Santiago (see
// CMakeLists.txt), whose clocks jump from 00:00 to 01:00, so that a whole day starts inside a gap.
class TestLocalTime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void instantFromLocal_data();
    void instantFromLocal();
    void todaysActivitiesOnADayThatStartsInAGap();
};

namespace {
QDateTime utc(const QString &text)
{
    return QDateTime::fromString(text, Qt::ISODate).toUTC();
}
} // namespace

void TestLocalTime::instantFromLocal_data()
{
    QTest::addColumn<QByteArray>("zone"); // empty: the user's
    QTest::addColumn<QDate>("date");
    QTest::addColumn<QTime>("time");
    QTest::addColumn<QDateTime>("instant");

    QTest::newRow("gap moves forward by the gap")
        << QByteArray() << QDate(2024, 9, 8) << QTime(0, 30) << utc(u"2024-09-08T04:30:00Z"_s);
    QTest::newRow("midnight in the gap") << QByteArray() << QDate(2024, 9, 8) << QTime(0, 0)
                                         << utc(u"2024-09-08T04:00:00Z"_s);
    QTest::newRow("last second of the gap")
        << QByteArray() << QDate(2024, 9, 8) << QTime(0, 59, 59) << utc(u"2024-09-08T04:59:59Z"_s);
    QTest::newRow("first time after the gap")
        << QByteArray() << QDate(2024, 9, 8) << QTime(1, 0) << utc(u"2024-09-08T04:00:00Z"_s);
    QTest::newRow("last second before the gap")
        << QByteArray() << QDate(2024, 9, 7) << QTime(23, 59, 59) << utc(u"2024-09-08T03:59:59Z"_s);
    QTest::newRow("repeated hour reads as the later")
        << QByteArray() << QDate(2024, 4, 6) << QTime(23, 30) << utc(u"2024-04-07T03:30:00Z"_s);
    QTest::newRow("Berlin spring gap") << "Europe/Berlin"_ba << QDate(2024, 3, 31) << QTime(2, 30)
                                       << utc(u"2024-03-31T01:30:00Z"_s);
    QTest::newRow("Berlin autumn repeat")
        << "Europe/Berlin"_ba << QDate(2024, 10, 27) << QTime(2, 30) << utc(u"2024-10-27T01:30:00Z"_s);
    QTest::newRow("half-hour gap") << "Australia/Lord_Howe"_ba << QDate(2024, 10, 6) << QTime(2, 15)
                                   << utc(u"2024-10-05T15:45:00Z"_s);
    QTest::newRow("skipped calendar day")
        << "Pacific/Apia"_ba << QDate(2011, 12, 30) << QTime(12, 0) << utc(u"2011-12-30T22:00:00Z"_s);
    QTest::newRow("zone without changes")
        << "Asia/Tokyo"_ba << QDate(2024, 9, 8) << QTime(0, 30) << utc(u"2024-09-07T15:30:00Z"_s);
}

void TestLocalTime::instantFromLocal()
{
    QFETCH(QByteArray, zone);
    QFETCH(QDate, date);
    QFETCH(QTime, time);
    QFETCH(QDateTime, instant);
    const QDateTime got = zone.isEmpty() ? DateHelpers::instantFromLocal(date, time)
                                         : DateHelpers::instantFromLocal(date, time, QTimeZone(zone));
    QCOMPARE(got, instant);
    QCOMPARE(got.timeSpec(), Qt::UTC);
}

void TestLocalTime::todaysActivitiesOnADayThatStartsInAGap()
{
    IsolatedHome home;
    FakeClock clock(utc(u"2024-09-08T15:00:00Z"_s));
    StoreOptions options;
    options.applicationFilesDirectory = home.applicationFilesDirectory();
    options.clock = &clock;
    auto store = Store::open(options);
    QVERIFY(store);
    std::unique_ptr<StoreContext> context = (*store)->newContext();
    const std::pair<QString, QString> starts[] = {
        { u"the evening before"_s, u"2024-09-08T03:30:00Z"_s }, // 23:30 -04
        { u"first minutes"_s, u"2024-09-08T04:05:00Z"_s }, // 01:05 -03
        { u"last second"_s, u"2024-09-09T02:59:59Z"_s }, // 23:59:59 -03
        { u"the next day"_s, u"2024-09-09T03:00:00Z"_s },
    };
    for (const auto &[text, start] : starts) {
        ActivityPtr activity = context->insertActivity();
        activity->setText(text);
        activity->setTimeFrom(utc(start));
        activity->setTimeTo(utc(start).addSecs(600));
        activity->setModifiedAt(clock.now());
    }
    QVERIFY(context->save());

    ActivityManager manager(**store);
    QStringList texts;
    for (const ActivityPtr &activity : manager.todaysActivities())
        texts.append(activity->text());
    QCOMPARE(texts, (QStringList { u"last second"_s, u"first minutes"_s }));
}

QTEST_GUILESS_MAIN(TestLocalTime)
#include "testlocaltime.moc"
