#pragma once

#include "cli/clicommand.h"

// brimvale merge UID UID... [--invoiced yes|no]
class MergeCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("merge"); }
    QString summary() const override
    {
        return QStringLiteral("Join activities into the one that started last, lasting as long as all of them.");
    }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
