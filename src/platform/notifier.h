#pragma once

#include <QList>
#include <QObject>
#include <QPair>
#include <QString>

// A desktop notification: a title, a body and optional buttons. `name` identifies it to the app (a click on
// the reminder and one on the idle prompt lead to different places); posting another with the same name
// replaces the earlier one on screen.
struct UserNotification
{
    QString name;
    QString title;
    QString body;
    // Buttons as (key, label) pairs, shown only where the server supports actions. A click on the body is
    // always reported as the key "default".
    QList<QPair<QString, QString>> actions;
};

// Posts desktop notifications and reports the user's clicks. Main thread.
class Notifier : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // Whether a notification server is there to show anything.
    virtual bool isAvailable() const = 0;
    // Whether the server shows buttons (the "actions" capability).
    virtual bool supportsActions() const = 0;
    // Shows the notification; without a server nothing happens.
    virtual void post(const UserNotification &notification) = 0;
    // Takes the notification of this name off the screen, if it is still there.
    virtual void withdraw(const QString &name) = 0;

Q_SIGNALS:
    // The user clicked the notification's body ("default") or one of its buttons.
    void actionInvoked(const QString &name, const QString &actionKey);
};
