#pragma once

#include "cli/clicommand.h"

// brimvale show: brings the running app's main window to the front, launching the app first when it does
// not run. The command to bind to a key where the desktop lets no application grab one itself.
class ShowCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("show"); }
    QString summary() const override { return QStringLiteral("Bring the app's window to the front."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
