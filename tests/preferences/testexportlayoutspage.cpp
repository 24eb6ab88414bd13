// The Export page driven as a user drives it: tokens added, configured through their menus, dragged and
// removed; the separator and header switch; the fixed XML attributes; a restart. What the page leaves in
// the settings is judged by what an export then writes. Runs in Europe/Berlin with en_US.
#include <QtTest>

#include <QAbstractButton>
#include <QBuffer>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTimeZone>
#include <QToolButton>

#include "export/activityexport.h"
#include "gui/preferences/exportlayoutspage.h"
#include "gui/preferences/exporttokenrow.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int XML = CSVTokenField::XMLMode;
constexpr int CSV = CSVTokenField::CSVMode;

CSVTokenField column(int type, int value)
{
    return CSVTokenField::initWithActivityFieldMode(CSV, type, value);
}

CSVTokenField attribute(int type, int value, const QString &name)
{
    CSVTokenField field = CSVTokenField::initWithActivityFieldMode(XML, type, value);
    field.setXmlPropertyName(name);
    return field;
}

} // namespace

class TestExportLayoutsPage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void editedLayoutsExportAsLayoutsSetThroughSettings();
    void separatorAndHeaderRowReachTheExport_data();
    void separatorAndHeaderRowReachTheExport();
    void fixedXmlAttributesCannotBeRemovedOrPassed();
    void refusedAttributeNameSaysWhyAndKeepsTheOldOne();
    void typedAttributeNameIsKeptHoweverTheFieldIsLeft_data();
    void typedAttributeNameIsKeptHoweverTheFieldIsLeft();

private:
    void makePage();
    ExportTokenRow *row(const char *name) const { return m_page->findChild<ExportTokenRow *>(QLatin1String(name)); }
    QStringList titles(ExportTokenRow *row) const;
    QMenu *openMenu(ExportTokenRow *row, int index);
    void choose(ExportTokenRow *row, int index, int type, int value);
    void rename(ExportTokenRow *row, int index, const QString &name);
    void drag(ExportTokenRow *row, int from, int before);
    // What an export of the whole journal writes with these settings.
    QByteArray exported(BvSettings &settings, int format);
    void restart();

    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
    std::unique_ptr<ExportLayoutsPage> m_page;
};

void TestExportLayoutsPage::init()
{
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    auto store = Store::open(options);
    QVERIFY(store);
    m_store = std::move(*store);

    auto context = m_store->newContext();
    const QTimeZone berlin("Europe/Berlin");
    // The store takes the project and tasks from the text.
    struct Sample
    {
        QString text;
        QDateTime from;
        int seconds;
        bool invoiced;
    };
    const Sample samples[] = {
        { u"@Acme #design mock-ups"_s, QDateTime(QDate(2024, 3, 12), QTime(9, 0), berlin), 5400, false },
        { u"#beta #alpha say \"hi\"; then\tgo"_s, QDateTime(QDate(2024, 3, 31), QTime(1, 30), berlin), 4365, true },
        { u"@Zed late"_s, QDateTime(QDate(2024, 10, 27), QTime(2, 30), berlin), 61, false },
    };
    for (const Sample &sample : samples) {
        ActivityPtr activity = context->insertActivity();
        activity->setText(sample.text);
        activity->setTimeFrom(sample.from);
        activity->setTimeTo(sample.from.addSecs(sample.seconds));
        activity->setIsInvoiced(sample.invoiced);
    }
    QVERIFY(context->save());

    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale/Brimvale.conf"_s);
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
    makePage();
}

void TestExportLayoutsPage::cleanup()
{
    m_page.reset();
    m_settings.reset();
    m_defaults.reset();
    m_store.reset();
    m_home.reset();
}

void TestExportLayoutsPage::makePage()
{
    m_page = std::make_unique<ExportLayoutsPage>(*m_settings, *m_store);
    m_page->resize(700, 470);
    m_page->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_page.get()));
}

// A new settings object over the same file, and a new page on it, as after quitting and starting again.
void TestExportLayoutsPage::restart()
{
    m_page.reset();
    m_settings.reset();
    m_defaults.reset();
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale/Brimvale.conf"_s);
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
    makePage();
}

QStringList TestExportLayoutsPage::titles(ExportTokenRow *row) const
{
    QStringList result;
    for (int i = 0; row->tokenButton(i); ++i)
        result.append(row->tokenButton(i)->text());
    return result;
}

QMenu *TestExportLayoutsPage::openMenu(ExportTokenRow *row, int index)
{
    QApplication::processEvents();
    QToolButton *button = row->tokenButton(index);
    if (!button)
        return nullptr;
    QTest::mouseClick(button, Qt::LeftButton);
    return row->tokenMenu();
}

void TestExportLayoutsPage::choose(ExportTokenRow *row, int index, int type, int value)
{
    QMenu *menu = openMenu(row, index);
    QVERIFY(menu);
    auto *action = menu->findChild<QAction *>(u"choice-%1-%2"_s.arg(type).arg(value));
    QVERIFY(action);
    action->trigger();
    QTRY_VERIFY(!row->tokenMenu());
}

void TestExportLayoutsPage::rename(ExportTokenRow *row, int index, const QString &name)
{
    QMenu *menu = openMenu(row, index);
    QVERIFY(menu);
    auto *edit = menu->findChild<QLineEdit *>(u"attributeName"_s);
    QVERIFY(edit);
    edit->selectAll();
    QTest::keyClicks(edit, name);
    QTest::keyClick(edit, Qt::Key_Return);
}

// What a drop of the token at `from` onto the left half of the token at `before` (or past the last
// token) does; the data is what dragging the token carries.
void TestExportLayoutsPage::drag(ExportTokenRow *row, int from, int before)
{
    // The tokens of the last change are placed once the page lays itself out.
    QApplication::processEvents();
    std::unique_ptr<QMimeData> data(row->mimeDataForToken(from));
    QVERIFY(data);
    QToolButton *target = row->tokenButton(before);
    QToolButton *last = row->tokenButton(int(titles(row).size()) - 1);
    const QPointF pos = target ? QPointF(target->geometry().left() + 3, target->geometry().center().y())
                               : QPointF(last->geometry().right() + 4, last->geometry().center().y());
    QDragEnterEvent enter(pos.toPoint(), Qt::MoveAction, data.get(), Qt::LeftButton, {});
    QApplication::sendEvent(row, &enter);
    QVERIFY(enter.isAccepted());
    QDragMoveEvent move(pos.toPoint(), Qt::MoveAction, data.get(), Qt::LeftButton, {});
    QApplication::sendEvent(row, &move);
    QDropEvent drop(pos, Qt::MoveAction, data.get(), Qt::LeftButton, {});
    QApplication::sendEvent(row, &drop);
    QVERIFY(drop.isAccepted());
    // The move comes queued, once the drop's events are over.
    QApplication::processEvents();
}

QByteArray TestExportLayoutsPage::exported(BvSettings &settings, int format)
{
    auto records = m_store->newContext()->fetchActivityRecords({});
    if (!records)
        return {};
    std::sort(records->begin(), records->end(), [](const auto &a, const auto &b) { return a.timeFrom < b.timeFrom; });
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    if (!ActivityExport::exportRecords(*records, buffer, format, settings.view()).isNull())
        return {};
    return buffer.data();
}

void TestExportLayoutsPage::editedLayoutsExportAsLayoutsSetThroughSettings()
{
    ExportTokenRow *csv = row("csvRow");
    QVERIFY(csv);
    // Default: start date, start time, duration, project, text, invoiced.
    QCOMPARE(titles(csv).size(), 6);

    // Add: the new column opens its menu at once.
    QTest::mouseClick(m_page->findChild<QPushButton *>(u"csvAdd"_s), Qt::LeftButton);
    QMenu *menu = csv->tokenMenu();
    QVERIFY(menu);
    menu->findChild<QAction *>(u"choice-400-402"_s)->trigger();
    choose(csv, 0, 100, 161); // the end date instead of the start date
    choose(csv, 2, 200, 302); // decimal hours
    drag(csv, 6, 1); // the task names to second place
    drag(csv, 0, 7); // the end date to the end
    QTest::keyClick(csv->tokenButton(2), Qt::Key_Right, Qt::ControlModifier);
    QCOMPARE(titles(csv).mid(2, 2), (QStringList { u"Project name"_s, u"Duration as decimal hours"_s }));
    QCOMPARE(m_page->focusWidget(), csv->tokenButton(3));
    QTest::keyClick(csv->tokenButton(3), Qt::Key_Left, Qt::ControlModifier); // and back
    QMenu *removeMenu = openMenu(csv, 3);
    QVERIFY(removeMenu);
    removeMenu->findChild<QAction *>(u"removeToken"_s)->trigger(); // the project
    QCOMPARE(titles(csv),
        (QStringList { u"Task tags (#)"_s, u"Start time"_s, u"Duration as decimal hours"_s, u"Text"_s,
            u"Invoiced status"_s, u"End date (10/23/10)"_s }));

    ExportTokenRow *xml = row("xmlRow");
    QTest::mouseClick(m_page->findChild<QPushButton *>(u"xmlAdd"_s), Qt::LeftButton);
    QTRY_VERIFY(xml->tokenMenu());
    xml->tokenMenu()->close();
    choose(xml, 4, 200, 301);
    rename(xml, 4, u"  billed minutes "_s);
    QTest::mouseClick(m_page->findChild<QPushButton *>(u"xmlAdd"_s), Qt::LeftButton);
    QTRY_VERIFY(xml->tokenMenu());
    xml->tokenMenu()->close();
    choose(xml, 5, 400, 402);
    rename(xml, 5, u"tags"_s);
    drag(xml, 5, 0); // before "uid": lands after the fixed ones
    QCOMPARE(titles(xml).mid(4), (QStringList { u"tags: Task tags (#)"_s, u"billed-minutes: Duration in minutes"_s }));

    UserDefaults referenceDefaults(m_home->root() + u"/reference.conf"_s);
    BvSettings reference(&referenceDefaults);
    reference.setCSVFormat(
        { column(400, 402), column(100, 120), column(200, 302), column(400, 400), column(400, 404), column(100, 161) });
    reference.setXMLFormat({ attribute(400, 402, u"tags"_s), attribute(200, 301, u"billed-minutes"_s) });
    const QByteArray csvExport = exported(*m_settings, ActivityExport::CSVFormat);
    QCOMPARE(csvExport, exported(reference, ActivityExport::CSVFormat));
    QCOMPARE(csvExport.split('\n').value(1),
        QByteArray(
            "\"alpha, beta\";\"01:30:00\";\"1.2125\";\"#beta #alpha say \"\"hi\"\"; then\tgo\";\"1\";\"3/31/24\"\r"));
    const QByteArray xmlExport = exported(*m_settings, ActivityExport::XMLFormat);
    QCOMPARE(xmlExport, exported(reference, ActivityExport::XMLFormat));
    QVERIFY(xmlExport.contains(R"(to="2024-03-31T03:42:45" tags="alpha, beta" billed-minutes="73")"));

    // What the page shows after a restart is what it stored.
    const QStringList csvTitles = titles(csv);
    const QStringList xmlTitles = titles(xml);
    restart();
    QCOMPARE(titles(row("csvRow")), csvTitles);
    QCOMPARE(titles(row("xmlRow")), xmlTitles);
    QCOMPARE(exported(*m_settings, ActivityExport::CSVFormat), csvExport);

    // Reset brings back the built-in layouts and disables itself.
    auto *csvReset = m_page->findChild<QPushButton *>(u"csvReset"_s);
    QVERIFY(csvReset->isEnabled());
    QTest::mouseClick(csvReset, Qt::LeftButton);
    QVERIFY(!csvReset->isEnabled());
    QCOMPARE(m_settings->getCSVFormat(), BvSettings::getDefaultCSVFormat());
}

void TestExportLayoutsPage::separatorAndHeaderRowReachTheExport_data()
{
    QTest::addColumn<QString>("choice"); // a preset's setting, or the text typed after "Other:"
    QTest::addColumn<bool>("header");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QByteArray>("firstLine"); // of the export, oldest first
    QTest::addColumn<QString>("previewLine"); // of the preview, newest first

    QTest::newRow("tab") << u"{TAB}"_s << false << u"{TAB}"_s << QByteArray("\"Acme\"\t\"01:30:00\"\r\n")
                         << u"\"Zed\"\t\"00:01:01\""_s;
    QTest::newRow("comma, header") << u","_s << true << u","_s
                                   << QByteArray("\"Project name\",\"Formatted duration\"\r\n\"Acme\",")
                                   << u"\"Project name\",\"Formatted duration\""_s;
    QTest::newRow("semicolon") << u";"_s << false << u";"_s << QByteArray("\"Acme\";\"01:30:00\"\r\n")
                               << u"\"Zed\";\"00:01:01\""_s;
    QTest::newRow("typed, several characters")
        << u" :: "_s << true << u" :: "_s << QByteArray("\"Project name\" :: \"Formatted duration\"\r\n")
        << u"\"Project name\" :: \"Formatted duration\""_s;
}

void TestExportLayoutsPage::separatorAndHeaderRowReachTheExport()
{
    QFETCH(QString, choice);
    QFETCH(bool, header);
    QFETCH(QString, stored);
    QFETCH(QByteArray, firstLine);
    QFETCH(QString, previewLine);
    m_settings->setCsvFieldSeparator(u"|"_s);
    m_settings->setCSVFormat({ column(400, 401), column(200, 300) });
    restart();

    auto *combo = m_page->findChild<QComboBox *>(u"separatorCombo"_s);
    auto *other = m_page->findChild<QLineEdit *>(u"separatorOther"_s);
    QVERIFY(combo && other);
    QCOMPARE(combo->currentData().toString(), u"|"_s);
    const int preset = combo->findData(choice);
    combo->setFocus();
    const int target = preset >= 0 ? preset : combo->count() - 1;
    // Chosen with the keyboard, as a user on the combo box does.
    while (combo->currentIndex() != target)
        QTest::keyClick(combo, combo->currentIndex() < target ? Qt::Key_Down : Qt::Key_Up);
    QCOMPARE(other->isVisible(), preset < 0);
    if (preset < 0)
        QTest::keyClicks(other, choice);
    auto *headerBox = m_page->findChild<QCheckBox *>(u"csvHeaderRow"_s);
    if (header)
        QTest::keyClick(headerBox, Qt::Key_Space);

    QCOMPARE(m_settings->csvFieldSeparator(), stored);
    QCOMPARE(m_settings->csvHeaderRow(), header);
    QVERIFY2(exported(*m_settings, ActivityExport::CSVFormat).startsWith(firstLine),
        exported(*m_settings, ActivityExport::CSVFormat).constData());
    // The preview follows at once: the newest activity (or the titles) first.
    const QString preview = m_page->findChild<QPlainTextEdit *>(u"csvPreview"_s)->toPlainText();
    QCOMPARE(preview.section(u'\n', 0, 0).remove(u'\r'), previewLine);

    restart();
    QCOMPARE(m_page->findChild<QComboBox *>(u"separatorCombo"_s)->currentIndex(), target);
    QCOMPARE(m_page->findChild<QLineEdit *>(u"separatorOther"_s)->text(), preset < 0 ? choice : QString());
    QCOMPARE(m_page->findChild<QCheckBox *>(u"csvHeaderRow"_s)->isChecked(), header);
}

void TestExportLayoutsPage::fixedXmlAttributesCannotBeRemovedOrPassed()
{
    m_settings->setXMLFormat({ attribute(400, 401, u"project"_s) });
    restart();
    ExportTokenRow *xml = row("xmlRow");
    // A drag that claims to carry a fixed attribute is refused (the editor refuses moving them at all).
    std::unique_ptr<QMimeData> userToken(xml->mimeDataForToken(4));
    QByteArray forged = userToken->data(ExportTokenRow::mimeType());
    forged.replace("\"index\":4", "\"index\":0");
    QMimeData forgedData;
    forgedData.setData(ExportTokenRow::mimeType(), forged);
    QDropEvent drop(
        QPointF(xml->tokenButton(4)->geometry().bottomRight()), Qt::MoveAction, &forgedData, Qt::LeftButton, {});
    QApplication::sendEvent(xml, &drop);
    QVERIFY(!drop.isAccepted());

    // Neither does the keyboard pass them; Delete removes the user's attribute and leaves the four, which
    // still export.
    QTest::keyClick(xml->tokenButton(4), Qt::Key_Left, Qt::ControlModifier);
    QCOMPARE(titles(xml).value(4), u"project: Project name"_s);
    QTest::keyClick(xml->tokenButton(4), Qt::Key_Delete);
    QCOMPARE(titles(xml).size(), 4);
    QVERIFY(!m_page->findChild<QPushButton *>(u"xmlReset"_s)->isEnabled());
    QVERIFY(exported(*m_settings, ActivityExport::XMLFormat)
                .contains(R"(invoiced="0" from="2024-03-12T09:00:00" to="2024-03-12T10:30:00">@Acme)"));
}

void TestExportLayoutsPage::typedAttributeNameIsKeptHoweverTheFieldIsLeft_data()
{
    QTest::addColumn<QString>("leaving");
    QTest::newRow("Return") << u"Return"_s;
    QTest::newRow("menu closed") << u"close"_s;
    QTest::newRow("Escape closes the menu") << u"Escape"_s;
    QTest::newRow("focus moved away") << u"focus"_s;
}

void TestExportLayoutsPage::typedAttributeNameIsKeptHoweverTheFieldIsLeft()
{
    QFETCH(QString, leaving);
    m_settings->setXMLFormat({ attribute(400, 401, u"project"_s) });
    restart();
    ExportTokenRow *xml = row("xmlRow");
    QMenu *menu = openMenu(xml, 4);
    QVERIFY(menu);
    auto *edit = menu->findChild<QLineEdit *>(u"attributeName"_s);
    QVERIFY(edit);
    edit->setFocus();
    edit->selectAll();
    QTest::keyClicks(edit, u"client"_s);
    if (leaving == u"Return"_s)
        QTest::keyClick(edit, Qt::Key_Return);
    else if (leaving == u"Escape"_s)
        QTest::keyClick(menu, Qt::Key_Escape);
    else if (leaving == u"close"_s)
        menu->close();
    else
        QApplication::sendEvent(edit, std::make_unique<QFocusEvent>(QEvent::FocusOut, Qt::TabFocusReason).get());
    QTRY_COMPARE(m_settings->getXMLFormat().at(4).xmlPropertyName(), u"client"_s);
    // Leaving it once more saves nothing again, and a menu closed untouched keeps the name.
    if (xml->tokenMenu())
        xml->tokenMenu()->close();
    QTRY_VERIFY(!xml->tokenMenu());
    QCOMPARE(m_settings->getXMLFormat().size(), 5);
    QCOMPARE(m_settings->getXMLFormat().at(4).xmlPropertyName(), u"client"_s);
}

void TestExportLayoutsPage::refusedAttributeNameSaysWhyAndKeepsTheOldOne()
{
    ExportTokenRow *xml = row("xmlRow");
    QTest::mouseClick(m_page->findChild<QPushButton *>(u"xmlAdd"_s), Qt::LeftButton);
    QTRY_VERIFY(xml->tokenMenu());
    xml->tokenMenu()->close();
    auto *message = m_page->findChild<QLabel *>(u"layoutMessage"_s);
    rename(xml, 4, u"from"_s);
    QVERIFY(message->isVisible());
    QVERIFY2(message->text().contains(u"\"from\""_s), qPrintable(message->text()));
    // The menu stays open with the refused text, for correcting it.
    QVERIFY(xml->tokenMenu());
    xml->tokenMenu()->close();
    QCOMPARE(m_settings->getXMLFormat().at(4).xmlPropertyName(), u"project"_s);
    rename(xml, 4, u"client"_s);
    QVERIFY(!message->isVisible());
    QCOMPARE(m_settings->getXMLFormat().at(4).xmlPropertyName(), u"client"_s);
}

QTEST_MAIN(TestExportLayoutsPage)
#include "testexportlayoutspage.moc"
