#pragma once

#include "cli/clicommand.h"

// brimvale projects / brimvale tasks: every name with its number of activities and total time.
class ItemTotalsCommand : public CliCommand
{
public:
    explicit ItemTotalsCommand(bool tasks)
        : m_tasks(tasks)
    { }

    QString name() const override { return m_tasks ? QStringLiteral("tasks") : QStringLiteral("projects"); }
    QString summary() const override
    {
        return m_tasks ? QStringLiteral("List tasks with their activity counts and total time.")
                       : QStringLiteral("List projects with their activity counts and total time.");
    }
    int run(const QStringList &arguments, CliEnvironment &environment) override;

private:
    bool m_tasks;
};
