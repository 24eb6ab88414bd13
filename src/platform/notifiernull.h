#pragma once

#include "platform/notifier.h"

// Where no notification server can be reached (no session bus): shows nothing, reports nothing.
class NotifierNull : public Notifier
{
    Q_OBJECT
public:
    using Notifier::Notifier;

    bool isAvailable() const override { return false; }
    bool supportsActions() const override { return false; }
    void post(const UserNotification &) override { }
    void withdraw(const QString &) override { }
};
