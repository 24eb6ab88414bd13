#pragma once

#include <QDateTime>
#include <QDateTimeEdit>
#include <QPointer>

class Clock;
class QToolButton;
class BvDatePickerPanelViewController;

// A text-style date picker with a calendar button at its right edge. The button opens a pop-over calendar
// (with hour and minute sliders when the display format shows hours and minutes) that closes on a click
// outside it and is built anew on every opening. The minimum and maximum come from QDateTimeEdit's
// setMinimumDateTime/setMaximumDateTime; the calendar offers only the days between them. Values are local
// times.
class BvDatePicker : public QDateTimeEdit
{
    Q_OBJECT
public:
    explicit BvDatePicker(QWidget *parent = nullptr);
    ~BvDatePicker() override;

    QDateTime dateValue() const;
    // Sets the value without telling dateSelected (the owner changed it, not the user).
    void updateDateValue(const QDateTime &dateValue);

    // Where the pop-over's Today button reads the date; the system clock unless set. Not owned.
    void setClock(const Clock &clock);
    const Clock &clock() const { return *m_clock; }

    void showCalendarPanel();
    void hideCalendarPanel();
    // The open pop-over, null while it is closed.
    BvDatePickerPanelViewController *calendarPanel() const;
    QToolButton *calendarButton() const { return m_calendarButton; }

    // The pop-over's calls. A day picked (or Today): sets the value, closes the pop-over and tells
    // dateSelected. A slider moved: sets the value only, leaving the pop-over open. Each returns the
    // resulting value, which the range limits may have clamped.
    QDateTime datePickerPanelSetDate(BvDatePickerPanelViewController *panel, const QDateTime &setDate);
    QDateTime datePickerPanelSetDateTime(BvDatePickerPanelViewController *panel, const QDateTime &setDateTime);

    // The picker's own action for a date typed or stepped in its fields: closes the pop-over and tells
    // dateSelected.
    void onDateSelected1();

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    void stepBy(int steps) override;

Q_SIGNALS:
    // The user chose a date: a day or Today in the pop-over, or a date typed or stepped in the fields.
    // Not told while the time sliders move.
    void dateSelected();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void onCalendarButtonPressed();
    void onEditingFinished();
    void onPanelClosed();
    bool showsTime() const;
    int buttonWidth() const;

    const Clock *m_clock;
    QToolButton *m_calendarButton = nullptr;
    QPointer<BvDatePickerPanelViewController> m_panel;
    // The value last told to (or set by) the owner, so that leaving the field unchanged tells nothing.
    QDateTime m_reportedValue;
};
