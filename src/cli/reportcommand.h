#pragma once

#include "cli/clicommand.h"

// brimvale report: opens the report window of the running app, launching the app first when it does not run.
class ReportCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("report"); }
    QString summary() const override { return QStringLiteral("Open the report window of the app."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
