#include "sync/bvfolderrevisions.h"

#include <chrono>
#include <sys/stat.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QSet>

namespace {

qint64 nanoseconds(const timespec &time)
{
    return qint64(time.tv_sec) * 1000000000 + time.tv_nsec;
}

// A file's times move in steps of the file system's clock (the last timer tick on kernels before 6.13, two
// seconds on FAT), so a file written again within the step in which it was read keeps every time it had.
// Only a file that had stood still for longer than a step when it was read is remembered; a younger one is
// hashed again on the next look. Compared with the wall clock, as that is what stamps the files.
constexpr std::chrono::seconds SettleTime { 2 };

qint64 wallClockNanoseconds()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

bool settledBefore(qint64 changed, qint64 readAt)
{
    return changed < readAt - std::chrono::nanoseconds(SettleTime).count();
}

} // namespace

BVFolderRevisions::BVFolderRevisions(const QString &folder, const QString &indexFile)
    : m_folder(folder)
    , m_indexFile(indexFile)
{
    load();
}

QString BVFolderRevisions::revisionOfContent(const QByteArray &content)
{
    return QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex().left(32));
}

bool BVFolderRevisions::identityOf(const QString &name, Identity *identity) const
{
    struct stat info {};
    const QByteArray path = QFile::encodeName(m_folder + QLatin1Char('/') + name);
    if (::stat(path.constData(), &info) != 0 || !S_ISREG(info.st_mode))
        return false;
    identity->size = info.st_size;
    identity->modified = nanoseconds(info.st_mtim);
    identity->changed = nanoseconds(info.st_ctim);
    identity->inode = info.st_ino;
    return true;
}

BVFolderRevisions::Result BVFolderRevisions::revision(const QString &name)
{
    Identity before;
    if (!identityOf(name, &before)) {
        m_entries.remove(name);
        return {};
    }
    const auto known = m_entries.constFind(name);
    if (known != m_entries.cend() && known->identity == before)
        return { known->revision, {} };

    const qint64 readAt = wallClockNanoseconds();
    QFile file(m_folder + QLatin1Char('/') + name);
    if (!file.open(QIODevice::ReadOnly))
        return { {}, file.errorString() };
    const QByteArray content = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return { {}, file.errorString() };
    file.close();
    const QString revision = revisionOfContent(content);
    // Only a file that stood still while it was read may be remembered under its identity; one that
    // changed meanwhile is hashed again next time.
    Identity after;
    if (identityOf(name, &after) && after == before && settledBefore(before.changed, readAt))
        m_entries.insert(name, { before, revision });
    else
        m_entries.remove(name);
    return { revision, {} };
}

void BVFolderRevisions::remember(const QString &name, const QByteArray &content)
{
    Identity identity;
    if (identityOf(name, &identity) && identity.size == content.size()
        && settledBefore(identity.changed, wallClockNanoseconds()))
        m_entries.insert(name, { identity, revisionOfContent(content) });
    else
        m_entries.remove(name);
}

void BVFolderRevisions::forget(const QString &name)
{
    m_entries.remove(name);
}

void BVFolderRevisions::keepOnly(const QStringList &names)
{
    const QSet<QString> listed(names.cbegin(), names.cend());
    m_entries.removeIf([&](const auto &entry) { return !listed.contains(entry.key()); });
}

void BVFolderRevisions::load()
{
    QFile file(m_indexFile);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
    if (root.value(QLatin1String("folder")).toString() != m_folder)
        return;
    const QJsonObject files = root.value(QLatin1String("files")).toObject();
    for (auto it = files.constBegin(); it != files.constEnd(); ++it) {
        const QJsonArray values = it.value().toArray();
        const QString revision = values.at(4).toString();
        if (values.size() != 5 || revision.isEmpty())
            continue;
        // Numbers travel as text: nanosecond times do not fit a double.
        Entry entry;
        entry.identity.size = values.at(0).toString().toLongLong();
        entry.identity.modified = values.at(1).toString().toLongLong();
        entry.identity.changed = values.at(2).toString().toLongLong();
        entry.identity.inode = values.at(3).toString().toULongLong();
        entry.revision = revision;
        m_entries.insert(it.key(), entry);
    }
}

void BVFolderRevisions::save() const
{
    QJsonObject files;
    for (auto it = m_entries.cbegin(); it != m_entries.cend(); ++it) {
        const Identity &identity = it->identity;
        files.insert(it.key(),
            QJsonArray { QString::number(identity.size), QString::number(identity.modified),
                QString::number(identity.changed), QString::number(identity.inode), it->revision });
    }
    const QJsonObject root { { QStringLiteral("folder"), m_folder }, { QStringLiteral("files"), files } };
    QDir().mkpath(QFileInfo(m_indexFile).absolutePath());
    QSaveFile file(m_indexFile);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(QJsonDocument(root).toJson(QJsonDocument::Compact));
        file.commit();
    }
}
