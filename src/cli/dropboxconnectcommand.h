#pragma once

#include "cli/clicommand.h"

// brimvale dropbox connect [--paste] [--no-browser]: connects this computer's Dropbox account. Opens (or
// prints) Dropbox's page; the browser returns to a listener on 127.0.0.1, or with --paste Dropbox shows a
// code to paste here. The tokens go to the keyring, the account's name to the settings.
class DropboxConnectCommand : public CliCommand
{
public:
    QString name() const override { return QStringLiteral("connect"); }
    QString summary() const override { return QStringLiteral("Connect this computer with your Dropbox account."); }
    int run(const QStringList &arguments, CliEnvironment &environment) override;
};
