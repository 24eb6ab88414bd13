#pragma once

#include <expected>
#include <memory>

#include <QString>

#include "base/bverror.h"

class BVSyncServiceBackend;
class BvSettingsView;
struct BVDropboxServices;

// Makes the backend of the sync method the user chose. Reads the settings only, so the command line can
// use it too. Main thread (it reads the settings).
class BVSyncBackendFactory
{
public:
    // Fails with the text to show when the chosen method cannot run: sync turned off, Dropbox not
    // connected on this machine (or no way to reach Dropbox: `dropbox` none).
    static std::expected<std::unique_ptr<BVSyncServiceBackend>, BvError> backendForSettings(
        const BvSettingsView &settings, const BVDropboxServices *dropbox = nullptr);

    // The backend of `syncMethod` for a run of the sync manager: Dropbox (1) also when no account is
    // connected, since its run then fails saying so; the folder (2) from the settings' path. None for a
    // method that does not sync, or for Dropbox without `dropbox`.
    static std::unique_ptr<BVSyncServiceBackend> backendForSyncMethod(
        int syncMethod, const BvSettingsView &settings, const BVDropboxServices *dropbox);

    // What a sync requested with sync turned off answers.
    static QString syncTurnedOffMessage();
};
