#pragma once

#include <optional>

#include "cli/clicommand.h"

// brimvale preferences [general|attention|export|sync]: the running app opens its preferences window at that
// tab (the one shown last when none is named). With no app running, the app is launched in the background
// first, as `brimvale start` does.
class PreferencesCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("preferences"); }
    QString summary() const override { return QStringLiteral("Open the app's preferences window."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;

    // The tab number (PreferencesTab) of a tab's name, in any case; nothing for an unknown name.
    static std::optional<int> tabForName(const QString &name);
};
