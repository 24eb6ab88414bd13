#pragma once

#include "platform/globalhotkey.h"

// Sessions that offer no way to grab a key for the whole desktop (Wayland without a shortcuts portal):
// the user binds a key in the compositor to "brimvale" instead, which brings the running window up.
class GlobalHotKeyNull : public GlobalHotKey
{
    Q_OBJECT
public:
    using GlobalHotKey::GlobalHotKey;

    std::expected<void, QString> registerHotKey(const std::optional<BvHotKey> &hotKey) override
    {
        if (!hotKey)
            return {};
        return std::unexpected(QStringLiteral("This desktop session offers no global shortcuts to applications."));
    }
};
