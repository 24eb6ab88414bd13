#include "gui/report/bvdatepicker.h"

#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMouseEvent>
#include <QScreen>
#include <QStyle>
#include <QToolButton>

#include "base/clock.h"
#include "gui/report/bvdatepickerpanelviewcontroller.h"

BvDatePicker::BvDatePicker(QWidget *parent)
    : QDateTimeEdit(parent)
    , m_clock(Clock::system())
    , m_calendarButton(new QToolButton(this))
{
    setTimeSpec(Qt::LocalTime);
    // The calendar button takes the place of the stepper; the arrow keys and the wheel still step.
    setButtonSymbols(QAbstractSpinBox::NoButtons);
    setCalendarPopup(false);

    m_calendarButton->setObjectName(QStringLiteral("calendarButton"));
    m_calendarButton->setIcon(QIcon(QStringLiteral(":/icons/calendar.svg")));
    m_calendarButton->setIconSize(QSize(16, 16));
    m_calendarButton->setAutoRaise(true);
    m_calendarButton->setFocusPolicy(Qt::NoFocus);
    m_calendarButton->setCursor(Qt::ArrowCursor);
    m_calendarButton->setToolTip(tr("Show calendar"));
    m_calendarButton->setAccessibleName(tr("Show calendar"));
    // The press is taken before the button sees it: it opens a pop-over that takes the release, and a
    // button that never saw its release would stay drawn pressed.
    m_calendarButton->installEventFilter(this);
    lineEdit()->setTextMargins(0, 0, buttonWidth(), 0);

    connect(this, &QAbstractSpinBox::editingFinished, this, &BvDatePicker::onEditingFinished);
    m_reportedValue = dateTime();
}

BvDatePicker::~BvDatePicker() = default;

QDateTime BvDatePicker::dateValue() const
{
    return dateTime();
}

void BvDatePicker::updateDateValue(const QDateTime &dateValue)
{
    setDateTime(dateValue.toLocalTime());
    m_reportedValue = dateTime();
}

void BvDatePicker::setClock(const Clock &clock)
{
    m_clock = &clock;
}

BvDatePickerPanelViewController *BvDatePicker::calendarPanel() const
{
    return m_panel.data();
}

bool BvDatePicker::showsTime() const
{
    const Sections sections = displayedSections();
    return sections.testFlag(HourSection) && sections.testFlag(MinuteSection);
}

void BvDatePicker::showCalendarPanel()
{
    if (m_panel)
        return;
    m_panel = new BvDatePickerPanelViewController(*this);
    connect(m_panel.data(), &BvDatePickerPanelViewController::panelClosed, this, &BvDatePicker::onPanelClosed);
    if (showsTime())
        m_panel->setTimeControlsVisible();
    m_panel->setMinDate(minimumDateTime(), maximumDateTime());
    m_panel->setDate(dateValue());
    m_panel->adjustSize();

    // Below the calendar button, right edges aligned, kept on the screen.
    const QSize size = m_panel->sizeHint();
    QPoint topLeft = m_calendarButton->mapToGlobal(QPoint(m_calendarButton->width() - size.width(), 0));
    topLeft.ry() += m_calendarButton->height();
    if (const QScreen *screen = this->screen()) {
        const QRect available = screen->availableGeometry();
        if (topLeft.y() + size.height() > available.bottom())
            topLeft.setY(m_calendarButton->mapToGlobal(QPoint(0, 0)).y() - size.height());
        topLeft.setX(qBound(available.left(), topLeft.x(), qMax(available.left(), available.right() - size.width())));
        topLeft.setY(qMax(available.top(), topLeft.y()));
    }
    m_panel->move(topLeft);
    m_panel->show();
}

void BvDatePicker::hideCalendarPanel()
{
    if (BvDatePickerPanelViewController *panel = m_panel.data()) {
        m_panel.clear();
        panel->close();
    }
}

void BvDatePicker::onPanelClosed()
{
    m_panel.clear();
    // The pop-over held the mouse, so the button missed the pointer leaving it and would stay lit.
    const bool underMouse = m_calendarButton->rect().contains(m_calendarButton->mapFromGlobal(QCursor::pos()));
    m_calendarButton->setAttribute(Qt::WA_UnderMouse, underMouse);
    m_calendarButton->update();
}

QDateTime BvDatePicker::datePickerPanelSetDate(BvDatePickerPanelViewController *, const QDateTime &setDate)
{
    updateDateValue(setDate);
    hideCalendarPanel();
    Q_EMIT dateSelected();
    return dateValue();
}

QDateTime BvDatePicker::datePickerPanelSetDateTime(BvDatePickerPanelViewController *, const QDateTime &setDateTime)
{
    updateDateValue(setDateTime);
    return dateValue();
}

void BvDatePicker::onDateSelected1()
{
    m_reportedValue = dateTime();
    hideCalendarPanel();
    Q_EMIT dateSelected();
}

void BvDatePicker::onEditingFinished()
{
    // Focus moving into the open pop-over is not the end of typing.
    if (m_panel)
        return;
    if (dateTime() != m_reportedValue)
        onDateSelected1();
}

void BvDatePicker::stepBy(int steps)
{
    const QDateTime before = dateTime();
    QDateTimeEdit::stepBy(steps);
    if (dateTime() != before)
        onDateSelected1();
}

void BvDatePicker::onCalendarButtonPressed()
{
    if (m_panel) {
        hideCalendarPanel();
        return;
    }
    setFocus(Qt::MouseFocusReason);
    if (hasFocus())
        showCalendarPanel();
}

bool BvDatePicker::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_calendarButton && event->type() == QEvent::MouseButtonPress
        && static_cast<QMouseEvent *>(event)->button() == Qt::LeftButton) {
        onCalendarButtonPressed();
        return true;
    }
    if (watched == m_calendarButton
        && (event->type() == QEvent::MouseButtonRelease || event->type() == QEvent::MouseButtonDblClick))
        return true;
    return QDateTimeEdit::eventFilter(watched, event);
}

void BvDatePicker::keyPressEvent(QKeyEvent *event)
{
    // The keys that open a combo box's list open the calendar.
    if (event->key() == Qt::Key_F4 || (event->key() == Qt::Key_Down && event->modifiers() == Qt::AltModifier)) {
        showCalendarPanel();
        return;
    }
    QDateTimeEdit::keyPressEvent(event);
}

int BvDatePicker::buttonWidth() const
{
    return 22;
}

void BvDatePicker::resizeEvent(QResizeEvent *event)
{
    QDateTimeEdit::resizeEvent(event);
    const QRect field = lineEdit()->geometry();
    const int side = qMin(field.height(), buttonWidth());
    m_calendarButton->setGeometry(
        field.right() - buttonWidth() + 1, field.top() + (field.height() - side) / 2, buttonWidth(), side);
}

QSize BvDatePicker::sizeHint() const
{
    return QDateTimeEdit::sizeHint() + QSize(buttonWidth(), 0);
}

QSize BvDatePicker::minimumSizeHint() const
{
    return QDateTimeEdit::minimumSizeHint() + QSize(buttonWidth(), 0);
}
