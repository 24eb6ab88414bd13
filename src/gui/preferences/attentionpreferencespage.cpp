#include "gui/preferences/attentionpreferencespage.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QVBoxLayout>

#include "attention/bvusernotificationservice.h"
#include "gui/preferences/preferencescombobox.h"
#include "platform/idlesource.h"
#include "settings/bvsettings.h"
#include "settings/computereventsettings.h"
#include "settings/notificationsettings.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int BounceOnce = 0;
constexpr int BounceUntilActive = 1;

QLabel *noteLabel(const QString &objectName, QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setObjectName(objectName);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

} // namespace

AttentionPreferencesPage::AttentionPreferencesPage(
    BvSettings &settings, IdleSource &idleSource, BvUserNotificationService &notifications, QWidget *parent)
    : QWidget(parent)
    , m_settings(settings)
    , m_idleSource(idleSource)
    , m_notifications(notifications)
{
    setObjectName(u"attentionPage"_s);
    auto *layout = new QGridLayout(this);
    const QList<EnumDescription> attention = BvSettings::attentionSettingsValues();
    layout->addWidget(makeNotificationGroup(
                          attention.at(0).enumValue(), attention.at(0).enumDescription(), u"reminderNotification"_s),
        0, 0);
    layout->addWidget(makeNotificationGroup(
                          attention.at(1).enumValue(), attention.at(1).enumDescription(), u"notTrackingNotification"_s),
        0, 1);
    layout->addWidget(makeNotificationsGroup(), 1, 0, 1, 2);
    layout->addWidget(makeIdleGroup(), 2, 0);
    layout->addWidget(makeEventsGroup(), 2, 1);
    layout->setRowStretch(3, 1);

    // A server that appears or goes, an answer of the idle prompt: the page shows what holds when it opens.
    reload();
}

QWidget *AttentionPreferencesPage::makeNotificationGroup(
    int attentionValue, const QString &title, const QString &objectPrefix)
{
    auto *group = new QGroupBox(title, this);
    group->setObjectName(objectPrefix);
    auto *form = new QFormLayout(group);
    form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    NotificationControls controls;
    controls.record = m_settings.attentionSettings(attentionValue);
    Q_ASSERT(controls.record);
    NotificationSettings *record = controls.record;

    controls.interval = new QSpinBox(group);
    controls.interval->setObjectName(objectPrefix + u"Interval"_s);
    controls.interval->setRange(1, 120);
    controls.interval->setSuffix(tr(" min"));
    controls.interval->setKeyboardTracking(false);
    connect(controls.interval, &QSpinBox::valueChanged, record, &NotificationSettings::setInterval);
    form->addRow(tr("Every:"), controls.interval);

    controls.displayNotification = new QCheckBox(tr("Show a notification"), group);
    controls.displayNotification->setObjectName(objectPrefix + u"DisplayNotification"_s);
    connect(controls.displayNotification, &QCheckBox::toggled, record, &NotificationSettings::setDisplayNotification);
    form->addRow(controls.displayNotification);

    controls.bounceDock = new QCheckBox(tr("Flash the taskbar entry"), group);
    controls.bounceDock->setObjectName(objectPrefix + u"BounceDock"_s);
    connect(controls.bounceDock, &QCheckBox::toggled, this, [this, record](bool on) {
        record->setBounceDock(on);
        updateStates();
    });
    form->addRow(controls.bounceDock);

    controls.bounceDockRepeat = new PreferencesComboBox(group);
    controls.bounceDockRepeat->setObjectName(objectPrefix + u"BounceDockRepeat"_s);
    controls.bounceDockRepeat->addValue(BounceOnce, tr("once"));
    controls.bounceDockRepeat->addValue(BounceUntilActive, tr("until Brimvale is active"));
    connect(controls.bounceDockRepeat, &PreferencesComboBox::valueChosen, record,
        [record](int value) { record->setBounceDockRepeat(value == BounceUntilActive); });
    form->addRow(tr("Flash:"), controls.bounceDockRepeat);

    m_notificationControls.append(controls);
    return group;
}

QWidget *AttentionPreferencesPage::makeNotificationsGroup()
{
    auto *group = new QGroupBox(tr("System notifications"), this);
    group->setObjectName(u"notifications"_s);
    auto *row = new QHBoxLayout(group);
    m_notificationType = new PreferencesComboBox(group);
    m_notificationType->setObjectName(u"notificationType"_s);
    connect(m_notificationType, &PreferencesComboBox::valueChosen, this, [this](int value) {
        m_settings.setAppNotificationType(value);
        updateStates();
    });
    row->addWidget(m_notificationType);
    m_preview = new QPushButton(tr("Preview"), group);
    m_preview->setObjectName(u"previewNotification"_s);
    connect(m_preview, &QPushButton::clicked, this,
        [this] { m_notifications.showPreviewNotification(m_settings.appNotificationType()); });
    row->addWidget(m_preview);
    m_notificationTypeNote = noteLabel(u"notificationTypeNote"_s, group);
    row->addWidget(m_notificationTypeNote, 1);
    return group;
}

QWidget *AttentionPreferencesPage::makeIdleGroup()
{
    auto *group = new QGroupBox(tr("Idle time"), this);
    group->setObjectName(u"idle"_s);
    auto *form = new QFormLayout(group);
    form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    m_idleDetection = new QCheckBox(tr("Ask about idle time"), group);
    m_idleDetection->setObjectName(u"idleDetectionEnabled"_s);
    connect(m_idleDetection, &QCheckBox::toggled, this, [this](bool on) {
        m_settings.setIdleTimeoutDetection(on);
        updateStates();
    });
    form->addRow(m_idleDetection);
    m_idleMinutes = new QSpinBox(group);
    m_idleMinutes->setObjectName(u"idleDetectionTimeout"_s);
    m_idleMinutes->setRange(1, 60);
    m_idleMinutes->setSuffix(tr(" min"));
    m_idleMinutes->setKeyboardTracking(false);
    connect(m_idleMinutes, &QSpinBox::valueChanged, &m_settings, &BvSettings::setIdleTimeoutInterval);
    form->addRow(tr("After:"), m_idleMinutes);
    m_idleAction = new PreferencesComboBox(group);
    m_idleAction->setObjectName(u"defaultIdleAction"_s);
    // "Continue" is the prompt's cancel button, never its preselected answer.
    for (const EnumDescription &item : BvSettings::idleActionValues()) {
        if (item.enumValue() != 0)
            m_idleAction->addValue(item.enumValue(), item.enumDescription());
    }
    connect(m_idleAction, &PreferencesComboBox::valueChosen, &m_settings, &BvSettings::setDefaultIdleAction);
    form->addRow(tr("Preselect:"), m_idleAction);
    m_idleSourceLabel = noteLabel(u"idleSource"_s, group);
    form->addRow(m_idleSourceLabel);
    return group;
}

QWidget *AttentionPreferencesPage::makeEventsGroup()
{
    auto *group = new QGroupBox(tr("When the computer is away"), this);
    group->setObjectName(u"computerEvents"_s);
    auto *grid = new QGridLayout(group);
    grid->addWidget(new QLabel(tr("Stop tracking"), group), 0, 1, Qt::AlignHCenter);
    grid->addWidget(new QLabel(tr("Resume after"), group), 0, 2, Qt::AlignHCenter);
    int row = 1;
    for (const EnumDescription &event : BvSettings::computerEventValues()) {
        ComputerEventSettings *record = m_settings.computerEventSettings(event.enumValue());
        Q_ASSERT(record);
        EventControls controls;
        controls.computerEvent = event.enumValue();
        grid->addWidget(new QLabel(event.enumDescription(), group), row, 0);
        controls.stopTracking = new QCheckBox(group);
        controls.stopTracking->setObjectName(u"eventStopTracking%1"_s.arg(event.enumValue()));
        controls.stopTracking->setAccessibleName(tr("%1: stop tracking").arg(event.enumDescription()));
        connect(controls.stopTracking, &QCheckBox::toggled, this, [this, record](bool on) {
            record->setStopTracking(on);
            updateStates();
        });
        grid->addWidget(controls.stopTracking, row, 1, Qt::AlignHCenter);
        controls.resumeTracking = new QCheckBox(group);
        controls.resumeTracking->setObjectName(u"eventResumeTracking%1"_s.arg(event.enumValue()));
        controls.resumeTracking->setAccessibleName(tr("%1: resume tracking").arg(event.enumDescription()));
        connect(controls.resumeTracking, &QCheckBox::toggled, record, &ComputerEventSettings::setResumeTracking);
        grid->addWidget(controls.resumeTracking, row, 2, Qt::AlignHCenter);
        m_eventControls.append(controls);
        ++row;
    }
    grid->setRowStretch(row, 1);
    return group;
}

QString AttentionPreferencesPage::idleSourceText(const IdleSource &source)
{
    if (source.isAvailable())
        return tr("Idle time from: %1").arg(source.name());
    return tr("Idle detection does not work here: %1").arg(source.unavailableReason());
}

void AttentionPreferencesPage::reload()
{
    for (const NotificationControls &controls : std::as_const(m_notificationControls)) {
        const QSignalBlocker blockers[] = { QSignalBlocker(controls.interval),
            QSignalBlocker(controls.displayNotification), QSignalBlocker(controls.bounceDock) };
        controls.interval->setValue(controls.record->interval());
        controls.displayNotification->setChecked(controls.record->displayNotification());
        controls.bounceDock->setChecked(controls.record->bounceDock());
        controls.bounceDockRepeat->setValue(controls.record->bounceDockRepeat() ? BounceUntilActive : BounceOnce);
    }
    {
        const QSignalBlocker blocker(m_notificationType);
        m_notificationType->clear();
        for (const EnumDescription &item : BvSettings::notificationTypeValues())
            m_notificationType->addValue(item.enumValue(), item.enumDescription());
    }
    m_notificationType->setValue(m_settings.appNotificationType());
    m_notificationTypeNote->setText(
        BvSettings::notificationsAvailable() ? QString() : tr("No notification server runs in this session."));
    {
        const QSignalBlocker blockers[] = { QSignalBlocker(m_idleDetection), QSignalBlocker(m_idleMinutes) };
        m_idleDetection->setChecked(m_settings.idleTimeoutDetection());
        m_idleMinutes->setValue(m_settings.idleTimeoutInterval());
    }
    m_idleAction->setValue(m_settings.defaultIdleAction());
    m_idleSourceLabel->setText(idleSourceText(m_idleSource));
    for (const EventControls &controls : std::as_const(m_eventControls)) {
        const ComputerEventSettings *record = m_settings.computerEventSettings(controls.computerEvent);
        const QSignalBlocker blockers[]
            = { QSignalBlocker(controls.stopTracking), QSignalBlocker(controls.resumeTracking) };
        controls.stopTracking->setChecked(record->stopTracking());
        controls.resumeTracking->setChecked(record->resumeTracking());
    }
    updateStates();
}

void AttentionPreferencesPage::updateStates()
{
    for (const NotificationControls &controls : std::as_const(m_notificationControls))
        controls.bounceDockRepeat->setEnabled(controls.bounceDock->isChecked());
    m_preview->setEnabled(m_settings.appNotificationType() == BvUserNotificationService::SystemNotifications);
    m_idleMinutes->setEnabled(m_idleDetection->isChecked());
    m_idleAction->setEnabled(m_idleDetection->isChecked());
    // Resuming follows only a stop: without one there is nothing to resume.
    for (const EventControls &controls : std::as_const(m_eventControls))
        controls.resumeTracking->setEnabled(controls.stopTracking->isChecked());
}
