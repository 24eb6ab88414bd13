#pragma once

#include "cli/clicommand.h"

// brimvale update TEXT: the running app's activity gets TEXT, as its "Update activity" command does.
class UpdateCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("update"); }
    QString summary() const override { return QStringLiteral("Change the text of the activity the app tracks."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
