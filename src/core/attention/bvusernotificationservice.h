#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>

class UserNotificationCentre;

// The texts and names of the app's notifications: the reminder of the running activity, the nag while
// nothing runs, the preview of the preferences, one-off messages, and the idle question with its answers.
// Posts through the notification centre; a click on a notification's body asks for the main window.
// Main thread.
class BvUserNotificationService : public QObject
{
    Q_OBJECT
public:
    // The value of appNotificationType that means "post system notifications".
    static constexpr int SystemNotifications = 2;

    // Not owned; outlives this object.
    explicit BvUserNotificationService(UserNotificationCentre &centre, QObject *parent = nullptr);

    // Whether the session offers notifications at all.
    bool hasOSXNotifications() const;

    // Posts "Brimvale" / `text` when `type` is 2, else nothing. `name` and `context` say what it is for;
    // neither is shown.
    void showNotification(int type, const QString &name, const QString &text, const QString &context);
    // "Are you still working on: <text>".
    void showActivityReminderNotification(int type, const QString &activityText);
    // "Are you working on something?".
    void showNotTrackingNotification(int type);
    // A sample for the preferences.
    void showPreviewNotification(int type);
    // A one-off message, always posted.
    void showNotificationWithName(const QString &name, const QString &message);

    // The idle question as a notification with its three answers, where the server shows buttons; true
    // when it was posted. `idleFromDate` is the idle start, for the text.
    bool showIdlePromptNotification(const QDateTime &idleFromDate, const QDateTime &now);
    void withdrawIdlePromptNotification();

    static QString idlePromptText(const QDateTime &idleFromDate, const QDateTime &now);

Q_SIGNALS:
    // The body of one of the app's notifications was clicked.
    void userNotificationClicked();
    // The idle notification was answered: 0 keep the time, 1 subtract and stop, 2 subtract and continue.
    void idlePromptNotificationAnswered(int idleAction);

private:
    void onDidActivateNotification(const QString &name, const QString &actionKey);

    UserNotificationCentre &m_centre;
};
