#pragma once

// Answers the one question the sync-method upgrade asks of the Dropbox backend, which lives outside the
// core library.
class BVSettingsUpgradeHelper
{
public:
    virtual ~BVSettingsUpgradeHelper() = default;

    // Whether a Dropbox account is connected (its token is in the keychain). Main thread; may block briefly.
    virtual bool isDropboxConnected() const = 0;
};
