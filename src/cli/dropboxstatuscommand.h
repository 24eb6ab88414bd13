#pragma once

#include "cli/clicommand.h"

// brimvale dropbox status: the connected account's name and e-mail (asked of Dropbox) and the last sync.
// Exit status 1 when no account is connected.
class DropboxStatusCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("status"); }
    QString summary() const override { return QStringLiteral("Show the connected Dropbox account and the last sync."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
