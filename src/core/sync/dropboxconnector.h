#pragma once

#include <QString>

// Connects the Dropbox account that the browser's redirect named (the implicit grant): the redirect
// handler of the app calls it, and posts "Connected with Dropbox". Main thread.
class DropboxConnector
{
public:
    virtual ~DropboxConnector() = default;

    // Stores the token in the keyring and records the account (an empty name until the account's details
    // arrive); then fetches the account's display name.
    virtual void connectDropboxAccount(const QString &name, const QString &accountId, const QString &token) = 0;
};
