#pragma once

#include <memory>
#include <vector>

#include "cli/clicommand.h"

// brimvale dropbox connect|status|disconnect: the Dropbox account of this computer.
class DropboxCommand : public CliCommand
{
public:
    DropboxCommand();
    ~DropboxCommand() override;

    QString name() const override { return QStringLiteral("dropbox"); }
    QString summary() const override { return QStringLiteral("Connect, show or disconnect the Dropbox account."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;

private:
    std::vector<std::unique_ptr<CliCommand>> m_subcommands;
};
