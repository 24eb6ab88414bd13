#pragma once

#include <optional>

#include <QDBusConnection>
#include <QHash>
#include <QString>
#include <QStringList>

#include "platform/notifier.h"

// Desktop notifications through the org.freedesktop.Notifications server of the session (GNOME Shell,
// Plasma, dunst, mako). A click on the body comes back as the "default" action, which every notification
// carries; its buttons are sent only to servers with the "actions" capability. Main thread.
class NotifierFreedesktop : public Notifier
{
    Q_OBJECT
public:
    // Posts and listens on `bus`: servers send clicks and closes to the connection that posted only.
    explicit NotifierFreedesktop(const QDBusConnection &bus, QObject *parent = nullptr);

    // A process owns the server's name now; asked anew at each call, as servers come and go.
    bool isAvailable() const override;
    // The running server lists "actions" among its capabilities (asked once per server process).
    bool supportsActions() const override;
    // Sends Notify without waiting for the server; a later post of the same name replaces it on screen.
    void post(const UserNotification &notification) override;
    void withdraw(const QString &name) override;

private Q_SLOTS:
    // QtDBus hands bus signals only to slots named by their signature.
    void onActionInvoked(uint id, const QString &actionKey);
    void onNotificationClosed(uint id, uint reason);

private:
    QString serverOwner() const;
    void onNotifyAnswered(const QString &name, quint64 sequence, uint id);
    void closeOnServer(uint id);

    QDBusConnection m_bus;
    // The server's id of each notification on screen, by name.
    QHash<QString, uint> m_shown;
    // The newest Notify of each name still waiting for its id: an answer to an older one (replaced or
    // withdrawn since) takes that notification off the screen again.
    QHash<QString, quint64> m_pending;
    quint64 m_sequence = 0;
    mutable QString m_capabilitiesOwner;
    mutable QStringList m_capabilities;
};
