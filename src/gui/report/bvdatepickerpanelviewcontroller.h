#pragma once

#include <QDateTime>
#include <QFrame>

class BvDatePicker;
class QCalendarWidget;
class QLabel;
class QPushButton;
class QSlider;

// The date picker's pop-over: a calendar, a Today button and, when the picker shows time, hour and
// minute sliders. A day picked keeps the time of day already chosen and goes to the picker, which closes
// the pop-over; a slider moved changes only the time and leaves the pop-over open. A Qt::Popup window:
// it closes on a click outside and deletes itself once closed.
class BvDatePickerPanelViewController : public QFrame
{
    Q_OBJECT
public:
    // `delegate` is the picker that opened the pop-over; it outlives it (it is the parent).
    explicit BvDatePickerPanelViewController(BvDatePicker &delegate);

    void setDate(const QDateTime &date);
    QDateTime getDate() const { return m_dateValue; }
    // The days outside [minDate, maxDate] cannot be picked; an invalid bound leaves that side open.
    void setMinDate(const QDateTime &minDate, const QDateTime &andMaxDate);
    // Shows the hour and minute sliders beside the calendar (once; later calls change nothing).
    void setTimeControlsVisible();
    bool timeControlsVisible() const { return m_timeControlsVisible; }

    // Makes the panel's date from `date`'s day with `hour` and `andMinute` (a negative one keeps the
    // panel's current one), seconds zero, and returns it.
    QDateTime updateDate(const QDate &date, int hour, int andMinute);

    void onTodayButton();
    void onDatePickerDateChanged();
    void onHourChanged(int hour);
    void onMinuteChanged(int minute);

    QCalendarWidget *datePicker() const { return m_datePicker; }

Q_SIGNALS:
    // The pop-over has closed (it deletes itself afterwards).
    void panelClosed();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    void showDateInControls();

    BvDatePicker &m_delegate;
    QDateTime m_dateValue;
    bool m_timeControlsVisible = false;
    QCalendarWidget *m_datePicker = nullptr;
    QPushButton *m_todayButton = nullptr;
    QWidget *m_timeInputView = nullptr;
    QSlider *m_hourSlider = nullptr;
    QSlider *m_minuteSlider = nullptr;
    QLabel *m_hourLabel = nullptr;
    QLabel *m_minuteLabel = nullptr;
};
