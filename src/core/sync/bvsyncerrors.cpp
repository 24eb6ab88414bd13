#include "sync/bvsyncerrors.h"

BvError BVSyncErrors::error(Code code, const QString &details)
{
    return BvError(QString::fromLatin1(Domain), code, details);
}

BvError BVSyncErrors::localStorage(const QString &step, const BvError &storeError)
{
    return error(LocalStorageCode, QStringLiteral("Local storage error (%1): %2").arg(step, storeError.message()));
}

BvError BVSyncErrors::localStorage(const BvError &storeError)
{
    return error(LocalStorageCode, QStringLiteral("Local storage error: %1").arg(storeError.message()));
}
