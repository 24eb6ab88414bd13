#pragma once

#include <QObject>

// One attention setting (the reminder while tracking, or the nag while not tracking): how often, in
// minutes, and how to get the user's attention. The preferences edit it directly; BvSettings writes every
// change through to the settings file. Main thread.
class NotificationSettings : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int interval READ interval WRITE setInterval NOTIFY intervalChanged)
    Q_PROPERTY(bool displayNotification READ displayNotification WRITE setDisplayNotification NOTIFY
            displayNotificationChanged)
    Q_PROPERTY(bool bounceDock READ bounceDock WRITE setBounceDock NOTIFY bounceDockChanged)
    Q_PROPERTY(bool bounceDockRepeat READ bounceDockRepeat WRITE setBounceDockRepeat NOTIFY bounceDockRepeatChanged)
    Q_PROPERTY(bool enabled READ enabled NOTIFY enabledChanged)

public:
    // A fresh record has interval 0 and every flag off, so it is not enabled until it is filled in.
    explicit NotificationSettings(QObject *parent = nullptr);

    // Minutes between two reminders, 1..120 once set.
    int interval() const { return m_interval; }
    // Clamps to 1..120.
    void setInterval(int interval);

    // Post a system notification.
    bool displayNotification() const { return m_displayNotification; }
    void setDisplayNotification(bool displayNotification);
    // Ask for the user's attention through the taskbar entry.
    bool bounceDock() const { return m_bounceDock; }
    void setBounceDock(bool bounceDock);
    // Keep asking until the application is activated, rather than once.
    bool bounceDockRepeat() const { return m_bounceDockRepeat; }
    void setBounceDockRepeat(bool bounceDockRepeat);

    // An interval of at least one minute and at least one way of getting attention.
    bool enabled() const;

Q_SIGNALS:
    void intervalChanged();
    void displayNotificationChanged();
    void bounceDockChanged();
    void bounceDockRepeatChanged();
    void enabledChanged();

private:
    template<typename T> void change(T &field, T value, void (NotificationSettings::*changed)());

    int m_interval = 0;
    bool m_displayNotification = false;
    bool m_bounceDock = false;
    bool m_bounceDockRepeat = false;
};
