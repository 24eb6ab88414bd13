// The editing commands of the real report window offscreen: the ways to open the edit sheet, adding and
// merging, and Undo/Redo over what the sheets and the report's deletion stored. Berlin, Wednesday 13
// March 2024, 10:00.
#include <QtTest>

#include <QAction>
#include <QDateTimeEdit>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QToolButton>

#include "fakes/fakeclock.h"
#include "gui/app/activitytextview.h"
#include "gui/report/bvtableview.h"
#include "gui/report/editactivitywindowcontroller.h"
#include "gui/report/mergeactivitieswindowcontroller.h"
#include "gui/report/reporteditingcontroller.h"
#include "gui/report/reportwindowcontroller.h"
#include "model/activitymanager.h"
#include "model/deletedactivity.h"
#include "model/storecontext.h"
#include "report/reporttablemodel.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {
QDateTime local(const QString &text)
{
    return QDateTime::fromString(text, u"yyyy-MM-dd HH:mm"_s);
}
} // namespace

class TestReportEditing : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void rowOpensTheEditSheet_data();
    void rowOpensTheEditSheet();
    void newActivityIsListedOnceSaved();
    void mergeFromTheActionMenuAndUndoIt();
    void reportDeletionUndoneAndRedone();
    void undoAndRedoHoldEachKeyOnce_data();
    void undoAndRedoHoldEachKeyOnce();

private:
    QString add(const QString &text, const QString &from, const QString &to);
    void open();
    QStringList listedTexts() const;
    QStringList deletionRecords();
    void activate();

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock { local(u"2024-03-13 10:00"_s) };
    std::unique_ptr<Store> m_store;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
    std::unique_ptr<ActivityManager> m_manager;
    QPointer<ReportWindowController> m_window;
};

void TestReportEditing::init()
{
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    auto store = Store::open(options);
    QVERIFY(store);
    m_store = std::move(*store);
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale/Brimvale.conf"_s);
    QVERIFY(m_defaults->registerDefaultsFromResource());
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
    m_manager = std::make_unique<ActivityManager>(*m_store);
}

void TestReportEditing::cleanup()
{
    delete m_window;
    m_manager.reset();
    m_settings.reset();
    m_defaults.reset();
    m_store.reset();
    m_home.reset();
}

QString TestReportEditing::add(const QString &text, const QString &from, const QString &to)
{
    auto context = m_store->newContext();
    ActivityPtr activity = context->insertActivity();
    activity->setText(text);
    activity->setTimeFrom(local(from));
    activity->setTimeTo(local(to));
    if (!context->save())
        qFatal("cannot save");
    return activity->uid();
}

void TestReportEditing::open()
{
    m_window = new ReportWindowController(*m_store, *m_manager, *m_settings);
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window));
}

void TestReportEditing::activate()
{
    m_window->activateWindow();
    QTRY_VERIFY(m_window->isActiveWindow());
}

QStringList TestReportEditing::listedTexts() const
{
    QStringList texts;
    const ReportTableModel &model = m_window->model();
    for (int row = 0; row < model.rowCount(); ++row)
        texts.append(model.record(row).text);
    return texts;
}

QStringList TestReportEditing::deletionRecords()
{
    auto context = m_store->newContext();
    const QList<DeletedActivityPtr> records = context->fetchDeletedActivities().value();
    QStringList uids;
    for (const DeletedActivityPtr &record : records)
        uids.append(record->uid());
    uids.sort();
    return uids;
}

void TestReportEditing::rowOpensTheEditSheet_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<bool>("running");
    QTest::newRow("double-click, saved and listed") << u"double-click"_s << false;
    QTest::newRow("Return") << u"Return"_s << false;
    QTest::newRow("edit button") << u"button"_s << false;
    QTest::newRow("Edit menu") << u"menu"_s << false;
    QTest::newRow("Return on the running activity") << u"Return"_s << true;
}

void TestReportEditing::rowOpensTheEditSheet()
{
    QFETCH(QString, how);
    QFETCH(bool, running);
    add(u"older"_s, u"2024-03-12 09:00"_s, u"2024-03-12 10:00"_s);
    add(u"draft"_s, u"2024-03-13 08:00"_s, u"2024-03-13 09:00"_s);
    if (running) {
        m_clock.set(local(u"2024-03-13 09:30"_s));
        QCOMPARE(m_manager->startTrack(u"running"_s), QString());
    }
    open();
    activate();
    QCOMPARE(listedTexts().constFirst(), running ? u"running"_s : u"draft"_s);
    BvTableView &table = m_window->tableView();
    auto *button = m_window->findChild<QToolButton *>(u"editActivityButton"_s);
    auto *menuItem = m_window->findChild<QAction *>(u"editActivityAction"_s);
    QVERIFY(!button->isEnabled());
    QVERIFY(!menuItem->isEnabled());
    table.setFocus();
    table.selectOnlyRow(0);
    // One rule for both: a selection whose first row is not being tracked.
    QCOMPARE(button->isEnabled(), !running);
    QCOMPARE(menuItem->isEnabled(), !running);
    if (how == u"double-click"_s) {
        const QRect cell = table.visualRect(m_window->model().index(0, ReportTableModel::FromColumn));
        // The first click of the two, then the second as the double-click.
        QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, cell.center());
        QTest::mouseDClick(table.viewport(), Qt::LeftButton, {}, cell.center());
    } else if (how == u"Return"_s) {
        QTest::keyClick(&table, Qt::Key_Return);
    } else if (how == u"button"_s) {
        QTest::mouseClick(button, Qt::LeftButton);
    } else {
        menuItem->trigger();
    }
    if (running) {
        // The key is handled before keyClick returns.
        QVERIFY(!m_window->editing()->sheet());
        return;
    }
    EditActivityWindowController *sheet = nullptr;
    QTRY_VERIFY((sheet = qobject_cast<EditActivityWindowController *>(m_window->editing()->sheet())));
    QVERIFY(sheet->isVisible());
    auto *text = sheet->findChild<ActivityTextView *>(u"textView"_s);
    QCOMPARE(text->text(), u"draft"_s);
    if (how != u"double-click"_s)
        return;
    QTest::keyClick(text, Qt::Key_End);
    QTest::keyClicks(text, u" reviewed"_s);
    QTest::keyClick(text, Qt::Key_Return, Qt::ControlModifier);
    QTRY_VERIFY(!m_window->editing()->sheet());
    // The list follows the store.
    QTRY_COMPARE(listedTexts(), (QStringList { u"draft reviewed"_s, u"older"_s }));
    // And so does the main window's recent menu, which the same manager fills.
    QCOMPARE(m_manager->recentActivities().constFirst().text(), u"draft reviewed"_s);
}

void TestReportEditing::newActivityIsListedOnceSaved()
{
    add(u"draft"_s, u"2024-03-13 08:00"_s, u"2024-03-13 09:00"_s);
    open();
    QTest::mouseClick(m_window->findChild<QToolButton *>(u"newActivityButton"_s), Qt::LeftButton);
    EditActivityWindowController *sheet = nullptr;
    QTRY_VERIFY((sheet = qobject_cast<EditActivityWindowController *>(m_window->editing()->sheet())));
    QVERIFY(sheet->isNewActivity());
    sheet->findChild<QDateTimeEdit *>(u"startPicker"_s)->setDateTime(local(u"2024-03-13 06:00"_s));
    sheet->findChild<QDateTimeEdit *>(u"endPicker"_s)->setDateTime(local(u"2024-03-13 07:15"_s));
    auto *text = sheet->findChild<ActivityTextView *>(u"textView"_s);
    text->setFocus();
    QTest::keyClicks(text, u"@Acme early"_s);
    QTest::mouseClick(sheet->findChild<QPushButton *>(u"saveButton"_s), Qt::LeftButton);
    QTRY_COMPARE(listedTexts(), (QStringList { u"draft"_s, u"@Acme early"_s }));
    QCOMPARE(m_window->editing()->undoAction()->text(), u"Undo New Activity"_s);
}

void TestReportEditing::mergeFromTheActionMenuAndUndoIt()
{
    const QString older = add(u"draft"_s, u"2024-03-12 09:00"_s, u"2024-03-12 09:10"_s);
    const QString newer = add(u"review"_s, u"2024-03-12 11:00"_s, u"2024-03-12 11:20"_s);
    add(u"other"_s, u"2024-03-13 08:00"_s, u"2024-03-13 09:00"_s);
    open();
    activate();
    BvTableView &table = m_window->tableView();
    table.selectOnlyRow(1);
    QMenu *menu = m_window->actionMenu();
    QAction *merge = m_window->menuAction(11);
    QVERIFY(merge);
    Q_EMIT menu->aboutToShow();
    QCOMPARE(merge->text(), u"Merge (select at least 2 activities)"_s);
    QVERIFY(!merge->isEnabled());
    table.selectAll();
    table.selectionModel()->select(
        m_window->model().index(0, 0), QItemSelectionModel::Deselect | QItemSelectionModel::Rows);
    Q_EMIT menu->aboutToShow();
    QCOMPARE(merge->text(), u"Merge 2 activities"_s);
    QVERIFY(merge->isEnabled());
    merge->trigger();

    MergeActivitiesWindowController *sheet = nullptr;
    QTRY_VERIFY((sheet = qobject_cast<MergeActivitiesWindowController *>(m_window->editing()->sheet())));
    QCOMPARE(sheet->findChild<QLabel *>(u"durationLabel"_s)->text(), u"Total duration: 00:30:00"_s);
    QTest::mouseClick(sheet->findChild<QPushButton *>(u"saveButton"_s), Qt::LeftButton);
    QTRY_COMPARE(listedTexts(), (QStringList { u"other"_s, u"review\n\ndraft"_s }));
    QCOMPARE(deletionRecords(), QStringList { older });

    activate();
    m_clock.advance(2000);
    QTest::keyClick(m_window, Qt::Key_Z, Qt::ControlModifier);
    QTRY_COMPARE(listedTexts(), (QStringList { u"other"_s, u"review"_s, u"draft"_s }));
    QVERIFY(deletionRecords().isEmpty());
    QCOMPARE(m_window->model().record(1).uid, newer);
}

void TestReportEditing::reportDeletionUndoneAndRedone()
{
    add(u"one"_s, u"2024-03-12 09:00"_s, u"2024-03-12 10:00"_s);
    const QString two = add(u"two"_s, u"2024-03-12 11:00"_s, u"2024-03-12 11:30"_s);
    open();
    activate();
    BvTableView &table = m_window->tableView();
    table.setFocus();
    table.selectOnlyRow(0);
    QTest::keyClick(&table, Qt::Key_Delete);
    QTRY_VERIFY(m_window->alert() && m_window->alert()->isVisible());
    QTest::mouseClick(m_window->alert()->button(QMessageBox::Ok), Qt::LeftButton);
    QTRY_COMPARE(listedTexts(), QStringList { u"one"_s });
    QCOMPARE(deletionRecords(), QStringList { two });
    QCOMPARE(m_window->editing()->undoAction()->text(), u"Undo Delete Activity"_s);

    activate();
    m_clock.advance(1500);
    QTest::keyClick(m_window, Qt::Key_Z, Qt::ControlModifier);
    QTRY_COMPARE(listedTexts(), (QStringList { u"two"_s, u"one"_s }));
    // Brought back with its uid, and no deletion record left for a sync to pass on.
    QCOMPARE(m_window->model().record(0).uid, two);
    QVERIFY(deletionRecords().isEmpty());

    m_clock.advance(1500);
    QTest::keyClick(m_window, Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
    QTRY_COMPARE(listedTexts(), QStringList { u"one"_s });
    QCOMPARE(deletionRecords(), QStringList { two });
}

void TestReportEditing::undoAndRedoHoldEachKeyOnce_data()
{
    QTest::addColumn<QList<QKeySequence>>("bindings");
    QTest::addColumn<QKeySequence>("always");
    QTest::addColumn<QList<QKeySequence>>("expected");
    const QKeySequence ctrlZ(Qt::CTRL | Qt::Key_Z);
    const QKeySequence ctrlShiftZ(Qt::CTRL | Qt::SHIFT | Qt::Key_Z);
    const QKeySequence ctrlY(Qt::CTRL | Qt::Key_Y);
    const QKeySequence altBackspace(Qt::ALT | Qt::Key_Backspace);
    // Undo and Redo as the X11, Windows and KDE key schemes bind them.
    QTest::newRow("X11 redo") << QList { ctrlShiftZ } << ctrlShiftZ << QList { ctrlShiftZ };
    QTest::newRow("Windows redo") << QList { ctrlY, QKeySequence(Qt::ALT | Qt::SHIFT | Qt::Key_Backspace) }
                                  << ctrlShiftZ
                                  << QList { ctrlY, QKeySequence(Qt::ALT | Qt::SHIFT | Qt::Key_Backspace), ctrlShiftZ };
    QTest::newRow("KDE redo") << QList { ctrlShiftZ, ctrlY } << ctrlShiftZ << QList { ctrlShiftZ, ctrlY };
    QTest::newRow("Windows undo") << QList { ctrlZ, altBackspace } << ctrlZ << QList { ctrlZ, altBackspace };
    QTest::newRow("none bound") << QList<QKeySequence>() << ctrlZ << QList { ctrlZ };
}

void TestReportEditing::undoAndRedoHoldEachKeyOnce()
{
    QFETCH(QList<QKeySequence>, bindings);
    QFETCH(QKeySequence, always);
    QFETCH(QList<QKeySequence>, expected);
    QCOMPARE(ReportEditingController::withKey(bindings, always), expected);

    // The actions themselves, with this platform's scheme: a key held twice is ambiguous and never fires.
    QWidget window;
    ReportEditingController editing(*m_store, *m_manager, window);
    for (QAction *action : { editing.undoAction(), editing.redoAction() }) {
        const QList<QKeySequence> keys = action->shortcuts();
        QCOMPARE(QSet<QKeySequence>(keys.begin(), keys.end()).size(), keys.size());
    }
    QVERIFY(editing.undoAction()->shortcuts().contains(QKeySequence(Qt::CTRL | Qt::Key_Z)));
    QVERIFY(editing.redoAction()->shortcuts().contains(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z)));
}

QTEST_MAIN(TestReportEditing)
#include "testreportediting.moc"
