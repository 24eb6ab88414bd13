#pragma once

#include <expected>
#include <optional>

#include <QString>

#include "base/bverror.h"
#include "model/bvsyncfile.h"

class StoreContext;

// The in-memory descriptor of one sync file — a month file or the deletion file — as the sync service
// and the backends pass it around for one run: which file, the backend's revision of it, whether the
// remote side reported it deleted, and its content hash. A plain value; use on one thread at a time.
class BVTmpSyncFile
{
public:
    static constexpr int DropboxSyncMethod = 1;
    static constexpr int FolderSyncMethod = 2;

    // The word that marks a revision as this method's in a stored row: "dropbox" for method 1, "folder"
    // for method 2, none for any other method (its revisions are stored bare).
    static std::optional<QString> revisionFamily(int syncMethod);

    // A month file with method 0 and no revision; year and month 0 for the default one.
    BVTmpSyncFile() = default;
    BVTmpSyncFile(uint year, uint andMonth);
    BVTmpSyncFile(uint year, uint month, int syncMethod, const std::optional<QString> &andRevisionValue);

    // The deletion file, without and with a revision.
    static BVTmpSyncFile initAsDeletedIndexFile();
    static BVTmpSyncFile initAsDeletedIndexFileWithSyncMethod(
        int syncMethod, const std::optional<QString> &andRevisionValue);

    // The descriptor of a remote path (a month file or the deletion file, recognised as BVSyncFileName
    // does with the prefix rule); nothing for any other path.
    static std::optional<BVTmpSyncFile> fromFileName(const QString &fileName, const std::optional<QString> &pathPrefix,
        int syncMethod, const std::optional<QString> &andRevisionValue);
    // The same for a file the backend reports deleted remotely: method 0, no revision, wasDeleted set.
    static std::optional<BVTmpSyncFile> deletedFileFromFileName(
        const QString &fileName, const std::optional<QString> &pathPrefix);
    // The descriptor of a stored row, read under the backend method `withSyncMethod`: a revision of the
    // form "<family>:<value>" keeps its value only when the family is the method's revisionFamily
    // ("dropbox" under method 1); a revision without ":" is kept whole under every method. The row's hash is copied.
    // Nothing for no row or a row whose name is not a sync file name.
    static std::optional<BVTmpSyncFile> fromSyncFile(const SyncFilePtr &syncFile, int withSyncMethod);

    uint year() const { return m_year; }
    uint month() const { return m_month; }
    int syncMethod() const { return m_syncMethod; }
    std::optional<QString> revisionValue() const { return m_revisionValue; }
    std::optional<QString> iCloudChangeTag() const { return m_iCloudChangeTag; }
    void setICloudChangeTag(const std::optional<QString> &tag) { m_iCloudChangeTag = tag; }
    bool wasDeleted() const { return m_wasDeleted; }
    void setWasDeleted(bool wasDeleted) { m_wasDeleted = wasDeleted; }
    std::optional<QString> activityHash() const { return m_activityHash; }
    void setActivityHash(const std::optional<QString> &activityHash) { m_activityHash = activityHash; }
    bool isDeletedIndexFile() const { return m_isDeletedIndexFile; }

    // Sets both and clears the iCloud change tag.
    void setSyncMethod(int syncMethod, const std::optional<QString> &andRevisionValue);

    // "deleted", or "%lu-%.2lu" of year and month ("2024-03").
    QString name() const;
    // "<name>.json".
    QString fileName() const;
    // The text stored in the row: none without a revision value, "<family>:<value>" for a method with a
    // revision family ("dropbox:abc123" under method 1), the bare value under any other method.
    std::optional<QString> revision() const;

    // Writes this descriptor's name, revision and hash into the one row of its name in `context`. Where
    // there is no row or more than one, a new row is inserted and every row found is deleted, so that
    // duplicates collapse. Does not save. Fails only when the rows cannot be fetched.
    std::expected<void, BvError> store(StoreContext &context) const;
    // Deletes every row of this name (none is fine). Does not save. Fails only when the fetch fails.
    std::expected<void, BvError> remove(StoreContext &context) const;

    bool operator==(const BVTmpSyncFile &other) const = default;

private:
    uint m_year = 0;
    uint m_month = 0;
    int m_syncMethod = 0;
    std::optional<QString> m_revisionValue;
    std::optional<QString> m_iCloudChangeTag;
    bool m_wasDeleted = false;
    std::optional<QString> m_activityHash;
    bool m_isDeletedIndexFile = false;
};
