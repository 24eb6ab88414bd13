#pragma once

#include <QString>

// Makes a file or folder unwritable for as long as it lives, and writable again afterwards. Root writes
// wherever the mode bits say it may not, so for root the path is made immutable instead, as chattr +i
// does; isActive() is false where the file system has no such flag.
class WriteProtection
{
public:
    explicit WriteProtection(const QString &path);
    ~WriteProtection();
    WriteProtection(const WriteProtection &) = delete;
    WriteProtection &operator=(const WriteProtection &) = delete;

    bool isActive() const { return m_active; }

private:
    bool setWritable(bool writable);

    QString m_path;
    bool m_active = false;
};
