#pragma once

#include "settings/bvsettingsupgradehelper.h"

class Keychain;

// Tells the settings' sync-method upgrade whether this machine holds a Dropbox token ("oauth2_token", or
// the older "oauth_token"), reading the keyring. Main thread.
class BVDropboxUpgradeHelper : public BVSettingsUpgradeHelper
{
public:
    // `keychain` is not owned and must outlive the helper.
    explicit BVDropboxUpgradeHelper(Keychain &keychain);

    bool isDropboxConnected() const override;

private:
    Keychain &m_keychain;
};
