#include <QtTest>

#include <QSettings>

#include "export/csvtokenfield.h"
#include "export/csvtokenfielddelegate.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {

class RecordingDelegate : public CSVTokenFieldDelegate
{
public:
    void tokenFieldDidChange(CSVTokenField &, const QString &key) override { keys.append(key); }
    QStringList keys;
};

// A layout as (mode, type, value, name) rows, for comparing whole layouts in one line.
using Columns = QList<std::tuple<int, int, int, QString>>;

Columns columnsOf(const QList<CSVTokenField> &fields)
{
    Columns columns;
    for (const CSVTokenField &field : fields)
        columns.append(
            { field.mode(), field.tokenType().valueType(), field.tokenValue().value(), field.xmlPropertyName() });
    return columns;
}

const Columns kDefaultCsv { { 0, 100, 111, QString() }, { 0, 100, 120, QString() }, { 0, 200, 300, QString() },
    { 0, 400, 401, QString() }, { 0, 400, 400, QString() }, { 0, 400, 404, QString() } };
const Columns kFixedXml { { 1, 400, 403, u"uid"_s }, { 1, 400, 404, u"invoiced"_s }, { 1, 100, 121, u"from"_s },
    { 1, 100, 171, u"to"_s } };

} // namespace

class TestCSVTokenField : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void construction_data();
    void construction();
    void typeChangeResetsValue_data();
    void typeChangeResetsValue();
    void attributeNames_data();
    void attributeNames();
    void copyIsEnabledAndNameless();
    void decoding_data();
    void decoding();
    void csvLayoutInSettings_data();
    void csvLayoutInSettings();
    void layoutsSurviveTheSettingsFile();
    void fixedXmlAttributesAreNeverStored();

private:
    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
    QString settingsPath() const { return m_home->configHome() + u"/Brimvale/Brimvale.conf"_s; }
    void reopenSettings();
};

void TestCSVTokenField::init()
{
    m_home = std::make_unique<IsolatedHome>();
    reopenSettings();
}

void TestCSVTokenField::cleanup()
{
    m_settings.reset();
    m_defaults.reset();
    m_home.reset();
}

void TestCSVTokenField::reopenSettings()
{
    m_settings.reset();
    m_defaults = std::make_unique<UserDefaults>(settingsPath());
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
}

void TestCSVTokenField::construction_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("expectedMode");
    QTest::addColumn<int>("expectedType");
    QTest::addColumn<int>("expectedValue");
    QTest::newRow("xml date") << 1 << 100 << 1 << 100 << 111;
    QTest::newRow("csv duration") << 0 << 200 << 0 << 200 << 300;
    QTest::newRow("csv activity") << 0 << 400 << 0 << 400 << 400;
    QTest::newRow("mode 2 is csv") << 2 << 100 << 0 << 100 << 111;
    QTest::newRow("mode -1 is csv") << -1 << 200 << 0 << 200 << 300;
    QTest::newRow("type 300 is activity") << 1 << 300 << 1 << 400 << 400;
    QTest::newRow("type 0 is activity") << 0 << 0 << 0 << 400 << 400;
}

void TestCSVTokenField::construction()
{
    QFETCH(int, mode);
    QFETCH(int, type);
    QFETCH(int, expectedMode);
    QFETCH(int, expectedType);
    QFETCH(int, expectedValue);

    const CSVTokenField field = CSVTokenField::initWithActivityFieldMode(mode, type);
    QCOMPARE(field.mode(), expectedMode);
    QCOMPARE(field.tokenType().valueType(), expectedType);
    QCOMPARE(field.tokenValue().value(), expectedValue);
    QVERIFY(field.enabled());
    // The three-argument form applies the same rules and then takes the value as given.
    const CSVTokenField valued = CSVTokenField::initWithActivityFieldMode(mode, type, 999);
    QCOMPARE(valued.mode(), expectedMode);
    QCOMPARE(valued.tokenType().valueType(), expectedType);
    QCOMPARE(valued.tokenValue().value(), 999);
}

void TestCSVTokenField::typeChangeResetsValue_data()
{
    QTest::addColumn<int>("fromType");
    QTest::addColumn<int>("fromValue");
    QTest::addColumn<int>("toType");
    QTest::addColumn<int>("expectedValue");
    QTest::addColumn<QStringList>("announced");
    const QStringList both { u"tokenType"_s, u"tokenValue"_s };
    QTest::newRow("to activity gives project, not text") << 100 << 121 << 400 << 401 << both;
    QTest::newRow("to duration") << 400 << 403 << 200 << 300 << both;
    QTest::newRow("to date") << 200 << 302 << 100 << 111 << both;
    QTest::newRow("same type keeps the value") << 400 << 403 << 400 << 403 << QStringList();
}

void TestCSVTokenField::typeChangeResetsValue()
{
    QFETCH(int, fromType);
    QFETCH(int, fromValue);
    QFETCH(int, toType);
    QFETCH(int, expectedValue);
    QFETCH(QStringList, announced);

    CSVTokenField field;
    field.setTokenType(fromType, fromValue);
    RecordingDelegate delegate;
    field.setDelegate(&delegate);
    field.setTokenType(toType);
    QCOMPARE(field.tokenType().valueType(), toType);
    QCOMPARE(field.tokenValue().value(), expectedValue);
    QCOMPARE(delegate.keys, announced);
}

void TestCSVTokenField::attributeNames_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected");
    // Every row starts from the name "old" in mode 1.
    QTest::newRow("words joined by one dash") << 1 << true << u"  my \t  field\n "_s << u"my-field"_s;
    QTest::newRow("line break splits") << 1 << true << u"my\nfield"_s << u"my-field"_s;
    QTest::newRow("only blanks keeps the name") << 1 << true << u" \t\n"_s << u"old"_s;
    QTest::newRow("from refused") << 1 << true << u"from"_s << u"old"_s;
    QTest::newRow("to refused after trimming") << 1 << true << u"  to "_s << u"old"_s;
    QTest::newRow("uid refused") << 1 << true << u"uid"_s << u"old"_s;
    QTest::newRow("invoiced allowed") << 1 << true << u"invoiced"_s << u"invoiced"_s;
    QTest::newRow("From is another name") << 1 << true << u"From"_s << u"From"_s;
    QTest::newRow("fixed field may be from") << 1 << false << u"from"_s << u"from"_s;
    QTest::newRow("csv column has none") << 0 << true << u"field"_s << QString();
}

void TestCSVTokenField::attributeNames()
{
    QFETCH(int, mode);
    QFETCH(bool, enabled);
    QFETCH(QString, name);
    QFETCH(QString, expected);

    CSVTokenField field = CSVTokenField::initWithActivityFieldMode(1, 400);
    field.setXmlPropertyName(u"old"_s);
    if (mode == 0)
        field = CSVTokenField::initWithActivityFieldMode(0, 400);
    field.setEnabled(enabled);
    field.setXmlPropertyName(name);
    QCOMPARE(field.xmlPropertyName(), expected);
    QCOMPARE(field.xmlPropertyName().isNull(), expected.isNull());
}

void TestCSVTokenField::copyIsEnabledAndNameless()
{
    RecordingDelegate delegate;
    CSVTokenField field = CSVTokenField::initWithActivityFieldMode(1, 100, 171);
    field.setEnabled(false);
    field.setXmlPropertyName(u"to"_s);
    field.setDelegate(&delegate);
    field.tokenValue().setShowShortDescription(true);

    const CSVTokenField copy = field.copy();
    QCOMPARE(copy.mode(), 1);
    QCOMPARE(copy.tokenType().valueType(), 100);
    QCOMPARE(copy.tokenValue().value(), 171);
    QCOMPARE(copy.delegate(), &delegate);
    QVERIFY(copy.enabled());
    QVERIFY(copy.xmlPropertyName().isNull());
    QVERIFY(!copy.tokenValue().showShortDescription());
    // A C++ copy, as a list makes when it detaches, loses nothing.
    const CSVTokenField same = field;
    QCOMPARE(same, field);
    QCOMPARE(same.xmlPropertyName(), u"to"_s);
    QVERIFY(same.tokenValue().showShortDescription());
}

void TestCSVTokenField::decoding_data()
{
    QTest::addColumn<QString>("json");
    QTest::addColumn<Columns>("expected");
    QTest::newRow("round trip of both modes") << CSVTokenField::archive(
        { CSVTokenField::initWithActivityFieldMode(0, 200, 302), [] {
             CSVTokenField field = CSVTokenField::initWithActivityFieldMode(1, 100, 160);
             field.setXmlPropertyName(u"my field"_s);
             return field;
         }() }) << Columns { { 0, 200, 302, QString() }, { 1, 100, 160, u"my-field"_s } };
    QTest::newRow("missing keys keep the start")
        << u"[{}, {\"tokenValue\": 401}]"_s << Columns { { 0, 400, 400, QString() }, { 0, 400, 401, QString() } };
    QTest::newRow("mode other than 1 is 0")
        << u"[{\"tokenMode\": 7, \"xmlPropertyName\": \"x\"}]"_s << Columns { { 0, 400, 400, QString() } };
    QTest::newRow("numbers outside the catalogue kept")
        << u"[{\"tokenMode\": 0, \"tokenType\": 999, \"tokenValue\": 5}]"_s << Columns { { 0, 999, 5, QString() } };
    QTest::newRow("stored from is refused")
        << u"[{\"tokenMode\": 1, \"xmlPropertyName\": \"from\"}]"_s << Columns { { 1, 400, 400, QString() } };
    QTest::newRow("non-objects left out")
        << u"[1, \"x\", null, {\"tokenValue\": 403}]"_s << Columns { { 0, 400, 403, QString() } };
    QTest::newRow("text numbers are not numbers")
        << u"[{\"tokenValue\": \"403\"}]"_s << Columns { { 0, 400, 400, QString() } };
    QTest::newRow("object is not a layout") << u"{\"tokenValue\": 403}"_s << Columns {};
    QTest::newRow("not json") << u"tokenValue=403"_s << Columns {};
}

void TestCSVTokenField::decoding()
{
    QFETCH(QString, json);
    QFETCH(Columns, expected);
    const QList<CSVTokenField> fields = CSVTokenField::unarchive(json);
    QCOMPARE(columnsOf(fields), expected);
    for (const CSVTokenField &field : fields)
        QVERIFY(field.enabled());
}

void TestCSVTokenField::csvLayoutInSettings_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<Columns>("expected");
    QTest::newRow("missing gives the default") << QVariant() << kDefaultCsv;
    QTest::newRow("garbage gives none") << QVariant(u"garbage"_s) << Columns {};
    QTest::newRow("empty array gives none") << QVariant(u"[]"_s) << Columns {};
    QTest::newRow("object gives none") << QVariant(u"{}"_s) << Columns {};
    QTest::newRow("stored layout") << QVariant(u"[{\"tokenMode\":0,\"tokenType\":400,\"tokenValue\":403}]"_s)
                                   << Columns { { 0, 400, 403, QString() } };
}

void TestCSVTokenField::csvLayoutInSettings()
{
    QFETCH(QVariant, stored);
    QFETCH(Columns, expected);
    if (stored.isValid()) {
        QSettings file(settingsPath(), QSettings::IniFormat);
        file.setValue(u"csv_row_format"_s, stored);
        file.sync();
        reopenSettings();
    }
    const QList<CSVTokenField> layout = m_settings->getCSVFormat();
    QCOMPARE(columnsOf(layout), expected);
    for (const CSVTokenField &field : layout)
        QVERIFY(field.tokenValue().showShortDescription());
}

void TestCSVTokenField::layoutsSurviveTheSettingsFile()
{
    QList<CSVTokenField> csv { CSVTokenField::initWithActivityFieldMode(0, 400, 402),
        CSVTokenField::initWithActivityFieldMode(0, 100, 121) };
    m_settings->setCSVFormat(csv);
    CSVTokenField attribute = CSVTokenField::initWithActivityFieldMode(1, 400, 401);
    attribute.setXmlPropertyName(u"project, \"quoted\" = name"_s);
    m_settings->setXMLFormat(m_settings->getXMLFormat() << attribute);
    m_settings->setCsvFieldSeparator(u"{TAB}"_s);

    // What another process sees in the file.
    reopenSettings();
    const Columns expectedCsv { { 0, 400, 402, QString() }, { 0, 100, 121, QString() } };
    QCOMPARE(columnsOf(m_settings->getCSVFormat()), expectedCsv);
    const Columns xml = kFixedXml + Columns { { 1, 400, 401, u"project,-\"quoted\"-=-name"_s } };
    QCOMPARE(columnsOf(m_settings->getXMLFormat()), xml);
    QCOMPARE(m_settings->csvFieldSeparator(), u"{TAB}"_s);

    // The persisted form: JSON text with the archive's keys, the name in mode 1 only.
    const QSettings file(settingsPath(), QSettings::IniFormat);
    const QJsonArray csvJson = QJsonDocument::fromJson(file.value(u"csv_row_format"_s).toString().toUtf8()).array();
    QCOMPARE(csvJson.size(), 2);
    QCOMPARE(csvJson.at(0).toObject(),
        (QJsonObject { { u"tokenMode"_s, 0 }, { u"tokenType"_s, 400 }, { u"tokenValue"_s, 402 } }));
    const QJsonArray xmlJson = QJsonDocument::fromJson(file.value(u"xml_properties"_s).toString().toUtf8()).array();
    QCOMPARE(xmlJson.size(), 1);
    QCOMPARE(xmlJson.at(0).toObject(),
        (QJsonObject { { u"tokenMode"_s, 1 }, { u"tokenType"_s, 400 }, { u"tokenValue"_s, 401 },
            { u"xmlPropertyName"_s, u"project,-\"quoted\"-=-name"_s } }));
}

void TestCSVTokenField::fixedXmlAttributesAreNeverStored()
{
    QCOMPARE(columnsOf(m_settings->getXMLFormat()), kFixedXml);
    QList<CSVTokenField> layout = m_settings->getXMLFormat();
    for (const CSVTokenField &field : layout) {
        QVERIFY(!field.enabled());
        QVERIFY(field.tokenValue().showShortDescription());
    }
    m_settings->setXMLFormat(layout);
    QCOMPARE(QSettings(settingsPath(), QSettings::IniFormat).value(u"xml_properties"_s).toString(), u"[]"_s);
    QCOMPARE(columnsOf(m_settings->getXMLFormat()), kFixedXml);
    QCOMPARE(columnsOf(BvSettings::getDefaultCSVFormat()), kDefaultCsv);
}

QTEST_GUILESS_MAIN(TestCSVTokenField)
#include "testcsvtokenfield.moc"
