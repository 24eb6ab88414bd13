#pragma once

#include <QWidget>

class BvSettings;
class BvUserNotificationService;
class IdleSource;
class NotificationSettings;
class PreferencesComboBox;
class QCheckBox;
class QLabel;
class QPushButton;
class QSpinBox;

// The Attention tab: the reminder of the running activity and the nag while nothing is tracked (interval,
// notification, taskbar attention once or until the app is active) with a preview, system notifications on
// or off, idle detection (on or off, minutes, the preselected answer) with the source of idle time in use
// or why there is none, and what sleep, screen sleep, the screensaver and the lock do to tracking. The
// records are edited directly; the settings write every change through. Main thread.
class AttentionPreferencesPage : public QWidget
{
    Q_OBJECT
public:
    // None is owned; all outlive the page.
    AttentionPreferencesPage(BvSettings &settings, IdleSource &idleSource, BvUserNotificationService &notifications,
        QWidget *parent = nullptr);

    // Shows the settings as they are now, and asks again whether notifications can be shown.
    void reload();

    // "Idle time from: NAME", or why idle detection cannot work in this session.
    static QString idleSourceText(const IdleSource &source);

private:
    struct NotificationControls
    {
        NotificationSettings *record = nullptr;
        QSpinBox *interval = nullptr;
        QCheckBox *displayNotification = nullptr;
        QCheckBox *bounceDock = nullptr;
        PreferencesComboBox *bounceDockRepeat = nullptr;
    };
    struct EventControls
    {
        int computerEvent = 0;
        QCheckBox *stopTracking = nullptr;
        QCheckBox *resumeTracking = nullptr;
    };

    QWidget *makeNotificationGroup(int attentionValue, const QString &title, const QString &objectPrefix);
    QWidget *makeNotificationsGroup();
    QWidget *makeIdleGroup();
    QWidget *makeEventsGroup();
    void updateStates();

    BvSettings &m_settings;
    IdleSource &m_idleSource;
    BvUserNotificationService &m_notifications;
    QList<NotificationControls> m_notificationControls;
    QList<EventControls> m_eventControls;
    PreferencesComboBox *m_notificationType = nullptr;
    QLabel *m_notificationTypeNote = nullptr;
    QPushButton *m_preview = nullptr;
    QCheckBox *m_idleDetection = nullptr;
    QSpinBox *m_idleMinutes = nullptr;
    PreferencesComboBox *m_idleAction = nullptr;
    QLabel *m_idleSourceLabel = nullptr;
};
