#pragma once

#include "platform/globalhotkey.h"

// Sessions that offer no way to grab a key for the whole desktop (GNOME on Wayland, sway): the user binds
// a key in the compositor to `brimvale show` instead, which brings the running window up.
class GlobalHotKeyNull : public GlobalHotKey
{
    Q_OBJECT
public:
    using GlobalHotKey::GlobalHotKey;

    bool isAvailable() const override { return false; }

    std::expected<void, QString> registerHotKey(const std::optional<BvHotKey> &hotKey) override
    {
        if (!hotKey)
            return registered({});
        return registered(
            std::unexpected(QStringLiteral("This desktop session offers no global shortcuts to applications.")));
    }
};
