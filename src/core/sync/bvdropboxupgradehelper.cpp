#include "sync/bvdropboxupgradehelper.h"

#include "sync/bvkeychain.h"

BVDropboxUpgradeHelper::BVDropboxUpgradeHelper(Keychain &keychain)
    : m_keychain(keychain)
{ }

bool BVDropboxUpgradeHelper::isDropboxConnected() const
{
    BvKeychain keychain(m_keychain);
    return !keychain.getGenericAccountPassword(QStringLiteral("oauth2_token")).isEmpty()
        || !keychain.getGenericAccountPassword(QStringLiteral("oauth_token")).isEmpty();
}
