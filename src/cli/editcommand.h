#pragma once

#include "cli/clicommand.h"

// brimvale edit UID [--text TEXT] [--from WHEN] [--to WHEN] [--invoiced yes|no]
class EditCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("edit"); }
    QString summary() const override
    {
        return QStringLiteral("Change the text, times or invoiced mark of an activity.");
    }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
