#pragma once

#include "cli/clicommand.h"

// brimvale dropbox disconnect: forgets the account on this computer and revokes its tokens at Dropbox.
class DropboxDisconnectCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("disconnect"); }
    QString summary() const override { return QStringLiteral("Disconnect this computer from Dropbox."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
