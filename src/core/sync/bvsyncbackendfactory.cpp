#include "sync/bvsyncbackendfactory.h"

#include "settings/bvsettingsview.h"
#include "sync/bvfoldersyncbackend.h"
#include "sync/bvsyncerrors.h"

std::expected<std::unique_ptr<BVSyncServiceBackend>, BvError> BVSyncBackendFactory::backendForSettings(
    const BvSettingsView &settings)
{
    switch (settings.syncMethod()) {
    case BVFolderSyncBackend::SyncMethod:
        return std::make_unique<BVFolderSyncBackend>(settings.syncFolderPath());
    case 1:
        // This machine holds no Dropbox account: there is nothing to connect with.
        return std::unexpected(BVSyncErrors::error(BVSyncErrors::ConfigurationCode,
            QStringLiteral("Dropbox is not connected. Please configure Dropbox sync in preferences")));
    default:
        return std::unexpected(BVSyncErrors::error(BVSyncErrors::ConfigurationCode,
            QStringLiteral("Sync is turned off. Please choose a sync method in preferences")));
    }
}
