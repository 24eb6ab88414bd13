#include <QtTest>

#include <QCalendarWidget>
#include <QLineEdit>
#include <QPushButton>
#include <QSlider>
#include <QTableView>
#include <QToolButton>
#include <QVBoxLayout>

#include "fakes/fakeclock.h"
#include "gui/report/bvdatepicker.h"
#include "gui/report/bvdatepickerpanelviewcontroller.h"
#include "report/bvdatepickerrules.h"

using namespace Qt::StringLiterals;

namespace {

QDateTime local(int y, int mo, int d, int h, int mi, int s = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s), Qt::LocalTime);
}

} // namespace

class TestBvDatePicker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void composeKeepsTheTimeOfDayItIsNotGiven_data();
    void composeKeepsTheTimeOfDayItIsNotGiven();

    void pickingADayKeepsTheTimeAndCloses();
    void slidersChangeTheTimeOnlyAndStayOpen();
    void timeControlsFollowTheDisplayFormat_data();
    void timeControlsFollowTheDisplayFormat();
    void calendarButtonTogglesThePopover_data();
    void calendarButtonTogglesThePopover();
    void outsideClickClosesWithoutPicking();
    void daysOutsideTheRangeCannotBePicked_data();
    void daysOutsideTheRangeCannotBePicked();
    void todayPicksTheClocksDay();
    void typedOrSteppedDateIsSelectedOnce();
    void keyboardOpensPicksAndCloses();

private:
    // Clicks the calendar's cell of `day`, which must be in the month shown.
    void clickDay(BvDatePickerPanelViewController *panel, int day);
    BvDatePickerPanelViewController *openPanel();

    FakeClock m_clock { QDateTime(QDate(2024, 3, 20), QTime(7, 0), Qt::UTC) };
    std::unique_ptr<QWidget> m_window;
    BvDatePicker *m_picker = nullptr;
    QLineEdit *m_other = nullptr;
    std::unique_ptr<QSignalSpy> m_selected;
};

void TestBvDatePicker::init()
{
    m_window = std::make_unique<QWidget>();
    auto *layout = new QVBoxLayout(m_window.get());
    m_picker = new BvDatePicker(m_window.get());
    m_picker->setObjectName(u"picker"_s);
    m_picker->setClock(m_clock);
    m_picker->setDisplayFormat(u"yyyy-MM-dd HH:mm"_s);
    m_picker->updateDateValue(local(2024, 3, 14, 14, 35, 20));
    m_other = new QLineEdit(m_window.get());
    layout->addWidget(m_picker);
    layout->addWidget(m_other);
    layout->addStretch();
    m_window->resize(420, 420);
    m_window->show();
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    m_selected = std::make_unique<QSignalSpy>(m_picker, &BvDatePicker::dateSelected);
}

void TestBvDatePicker::cleanup()
{
    m_selected.reset();
    m_window.reset();
}

BvDatePickerPanelViewController *TestBvDatePicker::openPanel()
{
    QTest::mouseClick(m_picker->calendarButton(), Qt::LeftButton);
    BvDatePickerPanelViewController *panel = m_picker->calendarPanel();
    if (panel && !QTest::qWaitForWindowExposed(panel))
        return nullptr;
    return panel;
}

void TestBvDatePicker::clickDay(BvDatePickerPanelViewController *panel, int day)
{
    auto *view = panel->datePicker()->findChild<QTableView *>(u"qt_calendar_calendarview"_s);
    QVERIFY(view);
    const QAbstractItemModel *model = view->model();
    // Days of the previous month shown in the first row are all past the 22nd, those of the next month in
    // the last rows all before the 15th: so the first match from the top or the last from the bottom is
    // the shown month's day.
    QModelIndex found;
    for (int row = 0; row < model->rowCount(); ++row) {
        for (int column = 0; column < model->columnCount(); ++column) {
            const QModelIndex index = model->index(row, column);
            if (index.data().toString() != QString::number(day))
                continue;
            if (day >= 15 || !found.isValid())
                found = index;
        }
    }
    QVERIFY(found.isValid());
    const QPoint center = view->visualRect(found).center();
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, center);
}

void TestBvDatePicker::composeKeepsTheTimeOfDayItIsNotGiven_data()
{
    QTest::addColumn<QDate>("day");
    QTest::addColumn<int>("hour");
    QTest::addColumn<int>("minute");
    QTest::addColumn<QDateTime>("current");
    QTest::addColumn<QDateTime>("expected");

    const QDateTime current = local(2024, 3, 14, 14, 35, 20);
    QTest::newRow("day picked keeps 14:35, drops seconds")
        << QDate(2024, 3, 3) << -1 << -1 << current << local(2024, 3, 3, 14, 35);
    QTest::newRow("hour 9 keeps the minute and the day")
        << QDate(2024, 3, 14) << 9 << -1 << current << local(2024, 3, 14, 9, 35);
    QTest::newRow("minute 0 keeps the hour") << QDate(2024, 3, 14) << -1 << 0 << current << local(2024, 3, 14, 14, 0);
    QTest::newRow("hour 0 is an hour, not 'keep'")
        << QDate(2024, 3, 14) << 0 << 59 << current << local(2024, 3, 14, 0, 59);
    QTest::newRow("no current time starts at midnight")
        << QDate(2024, 3, 3) << -1 << -1 << QDateTime() << local(2024, 3, 3, 0, 0);
    // 02:00-03:00 does not exist in Berlin on 31 March 2024: the clock read 03:30.
    QTest::newRow("time skipped by summer time moves forward") << QDate(
        2024, 3, 31) << -1 << -1 << local(2024, 3, 30, 2, 30) << QDateTime(QDate(2024, 3, 31), QTime(1, 30), Qt::UTC);
    // 02:30 occurs twice on 27 October 2024: the later one (CET, UTC+1).
    QTest::newRow("repeated time in autumn is the later")
        << QDate(2024, 10, 27) << 2 << 30 << current << QDateTime(QDate(2024, 10, 27), QTime(1, 30), Qt::UTC);
    QTest::newRow("time is read on the day's own clock across the change")
        << QDate(2024, 4, 2) << -1 << -1 << local(2024, 3, 25, 23, 10) << local(2024, 4, 2, 23, 10);
    QTest::newRow("no day, no date") << QDate() << 9 << 0 << current << QDateTime();
}

void TestBvDatePicker::composeKeepsTheTimeOfDayItIsNotGiven()
{
    QFETCH(QDate, day);
    QFETCH(int, hour);
    QFETCH(int, minute);
    QFETCH(QDateTime, current);
    QFETCH(QDateTime, expected);
    const QDateTime composed = BvDatePickerRules::composeDateTime(day, hour, minute, current);
    QCOMPARE(composed.isValid(), expected.isValid());
    if (expected.isValid())
        QCOMPARE(composed.toUTC(), expected.toUTC());
}

void TestBvDatePicker::pickingADayKeepsTheTimeAndCloses()
{
    QPointer<BvDatePickerPanelViewController> panel = openPanel();
    QVERIFY(panel);
    QCOMPARE(panel->datePicker()->selectedDate(), QDate(2024, 3, 14));
    clickDay(panel, 3);
    QCOMPARE(m_picker->dateValue(), local(2024, 3, 3, 14, 35));
    QCOMPARE(m_selected->count(), 1);
    QCOMPARE(m_picker->calendarPanel(), nullptr);
    QTRY_VERIFY(!panel);
}

void TestBvDatePicker::slidersChangeTheTimeOnlyAndStayOpen()
{
    BvDatePickerPanelViewController *panel = openPanel();
    QVERIFY(panel);
    auto *hour = panel->findChild<QSlider *>(u"hourSlider"_s);
    auto *minute = panel->findChild<QSlider *>(u"minuteSlider"_s);
    QVERIFY(hour && hour->isVisible() && minute);
    QCOMPARE(hour->value(), 14);
    QCOMPARE(minute->value(), 35);

    hour->setFocus();
    hour->setValue(9);
    QCOMPARE(m_picker->dateValue(), local(2024, 3, 14, 9, 35));
    // Dragging goes through every value on the way.
    for (int m = 34; m >= 7; --m)
        minute->setValue(m);
    QCOMPARE(m_picker->dateValue(), local(2024, 3, 14, 9, 7));
    QCOMPARE(m_selected->count(), 0);
    QCOMPARE(m_picker->calendarPanel(), panel);
    QVERIFY(panel->isVisible());

    // The picked day then keeps the slider's time.
    clickDay(panel, 21);
    QCOMPARE(m_picker->dateValue(), local(2024, 3, 21, 9, 7));
    QCOMPARE(m_selected->count(), 1);
}

void TestBvDatePicker::timeControlsFollowTheDisplayFormat_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<bool>("sliders");
    QTest::newRow("date only") << u"dd.MM.yyyy"_s << false;
    QTest::newRow("date, hours and minutes") << u"dd.MM.yyyy HH:mm"_s << true;
    QTest::newRow("12-hour clock") << u"M/d/yy h:mm AP"_s << true;
    QTest::newRow("hours without minutes") << u"dd.MM.yyyy HH"_s << false;
}

void TestBvDatePicker::timeControlsFollowTheDisplayFormat()
{
    QFETCH(QString, format);
    QFETCH(bool, sliders);
    m_picker->setDisplayFormat(format);
    BvDatePickerPanelViewController *panel = openPanel();
    QVERIFY(panel);
    QCOMPARE(panel->timeControlsVisible(), sliders);
    QCOMPARE(panel->findChild<QWidget *>(u"timeInputView"_s)->isVisible(), sliders);
}

void TestBvDatePicker::calendarButtonTogglesThePopover_data()
{
    QTest::addColumn<bool>("throughWindow");
    // Through the window, as the user clicks: the open pop-over sees the click first.
    QTest::newRow("click through the window") << true;
    QTest::newRow("press on the button itself") << false;
}

void TestBvDatePicker::calendarButtonTogglesThePopover()
{
    QFETCH(bool, throughWindow);
    QPointer<BvDatePickerPanelViewController> first = openPanel();
    QVERIFY(first);
    QToolButton *button = m_picker->calendarButton();
    if (throughWindow) {
        const QPoint at = button->mapTo(m_window.get(), button->rect().center());
        QTest::mouseClick(m_window->windowHandle(), Qt::LeftButton, {}, at);
    } else {
        QTest::mouseClick(button, Qt::LeftButton);
    }
    QCOMPARE(m_picker->calendarPanel(), nullptr);
    QTRY_VERIFY(!first);
    // A press replayed to the button after the pop-over closed would open it again.
    QCoreApplication::processEvents();
    QCOMPARE(m_picker->calendarPanel(), nullptr);
    QCOMPARE(m_selected->count(), 0);

    // The next opening builds a fresh pop-over showing the current value.
    m_picker->updateDateValue(local(2024, 2, 10, 8, 0));
    BvDatePickerPanelViewController *second = openPanel();
    QVERIFY(second);
    QCOMPARE(second->datePicker()->selectedDate(), QDate(2024, 2, 10));
}

void TestBvDatePicker::outsideClickClosesWithoutPicking()
{
    QPointer<BvDatePickerPanelViewController> panel = openPanel();
    QVERIFY(panel);
    const QPoint outside(4, m_window->height() - 4);
    QVERIFY(!panel->geometry().contains(m_window->mapToGlobal(outside)));
    QTest::mouseClick(m_window->windowHandle(), Qt::LeftButton, {}, outside);
    QTRY_VERIFY(!panel);
    QCOMPARE(m_picker->calendarPanel(), nullptr);
    QCOMPARE(m_picker->dateValue(), local(2024, 3, 14, 14, 35, 20));
    QCOMPARE(m_selected->count(), 0);
}

void TestBvDatePicker::daysOutsideTheRangeCannotBePicked_data()
{
    QTest::addColumn<int>("day");
    QTest::addColumn<bool>("picked");
    QTest::newRow("before the minimum") << 3 << false;
    QTest::newRow("the minimum's day") << 5 << true;
    QTest::newRow("inside") << 15 << true;
    QTest::newRow("the maximum's day") << 20 << true;
    QTest::newRow("after the maximum") << 25 << false;
}

void TestBvDatePicker::daysOutsideTheRangeCannotBePicked()
{
    QFETCH(int, day);
    QFETCH(bool, picked);
    m_picker->setMinimumDateTime(local(2024, 3, 5, 8, 0));
    m_picker->setMaximumDateTime(local(2024, 3, 20, 18, 0));
    m_picker->updateDateValue(local(2024, 3, 10, 12, 0));
    BvDatePickerPanelViewController *panel = openPanel();
    QVERIFY(panel);
    clickDay(panel, day);
    QCOMPARE(m_selected->count(), picked ? 1 : 0);
    QCOMPARE(m_picker->dateValue().date(), picked ? QDate(2024, 3, day) : QDate(2024, 3, 10));
    QCOMPARE(m_picker->calendarPanel() == nullptr, picked);
    QVERIFY(m_picker->dateValue() >= m_picker->minimumDateTime());
    QVERIFY(m_picker->dateValue() <= m_picker->maximumDateTime());
}

void TestBvDatePicker::todayPicksTheClocksDay()
{
    // 23:30 UTC on the 20th is already the 21st in Berlin.
    m_clock.set(QDateTime(QDate(2024, 3, 20), QTime(23, 30), Qt::UTC));
    BvDatePickerPanelViewController *panel = openPanel();
    QVERIFY(panel);
    QTest::mouseClick(panel->findChild<QPushButton *>(u"todayButton"_s), Qt::LeftButton);
    QCOMPARE(m_picker->dateValue(), local(2024, 3, 21, 14, 35));
    QCOMPARE(m_selected->count(), 1);
    QCOMPARE(m_picker->calendarPanel(), nullptr);
}

void TestBvDatePicker::typedOrSteppedDateIsSelectedOnce()
{
    m_picker->setFocus();
    QTRY_VERIFY(m_picker->hasFocus());
    // Leaving the field unchanged selects nothing.
    m_other->setFocus();
    QTRY_VERIFY(m_other->hasFocus());
    QCOMPARE(m_selected->count(), 0);

    m_picker->setFocus();
    m_picker->setSelectedSection(QDateTimeEdit::DaySection);
    QTest::keyClicks(m_picker, u"09"_s);
    QTest::keyClick(m_picker, Qt::Key_Return);
    QCOMPARE(m_picker->dateValue().date(), QDate(2024, 3, 9));
    QCOMPARE(m_selected->count(), 1);
    m_other->setFocus();
    QTRY_VERIFY(m_other->hasFocus());
    QCOMPARE(m_selected->count(), 1);

    // Each arrow step is a date chosen.
    m_picker->setFocus();
    m_picker->setSelectedSection(QDateTimeEdit::DaySection);
    QTest::keyClick(m_picker, Qt::Key_Up);
    QCOMPARE(m_picker->dateValue().date(), QDate(2024, 3, 10));
    QCOMPARE(m_selected->count(), 2);

    // A value set by the owner is not the user's choice.
    m_picker->updateDateValue(local(2024, 5, 1, 10, 0));
    m_other->setFocus();
    QTRY_VERIFY(m_other->hasFocus());
    QCOMPARE(m_selected->count(), 2);
}

void TestBvDatePicker::keyboardOpensPicksAndCloses()
{
    m_picker->setFocus();
    QTRY_VERIFY(m_picker->hasFocus());
    QTest::keyClick(m_picker, Qt::Key_F4);
    BvDatePickerPanelViewController *panel = m_picker->calendarPanel();
    QVERIFY(panel);
    auto *view = panel->datePicker()->findChild<QTableView *>(u"qt_calendar_calendarview"_s);
    // Moving through the days picks nothing; Return picks the day reached, keeping the time.
    QTest::keyClick(view, Qt::Key_Down);
    QTest::keyClick(view, Qt::Key_Right);
    QCOMPARE(m_selected->count(), 0);
    QCOMPARE(m_picker->calendarPanel(), panel);
    QTest::keyClick(view, Qt::Key_Return);
    QCOMPARE(m_picker->dateValue(), local(2024, 3, 22, 14, 35));
    QCOMPARE(m_selected->count(), 1);
    QCOMPARE(m_picker->calendarPanel(), nullptr);

    // Escape closes without picking.
    QTest::keyClick(m_picker, Qt::Key_Down, Qt::AltModifier);
    QPointer<BvDatePickerPanelViewController> again = m_picker->calendarPanel();
    QVERIFY(again);
    QTest::keyClick(again->datePicker()->findChild<QTableView *>(u"qt_calendar_calendarview"_s), Qt::Key_Right);
    QTest::keyClick(again, Qt::Key_Escape);
    QTRY_VERIFY(!again);
    QCOMPARE(m_picker->calendarPanel(), nullptr);
    QCOMPARE(m_picker->dateValue(), local(2024, 3, 22, 14, 35));
    QCOMPARE(m_selected->count(), 1);
}

QTEST_MAIN(TestBvDatePicker)
#include "testbvdatepicker.moc"
