#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

// The revisions of the files in a sync folder. A file's revision is a hash of its content, so it changes
// whenever the content does, whoever wrote it. Hashing a whole journal on every run would cost more than
// the rest of the run, so each hash is remembered with the file's identity on disk (size, modification
// and status-change times to the nanosecond, inode): a file whose identity is unchanged keeps its
// revision. No tool can set the status-change time, so a rewritten file never passes for the old one, not
// even when a sync tool gives it back its old modification time. A file changed less than two seconds
// before it was read is not remembered (its times could still stay the same through another change), so
// it is hashed again on the next look. One thread at a time.
class BVFolderRevisions
{
public:
    // `indexFile`: where the remembered hashes of `folder` are kept between runs. An index of another
    // folder, or one that cannot be read, is ignored.
    BVFolderRevisions(const QString &folder, const QString &indexFile);

    // The revision of bytes: 32 lower-case hex digits.
    static QString revisionOfContent(const QByteArray &content);

    // The revision of the file `name` of the folder now; a null string when there is no such regular file.
    // Fails (with the reason) only when the file is there but cannot be read.
    struct Result
    {
        QString revision;
        QString error;
    };
    Result revision(const QString &name);

    // Records that `name` was just written with `content`, under the same rule as a file read: a file that
    // changed in the last two seconds is hashed again on the next look.
    void remember(const QString &name, const QByteArray &content);
    void forget(const QString &name);
    // Forgets every name not in `names` (the folder's listing), so that the index does not grow with
    // files long gone.
    void keepOnly(const QStringList &names);

    // Writes the index back (atomically). Failures are ignored: a lost index only costs hashing once more.
    void save() const;

private:
    struct Identity
    {
        qint64 size = 0;
        qint64 modified = 0;
        qint64 changed = 0;
        quint64 inode = 0;
        bool operator==(const Identity &) const = default;
    };
    struct Entry
    {
        Identity identity;
        QString revision;
    };

    // False when the file is not there (or not a regular file).
    bool identityOf(const QString &name, Identity *identity) const;
    void load();

    QString m_folder;
    QString m_indexFile;
    QHash<QString, Entry> m_entries;
};
