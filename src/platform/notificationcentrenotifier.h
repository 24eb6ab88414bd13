#pragma once

#include "attention/usernotificationcentre.h"

class Notifier;

// The attention rules' notification centre over the desktop's notifier.
class NotificationCentreNotifier : public UserNotificationCentre
{
    Q_OBJECT
public:
    // Not owned; outlives this object.
    explicit NotificationCentreNotifier(Notifier &notifier, QObject *parent = nullptr);

    bool isAvailable() const override;
    bool supportsActions() const override;
    void deliver(const QString &name, const QString &title, const QString &body,
        const QList<QPair<QString, QString>> &actions) override;
    void remove(const QString &name) override;

private:
    Notifier &m_notifier;
};
