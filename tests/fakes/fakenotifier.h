#pragma once

#include "platform/notifier.h"

// A notification server that shows everything, with buttons, and lets the test click.
class FakeNotifier : public Notifier
{
    Q_OBJECT
public:
    using Notifier::Notifier;

    bool isAvailable() const override { return true; }
    bool supportsActions() const override { return true; }
    void post(const UserNotification &notification) override { posted.append(notification); }
    void withdraw(const QString &name) override { withdrawn.append(name); }

    void click(const QString &name, const QString &actionKey) { Q_EMIT actionInvoked(name, actionKey); }

    QList<UserNotification> posted;
    QStringList withdrawn;
};
