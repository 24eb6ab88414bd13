#include "sync/dropboxsyncserviceprotocol.h"

#include <unistd.h>

DropboxSyncServiceProtocol::FileHandle::FileHandle(int fd)
{
    if (fd >= 0)
        m_fd = std::shared_ptr<const int>(new int(fd), [](const int *owned) {
            ::close(*owned);
            delete owned;
        });
}
