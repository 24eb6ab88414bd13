#pragma once

#include "cli/clicommand.h"

// brimvale status [--json] [--follow]: what the running app tracks, as its status line says it, or one JSON
// object that a waybar or polybar module shows as it is. --follow prints again at every change and every
// minute until interrupted, and waits for an app that is not (or no longer) running.
class StatusCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("status"); }
    QString summary() const override { return QStringLiteral("Show what the running app tracks."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
