// The rules of the export layout editors, without widgets: the menu of a column, moving, naming, adding
// and resetting, the header row, and the preview of the journal. Runs in Europe/Berlin with en_US.
#include <QtTest>

#include <QBuffer>
#include <QSet>
#include <QTimeZone>
#include <QXmlStreamReader>

#include "export/activityexport.h"
#include "export/dateformattercache.h"
#include "export/exportlayouteditor.h"
#include "export/exportpreview.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(QList<int>)

namespace {

constexpr int XML = CSVTokenField::XMLMode;
constexpr int CSV = CSVTokenField::CSVMode;

QList<int> values(const QList<CSVTokenField> &fields)
{
    QList<int> result;
    for (const CSVTokenField &field : fields)
        result.append(field.tokenValue().value());
    return result;
}

QStringList names(const QList<CSVTokenField> &fields)
{
    QStringList result;
    for (const CSVTokenField &field : fields)
        result.append(field.xmlPropertyName());
    return result;
}

CSVTokenField attribute(int type, int value, const QString &name)
{
    CSVTokenField field = CSVTokenField::initWithActivityFieldMode(XML, type, value);
    field.setXmlPropertyName(name);
    return field;
}

} // namespace

class TestExportLayoutEditor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void menuOffersEveryTokenOnceInItsGroup_data();
    void menuOffersEveryTokenOnceInItsGroup();
    void moveKeepsFixedAttributesFirst_data();
    void moveKeepsFixedAttributesFirst();
    void renameNormalisesAndRefuses_data();
    void renameNormalisesAndRefuses();
    void fixedAttributesStayAsTheyAre();
    void addNamesNewAttributesUniquelyAndResetRestores();
    void headerRowLeadsTheCsvFile_data();
    void headerRowLeadsTheCsvFile();
    void previewShowsTheNewestActivitiesAsExported();

private:
    void insertActivities(int count);

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
};

void TestExportLayoutEditor::init()
{
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    auto store = Store::open(options);
    QVERIFY(store);
    m_store = std::move(*store);
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale/Brimvale.conf"_s);
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
    m_settings->setXMLFormat({ attribute(400, 401, u"a"_s), attribute(400, 402, u"b"_s), attribute(400, 400, u"c"_s) });
}

void TestExportLayoutEditor::cleanup()
{
    m_settings.reset();
    m_defaults.reset();
    m_store.reset();
    m_home.reset();
}

void TestExportLayoutEditor::insertActivities(int count)
{
    auto context = m_store->newContext();
    const QDateTime first(QDate(2024, 3, 1), QTime(9, 0), QTimeZone("Europe/Berlin"));
    for (int i = 0; i < count; ++i) {
        ActivityPtr activity = context->insertActivity();
        activity->setText(u"activity %1"_s.arg(i));
        activity->setTimeFrom(first.addDays(i));
        activity->setTimeTo(first.addDays(i).addSecs(3600));
    }
    QVERIFY(context->save());
}

void TestExportLayoutEditor::menuOffersEveryTokenOnceInItsGroup_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("value");
    QTest::addColumn<QString>("currentGroup");

    QTest::newRow("start date") << 100 << 110 << u"Start Date/Time"_s;
    QTest::newRow("end date, same long title") << 100 << 160 << u"End Date/Time"_s;
    QTest::newRow("end second") << 100 << 255 << u"End Date/Time"_s;
    QTest::newRow("decimal hours") << 200 << 302 << u"Duration"_s;
    QTest::newRow("invoiced") << 400 << 404 << u"Activity"_s;
    QTest::newRow("unknown value checks nothing") << 400 << 999 << QString();
}

void TestExportLayoutEditor::menuOffersEveryTokenOnceInItsGroup()
{
    QFETCH(int, type);
    QFETCH(int, value);
    QFETCH(QString, currentGroup);
    m_settings->setCSVFormat({ CSVTokenField::initWithActivityFieldMode(CSV, type, value) });
    ExportLayoutEditor editor(*m_settings, CSV);

    QSet<int> offered;
    QStringList checked;
    QStringList current;
    for (const ExportTokenChoiceGroup &group : editor.choices(0)) {
        if (group.current)
            current.append(group.title);
        for (const ExportTokenChoice &choice : group.choices) {
            QVERIFY2(!offered.contains(choice.tokenValue), qPrintable(choice.title));
            offered.insert(choice.tokenValue);
            if (choice.checked)
                checked.append(group.title);
            // A group holds one family, and the date groups split by the instant the token renders.
            if (group.title == u"Start Date/Time"_s || group.title == u"End Date/Time"_s) {
                QCOMPARE(choice.tokenType, 100);
                QCOMPARE(DateFormatterCache::getFormatterForValue(choice.tokenValue)->isEndTime(),
                    group.title == u"End Date/Time"_s);
            } else {
                QCOMPARE(ActivityTokenType::activityTokenToString(choice.tokenType), group.title);
            }
            QCOMPARE(choice.title, ActivityTokenValue::activityValueToString(choice.tokenValue));
        }
    }
    QCOMPARE(offered.size(), 28);
    const QStringList expected = currentGroup.isNull() ? QStringList() : QStringList { currentGroup };
    QCOMPARE(checked, expected);
    QCOMPARE(current, expected);
}

void TestExportLayoutEditor::moveKeepsFixedAttributesFirst_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("insertBefore");
    QTest::addColumn<bool>("moved");
    QTest::addColumn<QList<int>>("expected");

    const QList<int> csv { 111, 120, 300, 401, 400, 404 };
    const QList<int> xml { 403, 404, 121, 171, 401, 402, 400 };
    QTest::newRow("csv first to the end") << CSV << 0 << 6 << true << QList<int> { 120, 300, 401, 400, 404, 111 };
    QTest::newRow("csv last to the front") << CSV << 5 << 0 << true << QList<int> { 404, 111, 120, 300, 401, 400 };
    QTest::newRow("csv one to the right") << CSV << 1 << 3 << true << QList<int> { 111, 300, 120, 401, 400, 404 };
    QTest::newRow("csv before itself") << CSV << 2 << 2 << false << csv;
    QTest::newRow("csv before its neighbour") << CSV << 2 << 3 << false << csv;
    QTest::newRow("csv past the end") << CSV << 0 << 7 << false << csv;
    QTest::newRow("xml before the fixed ones stops after them")
        << XML << 6 << 0 << true << QList<int> { 403, 404, 121, 171, 400, 401, 402 };
    QTest::newRow("xml between fixed ones")
        << XML << 5 << 2 << true << QList<int> { 403, 404, 121, 171, 402, 401, 400 };
    QTest::newRow("xml first user one already first") << XML << 4 << 1 << false << xml;
    QTest::newRow("xml fixed one does not move") << XML << 0 << 7 << false << xml;
    QTest::newRow("xml user one to the end")
        << XML << 4 << 7 << true << QList<int> { 403, 404, 121, 171, 402, 400, 401 };
}

void TestExportLayoutEditor::moveKeepsFixedAttributesFirst()
{
    QFETCH(int, mode);
    QFETCH(int, from);
    QFETCH(int, insertBefore);
    QFETCH(bool, moved);
    QFETCH(QList<int>, expected);
    ExportLayoutEditor editor(*m_settings, mode);
    QSignalSpy changed(&editor, &ExportLayoutEditor::layoutChanged);

    QCOMPARE(editor.moveField(from, insertBefore), moved);
    QCOMPARE(values(editor.fields()), expected);
    QCOMPARE(changed.size(), moved ? 1 : 0);
    // What the editor shows is what the settings now hold.
    QCOMPARE(ExportLayoutEditor(*m_settings, mode).fields(), editor.fields());
}

void TestExportLayoutEditor::renameNormalisesAndRefuses_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<bool>("refused");

    QTest::newRow("words joined by dashes") << 4 << u"  my \t field\n "_s << u"my-field"_s << false;
    QTest::newRow("own name again") << 4 << u"a"_s << u"a"_s << false;
    QTest::newRow("letters of any script") << 4 << u"durée"_s << u"durée"_s << false;
    QTest::newRow("fixed name from") << 4 << u"from"_s << u"a"_s << true;
    QTest::newRow("fixed name invoiced") << 4 << u"invoiced"_s << u"a"_s << true;
    QTest::newRow("another user attribute") << 4 << u" b "_s << u"a"_s << true;
    QTest::newRow("starts with a digit") << 4 << u"1st"_s << u"a"_s << true;
    QTest::newRow("namespace colon") << 4 << u"x:y"_s << u"a"_s << true;
    QTest::newRow("blank") << 4 << u" \n\t"_s << u"a"_s << true;
    QTest::newRow("a fixed attribute") << 1 << u"paid"_s << u"invoiced"_s << true;
}

void TestExportLayoutEditor::renameNormalisesAndRefuses()
{
    QFETCH(int, index);
    QFETCH(QString, name);
    QFETCH(QString, stored);
    QFETCH(bool, refused);
    ExportLayoutEditor editor(*m_settings, XML);

    const QString refusal = editor.renameField(index, name);
    QCOMPARE(!refusal.isNull(), refused);
    QCOMPARE(editor.fields().at(index).xmlPropertyName(), stored);
    QCOMPARE(names(m_settings->getXMLFormat()), names(editor.fields()));
}

void TestExportLayoutEditor::fixedAttributesStayAsTheyAre()
{
    ExportLayoutEditor editor(*m_settings, XML);
    const QList<CSVTokenField> before = editor.fields();
    QCOMPARE(editor.fixedCount(), 4);
    for (int i = 0; i < 4; ++i) {
        QVERIFY(!editor.isEditable(i));
        QVERIFY(!editor.removeField(i));
        QVERIFY(!editor.chooseToken(i, 200, 300));
    }
    QCOMPARE(editor.fields(), before);
    editor.resetToDefaults();
    QCOMPARE(names(editor.fields()), (QStringList { u"uid"_s, u"invoiced"_s, u"from"_s, u"to"_s }));
    QVERIFY(!editor.removeField(0));
    QCOMPARE(m_settings->getXMLFormat().size(), 4);
}

void TestExportLayoutEditor::addNamesNewAttributesUniquelyAndResetRestores()
{
    ExportLayoutEditor xml(*m_settings, XML);
    QCOMPARE(xml.addField(), 7);
    QCOMPARE(xml.addField(), 8);
    QCOMPARE(xml.renameField(7, u"billed"_s), QString());
    QCOMPARE(xml.addField(), 9);
    QCOMPARE(names(xml.fields()).mid(7), (QStringList { u"billed"_s, u"project-2"_s, u"project"_s }));
    QCOMPARE(xml.fields().at(9).tokenValue().value(), int(ActivityTokenValue::ProjectName));
    QCOMPARE(xml.title(9), u"project: Project name"_s);
    QVERIFY(!xml.isDefault());
    xml.resetToDefaults();
    QVERIFY(xml.isDefault());

    ExportLayoutEditor csv(*m_settings, CSV);
    QVERIFY(csv.isDefault());
    QCOMPARE(csv.addField(), 6);
    QCOMPARE(csv.title(6), u"Text"_s);
    QVERIFY(csv.chooseToken(6, 100, 171));
    QCOMPARE(csv.title(6), u"End date/time"_s);
    QVERIFY(!csv.isDefault());
    csv.resetToDefaults();
    QCOMPARE(m_settings->getCSVFormat(), BvSettings::getDefaultCSVFormat());
}

void TestExportLayoutEditor::headerRowLeadsTheCsvFile_data()
{
    QTest::addColumn<QString>("separator");
    QTest::addColumn<bool>("header");
    QTest::addColumn<int>("activities");
    QTest::addColumn<QString>("expected");

    const QString header = u"\"Project name\";\"Formatted duration\";\"Start date/time\""_s;
    const QString row0 = u"\"\";\"01:00:00\";\"2024-03-01T09:00:00\""_s;
    const QString row1 = u"\"\";\"01:00:00\";\"2024-03-02T09:00:00\""_s;
    QTest::newRow("off") << u";"_s << false << 2 << row0 + u"\r\n"_s + row1;
    QTest::newRow("on") << u";"_s << true << 2 << header + u"\r\n"_s + row0 + u"\r\n"_s + row1;
    QTest::newRow("on, nothing to export") << u";"_s << true << 0 << header;
}

void TestExportLayoutEditor::headerRowLeadsTheCsvFile()
{
    QFETCH(QString, separator);
    QFETCH(bool, header);
    QFETCH(int, activities);
    QFETCH(QString, expected);
    insertActivities(activities);
    m_settings->setCSVFormat({ CSVTokenField::initWithActivityFieldMode(CSV, 400, 401),
        CSVTokenField::initWithActivityFieldMode(CSV, 200, 300),
        CSVTokenField::initWithActivityFieldMode(CSV, 100, 121) });
    m_settings->setCsvFieldSeparator(separator);
    m_settings->setCsvHeaderRow(header);

    ActivityQuery query;
    query.order = ActivityQuery::Order::TimeFromAscending;
    auto records = m_store->newContext()->fetchActivityRecords(query);
    QVERIFY(records);
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    QCOMPARE(ActivityExport::exportRecords(*records, buffer, ActivityExport::CSVFormat, m_settings->view()), QString());
    QCOMPARE(QString::fromUtf8(buffer.data()), expected);
}

void TestExportLayoutEditor::previewShowsTheNewestActivitiesAsExported()
{
    insertActivities(7);
    m_settings->setCSVFormat({ CSVTokenField::initWithActivityFieldMode(CSV, 400, 400) });
    m_settings->setCsvHeaderRow(true);

    const auto csv = ExportPreview::previewText(*m_store, m_settings->view(), ActivityExport::CSVFormat);
    QVERIFY(csv);
    QCOMPARE(csv->split(u"\r\n"_s),
        (QStringList { u"\"Text\""_s, u"\"activity 6\""_s, u"\"activity 5\""_s, u"\"activity 4\""_s,
            u"\"activity 3\""_s, u"\"activity 2\""_s }));

    const auto xml = ExportPreview::previewText(*m_store, m_settings->view(), ActivityExport::XMLFormat, 2);
    QVERIFY(xml);
    QXmlStreamReader reader(*xml);
    QStringList read;
    while (reader.readNextStartElement()) {
        if (reader.name() == u"activity"_s) {
            read.append(
                reader.attributes().value(u"from"_s).toString() + u' ' + reader.attributes().value(u"c"_s).toString());
            reader.skipCurrentElement();
        }
    }
    QVERIFY2(!reader.hasError(), qPrintable(reader.errorString()));
    QCOMPARE(read, (QStringList { u"2024-03-07T09:00:00 activity 6"_s, u"2024-03-06T09:00:00 activity 5"_s }));
}

QTEST_GUILESS_MAIN(TestExportLayoutEditor)
#include "testexportlayouteditor.moc"
