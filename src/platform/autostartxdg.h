#pragma once

#include <expected>

#include <QString>

#include "settings/loginitemservice.h"

// Start at login through an XDG autostart entry, ~/.config/autostart/brimvale.desktop, which GNOME, KDE
// Plasma and other XDG session managers run at login. Its command passes "launchFromHelper". Main thread.
class AutostartXdg : public LoginItemService
{
public:
    // program: what the entry starts, a name looked up in PATH or an absolute path. The entry's location
    // is resolved now, from the generic config location.
    explicit AutostartXdg(QString program = QStringLiteral("brimvale"));

    // Writes the entry (atomically, replacing an older one) or removes it.
    std::expected<void, QString> setEnabled(bool enabled) override;
    // Whether the entry exists.
    bool isEnabled() const;
    QString filePath() const { return m_filePath; }

    // The entry's text.
    QString desktopEntry() const;

private:
    QString m_program;
    QString m_filePath;
};
