#pragma once

#include "cli/clicommand.h"

// brimvale add TEXT --from WHEN --to WHEN [--invoiced]: adds a finished activity and prints its uid.
class AddCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("add"); }
    QString summary() const override { return QStringLiteral("Add a finished activity and print its UID."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
