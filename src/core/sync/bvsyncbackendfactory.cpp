#include "sync/bvsyncbackendfactory.h"

#include "settings/bvsettingsview.h"
#include "sync/bvdropboxsyncbackend.h"
#include "sync/bvfoldersyncbackend.h"
#include "sync/bvsyncerrors.h"

std::expected<std::unique_ptr<BVSyncServiceBackend>, BvError> BVSyncBackendFactory::backendForSettings(
    const BvSettingsView &settings, const BVDropboxServices *dropbox)
{
    switch (settings.syncMethod()) {
    case BVFolderSyncBackend::SyncMethod:
        return std::make_unique<BVFolderSyncBackend>(settings.syncFolderPath());
    case BVDropboxSyncBackend::SyncMethod:
        if (dropbox) {
            auto backend = std::make_unique<BVDropboxSyncBackend>(*dropbox);
            if (backend->isDropboxConnected())
                return backend;
        }
        // This machine holds no Dropbox account: there is nothing to connect with.
        return std::unexpected(BVSyncErrors::error(BVSyncErrors::ConfigurationCode,
            QStringLiteral("Dropbox is not connected. Please configure Dropbox sync in preferences")));
    default:
        return std::unexpected(BVSyncErrors::error(BVSyncErrors::ConfigurationCode, syncTurnedOffMessage()));
    }
}

std::unique_ptr<BVSyncServiceBackend> BVSyncBackendFactory::backendForSyncMethod(
    int syncMethod, const BvSettingsView &settings, const BVDropboxServices *dropbox)
{
    switch (syncMethod) {
    case BVFolderSyncBackend::SyncMethod:
        return std::make_unique<BVFolderSyncBackend>(settings.syncFolderPath());
    case BVDropboxSyncBackend::SyncMethod:
        if (dropbox)
            return std::make_unique<BVDropboxSyncBackend>(*dropbox);
        return nullptr;
    default:
        return nullptr;
    }
}

QString BVSyncBackendFactory::syncTurnedOffMessage()
{
    return QStringLiteral("Sync is turned off. Please choose a sync method in preferences");
}
