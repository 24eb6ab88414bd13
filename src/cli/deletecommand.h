#pragma once

#include "cli/clicommand.h"

// brimvale delete UID...: deletes activities and records the deletions for sync.
class DeleteCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("delete"); }
    QString summary() const override { return QStringLiteral("Delete activities."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
