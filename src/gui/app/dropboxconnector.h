#pragma once

#include <QString>

// Connects the Dropbox account that the browser's redirect names: stores its token and starts using it.
// The app hands a redirect to it; without one, a redirect is only logged. Main thread.
class DropboxConnector
{
public:
    virtual ~DropboxConnector() = default;

    // `name` is null when the redirect carried none (the account's name is fetched afterwards).
    virtual void connectDropboxAccount(const QString &name, const QString &accountId, const QString &token) = 0;
};
