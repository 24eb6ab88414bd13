#pragma once

#include <QList>
#include <QObject>
#include <QPair>
#include <QString>

// Where the attention rules post desktop notifications: the platform's notification server behind an
// adapter, so that the rules need no bus. Main thread.
class UserNotificationCentre : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // Whether a notification server is there to show anything.
    virtual bool isAvailable() const = 0;
    // Whether it shows buttons.
    virtual bool supportsActions() const = 0;
    // Shows a notification titled `title` with `body`, replacing one of the same `name` still on screen.
    // `actions` are (key, label) buttons, shown only where supported. Without a server nothing happens.
    virtual void deliver(
        const QString &name, const QString &title, const QString &body, const QList<QPair<QString, QString>> &actions)
        = 0;
    // Takes the notification of this name off the screen, if it is still there.
    virtual void remove(const QString &name) = 0;

Q_SIGNALS:
    // The user clicked the body ("default") or a button of the notification of this name.
    void didActivateNotification(const QString &name, const QString &actionKey);
};
