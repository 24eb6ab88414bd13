#pragma once

#include "cli/clicommand.h"

// brimvale stop: the running app stops tracking; the activity ends now.
class StopCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("stop"); }
    QString summary() const override { return QStringLiteral("Stop tracking in the running app."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
