#include "support/writeprotection.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <QFile>
#include <QFileInfo>

WriteProtection::WriteProtection(const QString &path)
    : m_path(path)
{
    m_active = setWritable(false);
}

WriteProtection::~WriteProtection()
{
    if (m_active)
        setWritable(true);
}

bool WriteProtection::setWritable(bool writable)
{
    if (::geteuid() != 0) {
        const QFile::Permissions write = QFile::WriteOwner | QFile::WriteUser;
        const QFile::Permissions current = QFile::permissions(m_path);
        return QFile::setPermissions(m_path, writable ? current | write : current & ~write);
    }
    const int fd = ::open(QFile::encodeName(m_path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    int flags = 0;
    bool done = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    if (done) {
        flags = writable ? flags & ~FS_IMMUTABLE_FL : flags | FS_IMMUTABLE_FL;
        done = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    ::close(fd);
    return done;
}
