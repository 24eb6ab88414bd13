#include "sync/dropboxsyncintervalcollection.h"

#include <QCoreApplication>

QList<DropboxSyncIntervalCollection::Item> DropboxSyncIntervalCollection::items()
{
    const auto tr = [](const char *text) { return QCoreApplication::translate("DropboxSyncIntervalCollection", text); };
    return { { 0, tr("Manually") }, { 1, tr("Every 15 minutes") }, { 2, tr("Every 30 minutes") },
        { 3, tr("Every hour") } };
}

int DropboxSyncIntervalCollection::intervalSeconds(int value)
{
    switch (value) {
    case 1:
        return 900;
    case 2:
        return 1800;
    case 3:
        return 3600;
    default:
        return 0;
    }
}
