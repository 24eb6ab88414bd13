#pragma once

#include "cli/clicommand.h"

struct ActivityQuery;
class StoreContext;

// brimvale list [filters] [--json]: the activities newest first, with their total, filtered as the report
// filters them (range overlap, text search, projects, tasks, invoiced state).
class ListCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("list"); }
    QString summary() const override { return QStringLiteral("List activities with their total."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;

    // The report's filter options, shared with the commands that act on a listed selection.
    static void addFilterOptions(QCommandLineParser &parser);
    // Builds the query from the parsed filter options; the error is the line to print.
    static std::expected<ActivityQuery, QString> filterQuery(const QCommandLineParser &parser, StoreContext &context);
};
