#pragma once

#include <memory>
#include <vector>

#include <QStringList>

#include "cli/clicommand.h"

// The "brimvale COMMAND ..." front: finds the command and runs it, or prints the overview.
class CommandLine
{
public:
    CommandLine();
    ~CommandLine();

    // `arguments` start with the command's name.
    int run(const QStringList &arguments, CliEnvironment &environment);
    QString overview() const;

private:
    CliCommand *command(const QString &name) const;

    std::vector<std::unique_ptr<CliCommand>> m_commands;
};
