#pragma once

#include <QString>

#include "base/bverror.h"

// The errors of a sync run. Their description is the details text the user sees under the title
// "Error occurred"; the code tells the kind of failure.
namespace BVSyncErrors {

inline constexpr auto Domain = "brimvale.sync";
inline constexpr auto Title = "Error occurred";

enum Code {
    // A remote or cached file does not have the content the format requires.
    FileContentCode = 1,
    // The store failed inside a run ("Local storage error (N): ...").
    LocalStorageCode = 2,
    // A file of the cache folder could not be made, written or removed.
    FileSystemCode = 3,
    // The chosen sync method cannot run on this machine as it is set up.
    ConfigurationCode = 4,
};

BvError error(Code code, const QString &details);
// "Local storage error (<step>): <description of the store's error>"; `step` as designed ("4.1", "24").
BvError localStorage(const QString &step, const BvError &storeError);
// "Local storage error: <description>", for cache rows and plain saves.
BvError localStorage(const BvError &storeError);

} // namespace BVSyncErrors
