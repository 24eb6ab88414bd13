#pragma once

#include "cli/clicommand.h"

// brimvale sync [--folder DIR] [--log]: one sync run with the chosen sync method, its progress printed as
// it goes.
class SyncCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("sync"); }
    QString summary() const override { return QStringLiteral("Sync the journal with your other computers."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
