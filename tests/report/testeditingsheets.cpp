// The edit and merge sheets, built for real offscreen and driven as a user would: typing, picking, pressing
// the buttons and keys.
#include <QtTest>

#include <QAction>
#include <QCalendarWidget>
#include <QCheckBox>
#include <QDateTimeEdit>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSlider>
#include <QTableView>
#include <QToolButton>

#include "fakes/fakeclock.h"
#include "gui/app/activitytextview.h"
#include "gui/report/bvdatepicker.h"
#include "gui/report/bvdatepickerpanelviewcontroller.h"
#include "gui/report/editactivitywindowcontroller.h"
#include "gui/report/mergeactivitieswindowcontroller.h"
#include "gui/report/reporteditingcontroller.h"
#include "model/activitymanager.h"
#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

class TestEditingSheets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void editSavesWhatTheUserTypedAndPicked();
    void zeroLengthIsShownAndTheSheetStaysOpen();
    void cancelLeavesTheStoreAsItWas();
    void newActivityOffersNoDelete();
    void deleteAsksFirst();
    void previousActivitiesMenu_data();
    void previousActivitiesMenu();
    void commandReturnSavesWithoutStartingTracking_data();
    void commandReturnSavesWithoutStartingTracking();

    void mergeShowsTheTotalInTheReportsFormat();
    void mergeWantsTheInvoicedStateDecided();
    void sheetsThatCannotLoad_data();
    void sheetsThatCannotLoad();

    void undoRefusedWhenChangedElsewhere();

private:
    QString add(const QString &text, const QDateTime &from, qint64 seconds, bool invoiced = false);
    ActivityPtr stored(const QString &uid);
    static void typeText(ActivityTextView *view, const QString &text);

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<ActivityManager> m_manager;
    std::unique_ptr<QWidget> m_report;
};

void TestEditingSheets::init()
{
    m_clock.set(QDateTime(QDate(2024, 3, 12), QTime(17, 0), Qt::UTC));
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    m_store = std::move(*Store::open(options));
    m_manager = std::make_unique<ActivityManager>(*m_store);
    m_report = std::make_unique<QWidget>();
    m_report->resize(800, 600);
    m_report->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_report.get()));
}

void TestEditingSheets::cleanup()
{
    m_report.reset();
    m_manager.reset();
    m_store.reset();
    m_home.reset();
}

QString TestEditingSheets::add(const QString &text, const QDateTime &from, qint64 seconds, bool invoiced)
{
    auto context = m_store->newContext();
    ActivityPtr activity = context->insertActivity();
    activity->setText(text);
    activity->setTimeFrom(from);
    activity->setTimeTo(from.addSecs(seconds));
    activity->setIsInvoiced(invoiced);
    [&] { QVERIFY(context->save()); }();
    return activity->uid();
}

ActivityPtr TestEditingSheets::stored(const QString &uid)
{
    auto context = m_store->newContext();
    auto found = context->activityWithUid(uid);
    return found ? *found : nullptr;
}

void TestEditingSheets::typeText(ActivityTextView *view, const QString &text)
{
    view->setFocus();
    QTest::keyClick(view, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(view, Qt::Key_Delete);
    QTest::keyClicks(view, text);
}

void TestEditingSheets::editSavesWhatTheUserTypedAndPicked()
{
    const QDateTime from(QDate(2024, 3, 12), QTime(9, 0, 17, 250), Qt::UTC);
    const QString uid = add(u"@Acme draft"_s, from, 600);
    EditActivityWindowController sheet(*m_store, *m_manager, uid, m_report.get());
    QSignalSpy finished(&sheet, &QDialog::finished);
    sheet.open();
    QVERIFY(QTest::qWaitForWindowExposed(&sheet));
    QCOMPARE(sheet.windowModality(), Qt::WindowModal);
    auto *text = sheet.findChild<ActivityTextView *>(u"textView"_s);
    QCOMPARE(text->text(), u"@Acme draft"_s);
    QVERIFY(text->hasFocus());
    QVERIFY(sheet.findChild<QPushButton *>(u"deleteButton"_s)->isVisible());

    // Return in the field starts a new line; the sheet stays open.
    typeText(text, u"@Beta review"_s);
    QTest::keyClick(text, Qt::Key_Return);
    QTest::keyClicks(text, u"second line"_s);
    QCOMPARE(finished.count(), 0);
    const QDateTime end = QDateTime(QDate(2024, 3, 12), QTime(10, 30), Qt::UTC).toLocalTime();
    sheet.findChild<QDateTimeEdit *>(u"endPicker"_s)->setDateTime(end);
    m_clock.advance(2000);
    QTest::mouseClick(sheet.findChild<QPushButton *>(u"saveButton"_s), Qt::LeftButton);

    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.first().first().toInt(), 1);
    const ActivityPtr activity = stored(uid);
    QCOMPARE(activity->text(), u"@Beta review\nsecond line"_s);
    QCOMPARE(activity->project()->name(), u"Beta"_s);
    // The start was not touched: it keeps its milliseconds.
    QCOMPARE(activity->timeFrom(), from);
    QCOMPARE(activity->timeTo(), end.toUTC());
    QCOMPARE(activity->modifiedAt(), m_clock.now());
    QVERIFY(sheet.savedChange());
    QCOMPARE(sheet.savedChange()->kind(), ActivityChange::Kind::Edit);
}

void TestEditingSheets::zeroLengthIsShownAndTheSheetStaysOpen()
{
    const QDateTime from(QDate(2024, 3, 12), QTime(9, 0), Qt::UTC);
    const QString uid = add(u"draft"_s, from, 600);
    EditActivityWindowController sheet(*m_store, *m_manager, uid, m_report.get());
    QSignalSpy finished(&sheet, &QDialog::finished);
    sheet.open();
    auto *end = sheet.findChild<QDateTimeEdit *>(u"endPicker"_s);
    end->setDateTime(from.toLocalTime());
    auto *save = sheet.findChild<QPushButton *>(u"saveButton"_s);
    auto *field = sheet.findChild<ActivityTextView *>(u"textView"_s);
    QCoreApplication::sendPostedEvents();
    const QRect placed = field->geometry();
    QTest::mouseClick(save, Qt::LeftButton);

    auto *error = sheet.findChild<QLabel *>(u"errorLabel"_s);
    QCOMPARE(error->text(), u"Duration must be atleast one second long"_s);
    QVERIFY(error->isVisible());
    // The error line had its height already: nothing moved.
    QCoreApplication::sendPostedEvents();
    QCOMPARE(field->geometry(), placed);
    QVERIFY(sheet.isVisible());
    QCOMPARE(finished.count(), 0);
    QCOMPARE(stored(uid)->timeTo(), from.addSecs(600));

    end->setDateTime(from.addSecs(60).toLocalTime());
    QTest::mouseClick(save, Qt::LeftButton);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(stored(uid)->durationSecs(), 60);
}

void TestEditingSheets::cancelLeavesTheStoreAsItWas()
{
    const QDateTime from(QDate(2024, 3, 12), QTime(9, 0), Qt::UTC);
    const QString uid = add(u"draft"_s, from, 600);
    EditActivityWindowController sheet(*m_store, *m_manager, uid, m_report.get());
    QSignalSpy finished(&sheet, &QDialog::finished);
    sheet.open();
    typeText(sheet.findChild<ActivityTextView *>(u"textView"_s), u"@Other"_s);
    sheet.findChild<QDateTimeEdit *>(u"startPicker"_s)->setDateTime(from.addSecs(-3600).toLocalTime());
    QTest::keyClick(&sheet, Qt::Key_Escape);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.first().first().toInt(), 0);
    const ActivityPtr activity = stored(uid);
    QCOMPARE(activity->text(), u"draft"_s);
    QCOMPARE(activity->timeFrom(), from);
    QVERIFY(!sheet.savedChange());
}

void TestEditingSheets::newActivityOffersNoDelete()
{
    EditActivityWindowController sheet(*m_store, *m_manager, std::nullopt, m_report.get());
    QSignalSpy finished(&sheet, &QDialog::finished);
    sheet.open();
    sheet.activateWindow();
    QTRY_VERIFY(sheet.isActiveWindow());
    QVERIFY(sheet.isNewActivity());
    QVERIFY(!sheet.findChild<QPushButton *>(u"deleteButton"_s)->isVisible());
    auto *start = sheet.findChild<QDateTimeEdit *>(u"startPicker"_s);
    auto *end = sheet.findChild<QDateTimeEdit *>(u"endPicker"_s);
    QCOMPARE(start->dateTime(), m_clock.now().toLocalTime());
    QCOMPARE(end->dateTime(), m_clock.now().toLocalTime());

    // The start picked in the calendar: the time on the sliders, then the day (the 11th, 09:05 local).
    auto *picker = qobject_cast<BvDatePicker *>(start);
    QVERIFY(picker);
    QTest::mouseClick(picker->calendarButton(), Qt::LeftButton);
    BvDatePickerPanelViewController *panel = picker->calendarPanel();
    QVERIFY(panel);
    QVERIFY(QTest::qWaitForWindowExposed(panel));
    panel->findChild<QSlider *>(u"hourSlider"_s)->setValue(9);
    panel->findChild<QSlider *>(u"minuteSlider"_s)->setValue(5);
    auto *days = panel->datePicker()->findChild<QTableView *>(u"qt_calendar_calendarview"_s);
    QModelIndex eleventh;
    for (int row = 0; row < days->model()->rowCount() && !eleventh.isValid(); ++row) {
        for (int column = 0; column < days->model()->columnCount(); ++column) {
            const QModelIndex index = days->model()->index(row, column);
            if (index.data().toString() == u"11"_s) {
                eleventh = index;
                break;
            }
        }
    }
    QTest::mouseClick(days->viewport(), Qt::LeftButton, {}, days->visualRect(eleventh).center());
    QTRY_VERIFY(!picker->calendarPanel());
    const QDateTime picked(QDate(2024, 3, 11), QTime(9, 5), Qt::LocalTime);
    QCOMPARE(start->dateTime(), picked);
    end->setDateTime(picked.addSecs(3600));
    typeText(sheet.findChild<ActivityTextView *>(u"textView"_s), u"@Acme earlier"_s);
    QTest::mouseClick(sheet.findChild<QPushButton *>(u"saveButton"_s), Qt::LeftButton);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(sheet.savedChange()->kind(), ActivityChange::Kind::New);
    const ActivityPtr activity = stored(sheet.savedChange()->entries().constFirst().uid);
    QVERIFY(activity);
    QCOMPARE(activity->text(), u"@Acme earlier"_s);
    QCOMPARE(activity->timeFrom(), picked.toUTC());
    QCOMPARE(activity->durationSecs(), 3600);
}

void TestEditingSheets::deleteAsksFirst()
{
    const QString uid = add(u"draft"_s, QDateTime(QDate(2024, 3, 12), QTime(9, 0), Qt::UTC), 600);
    EditActivityWindowController sheet(*m_store, *m_manager, uid, m_report.get());
    QSignalSpy finished(&sheet, &QDialog::finished);
    sheet.open();
    auto *deleteButton = sheet.findChild<QPushButton *>(u"deleteButton"_s);

    for (const QString &answer : { u"noButton"_s, u"yesButton"_s }) {
        QTest::mouseClick(deleteButton, Qt::LeftButton);
        QMessageBox *alert = nullptr;
        QTRY_VERIFY((alert = sheet.findChild<QMessageBox *>(u"deleteActivityAlert"_s)) && alert->isVisible());
        QCOMPARE(alert->text(), u"Delete activity?"_s);
        QCOMPARE(alert->informativeText(), u"Activity will be deleted permanently!"_s);
        QCOMPARE(alert->icon(), QMessageBox::Warning);
        QCOMPARE(alert->buttons().size(), 2);
        QCOMPARE(alert->buttons().at(0)->text(), u"Yes"_s);
        QCOMPARE(alert->buttons().at(1)->text(), u"No"_s);
        QTest::mouseClick(alert->findChild<QPushButton *>(answer), Qt::LeftButton);
        QTRY_VERIFY(!sheet.findChild<QMessageBox *>(u"deleteActivityAlert"_s));
        if (answer == u"noButton"_s) {
            QCOMPARE(finished.count(), 0);
            QVERIFY(stored(uid));
        }
    }
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.first().first().toInt(), 1);
    QVERIFY(!stored(uid));
    auto context = m_store->newContext();
    QCOMPARE(context->fetchDeletedActivities(uid)->size(), 1);
    QCOMPARE(sheet.savedChange()->kind(), ActivityChange::Kind::Delete);
}

void TestEditingSheets::previousActivitiesMenu_data()
{
    QTest::addColumn<QString>("recent");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("how");
    const QString fiftyOne = u"@Acme "_s + QString(44, u'x') + u"y"_s;
    QTest::newRow("none, clicked") << QString() << u"No previous activities!"_s << u"click"_s;
    QTest::newRow("none, Tab from the field and Space") << QString() << u"No previous activities!"_s << u"tab"_s;
    QTest::newRow("51 characters cut to 47 and ..., Alt+Down in the field")
        << fiftyOne << fiftyOne.left(47) + u"..."_s << u"alt-down"_s;
}

void TestEditingSheets::previousActivitiesMenu()
{
    QFETCH(QString, recent);
    QFETCH(QString, title);
    QFETCH(QString, how);
    if (!recent.isEmpty())
        add(recent, QDateTime(QDate(2024, 3, 12), QTime(8, 0), Qt::UTC), 600);
    EditActivityWindowController sheet(*m_store, *m_manager, std::nullopt, m_report.get());
    sheet.open();
    QVERIFY(QTest::qWaitForWindowActive(&sheet));
    auto *button = sheet.findChild<QToolButton *>(u"earlierActivitiesButton"_s);
    auto *field = sheet.findChild<ActivityTextView *>(u"textView"_s);
    if (how == u"click"_s) {
        QTest::mouseClick(button, Qt::LeftButton);
    } else {
        field->setFocus();
        QTRY_VERIFY(field->hasFocus());
        if (how == u"tab"_s) {
            QTest::keyClick(field, Qt::Key_Tab);
            QTRY_VERIFY(button->hasFocus());
            QTest::keyClick(button, Qt::Key_Space);
        } else {
            QTest::keyClick(field, Qt::Key_Down, Qt::AltModifier);
        }
    }
    auto *menu = sheet.findChild<QMenu *>(u"previousActivitiesMenu"_s);
    QTRY_VERIFY(menu->isVisible());
    QCOMPARE(menu->title(), u"Previous activities"_s);
    const QList<QAction *> items = menu->actions();
    QCOMPARE(items.size(), 1);
    QCOMPARE(items.constFirst()->text(), title);
    if (recent.isEmpty()) {
        QVERIFY(!items.constFirst()->isEnabled());
        return;
    }
    items.constFirst()->trigger();
    menu->hide();
    // The whole text goes into the field, and is saved with the sheet.
    QCOMPARE(field->text(), recent);
    sheet.findChild<QDateTimeEdit *>(u"startPicker"_s)->setDateTime(m_clock.now().addSecs(-60).toLocalTime());
    QTest::mouseClick(sheet.findChild<QPushButton *>(u"saveButton"_s), Qt::LeftButton);
    QVERIFY(sheet.savedChange());
    const ActivityPtr added = stored(sheet.savedChange()->entries().constFirst().uid);
    QCOMPARE(added->text(), recent);
    QCOMPARE(added->project()->name(), u"Acme"_s);
}

void TestEditingSheets::commandReturnSavesWithoutStartingTracking_data()
{
    QTest::addColumn<QString>("focus");
    QTest::newRow("in the field") << u"textView"_s;
    QTest::newRow("in a picker") << u"startPicker"_s;
    QTest::newRow("on a button") << u"cancelButton"_s;
}

void TestEditingSheets::commandReturnSavesWithoutStartingTracking()
{
    QFETCH(QString, focus);
    // The main window's start command, which answers Ctrl+Return wherever the focus is in the app: the
    // sheet blocks only the report under it.
    QWidget mainWindow;
    QAction start(&mainWindow);
    start.setShortcuts({ QKeySequence(Qt::CTRL | Qt::Key_Return), QKeySequence(Qt::CTRL | Qt::Key_Enter) });
    start.setShortcutContext(Qt::ApplicationShortcut);
    mainWindow.addAction(&start);
    mainWindow.show();
    QVERIFY(QTest::qWaitForWindowExposed(&mainWindow));
    QSignalSpy started(&start, &QAction::triggered);

    const QString uid = add(u"draft"_s, QDateTime(QDate(2024, 3, 12), QTime(9, 0), Qt::UTC), 600);
    EditActivityWindowController sheet(*m_store, *m_manager, uid, m_report.get());
    QSignalSpy finished(&sheet, &QDialog::finished);
    sheet.open();
    QVERIFY(QTest::qWaitForWindowActive(&sheet));
    typeText(sheet.findChild<ActivityTextView *>(u"textView"_s), u"changed"_s);
    auto *target = sheet.findChild<QWidget *>(focus);
    target->setFocus();
    QTRY_VERIFY(target->hasFocus());
    QTest::keyClick(target, Qt::Key_Return, Qt::ControlModifier);

    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.first().first().toInt(), 1);
    QCOMPARE(stored(uid)->text(), u"changed"_s);
    QCOMPARE(started.count(), 0);
}

void TestEditingSheets::mergeShowsTheTotalInTheReportsFormat()
{
    const QString older = add(u"draft"_s, QDateTime(QDate(2024, 3, 12), QTime(9, 0), Qt::UTC), 600);
    const QString newer = add(u"review"_s, QDateTime(QDate(2024, 3, 12), QTime(11, 0), Qt::UTC), 1200);
    // Decimal hours, as the report shows them.
    MergeActivitiesWindowController sheet(*m_store, *m_manager, { older, newer }, 2, m_report.get());
    QSignalSpy finished(&sheet, &QDialog::finished);
    sheet.open();
    QCOMPARE(sheet.findChild<QLabel *>(u"durationLabel"_s)->text(), u"Total duration: 0.5000"_s);
    QCOMPARE(sheet.findChild<ActivityTextView *>(u"textView"_s)->text(), u"review\n\ndraft"_s);
    auto *invoiced = sheet.findChild<QCheckBox *>(u"isInvoicedCb"_s);
    QCOMPARE(invoiced->checkState(), Qt::Unchecked);
    // Both agree, so the box has no mixed state to offer: one click invoices, the next does not.
    QVERIFY(!invoiced->isTristate());

    QTest::keyClick(sheet.findChild<ActivityTextView *>(u"textView"_s), Qt::Key_Enter, Qt::ControlModifier);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.first().first().toInt(), 1);
    QCOMPARE(sheet.savedChange()->kind(), ActivityChange::Kind::Merge);
}

void TestEditingSheets::mergeWantsTheInvoicedStateDecided()
{
    const QString older = add(u"a"_s, QDateTime(QDate(2024, 3, 12), QTime(9, 0), Qt::UTC), 600, true);
    const QString newer = add(u"b"_s, QDateTime(QDate(2024, 3, 12), QTime(11, 0), Qt::UTC), 600, false);
    MergeActivitiesWindowController sheet(*m_store, *m_manager, { older, newer }, 0, m_report.get());
    QSignalSpy finished(&sheet, &QDialog::finished);
    sheet.open();
    auto *invoiced = sheet.findChild<QCheckBox *>(u"isInvoicedCb"_s);
    QCOMPARE(invoiced->checkState(), Qt::PartiallyChecked);
    QCOMPARE(sheet.findChild<ActivityTextView *>(u"textView"_s)->text(), u"b\n\na"_s);
    auto *save = sheet.findChild<QPushButton *>(u"saveButton"_s);
    QTest::mouseClick(save, Qt::LeftButton);
    QCOMPARE(sheet.findChild<QLabel *>(u"errorLabel"_s)->text(), u"Please specify invoiced status"_s);
    QCOMPARE(finished.count(), 0);
    QVERIFY(stored(older));

    QTest::keyClick(invoiced, Qt::Key_Space);
    QCOMPARE(invoiced->checkState(), Qt::Checked);
    QCOMPARE(sheet.invoicedState(), 1);
    QTest::mouseClick(save, Qt::LeftButton);
    QCOMPARE(finished.count(), 1);
    QVERIFY(stored(newer)->isInvoiced());
    QVERIFY(!stored(older));
    QCOMPARE(sheet.savedChange()->kind(), ActivityChange::Kind::Merge);
}

void TestEditingSheets::sheetsThatCannotLoad_data()
{
    QTest::addColumn<bool>("merge");
    QTest::addColumn<QString>("error");
    QTest::newRow("edit of one deleted since the report listed it") << false << u"Failed to load data ..."_s;
    QTest::newRow("merge with the running activity")
        << true << u"The running activity cannot be merged; stop it first."_s;
}

void TestEditingSheets::sheetsThatCannotLoad()
{
    QFETCH(bool, merge);
    QFETCH(QString, error);
    std::unique_ptr<QDialog> sheet;
    if (merge) {
        const QString older = add(u"draft"_s, QDateTime(QDate(2024, 3, 12), QTime(9, 0), Qt::UTC), 600);
        QCOMPARE(m_manager->startTrack(u"review"_s), QString());
        sheet = std::make_unique<MergeActivitiesWindowController>(
            *m_store, *m_manager, QStringList { older, m_manager->currentActivity()->uid() }, 0, m_report.get());
    } else {
        sheet = std::make_unique<EditActivityWindowController>(
            *m_store, *m_manager, u"00000000-0000-0000-0000-000000000000"_s, m_report.get());
    }
    sheet->open();
    QCOMPARE(sheet->findChild<QLabel *>(u"errorLabel"_s)->text(), error);
    QVERIFY(sheet->windowTitle() != u"New activity"_s);
    QVERIFY(!sheet->findChild<QPushButton *>(u"saveButton"_s)->isEnabled());
    QVERIFY(!sheet->findChild<ActivityTextView *>(u"textView"_s)->isEnabled());
    QTest::mouseClick(sheet->findChild<QPushButton *>(u"cancelButton"_s), Qt::LeftButton);
    QCOMPARE(sheet->result(), 0);
    QCOMPARE(m_store->newContext()->fetchActivities()->size(), merge ? 2 : 0);
}

void TestEditingSheets::undoRefusedWhenChangedElsewhere()
{
    const QString uid = add(u"draft"_s, QDateTime(QDate(2024, 3, 12), QTime(9, 0), Qt::UTC), 600);
    ReportEditingController editing(*m_store, *m_manager, *m_report);
    editing.editActivity(uid);
    auto *sheet = qobject_cast<EditActivityWindowController *>(editing.sheet());
    typeText(sheet->findChild<ActivityTextView *>(u"textView"_s), u"mine"_s);
    QTest::mouseClick(sheet->findChild<QPushButton *>(u"saveButton"_s), Qt::LeftButton);
    QTRY_VERIFY(!editing.sheet());
    {
        auto context = m_store->newContext();
        (*context->activityWithUid(uid))->setText(u"theirs"_s);
        QVERIFY(context->save());
    }
    editing.undoAction()->trigger();
    QTRY_VERIFY(editing.alert() && editing.alert()->isVisible());
    QCOMPARE(editing.alert()->text(), u"Can not undo: the activity was changed or deleted meanwhile."_s);
    QCOMPARE(stored(uid)->text(), u"theirs"_s);
    QVERIFY(!editing.undoAction()->isEnabled());
}

QTEST_MAIN(TestEditingSheets)
#include "testeditingsheets.moc"
