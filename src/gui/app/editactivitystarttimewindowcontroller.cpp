#include "gui/app/editactivitystarttimewindowcontroller.h"

#include <QDateTimeEdit>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QRegularExpression>
#include <QVBoxLayout>

#include "app/trackingcontroller.h"
#include "model/activity.h"
#include "model/activitymanager.h"

EditActivityStartTimeWindowController::EditActivityStartTimeWindowController(
    TrackingController &tracking, QWidget *parent)
    : QDialog(parent, Qt::Sheet)
    , m_tracking(tracking)
    , m_picker(new QDateTimeEdit(this))
    , m_minDateLabel(new QLabel(this))
{
    setObjectName(QStringLiteral("editActivityStartTimeWindow"));
    setWindowTitle(tr("Change start time"));
    setWindowModality(Qt::WindowModal);

    m_picker->setObjectName(QStringLiteral("startTimePicker"));
    m_picker->setTimeSpec(Qt::LocalTime);
    m_picker->setCalendarPopup(true);
    const QLocale locale = QLocale::system();
    // The locale's own order and clock, with seconds (a start keeps them) but without the time zone name.
    QString timeFormat = locale.timeFormat(QLocale::LongFormat);
    timeFormat.remove(QRegularExpression(QStringLiteral("\\s*\\bt+\\b")));
    // Four-digit years: a two-digit year cannot be typed back unambiguously.
    QString dateFormat = locale.dateFormat(QLocale::ShortFormat);
    dateFormat.replace(QRegularExpression(QStringLiteral("(?<!y)yy(?!y)")), QStringLiteral("yyyy"));
    m_picker->setDisplayFormat(dateFormat + u' ' + timeFormat.trimmed());
    m_minDateLabel->setObjectName(QStringLiteral("minDateLabel"));

    auto *buttons = new QDialogButtonBox(this);
    m_setButton = buttons->addButton(tr("Set"), QDialogButtonBox::AcceptRole);
    m_setButton->setObjectName(QStringLiteral("setButton"));
    m_setButton->setDefault(true);
    m_cancelButton = buttons->addButton(tr("Cancel"), QDialogButtonBox::RejectRole);
    m_cancelButton->setObjectName(QStringLiteral("cancelButton"));
    connect(m_setButton, &QPushButton::clicked, this, &EditActivityStartTimeWindowController::onSet);
    connect(m_cancelButton, &QPushButton::clicked, this, &EditActivityStartTimeWindowController::onCancel);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_picker);
    layout->addWidget(m_minDateLabel);
    layout->addWidget(buttons);
    // Wide enough for the title bar to show the whole title.
    setMinimumWidth(fontMetrics().horizontalAdvance(windowTitle()) * 2 + 80);

    const TrackingController::StartTimeBounds bounds = m_tracking.startTimeBounds();
    const ActivityPtr current = m_tracking.activityManager().currentActivity();
    if (!current || !bounds.minimum.isValid()) {
        m_picker->setEnabled(false);
        m_setButton->setEnabled(false);
        return;
    }
    m_picker->setMaximumDateTime(bounds.maximum.toLocalTime());
    setMinDate(bounds.minimum);
    m_picker->setDateTime(current->timeFrom().toLocalTime());
}

void EditActivityStartTimeWindowController::setMinDate(const QDateTime &minDate)
{
    m_picker->setMinimumDateTime(minDate.toLocalTime());
    m_minDateLabel->setText(
        tr("min date: %1").arg(QLocale::system().toString(minDate.toLocalTime(), QLocale::ShortFormat)));
}

QDateTime EditActivityStartTimeWindowController::minimumDateTime() const
{
    return m_picker->minimumDateTime();
}

QDateTime EditActivityStartTimeWindowController::maximumDateTime() const
{
    return m_picker->maximumDateTime();
}

QDateTime EditActivityStartTimeWindowController::pickedDateTime() const
{
    return m_picker->dateTime();
}

void EditActivityStartTimeWindowController::setPickedDateTime(const QDateTime &dateTime)
{
    m_picker->setDateTime(dateTime.toLocalTime());
}

void EditActivityStartTimeWindowController::onSet()
{
    // The activity may have stopped while the sheet was open (another window, D-Bus, the command line).
    done(m_tracking.setCurrentActivityStart(m_picker->dateTime()) ? 1 : 0);
}

void EditActivityStartTimeWindowController::onCancel()
{
    done(0);
}
