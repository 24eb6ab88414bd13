#include <QtTest>

#include <random>

#include "report/reportchartdata.h"

using namespace Qt::StringLiterals;

// The chart's sums. The user's zone is Europe/Berlin (see chart.cmake): 29 March 2026 has 23 hours and
// 25 October 2026 has 25.
class TestReportChartData : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hoursPerLocalDay_data();
    void hoursPerLocalDay();
    void barWidthFollowsTheSpan_data();
    void barWidthFollowsTheSpan();
    void seriesOrderedAndTailFolded_data();
    void seriesOrderedAndTailFolded();
    void everySecondCountedOnce_data();
    void everySecondCountedOnce();
    void shownProjectsKeepDistinctStableColours();
};

namespace {

// "2026-11-23T23:00" on the user's clock; seconds and milliseconds may follow.
QDateTime local(const QString &text)
{
    const QDateTime time = QDateTime::fromString(text, Qt::ISODateWithMs);
    Q_ASSERT(time.isValid());
    return time;
}

ActivityRecord record(const QDateTime &from, const QDateTime &to, const QString &project = {})
{
    ActivityRecord r;
    r.timeFrom = from.toMSecsSinceEpoch();
    r.timeTo = to.toMSecsSinceEpoch();
    r.project = project;
    return r;
}

// "FROM TO [PROJECT]", both times as local() reads them.
std::vector<ActivityRecord> records(const QStringList &lines)
{
    std::vector<ActivityRecord> out;
    for (const QString &line : lines) {
        const QStringList parts = line.split(u' ');
        out.push_back(record(local(parts[0]), local(parts[1]), parts.value(2)));
    }
    return out;
}

std::optional<QDateTime> bound(const QString &text)
{
    if (text.isEmpty())
        return std::nullopt;
    return local(text);
}

constexpr qint64 H = 3600;

} // namespace

void TestReportChartData::hoursPerLocalDay_data()
{
    QTest::addColumn<QStringList>("listed");
    QTest::addColumn<QString>("from"); // empty: no bounds
    QTest::addColumn<QString>("to");
    QTest::addColumn<QDate>("firstDay");
    QTest::addColumn<QList<qint64>>("perDay");

    QTest::newRow("23:00-01:00 counts in both days of the week")
        << QStringList { u"2026-11-23T23:00 2026-11-24T01:00"_s } << u"2026-11-23T00:00"_s << u"2026-11-30T00:00"_s
        << QDate(2026, 11, 23) << QList<qint64> { H, H, 0, 0, 0, 0, 0 };
    QTest::newRow("day view keeps only the day's part")
        << QStringList { u"2026-11-23T23:00 2026-11-24T01:00"_s } << u"2026-11-24T00:00"_s << u"2026-11-25T00:00"_s
        << QDate(2026, 11, 24) << QList<qint64> { H };
    QTest::newRow("clipped at both ends of the range")
        << QStringList { u"2026-11-01T20:00 2026-11-04T03:00"_s } << u"2026-11-02T00:00"_s << u"2026-11-04T00:00"_s
        << QDate(2026, 11, 2) << QList<qint64> { 24 * H, 24 * H };
    QTest::newRow("spring-forward day holds 23 hours")
        << QStringList { u"2026-03-28T22:00 2026-03-30T02:00"_s } << u"2026-03-28T00:00"_s << u"2026-03-31T00:00"_s
        << QDate(2026, 3, 28) << QList<qint64> { 2 * H, 23 * H, 2 * H };
    QTest::newRow("fall-back day holds 25 hours")
        << QStringList { u"2026-10-24T22:00 2026-10-26T02:00"_s } << u"2026-10-24T00:00"_s << u"2026-10-27T00:00"_s
        << QDate(2026, 10, 24) << QList<qint64> { 2 * H, 25 * H, 2 * H };
    QTest::newRow("the repeated hour counts twice")
        << QStringList { u"2026-10-25T01:30 2026-10-25T03:30"_s } << QString() << QString() << QDate(2026, 10, 25)
        << QList<qint64> { 3 * H };
    QTest::newRow("no bounds: first to last day with time, empty days between")
        << QStringList { u"2026-11-27T09:00 2026-11-27T10:00"_s, u"2026-11-24T09:00 2026-11-24T09:30"_s } << QString()
        << QString() << QDate(2026, 11, 24) << QList<qint64> { H / 2, 0, 0, H };
    QTest::newRow("whole seconds as durations count them")
        << QStringList { u"2026-11-24T10:00:00.900 2026-11-24T10:00:02.100"_s } << QString() << QString()
        << QDate(2026, 11, 24) << QList<qint64> { 2 };
    QTest::newRow("end before start adds nothing")
        << QStringList { u"2026-11-24T10:00 2026-11-24T09:00"_s } << u"2026-11-24T00:00"_s << u"2026-11-25T00:00"_s
        << QDate(2026, 11, 24) << QList<qint64> { 0 };
    QTest::newRow("range without days has no bars")
        << QStringList { u"2026-11-24T10:00 2026-11-24T11:00"_s } << u"2026-11-25T00:00"_s << u"2026-11-24T00:00"_s
        << QDate() << QList<qint64> {};
}

void TestReportChartData::hoursPerLocalDay()
{
    QFETCH(QStringList, listed);
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(QDate, firstDay);
    QFETCH(QList<qint64>, perDay);

    const ReportChartData data(records(listed), bound(from), bound(to), Qt::Monday);
    QCOMPARE(data.unit(), ReportChartData::Unit::Day);
    QList<qint64> totals;
    for (const auto &bucket : data.buckets()) {
        QCOMPARE(bucket.first, bucket.last);
        totals.append(bucket.total);
    }
    QCOMPARE(totals, perDay);
    if (!perDay.isEmpty())
        QCOMPARE(data.buckets().front().first, firstDay);
}

void TestReportChartData::barWidthFollowsTheSpan_data()
{
    QTest::addColumn<QDate>("firstDay"); // one hour on each of these two days, no bounds
    QTest::addColumn<QDate>("lastDay");
    QTest::addColumn<Qt::DayOfWeek>("weekStart");
    QTest::addColumn<ReportChartData::Unit>("unit");
    QTest::addColumn<int>("bars");
    QTest::addColumn<QDate>("secondBarStart");

    using U = ReportChartData::Unit;
    const QDate thu(2026, 1, 1); // a Thursday
    QTest::newRow("62 days are days") << thu << thu.addDays(61) << Qt::Monday << U::Day << 62 << thu.addDays(1);
    QTest::newRow("63 days are Monday weeks")
        << thu << thu.addDays(62) << Qt::Monday << U::Week << 10 << QDate(2026, 1, 5);
    QTest::newRow("Sunday weeks") << thu << thu.addDays(62) << Qt::Sunday << U::Week << 10 << QDate(2026, 1, 4);
    QTest::newRow("62 weeks are weeks") << QDate(2026, 1, 5) << QDate(2026, 1, 5).addDays(62 * 7 - 1) << Qt::Monday
                                        << U::Week << 62 << QDate(2026, 1, 12);
    QTest::newRow("63 weeks are months") << QDate(2026, 1, 5) << QDate(2026, 1, 5).addDays(62 * 7) << Qt::Monday
                                         << U::Month << 15 << QDate(2026, 2, 1);
    QTest::newRow("62 months are months")
        << QDate(2020, 3, 31) << QDate(2025, 4, 1) << Qt::Monday << U::Month << 62 << QDate(2020, 4, 1);
    QTest::newRow("ten years are years") << QDate(2015, 6, 1) << QDate(2024, 12, 31) << Qt::Monday << U::Year << 10
                                         << QDate(2016, 1, 1);
}

void TestReportChartData::barWidthFollowsTheSpan()
{
    QFETCH(QDate, firstDay);
    QFETCH(QDate, lastDay);
    QFETCH(Qt::DayOfWeek, weekStart);
    QFETCH(ReportChartData::Unit, unit);
    QFETCH(int, bars);
    QFETCH(QDate, secondBarStart);

    const std::vector<ActivityRecord> listed {
        record(QDateTime(lastDay, QTime(22, 0)), QDateTime(lastDay, QTime(23, 0))),
        record(QDateTime(firstDay, QTime(9, 0)), QDateTime(firstDay, QTime(10, 0))),
    };
    const ReportChartData data(listed, std::nullopt, std::nullopt, weekStart);
    QCOMPARE(data.unit(), unit);
    QCOMPARE(int(data.buckets().size()), bars);
    // The outer bars are cut to the span; the hours land in the first and the last.
    QCOMPARE(data.buckets().front().first, firstDay);
    QCOMPARE(data.buckets().back().last, lastDay);
    QCOMPARE(data.buckets()[1].first, secondBarStart);
    QCOMPARE(data.buckets().front().total, H);
    QCOMPARE(data.buckets().back().total, H);
}

void TestReportChartData::seriesOrderedAndTailFolded_data()
{
    QTest::addColumn<QStringList>("hours"); // "PROJECT=HOURS"; an empty project is none
    QTest::addColumn<QStringList>("series"); // "NAME=HOURS"; "-" no project, "*(A,B)" Other folding A and B

    QTest::newRow("most time first, no project among them") << QStringList { u"Beta=2"_s, u"=3"_s, u"Alpha=5"_s,
        u"Beta=2"_s } << QStringList { u"Alpha=5"_s, u"Beta=4"_s, u"-=3"_s };
    QTest::newRow("ties by name regardless of case") << QStringList { u"beta=1"_s, u"Gamma=1"_s, u"alpha=1"_s }
                                                     << QStringList { u"alpha=1"_s, u"beta=1"_s, u"Gamma=1"_s };
    QTest::newRow("eight series stay apart")
        << QStringList { u"A=9"_s, u"B=8"_s, u"C=7"_s, u"D=6"_s, u"E=5"_s, u"F=4"_s, u"G=3"_s, u"=2"_s }
        << QStringList { u"A=9"_s, u"B=8"_s, u"C=7"_s, u"D=6"_s, u"E=5"_s, u"F=4"_s, u"G=3"_s, u"-=2"_s };
    QTest::newRow("the ninth folds with the eighth into Other, placed last")
        << QStringList { u"A=9"_s, u"B=8"_s, u"C=7"_s, u"D=6"_s, u"E=5"_s, u"F=4"_s, u"G=3"_s, u"=2"_s, u"I=10"_s }
        << QStringList { u"I=10"_s, u"A=9"_s, u"B=8"_s, u"C=7"_s, u"D=6"_s, u"E=5"_s, u"F=4"_s, u"*(G,)=5"_s };
    QTest::newRow("a project with no time in the range has no series")
        << QStringList { u"A=1"_s, u"Outside=0"_s } << QStringList { u"A=1"_s };
}

void TestReportChartData::seriesOrderedAndTailFolded()
{
    QFETCH(QStringList, hours);
    QFETCH(QStringList, series);

    // Each entry is one activity on a day of its own inside the range; "=0" lies before the range.
    const QDateTime from = local(u"2026-11-01T00:00"_s);
    std::vector<ActivityRecord> listed;
    for (int i = 0; i < hours.size(); ++i) {
        const QStringList parts = hours[i].split(u'=');
        const int h = parts[1].toInt();
        const QDateTime start = h == 0 ? from.addSecs(-2 * H) : from.addDays(i);
        listed.push_back(record(start, start.addSecs(h == 0 ? H : h * H), parts[0]));
    }
    const ReportChartData data(listed, from, from.addMonths(1));
    QStringList actual;
    for (const auto &s : data.series()) {
        const QString hoursText = QString::number(s.seconds / H);
        switch (s.kind) {
        case ReportChartData::SeriesKind::Project:
            actual.append(s.name + u'=' + hoursText);
            break;
        case ReportChartData::SeriesKind::NoProject:
            actual.append(u"-="_s + hoursText);
            break;
        case ReportChartData::SeriesKind::Other:
            actual.append(u"*("_s + s.folded.join(u',') + u")="_s + hoursText);
            break;
        }
    }
    QCOMPARE(actual, series);
}

void TestReportChartData::everySecondCountedOnce_data()
{
    QTest::addColumn<bool>("bounded");
    QTest::addColumn<int>("spanDays");
    QTest::newRow("a month without bounds") << false << 30;
    QTest::newRow("a month, the range inside it") << true << 30;
    QTest::newRow("over a year, weeks") << false << 400;
    QTest::newRow("four years, months, both clock changes") << true << 4 * 365;
}

void TestReportChartData::everySecondCountedOnce()
{
    QFETCH(bool, bounded);
    QFETCH(int, spanDays);

    // Activities of up to 40 hours over twelve projects and none, at odd seconds and milliseconds.
    std::mt19937 random(7);
    const qint64 start = local(u"2025-01-01T00:00"_s).toMSecsSinceEpoch();
    std::vector<ActivityRecord> listed;
    for (int i = 0; i < 3000; ++i) {
        const qint64 from = start + std::uniform_int_distribution<qint64>(0, spanDays * 86400000LL)(random);
        const qint64 to = from + std::uniform_int_distribution<qint64>(0, 40 * 3600000LL)(random);
        const int project = std::uniform_int_distribution<int>(0, 12)(random);
        ActivityRecord r;
        r.timeFrom = from;
        r.timeTo = to;
        r.project = project == 12 ? QString() : u"P%1"_s.arg(project);
        listed.push_back(r);
    }
    const qint64 lo = start + 86400000LL * spanDays / 4 + 1234;
    const qint64 hi = start + 86400000LL * spanDays * 3 / 4 + 5678;
    const auto from = bounded ? std::optional(QDateTime::fromMSecsSinceEpoch(lo)) : std::nullopt;
    const auto to = bounded ? std::optional(QDateTime::fromMSecsSinceEpoch(hi)) : std::nullopt;

    qint64 expected = 0;
    for (const ActivityRecord &r : listed) {
        ActivityRecord clipped = r;
        if (bounded) {
            clipped.timeFrom = std::max(r.timeFrom, lo);
            clipped.timeTo = std::min(r.timeTo, hi);
        }
        expected += std::max<qint64>(0, clipped.durationSecs());
    }

    const ReportChartData data(listed, from, to);
    QCOMPARE(data.totalSeconds(), expected);
    QCOMPARE(data.series().size(), ReportChartData::MaxSeries);
    qint64 bySeries = 0;
    for (const auto &s : data.series())
        bySeries += s.seconds;
    QCOMPARE(bySeries, expected);
    std::vector<qint64> perSeries(data.series().size());
    qint64 byBuckets = 0;
    qint64 maxBucket = 0;
    for (const auto &bucket : data.buckets()) {
        qint64 inBucket = 0;
        for (size_t s = 0; s < perSeries.size(); ++s) {
            perSeries[s] += bucket.seconds[s];
            inBucket += bucket.seconds[s];
        }
        QCOMPARE(bucket.total, inBucket);
        byBuckets += inBucket;
        maxBucket = std::max(maxBucket, inBucket);
        QVERIFY(bucket.first <= bucket.last);
    }
    QCOMPARE(byBuckets, expected);
    QCOMPARE(data.maxBucketSeconds(), maxBucket);
    for (qsizetype s = 0; s < data.series().size(); ++s)
        QCOMPARE(perSeries[size_t(s)], data.series()[s].seconds);
    // Consecutive bars, no day lost or repeated between them.
    for (size_t b = 1; b < data.buckets().size(); ++b)
        QCOMPARE(data.buckets()[b].first, data.buckets()[b - 1].last.addDays(1));
}

void TestReportChartData::shownProjectsKeepDistinctStableColours()
{
    QCOMPARE(ReportChartData::preferredColorSlot(u"Acme"_s), ReportChartData::preferredColorSlot(u"ACME"_s));

    // Two names that prefer the same slot: the one with more time keeps it, the other moves on.
    const QString first = u"Acme"_s;
    QString rival;
    for (int i = 0; rival.isEmpty(); ++i) {
        const QString name = u"Project %1"_s.arg(i);
        if (ReportChartData::preferredColorSlot(name) == ReportChartData::preferredColorSlot(first))
            rival = name;
    }
    const QDateTime day = local(u"2026-11-02T09:00"_s);
    const std::vector<ActivityRecord> alone { record(day, day.addSecs(H), first) };
    const std::vector<ActivityRecord> together {
        record(day, day.addSecs(H), first),
        record(day.addSecs(H), day.addSecs(3 * H), rival),
        record(day.addSecs(3 * H), day.addSecs(3 * H + H / 2)),
    };
    const ReportChartData one(alone, std::nullopt, std::nullopt);
    const ReportChartData both(together, std::nullopt, std::nullopt);
    QCOMPARE(one.series().at(0).colorSlot, ReportChartData::preferredColorSlot(first));
    QCOMPARE(both.series().at(0).name, rival);
    QCOMPARE(both.series().at(0).colorSlot, ReportChartData::preferredColorSlot(first));
    QCOMPARE(both.series().at(1).colorSlot, (ReportChartData::preferredColorSlot(first) + 1) % 12);
    QCOMPARE(both.series().at(2).kind, ReportChartData::SeriesKind::NoProject);
    QCOMPARE(both.series().at(2).colorSlot, -1);
}

QTEST_GUILESS_MAIN(TestReportChartData)
#include "testreportchartdata.moc"
