// Runs in Europe/Berlin with the en_US locale (see CMakeLists.txt): titles and renderings depend on both.
#include <QtTest>

#include <QTimeZone>

#include "export/activitydateformatter.h"
#include "export/activityfieldvalue.h"
#include "export/activitytokentype.h"
#include "export/activitytokenvalue.h"
#include "export/bvdurationtransformer.h"
#include "export/bvminutestransformer.h"
#include "export/csvtokenfield.h"
#include "export/dateformattercache.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {

const QTimeZone kBerlin("Europe/Berlin");

QDateTime berlin(int year, int month, int day, int hour, int minute, int second)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), kBerlin);
}

} // namespace

class TestActivityToken : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();

    void catalogue_data();
    void catalogue();
    void tokenTypeTitles_data();
    void tokenTypeTitles();
    void durations_data();
    void durations();
    void minutes_data();
    void minutes();
    void renderPatterns_data();
    void renderPatterns();
    void parsePatterns_data();
    void parsePatterns();
    void sameValueSharesOneFormatterUntilCleared();
    void activityWithoutProjectTasksOrEnd();

private:
    IsolatedHome *m_home = nullptr;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<StoreContext> m_context;
    ActivityPtr m_activity;
};

void TestActivityToken::initTestCase()
{
    QCOMPARE(QLocale::system().name(), u"en_US"_s);
    m_home = new IsolatedHome;
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    auto store = Store::open(options);
    QVERIFY(store);
    m_store = std::move(*store);
    m_context = m_store->newContext();
    // Over midnight at the year's end, so that every start field differs from its end field.
    m_activity = m_context->insertActivity();
    m_activity->setText(u"@Acme #b #a fix \"quotes\""_s);
    m_activity->setTimeFrom(berlin(2023, 12, 31, 23, 50, 9));
    m_activity->setTimeTo(berlin(2024, 1, 1, 1, 2, 54));
    m_activity->setIsInvoiced(true);
    QVERIFY(m_context->save());
    QCOMPARE(m_activity->durationSecs(), 4365);
}

void TestActivityToken::cleanupTestCase()
{
    m_activity.reset();
    m_context.reset();
    m_store.reset();
    delete m_home;
}

void TestActivityToken::cleanup()
{
    DateFormatterCache::clearCache();
}

void TestActivityToken::catalogue_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("value");
    QTest::addColumn<QString>("longTitle");
    QTest::addColumn<QString>("shortTitle");
    QTest::addColumn<QString>("rendering");

    auto row = [](const char *name, int type, int value, const QString &longTitle, const QString &shortTitle,
                   const QString &rendering) {
        QTest::newRow(name) << type << value << longTitle << shortTitle << rendering;
    };
    row("110 start date", 100, 110, u"Date, e.g. 2010-10-23"_s, u"Start date (2010-10-23)"_s, u"2023-12-31"_s);
    row("111 start date local", 100, 111, u"Date, e.g. 10/23/10"_s, u"Start date (10/23/10)"_s, u"12/31/23"_s);
    row("120 start time", 100, 120, u"Time, e.g 23:12:45"_s, u"Start time"_s, u"23:50:09"_s);
    row("121 start date/time", 100, 121, u"Date/time, e.g. 2010-10-23T23:12:45"_s, u"Start date/time"_s,
        u"2023-12-31T23:50:09"_s);
    row("160 end date", 100, 160, u"Date, e.g. 2010-10-23"_s, u"End date (2010-10-23)"_s, u"2024-01-01"_s);
    row("161 end date local", 100, 161, u"Date, e.g. 10/23/10"_s, u"End date (10/23/10)"_s, u"1/1/24"_s);
    row("170 end time", 100, 170, u"Time, e.g 23:12:45"_s, u"End time"_s, u"01:02:54"_s);
    row("171 end date/time", 100, 171, u"Date/time, e.g. 2010-10-23T23:12:45"_s, u"End date/time"_s,
        u"2024-01-01T01:02:54"_s);
    row("200 start year", 100, 200, u"Year"_s, u"Start year"_s, u"2023"_s);
    row("201 start month", 100, 201, u"Month (01-12)"_s, u"Start month"_s, u"12"_s);
    row("202 start day", 100, 202, u"Day of the month (01-31)"_s, u"Start day of the month"_s, u"31"_s);
    row("203 start hour", 100, 203, u"Hour (00-59)"_s, u"Start hour"_s, u"23"_s);
    row("204 start minute", 100, 204, u"Minute (00-59)"_s, u"Start minute"_s, u"50"_s);
    row("205 start second", 100, 205, u"Second (00-59)"_s, u"Start second"_s, u"09"_s);
    row("250 end year", 100, 250, u"Year"_s, u"End year"_s, u"2024"_s);
    row("251 end month", 100, 251, u"Month (01-12)"_s, u"End month"_s, u"01"_s);
    row("252 end day", 100, 252, u"Day of the month (01-31)"_s, u"End day of the month"_s, u"01"_s);
    row("253 end hour", 100, 253, u"Hour (00-59)"_s, u"End hour"_s, u"01"_s);
    row("254 end minute", 100, 254, u"Minute (00-59)"_s, u"End minute"_s, u"02"_s);
    row("255 end second", 100, 255, u"Second (00-59)"_s, u"End second"_s, u"54"_s);
    row("300 formatted", 200, 300, u"Formatted, e.g. 01:12:45"_s, u"Formatted duration"_s, u"01:12:45"_s);
    row("301 minutes", 200, 301, u"In minutes, e.g. 73"_s, u"Duration in minutes"_s, u"73"_s);
    row("302 decimal hours", 200, 302, u"Decimal hours, e.g. 1.21 for 01:12:45"_s, u"Duration as decimal hours"_s,
        u"1.2125"_s);
    row("400 text", 400, 400, u"Text"_s, u"Text"_s, u"@Acme #b #a fix \"quotes\""_s);
    row("401 project", 400, 401, u"Project name"_s, u"Project name"_s, u"Acme"_s);
    row("402 tasks", 400, 402, u"Task tags (#)"_s, u"Task tags (#)"_s, u"a, b"_s);
    row("403 uid", 400, 403, u"Activity identifier (UID)"_s, u"Activity identifier (UID)"_s, u"<uid>"_s);
    row("404 invoiced", 400, 404, u"Invoiced status (0 or 1)"_s, u"Invoiced status"_s, u"1"_s);
    // Outside the catalogue, and values paired with the wrong family.
    row("999 as activity", 400, 999, u"---"_s, u"999"_s, QString());
    row("text as date", 100, 400, u"Text"_s, u"Text"_s, QString());
    row("text as duration", 200, 400, u"Text"_s, u"Text"_s, QString());
    row("date as activity", 400, 121, u"Date/time, e.g. 2010-10-23T23:12:45"_s, u"Start date/time"_s, QString());
    row("unknown family", 999, 400, u"Text"_s, u"Text"_s, QString());
}

void TestActivityToken::catalogue()
{
    QFETCH(int, type);
    QFETCH(int, value);
    QFETCH(QString, longTitle);
    QFETCH(QString, shortTitle);
    QFETCH(QString, rendering);

    ActivityTokenValue token(value);
    QCOMPARE(ActivityTokenValue::activityValueToString(value), longTitle);
    QCOMPARE(token.description(), longTitle);
    QCOMPARE(token.descriptionShort(), shortTitle);
    token.setShowShortDescription(true);
    QCOMPARE(token.description(), shortTitle);

    CSVTokenField field;
    field.setTokenType(type, value);
    if (rendering == u"<uid>"_s)
        rendering = m_activity->uid();
    QCOMPARE(ActivityFieldValue::valueForField(*m_activity, field), rendering.isNull() ? u""_s : rendering);
}

void TestActivityToken::tokenTypeTitles_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("title");
    QTest::newRow("date") << 100 << u"Date"_s;
    QTest::newRow("duration") << 200 << u"Duration"_s;
    QTest::newRow("activity") << 400 << u"Activity"_s;
    QTest::newRow("other") << 300 << u"---"_s;
    QTest::newRow("zero") << 0 << u"---"_s;
}

void TestActivityToken::tokenTypeTitles()
{
    QFETCH(int, type);
    QFETCH(QString, title);
    QCOMPARE(ActivityTokenType::activityTokenToString(type), title);
    QCOMPARE(ActivityTokenType(type).description(), title);
    QCOMPARE(ActivityTokenType().valueType(), 400);
}

void TestActivityToken::durations_data()
{
    QTest::addColumn<QVariant>("seconds");
    QTest::addColumn<int>("format");
    QTest::addColumn<QString>("prefix");
    QTest::addColumn<QString>("expected");

    QTest::newRow("0 formatted") << QVariant(0) << 0 << QString() << u"00:00:00"_s;
    QTest::newRow("0 minutes") << QVariant(0) << 1 << QString() << u"0"_s;
    QTest::newRow("0 hours") << QVariant(0) << 2 << QString() << u"0.0000"_s;
    QTest::newRow("4365 formatted") << QVariant(4365) << 0 << QString() << u"01:12:45"_s;
    QTest::newRow("90000 formatted") << QVariant(qint64(90000)) << 0 << QString() << u"25:00:00"_s;
    QTest::newRow("360000 formatted") << QVariant(360000) << 0 << QString() << u"100:00:00"_s;
    QTest::newRow("29 s rounds down") << QVariant(29) << 1 << QString() << u"0"_s;
    QTest::newRow("31 s rounds up") << QVariant(31) << 1 << QString() << u"1"_s;
    // printf rounds a tie of the exact float to even, as the C library always did.
    QTest::newRow("30 s tie to even") << QVariant(30) << 1 << QString() << u"0"_s;
    QTest::newRow("90 s tie to even") << QVariant(90) << 1 << QString() << u"2"_s;
    QTest::newRow("4365 minutes") << QVariant(4365) << 1 << QString() << u"73"_s;
    QTest::newRow("4365 hours") << QVariant(4365) << 2 << QString() << u"1.2125"_s;
    // 100,000,001 s is not a float: single precision makes it 100,000,000.
    QTest::newRow("single precision") << QVariant(100000001) << 2 << QString() << u"27777.7773"_s;
    QTest::newRow("fraction cut for hh:mm:ss") << QVariant(4365.9) << 0 << QString() << u"01:12:45"_s;
    QTest::newRow("prefix") << QVariant(4365) << 0 << u"+"_s << u"+01:12:45"_s;
    QTest::newRow("prefix decimal") << QVariant(4365) << 2 << u"~"_s << u"~1.2125"_s;
    QTest::newRow("text is not a number") << QVariant(u"4365"_s) << 0 << QString() << u""_s;
    QTest::newRow("nothing is not a number") << QVariant() << 1 << QString() << u""_s;
    QTest::newRow("format 3") << QVariant(4365) << 3 << QString() << QString();
}

void TestActivityToken::durations()
{
    QFETCH(QVariant, seconds);
    QFETCH(int, format);
    QFETCH(QString, prefix);
    QFETCH(QString, expected);

    BVDurationTransformer transformer(format);
    transformer.setPrefix(prefix);
    const QString rendered = transformer.transformedValue(seconds);
    QCOMPARE(rendered, expected);
    QCOMPARE(rendered.isNull(), expected.isNull());
    QCOMPARE(BVDurationTransformer::transformedValueClass(), QMetaType::fromType<QString>());
}

void TestActivityToken::minutes_data()
{
    QTest::addColumn<QVariant>("minutes");
    QTest::addColumn<QString>("expected");
    QTest::newRow("0") << QVariant(0) << u"0 minutes"_s;
    QTest::newRow("1") << QVariant(1) << u"1 minute"_s;
    QTest::newRow("5") << QVariant(5) << u"5 minutes"_s;
    QTest::newRow("11") << QVariant(11) << u"11 minutes"_s;
    QTest::newRow("21") << QVariant(21) << u"21 minute"_s;
    QTest::newRow("111") << QVariant(111) << u"111 minute"_s;
    QTest::newRow("double") << QVariant(15.7) << u"15 minutes"_s;
    QTest::newRow("text") << QVariant(u"5"_s) << u""_s;
}

void TestActivityToken::minutes()
{
    QFETCH(QVariant, minutes);
    QFETCH(QString, expected);
    QCOMPARE(BvMinutesTransformer().transformedValue(minutes), expected);
}

void TestActivityToken::renderPatterns_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QDateTime>("instant");
    QTest::addColumn<QString>("expected");

    const QDateTime sample = berlin(2010, 10, 23, 23, 12, 45);
    QTest::newRow("yyy pads to three") << u"yyy-MM-dd"_s << berlin(5, 6, 15, 12, 0, 0) << u"005-06-15"_s;
    QTest::newRow("yyy keeps four") << u"yyy"_s << sample << u"2010"_s;
    QTest::newRow("yyyy pads to four") << u"yyyy"_s << berlin(999, 6, 15, 12, 0, 0) << u"0999"_s;
    QTest::newRow("yyy five digits") << u"yyy"_s << berlin(12345, 1, 1, 12, 0, 0) << u"12345"_s;
    QTest::newRow("yy two digits") << u"yy"_s << sample << u"10"_s;
    QTest::newRow("y unpadded") << u"y-M-d H:m:s"_s << berlin(2024, 1, 2, 3, 4, 5) << u"2024-1-2 3:4:5"_s;
    QTest::newRow("quoted and quote") << u"'Day' d, ''yy'' 'o''clock'"_s << sample << u"Day 23, '10' o'clock"_s;
    QTest::newRow("other letters are text") << u"HH:mm zzz"_s << sample << u"23:12 zzz"_s;
    QTest::newRow("month names") << u"MMM/MMMM"_s << sample << u"Oct/October"_s;
    QTest::newRow("utc instant in berlin")
        << u"yyy-MM-dd'T'HH:mm:ss"_s << QDateTime(QDate(2024, 7, 1), QTime(22, 30), QTimeZone::utc())
        << u"2024-07-02T00:30:00"_s;
    QTest::newRow("invalid instant") << u"HH:mm:ss"_s << QDateTime() << u""_s;
}

void TestActivityToken::renderPatterns()
{
    QFETCH(QString, pattern);
    QFETCH(QDateTime, instant);
    QFETCH(QString, expected);
    QCOMPARE(ActivityDateFormatter(pattern).stringFromDate(instant), expected);
}

void TestActivityToken::parsePatterns_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QDateTime>("expected");
    // Whether rendering the result gives the text back: not for unpadded fields or a skipped wall time.
    QTest::addColumn<bool>("rendersBack");

    const QDateTime invalid;
    auto utc = [](int year, int month, int day, int hour, int minute, int second) {
        return QDateTime(QDate(year, month, day), QTime(hour, minute, second), QTimeZone::utc());
    };
    QTest::newRow("summer") << u"2010-10-23T23:12:45"_s << utc(2010, 10, 23, 21, 12, 45) << true;
    QTest::newRow("winter") << u"2024-01-02T03:04:05"_s << utc(2024, 1, 2, 2, 4, 5) << true;
    QTest::newRow("single digits") << u"2024-1-2T3:4:5"_s << utc(2024, 1, 2, 2, 4, 5) << false;
    QTest::newRow("skipped hour moves on") << u"2024-03-31T02:30:00"_s << utc(2024, 3, 31, 1, 30, 0) << false;
    QTest::newRow("repeated hour is the later") << u"2024-10-27T02:30:00"_s << utc(2024, 10, 27, 1, 30, 0) << true;
    QTest::newRow("30 February") << u"2024-02-30T10:00:00"_s << invalid << true;
    QTest::newRow("hour 24") << u"2024-01-01T24:00:00"_s << invalid << true;
    QTest::newRow("second 60") << u"2024-01-01T10:00:60"_s << invalid << true;
    QTest::newRow("month 13") << u"2024-13-01T10:00:00"_s << invalid << true;
    QTest::newRow("year 0") << u"0-01-01T10:00:00"_s << invalid << true;
    QTest::newRow("zone suffix") << u"2024-01-01T10:00:00Z"_s << invalid << true;
    QTest::newRow("space for T") << u"2024-01-01 10:00:00"_s << invalid << true;
    QTest::newRow("no seconds") << u"2024-01-01T10:00"_s << invalid << true;
    QTest::newRow("leading blank") << u" 2024-01-01T10:00:00"_s << invalid << true;
    QTest::newRow("sign") << u"+2024-01-01T10:00:00"_s << invalid << true;
    QTest::newRow("empty") << u""_s << invalid << true;
    QTest::newRow("huge year") << u"99999999999-01-01T10:00:00"_s << invalid << true;
}

void TestActivityToken::parsePatterns()
{
    QFETCH(QString, text);
    QFETCH(QDateTime, expected);
    QFETCH(bool, rendersBack);
    const ActivityDateFormatter formatter(u"yyy-MM-dd'T'HH:mm:ss"_s);
    const QDateTime parsed = formatter.dateFromString(text);
    QCOMPARE(parsed.isValid(), expected.isValid());
    if (expected.isValid()) {
        QCOMPARE(parsed.toMSecsSinceEpoch(), expected.toMSecsSinceEpoch());
        if (rendersBack)
            QCOMPARE(formatter.stringFromDate(parsed), text);
    }
}

void TestActivityToken::sameValueSharesOneFormatterUntilCleared()
{
    const auto first = DateFormatterCache::getFormatterForValue(ActivityTokenValue(171));
    const auto second = DateFormatterCache::getFormatterForValue(171);
    QCOMPARE(first.get(), second.get());
    QVERIFY(first->isEndTime());
    QVERIFY(!DateFormatterCache::getFormatterForValue(121)->isEndTime());
    QVERIFY(DateFormatterCache::getFormatterForValue(121).get() != first.get());

    DateFormatterCache::clearCache();
    const auto renewed = DateFormatterCache::getFormatterForValue(171);
    QVERIFY(renewed.get() != first.get());
    // A formatter handed out before the clear keeps working.
    QCOMPARE(first->stringFromDate(m_activity->timeTo()), u"2024-01-01T01:02:54"_s);
}

void TestActivityToken::activityWithoutProjectTasksOrEnd()
{
    Activity loose;
    loose.setText(u"no project here"_s);
    loose.setTimeFrom(berlin(2024, 5, 1, 9, 0, 0));
    CSVTokenField field;
    field.setTokenType(400, 401);
    QCOMPARE(ActivityFieldValue::valueForField(loose, field), u""_s);
    QVERIFY(!ActivityFieldValue::valueForField(loose, field).isNull());
    field.setTokenType(400, 402);
    QCOMPARE(ActivityFieldValue::valueForField(loose, field), u""_s);
    field.setTokenType(400, 404);
    QCOMPARE(ActivityFieldValue::valueForField(loose, field), u"0"_s);
    // Still running: no end yet, so the end renders nothing.
    field.setTokenType(100, 171);
    QCOMPARE(ActivityFieldValue::valueForField(loose, field), u""_s);
    field.setTokenType(100, 121);
    QCOMPARE(ActivityFieldValue::valueForField(loose, field), u"2024-05-01T09:00:00"_s);
}

QTEST_GUILESS_MAIN(TestActivityToken)
#include "testactivitytoken.moc"
