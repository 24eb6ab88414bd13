// Exported files are checked with the tools people open them with: Python's csv module, LibreOffice Calc
// (when installed) and xmllint. Runs in Europe/Berlin with the en_US locale (see CMakeLists.txt).
#include <QtTest>

#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTimeZone>
#include <QXmlStreamReader>

#include "export/activityexport.h"
#include "export/activityfieldvalue.h"
#include "export/activityimport.h"
#include "export/dateformattercache.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {

const QTimeZone kBerlin("Europe/Berlin");

// Accepts the first `capacity` bytes, then fails like a full disk.
class FailingDevice : public QIODevice
{
public:
    explicit FailingDevice(qint64 capacity)
        : m_capacity(capacity)
    {
        open(QIODevice::WriteOnly);
    }

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *, qint64 length) override
    {
        if (m_written + length > m_capacity) {
            setErrorString(QStringLiteral("No space left on device"));
            return -1;
        }
        m_written += length;
        return length;
    }

private:
    qint64 m_capacity;
    qint64 m_written = 0;
};

struct Sample
{
    QString text;
    QDateTime from;
    qint64 seconds;
    bool invoiced;
};

// Texts that break naive writers: quotes, separators, line ends of both kinds, markup, blanks at the ends.
const QList<Sample> &samples()
{
    static const QList<Sample> list {
        { u"@Acme #design mock-ups"_s, QDateTime(QDate(2024, 3, 12), QTime(9, 0, 0, 750), kBerlin), 5400, false },
        { u"say \"hello\", then; leave\tnow"_s, QDateTime(QDate(2024, 3, 31), QTime(1, 30), kBerlin), 3600, true },
        { u"two\nlines and\r\nwindows ones\rtoo"_s, QDateTime(QDate(2010, 10, 23), QTime(23, 12, 45), kBerlin), 59,
            false },
        { u"  <b>&amp; 'apostrophes' </b>  "_s, QDateTime(QDate(2024, 10, 27), QTime(1, 0), kBerlin), 1, true },
        { u"Café ☕ 日本語 @Überprojekt #naïve"_s, QDateTime(QDate(2023, 12, 31), QTime(23, 50), kBerlin), 90000,
            false },
        { u""_s, QDateTime(QDate(2024, 1, 1), QTime(0, 0), kBerlin), 61, false },
    };
    return list;
}

qint64 floorSeconds(const QDateTime &instant)
{
    const qint64 ms = instant.toMSecsSinceEpoch();
    return ms >= 0 ? ms / 1000 : -((-ms + 999) / 1000);
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestActivityExport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void csvReadsBackWithPython_data();
    void csvReadsBackWithPython();
    void csvHasNoHeaderAndNoFinalLineEnd();
    void csvOpensInLibreOfficeCalc();
    void xmlPassesXmllint();
    void nothingToExportGivesEmptyFiles();
    void exportThenImportGivesBackTheActivities();
    void recordsExportAsActivitiesDo_data();
    void recordsExportAsActivitiesDo();
    void failedWriteLeavesNoFile_data();
    void failedWriteLeavesNoFile();
    void everyExportDropsTheDateFormatters();

private:
    QList<ActivityPtr> insertSamples();
    QString path(const QString &name) const { return m_home->root() + u'/' + name; }

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<StoreContext> m_context;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
};

void TestActivityExport::init()
{
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    auto store = Store::open(options);
    QVERIFY(store);
    m_store = std::move(*store);
    m_context = m_store->newContext();
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale/Brimvale.conf"_s);
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
}

void TestActivityExport::cleanup()
{
    m_settings.reset();
    m_defaults.reset();
    m_context.reset();
    m_store.reset();
    m_home.reset();
}

QList<ActivityPtr> TestActivityExport::insertSamples()
{
    QList<ActivityPtr> activities;
    for (const Sample &sample : samples()) {
        ActivityPtr activity = m_context->insertActivity();
        activity->setText(sample.text);
        activity->setTimeFrom(sample.from);
        activity->setTimeTo(sample.from.addSecs(sample.seconds));
        activity->setIsInvoiced(sample.invoiced);
        activities.append(activity);
    }
    if (!m_context->save())
        qFatal("could not save the samples");
    return activities;
}

void TestActivityExport::csvReadsBackWithPython_data()
{
    QTest::addColumn<QString>("setting");
    QTest::addColumn<QString>("delimiter");
    QTest::newRow("default semicolon") << QString() << u";"_s;
    QTest::newRow("comma") << u","_s << u","_s;
    QTest::newRow("tab") << u"{TAB}"_s << u"\t"_s;
    QTest::newRow("pipe") << u"|"_s << u"|"_s;
}

void TestActivityExport::csvReadsBackWithPython()
{
    QFETCH(QString, setting);
    QFETCH(QString, delimiter);
    if (!setting.isNull())
        m_settings->setCsvFieldSeparator(setting);
    const QList<CSVTokenField> layout {
        CSVTokenField::initWithActivityFieldMode(0, 400, 400),
        CSVTokenField::initWithActivityFieldMode(0, 400, 403),
        CSVTokenField::initWithActivityFieldMode(0, 400, 404),
        CSVTokenField::initWithActivityFieldMode(0, 100, 121),
        CSVTokenField::initWithActivityFieldMode(0, 200, 301),
        CSVTokenField::initWithActivityFieldMode(0, 400, 401),
        CSVTokenField::initWithActivityFieldMode(0, 400, 402),
        CSVTokenField::initWithActivityFieldMode(0, 100, 111),
    };
    m_settings->setCSVFormat(layout);
    const QList<ActivityPtr> activities = insertSamples();
    const QString file = path(u"export.csv"_s);
    QCOMPARE(ActivityExport::exportActivities(activities, file, 0, m_settings->view()), QString());

    QProcess python;
    python.start(u"/usr/bin/python3"_s,
        { u"-c"_s,
            u"import csv, json, sys\n"
            "with open(sys.argv[1], newline='', encoding='utf-8') as f:\n"
            "    rows = list(csv.reader(f, delimiter=sys.argv[2], strict=True))\n"
            "sys.stdout.write(json.dumps(rows))\n"_s,
            file, delimiter });
    QVERIFY(python.waitForFinished(30000));
    QVERIFY2(python.exitCode() == 0, python.readAllStandardError().constData());
    const QJsonArray rows = QJsonDocument::fromJson(python.readAllStandardOutput()).array();

    QCOMPARE(rows.size(), activities.size());
    for (qsizetype i = 0; i < activities.size(); ++i) {
        const QJsonArray row = rows.at(i).toArray();
        QCOMPARE(row.size(), layout.size());
        QCOMPARE(row.at(0).toString(), samples().at(i).text);
        for (qsizetype column = 0; column < layout.size(); ++column)
            QCOMPARE(
                row.at(column).toString(), ActivityFieldValue::valueForField(*activities.at(i), layout.at(column)));
    }
    QCOMPARE(rows.at(0).toArray().at(3).toString(), u"2024-03-12T09:00:00"_s);
    QCOMPARE(rows.at(0).toArray().at(4).toString(), u"90"_s);
    QCOMPARE(rows.at(0).toArray().at(5).toString(), u"Acme"_s);
    QCOMPARE(rows.at(0).toArray().at(6).toString(), u"design"_s);
    QCOMPARE(rows.at(0).toArray().at(7).toString(), u"3/12/24"_s);
}

void TestActivityExport::csvHasNoHeaderAndNoFinalLineEnd()
{
    const QList<ActivityPtr> activities = insertSamples().mid(0, 2);
    const QList<CSVTokenField> layout { CSVTokenField::initWithActivityFieldMode(0, 400, 400),
        CSVTokenField::initWithActivityFieldMode(0, 400, 404), CSVTokenField::initWithActivityFieldMode(0, 400, 999) };
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    QVERIFY(ActivityExport::writeCSV(activities, layout, u"||"_s, buffer));
    QCOMPARE(buffer.data(),
        "\"@Acme #design mock-ups\"||\"0\"||\"\"\r\n"
        "\"say \"\"hello\"\", then; leave\tnow\"||\"1\"||\"\"");
    QCOMPARE(ActivityExport::separatorFromSetting(u"{TAB}"_s), u"\t"_s);
    QCOMPARE(ActivityExport::separatorFromSetting(u"{tab}"_s), u"{tab}"_s);

    // The default layout through the settings: six quoted columns, UTF-8 without byte-order mark.
    const QString file = path(u"default.csv"_s);
    QCOMPARE(ActivityExport::exportActivities({ activities.at(0) }, file, 0, m_settings->view()), QString());
    QCOMPARE(readAll(file), "\"3/12/24\";\"09:00:00\";\"01:30:00\";\"Acme\";\"@Acme #design mock-ups\";\"0\"");
}

void TestActivityExport::csvOpensInLibreOfficeCalc()
{
    const QString soffice = QStandardPaths::findExecutable(u"soffice"_s);
    QVERIFY2(!soffice.isEmpty(), "LibreOffice Calc is missing: scripts/dev.sh installs libreoffice-calc-nogui");
    const QList<ActivityPtr> activities = insertSamples();
    const QList<CSVTokenField> layout { CSVTokenField::initWithActivityFieldMode(0, 400, 400),
        CSVTokenField::initWithActivityFieldMode(0, 200, 300), CSVTokenField::initWithActivityFieldMode(0, 400, 403) };
    m_settings->setCSVFormat(layout);
    QDir().mkpath(path(u"in"_s));
    const QString file = path(u"in/calc.csv"_s);
    QCOMPARE(ActivityExport::exportActivities(activities, file, 0, m_settings->view()), QString());

    // Calc reads our file (";" separated, '"' quoted, UTF-8, every column as text) and writes it back
    // comma separated with every text cell quoted, which Python then reads cell by cell.
    QProcess calc;
    calc.setProcessChannelMode(QProcess::MergedChannels);
    calc.start(soffice,
        { u"-env:UserInstallation=file://"_s + path(u"lo-profile"_s), u"--headless"_s,
            u"--infilter=CSV:59,34,76,1,1/2/2/2/3/2"_s, u"--convert-to"_s,
            u"csv:Text - txt - csv (StarCalc):44,34,76,1,,0,true,true"_s, u"--outdir"_s, path(u"out"_s), file });
    QVERIFY(calc.waitForFinished(180000));
    QVERIFY2(calc.exitCode() == 0, calc.readAll().constData());
    const QString converted = path(u"out/calc.csv"_s);
    QVERIFY2(QFile::exists(converted), calc.readAll().constData());

    QProcess python;
    python.start(u"/usr/bin/python3"_s,
        { u"-c"_s,
            u"import csv, json, sys\n"
            "with open(sys.argv[1], newline='', encoding='utf-8') as f:\n"
            "    sys.stdout.write(json.dumps(list(csv.reader(f))))\n"_s,
            converted });
    QVERIFY(python.waitForFinished(30000));
    const QJsonArray rows = QJsonDocument::fromJson(python.readAllStandardOutput()).array();
    QCOMPARE(rows.size(), activities.size());
    for (qsizetype i = 0; i < activities.size(); ++i) {
        const QJsonArray row = rows.at(i).toArray();
        // Calc keeps line feeds inside a cell; a carriage return before one is a line end to it.
        QString text = samples().at(i).text;
        text.replace(u"\r\n"_s, u"\n"_s).replace(u'\r', u'\n');
        QCOMPARE(row.at(0).toString(), text);
        QCOMPARE(row.at(1).toString(), ActivityFieldValue::valueForField(*activities.at(i), layout.at(1)));
        QCOMPARE(row.at(2).toString(), activities.at(i)->uid());
    }
}

void TestActivityExport::xmlPassesXmllint()
{
    ActivityPtr odd = m_context->insertActivity();
    // XML 1.0 cannot carry a control character or an unpaired surrogate at all.
    odd->setText(u"bell \x07 and "_s + QChar(0xD800) + u" end"_s);
    odd->setTimeFrom(QDateTime(QDate(2024, 5, 1), QTime(8, 0), kBerlin));
    odd->setTimeTo(QDateTime(QDate(2024, 5, 1), QTime(9, 0), kBerlin));
    QVERIFY(m_context->save());
    const QList<ActivityPtr> activities = insertSamples() << odd;

    QList<CSVTokenField> layout = m_settings->getXMLFormat();
    auto named = [](int type, int value, const QString &name) {
        CSVTokenField field = CSVTokenField::initWithActivityFieldMode(1, type, value);
        field.setXmlPropertyName(name);
        return field;
    };
    layout << named(400, 401, u"project"_s) << named(400, 400, u"invoiced"_s) << named(400, 402, u"a<b"_s)
           << CSVTokenField::initWithActivityFieldMode(0, 400, 400) << named(200, 302, u"hours"_s);
    m_settings->setXMLFormat(layout);

    const QString file = path(u"export.xml"_s);
    QCOMPARE(ActivityExport::exportActivities(activities, file, 1, m_settings->view()), QString());
    QProcess xmllint;
    xmllint.setProcessChannelMode(QProcess::MergedChannels);
    xmllint.start(u"xmllint"_s, { u"--noout"_s, file });
    QVERIFY(xmllint.waitForFinished(30000));
    QVERIFY2(xmllint.exitCode() == 0 && xmllint.readAll().isEmpty(), readAll(file).constData());

    QFile input(file);
    QVERIFY(input.open(QIODevice::ReadOnly));
    QXmlStreamReader reader(&input);
    QVERIFY(reader.readNextStartElement());
    QCOMPARE(reader.name(), u"activities"_s);
    qsizetype index = 0;
    while (reader.readNextStartElement()) {
        QCOMPARE(reader.name(), u"activity"_s);
        const ActivityPtr &activity = activities.at(index);
        QStringList names;
        for (const QXmlStreamAttribute &attribute : reader.attributes())
            names.append(attribute.name().toString());
        // The user's "invoiced" repeats a fixed name and "a<b" is no name: both are left out.
        QCOMPARE(names, (QStringList { u"uid"_s, u"invoiced"_s, u"from"_s, u"to"_s, u"project"_s, u"hours"_s }));
        const QXmlStreamAttributes attributes = reader.attributes();
        QCOMPARE(attributes.value(u"uid"_s), activity->uid());
        QCOMPARE(attributes.value(u"invoiced"_s), activity->isInvoiced() ? u"1"_s : u"0"_s);
        QCOMPARE(
            attributes.value(u"from"_s), activity->timeFrom().toTimeZone(kBerlin).toString(u"yyyy-MM-dd'T'HH:mm:ss"_s));
        QCOMPARE(
            attributes.value(u"to"_s), activity->timeTo().toTimeZone(kBerlin).toString(u"yyyy-MM-dd'T'HH:mm:ss"_s));
        const QString text = reader.readElementText();
        if (activity == odd)
            QCOMPARE(text, u"bell \uFFFD and \uFFFD end"_s);
        else
            QCOMPARE(text, activity->text());
        ++index;
    }
    QVERIFY2(!reader.hasError(), qPrintable(reader.errorString()));
    QCOMPARE(index, activities.size());
}

void TestActivityExport::nothingToExportGivesEmptyFiles()
{
    const QString csv = path(u"empty.csv"_s);
    QCOMPARE(ActivityExport::exportActivities({}, csv, 0, m_settings->view()), QString());
    QVERIFY(QFile::exists(csv));
    QCOMPARE(readAll(csv), QByteArray());

    const QString xml = path(u"empty.xml"_s);
    QCOMPARE(
        ActivityExport::exportActivities({}, QUrl::fromLocalFile(xml).toString(), 1, m_settings->view()), QString());
    QCOMPARE(QProcess::execute(u"xmllint"_s, { u"--noout"_s, xml }), 0);
    QXmlStreamReader reader(readAll(xml));
    QVERIFY(reader.readNextStartElement());
    QCOMPARE(reader.name(), u"activities"_s);
    QVERIFY(!reader.readNextStartElement());
    QVERIFY(!reader.hasError());
}

void TestActivityExport::exportThenImportGivesBackTheActivities()
{
    const QList<ActivityPtr> activities = insertSamples();
    const QString file = path(u"round trip.xml"_s);
    QCOMPARE(ActivityExport::exportActivities(activities, file, 1, m_settings->view()), QString());

    IsolatedHome otherMachine;
    StoreOptions options;
    options.applicationFilesDirectory = otherMachine.applicationFilesDirectory();
    auto empty = Store::open(options);
    QVERIFY(empty);
    ActivityImport import;
    auto read = import.importActivitiesFromURL(file);
    if (!read)
        QFAIL(qPrintable(read.error().message()));
    QCOMPARE(read->size(), activities.size());
    const ActivityImportResult result = ActivityImport::importActivities(*read, **empty);
    QCOMPARE(result.text(), u"Imported 6 activities"_s);

    auto context = (*empty)->newContext();
    QCOMPARE(*context->countActivities(), activities.size());
    for (const ActivityPtr &original : activities) {
        const ActivityPtr copy = *context->activityWithUid(original->uid());
        QVERIFY2(copy, qPrintable(original->text()));
        QCOMPARE(floorSeconds(copy->timeFrom()), floorSeconds(original->timeFrom()));
        QCOMPARE(floorSeconds(copy->timeTo()), floorSeconds(original->timeTo()));
        QCOMPARE(copy->text(), original->text());
        QCOMPARE(copy->isInvoiced(), original->isInvoiced());
    }
}

void TestActivityExport::recordsExportAsActivitiesDo_data()
{
    QTest::addColumn<int>("format");
    QTest::newRow("csv") << ActivityExport::CSVFormat;
    QTest::newRow("xml") << ActivityExport::XMLFormat;
}

// The command line exports plain records, the app its activities: every column renders the same.
void TestActivityExport::recordsExportAsActivitiesDo()
{
    QFETCH(int, format);
    const std::pair<int, QList<int>> columns[] = {
        { ActivityTokenType::DateType,
            { 110, 111, 120, 121, 160, 161, 170, 171, 200, 201, 202, 203, 204, 205, 250, 251, 252, 253, 254, 255 } },
        { ActivityTokenType::DurationType, { 300, 301, 302 } },
        { ActivityTokenType::ActivityType, { 400, 401, 402, 403, 404 } },
    };
    QList<CSVTokenField> layout;
    for (const auto &[type, values] : columns) {
        for (const int value : values) {
            CSVTokenField field = CSVTokenField::initWithActivityFieldMode(format, type, value);
            field.setXmlPropertyName(u"v"_s + QString::number(value));
            layout.append(field);
        }
    }
    if (format == ActivityExport::XMLFormat)
        m_settings->setXMLFormat(layout);
    else
        m_settings->setCSVFormat(layout);
    QVERIFY(ActivityExport::showsTasks(layout));
    insertSamples();
    ActivityQuery query;
    query.order = ActivityQuery::Order::TimeFromDescending;
    const auto activities = m_context->fetchActivities(query);
    const auto records = m_context->fetchActivityRecords(query, true);
    QVERIFY(activities && records);

    QBuffer fromActivities;
    QBuffer fromRecords;
    fromActivities.open(QIODevice::WriteOnly);
    fromRecords.open(QIODevice::WriteOnly);
    QCOMPARE(ActivityExport::exportActivities(*activities, fromActivities, format, m_settings->view()), QString());
    QCOMPARE(ActivityExport::exportRecords(*records, fromRecords, format, m_settings->view()), QString());
    QCOMPARE(fromRecords.data(), fromActivities.data());
    QVERIFY(fromRecords.data().contains("\"design\""));
}

void TestActivityExport::failedWriteLeavesNoFile_data()
{
    QTest::addColumn<int>("format");
    QTest::addColumn<QString>("message");
    QTest::newRow("csv") << 0 << u"Failed to write CSV data to file!"_s;
    QTest::newRow("xml") << 1 << u"Failed to write XML data to file!"_s;
    QTest::newRow("other format is csv") << 7 << u"Failed to write CSV data to file!"_s;
}

void TestActivityExport::failedWriteLeavesNoFile()
{
    QFETCH(int, format);
    QFETCH(QString, message);
    // The designed message, then the system's reason.
    const QStringList reasons { u"No such file or directory"_s, u"Filename refers to a directory"_s,
        u"No space left on device"_s };
    const QList<ActivityPtr> activities = insertSamples();
    for (int i = 0; i < 3; ++i)
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"^Export.* failed"_s));

    const QString missingFolder = path(u"missing/export.out"_s);
    QCOMPARE(ActivityExport::exportActivities(activities, missingFolder, format, m_settings->view()),
        message + u' ' + reasons.at(0));
    QVERIFY(!QFile::exists(missingFolder));

    const QString folder = path(u"a folder"_s);
    QVERIFY(QDir().mkpath(folder));
    QCOMPARE(ActivityExport::exportActivities(activities, folder, format, m_settings->view()),
        message + u' ' + reasons.at(1));
    QVERIFY(QFileInfo(folder).isDir());

    FailingDevice full(100);
    QCOMPARE(
        ActivityExport::exportActivities(activities, full, format, m_settings->view()), message + u' ' + reasons.at(2));

    // A target that exists keeps its content until a complete file replaces it.
    const QString existing = path(u"existing.out"_s);
    QFile previous(existing);
    QVERIFY(previous.open(QIODevice::WriteOnly) && previous.write("previous export") > 0);
    previous.close();
    QCOMPARE(ActivityExport::exportActivities(activities, existing, format, m_settings->view()), QString());
    QVERIFY(readAll(existing) != "previous export");
}

void TestActivityExport::everyExportDropsTheDateFormatters()
{
    const QList<ActivityPtr> activities = insertSamples();
    const auto before = DateFormatterCache::getFormatterForValue(121);
    QCOMPARE(before, DateFormatterCache::getFormatterForValue(121));
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    QCOMPARE(ActivityExport::exportActivities(activities, buffer, 1, m_settings->view()), QString());
    QVERIFY(DateFormatterCache::getFormatterForValue(121) != before);
}

QTEST_GUILESS_MAIN(TestActivityExport)
#include "testactivityexport.moc"
