#include "gui/report/bvdatepickerpanelviewcontroller.h"

#include <QCalendarWidget>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>
#include <QToolButton>
#include <QVBoxLayout>

#include "base/clock.h"
#include "base/datehelpers.h"
#include "gui/report/bvdatepicker.h"
#include "report/bvdatepickerrules.h"

namespace {

QString twoDigits(int value)
{
    return QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0'));
}

// One labelled vertical slider of the time view: the value above, the caption below.
QSlider *addTimeColumn(QHBoxLayout *row, const QString &objectName, int maximum, const QString &caption,
    QLabel **valueLabel, QWidget *parent)
{
    auto *column = new QVBoxLayout;
    *valueLabel = new QLabel(parent);
    (*valueLabel)->setAlignment(Qt::AlignHCenter);
    QFont font = (*valueLabel)->font();
    font.setBold(true);
    (*valueLabel)->setFont(font);
    auto *slider = new QSlider(Qt::Vertical, parent);
    slider->setObjectName(objectName);
    slider->setRange(0, maximum);
    slider->setPageStep(maximum > 23 ? 10 : 3);
    slider->setAccessibleName(caption);
    auto *captionLabel = new QLabel(caption, parent);
    captionLabel->setAlignment(Qt::AlignHCenter);
    captionLabel->setForegroundRole(QPalette::PlaceholderText);
    column->addWidget(*valueLabel);
    column->addWidget(slider, 1, Qt::AlignHCenter);
    column->addWidget(captionLabel);
    row->addLayout(column);
    return slider;
}

} // namespace

BvDatePickerPanelViewController::BvDatePickerPanelViewController(BvDatePicker &delegate)
    : QFrame(&delegate, Qt::Popup)
    , m_delegate(delegate)
    , m_datePicker(new QCalendarWidget(this))
    , m_todayButton(new QPushButton(tr("Today"), this))
    , m_timeInputView(new QWidget(this))
{
    setObjectName(QStringLiteral("datePickerPanel"));
    setAttribute(Qt::WA_DeleteOnClose);
    setFrameStyle(QFrame::StyledPanel | QFrame::Plain);
    setAutoFillBackground(true);

    m_datePicker->setObjectName(QStringLiteral("datePicker"));
    m_datePicker->setVerticalHeaderFormat(QCalendarWidget::NoVerticalHeader);
    m_datePicker->setGridVisible(false);
    // A click picks; keyboard navigation only moves the selection until Return picks it.
    connect(m_datePicker, &QCalendarWidget::clicked, this, &BvDatePickerPanelViewController::onDatePickerDateChanged);
    connect(m_datePicker, &QCalendarWidget::activated, this, &BvDatePickerPanelViewController::onDatePickerDateChanged);

    m_todayButton->setObjectName(QStringLiteral("todayButton"));
    m_todayButton->setAutoDefault(false);
    connect(m_todayButton, &QPushButton::clicked, this, &BvDatePickerPanelViewController::onTodayButton);

    m_timeInputView->setObjectName(QStringLiteral("timeInputView"));
    auto *timeRow = new QHBoxLayout(m_timeInputView);
    timeRow->setContentsMargins(0, 0, 0, 0);
    m_hourSlider = addTimeColumn(timeRow, QStringLiteral("hourSlider"), 23, tr("Hour"), &m_hourLabel, this);
    m_minuteSlider = addTimeColumn(timeRow, QStringLiteral("minuteSlider"), 59, tr("Minute"), &m_minuteLabel, this);
    connect(m_hourSlider, &QSlider::valueChanged, this, &BvDatePickerPanelViewController::onHourChanged);
    connect(m_minuteSlider, &QSlider::valueChanged, this, &BvDatePickerPanelViewController::onMinuteChanged);
    m_timeInputView->hide();

    auto *calendarColumn = new QVBoxLayout;
    calendarColumn->addWidget(m_datePicker);
    calendarColumn->addWidget(m_todayButton, 0, Qt::AlignHCenter);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(6, 6, 10, 6);
    layout->setSpacing(10);
    layout->addLayout(calendarColumn);
    layout->addWidget(m_timeInputView);
    m_datePicker->setFocus(Qt::PopupFocusReason);
}

void BvDatePickerPanelViewController::setDate(const QDateTime &date)
{
    m_dateValue = date;
    showDateInControls();
}

void BvDatePickerPanelViewController::showDateInControls()
{
    if (!m_dateValue.isValid())
        return;
    QDate day;
    QTime time;
    DateHelpers::localFromInstant(m_dateValue, &day, &time);
    {
        const QSignalBlocker blocker(m_datePicker);
        m_datePicker->setSelectedDate(day);
    }
    if (!m_timeControlsVisible)
        return;
    const QSignalBlocker hourBlocker(m_hourSlider);
    const QSignalBlocker minuteBlocker(m_minuteSlider);
    m_hourSlider->setValue(time.hour());
    m_minuteSlider->setValue(time.minute());
    m_hourLabel->setText(twoDigits(time.hour()));
    m_minuteLabel->setText(twoDigits(time.minute()));
}

void BvDatePickerPanelViewController::setMinDate(const QDateTime &minDate, const QDateTime &andMaxDate)
{
    const QDate minDay = minDate.isValid() ? minDate.toLocalTime().date() : QDate();
    const QDate maxDay = andMaxDate.isValid() ? andMaxDate.toLocalTime().date() : QDate();
    if (minDay.isValid())
        m_datePicker->setMinimumDate(minDay);
    if (maxDay.isValid())
        m_datePicker->setMaximumDate(maxDay);
}

void BvDatePickerPanelViewController::setTimeControlsVisible()
{
    if (m_timeControlsVisible)
        return;
    m_timeControlsVisible = true;
    m_timeInputView->show();
    showDateInControls();
    adjustSize();
}

QDateTime BvDatePickerPanelViewController::updateDate(const QDate &date, int hour, int andMinute)
{
    m_dateValue = BvDatePickerRules::composeDateTime(date, hour, andMinute, m_dateValue);
    return m_dateValue;
}

void BvDatePickerPanelViewController::onDatePickerDateChanged()
{
    const QDate picked = m_datePicker->selectedDate();
    QDate current;
    QTime time;
    if (m_dateValue.isValid() && DateHelpers::localFromInstant(m_dateValue, &current, &time) && current == picked)
        return;
    setDate(m_delegate.datePickerPanelSetDate(this, updateDate(picked, -1, -1)));
}

void BvDatePickerPanelViewController::onTodayButton()
{
    QDate today;
    QTime time;
    DateHelpers::localFromInstant(m_delegate.clock().now(), &today, &time);
    QDate current;
    if (m_dateValue.isValid() && DateHelpers::localFromInstant(m_dateValue, &current, &time) && current == today)
        return;
    setDate(m_delegate.datePickerPanelSetDate(this, updateDate(today, -1, -1)));
}

void BvDatePickerPanelViewController::onHourChanged(int hour)
{
    setDate(m_delegate.datePickerPanelSetDateTime(this, updateDate(m_dateValue.toLocalTime().date(), hour, -1)));
}

void BvDatePickerPanelViewController::onMinuteChanged(int minute)
{
    setDate(m_delegate.datePickerPanelSetDateTime(this, updateDate(m_dateValue.toLocalTime().date(), -1, minute)));
}

void BvDatePickerPanelViewController::mousePressEvent(QMouseEvent *event)
{
    // A click outside closes the pop-over. On the calendar button that opened it, the click must not reach
    // the button as well, or it would open the pop-over again at once.
    const QToolButton *button = m_delegate.calendarButton();
    const QPoint onButton = button->mapFromGlobal(event->globalPosition().toPoint());
    if (!rect().contains(event->position().toPoint()) && button->rect().contains(onButton))
        setAttribute(Qt::WA_NoMouseReplay);
    QFrame::mousePressEvent(event);
}

void BvDatePickerPanelViewController::closeEvent(QCloseEvent *event)
{
    QFrame::closeEvent(event);
    if (event->isAccepted())
        Q_EMIT panelClosed();
}
