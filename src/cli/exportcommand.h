#pragma once

#include "cli/clicommand.h"

// brimvale export --format csv|xml [list filters] [--output FILE]: the listed activities in the user's
// export layouts.
class ExportCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("export"); }
    QString summary() const override { return QStringLiteral("Export activities as CSV or XML in your layouts."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
