#pragma once

#include <QDateTime>
#include <QDialog>

class QDateTimeEdit;
class QLabel;
class QPushButton;
class TrackingController;

// The sheet that moves the running activity's start: back by at most a day from now, or anywhere after an
// older start, and never into the future. Window-modal over its parent; open it with open(). Ends with
// finished(1) once the start is set, finished(0) when cancelled or when nothing runs any more.
class EditActivityStartTimeWindowController : public QDialog
{
    Q_OBJECT
public:
    // `tracking` is not owned and outlives the sheet. The bounds are taken when the sheet is made.
    explicit EditActivityStartTimeWindowController(TrackingController &tracking, QWidget *parent = nullptr);

    // The picker's earliest time, shown as "min date: " and the short date and time of the user's locale.
    void setMinDate(const QDateTime &minDate);
    QDateTime minimumDateTime() const;
    QDateTime maximumDateTime() const;
    QDateTime pickedDateTime() const;
    void setPickedDateTime(const QDateTime &dateTime);

    // Set: moves the running activity's start to the picked time and closes with 1.
    void onSet();
    // Cancel: closes with 0.
    void onCancel();

private:
    TrackingController &m_tracking;
    QDateTimeEdit *m_picker = nullptr;
    QLabel *m_minDateLabel = nullptr;
    QPushButton *m_setButton = nullptr;
    QPushButton *m_cancelButton = nullptr;
};
