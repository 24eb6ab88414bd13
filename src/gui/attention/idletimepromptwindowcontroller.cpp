#include "gui/attention/idletimepromptwindowcontroller.h"

#include <QButtonGroup>
#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

#include "attention/bvusernotificationservice.h"
#include "base/clock.h"
#include "settings/bvsettings.h"

using namespace Qt::StringLiterals;

IdleTimePromptWindowController::IdleTimePromptWindowController(
    const QDateTime &idleFromDate, BvSettings &settings, Clock &clock, QWidget *parent)
    : QDialog(parent)
    , m_idleFromDate(idleFromDate)
    , m_settings(settings)
    , m_clock(clock)
{
    setObjectName(u"IdleTimePromptWindowController"_s);
    setWindowTitle(u"Brimvale: idle time"_s);
    // A question, not a window to arrange: a title and a close button, no minimizing or resizing; above the
    // other windows, since the user comes back to whichever one is in front.
    setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint
        | Qt::WindowStaysOnTopHint);
    setWindowModality(Qt::ApplicationModal);
    setAttribute(Qt::WA_DeleteOnClose);

    auto *layout = new QVBoxLayout(this);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    layout->setContentsMargins(20, 16, 20, 12);
    layout->setSpacing(10);
    setMinimumWidth(340);
    m_idleTimeLabel = new QLabel(this);
    m_idleTimeLabel->setObjectName(u"idleTimeLabel"_s);
    QFont bold = m_idleTimeLabel->font();
    bold.setBold(true);
    m_idleTimeLabel->setFont(bold);
    layout->addWidget(m_idleTimeLabel);

    m_actionRadioButtonList = new QButtonGroup(this);
    m_actionRadioButtonList->setObjectName(u"actionRadioButtonList"_s);
    layout->addWidget(addChoice(SubtractAndStop, u"Subtract idle time and stop"_s));
    layout->addWidget(addChoice(SubtractAndContinue, u"Subtract idle time and continue"_s));
    connect(m_actionRadioButtonList, &QButtonGroup::idClicked, this,
        &IdleTimePromptWindowController::setSelectedIdleAction);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setObjectName(u"okButton"_s);
    buttons->button(QDialogButtonBox::Cancel)->setObjectName(u"cancelButton"_s);
    connect(buttons, &QDialogButtonBox::accepted, this, &IdleTimePromptWindowController::onOkButton);
    connect(buttons, &QDialogButtonBox::rejected, this, &IdleTimePromptWindowController::onCancelButton);
    layout->addWidget(buttons);

    // The setting holds 1 or 2; anything but 1 selects continuing.
    setSelectedIdleAction(m_settings.defaultIdleAction() == SubtractAndStop ? SubtractAndStop : SubtractAndContinue);

    updateIdleTime();
    m_counterTimer.setInterval(CounterIntervalMsecs);
    m_counterTimer.setTimerType(Qt::VeryCoarseTimer);
    connect(&m_counterTimer, &QTimer::timeout, this, &IdleTimePromptWindowController::updateIdleTime);
    m_counterTimer.start();
}

QRadioButton *IdleTimePromptWindowController::addChoice(int action, const QString &title)
{
    auto *button = new QRadioButton(title, this);
    button->setObjectName(u"idleAction%1"_s.arg(action));
    m_actionRadioButtonList->addButton(button, action);
    return button;
}

QString IdleTimePromptWindowController::selectedIdleActionTitle() const
{
    return m_selectedIdleAction == SubtractAndStop ? u"Subtract and stop"_s : u"Subtract and continue"_s;
}

void IdleTimePromptWindowController::setSelectedIdleAction(int action)
{
    m_selectedIdleAction = action;
    if (QAbstractButton *button = m_actionRadioButtonList->button(action))
        button->setChecked(true);
}

void IdleTimePromptWindowController::updateIdleTime()
{
    m_idleTimeLabel->setText(BvUserNotificationService::idlePromptText(m_idleFromDate, m_clock.now()));
}

void IdleTimePromptWindowController::sbOpen()
{
    open();
    raise();
    activateWindow();
}

void IdleTimePromptWindowController::onOkButton()
{
    m_settings.setDefaultIdleAction(m_selectedIdleAction);
    done(m_selectedIdleAction);
}

void IdleTimePromptWindowController::onCancelButton()
{
    done(0);
}

void IdleTimePromptWindowController::done(int response)
{
    m_counterTimer.stop();
    QDialog::done(response);
}
