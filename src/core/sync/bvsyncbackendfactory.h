#pragma once

#include <expected>
#include <memory>

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
};
