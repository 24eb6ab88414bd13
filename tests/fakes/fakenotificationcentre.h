#pragma once

#include "attention/usernotificationcentre.h"

// A notification server that keeps what was posted and lets the test click.
class FakeNotificationCentre : public UserNotificationCentre
{
    Q_OBJECT
public:
    struct Delivered
    {
        QString name;
        QString title;
        QString body;
        QList<QPair<QString, QString>> actions;
    };

    using UserNotificationCentre::UserNotificationCentre;

    bool isAvailable() const override { return m_available; }
    bool supportsActions() const override { return m_actions; }
    void deliver(const QString &name, const QString &title, const QString &body,
        const QList<QPair<QString, QString>> &actions) override
    {
        if (m_available)
            delivered.append({ name, title, body, actions });
    }
    void remove(const QString &name) override { removed.append(name); }

    void setAvailable(bool available, bool withActions)
    {
        m_available = available;
        m_actions = withActions;
    }
    void click(const QString &name, const QString &actionKey) { Q_EMIT didActivateNotification(name, actionKey); }

    QList<Delivered> delivered;
    QStringList removed;

private:
    bool m_available = true;
    bool m_actions = true;
};
