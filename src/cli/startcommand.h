#pragma once

#include "cli/clicommand.h"

// brimvale start TEXT: the running app tracks TEXT, as if typed into its activity line and Return pressed.
// With no app running, the app is launched in the background first (its window stays closed).
class StartCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("start"); }
    QString summary() const override { return QStringLiteral("Start tracking an activity in the running app."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
