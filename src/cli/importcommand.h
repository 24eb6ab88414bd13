#pragma once

#include "cli/clicommand.h"

// brimvale import FILE.xml [--dry-run]: reads an XML export and copies its activities into the journal,
// matched by UID.
class ImportCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("import"); }
    QString summary() const override { return QStringLiteral("Import activities from an XML export."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
