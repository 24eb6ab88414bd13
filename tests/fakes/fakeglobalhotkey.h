#pragma once

#include <QList>

#include "platform/globalhotkey.h"

// Stands for the session's key grab: it holds one combination at most, refuses those in `taken` as another
// program's, and, unless `available`, grabs nothing at all. Like an X11 grab it hides its keys from the
// app unless `hidesKeys` is false (a desktop's shortcut service).
class FakeGlobalHotKey : public GlobalHotKey
{
public:
    bool available = true;
    QList<BvHotKey> taken;
    std::optional<BvHotKey> grabbed;
    bool hidesKeys = true;
    // Every registerHotKey call, in order.
    QList<std::optional<BvHotKey>> requests;

    bool isAvailable() const override { return available; }
    bool grabHidesKeysFromTheApp() const override { return hidesKeys; }
    std::expected<void, QString> registerHotKey(const std::optional<BvHotKey> &hotKey) override
    {
        requests.append(hotKey);
        grabbed.reset();
        if (!available && hotKey)
            return registered(std::unexpected(QStringLiteral("No global shortcuts here.")));
        if (hotKey && taken.contains(*hotKey))
            return registered(std::unexpected(QStringLiteral("Taken by another application.")));
        grabbed = hotKey;
        return registered({});
    }
    // A desktop that answers later reports its refusal.
    void failLater(const QString &reason) { setRegistrationError(reason); }
    void press() { Q_EMIT activated(); }
};
