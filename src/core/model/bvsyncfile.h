#pragma once

#include <memory>
#include <optional>

#include <QString>

class StoreContext;

// This machine's record of one remote month file: its base name ("2024-03"), the revision last seen and
// the hash of the month's activities when the file was last written or read.
class BVSyncFile : public std::enable_shared_from_this<BVSyncFile>
{
public:
    QString name() const { return m_name; }
    void setName(const QString &name);
    // "<family>:<backend revision>"; the part before the first ":" names the backend's revision family.
    QString revision() const { return m_revision; }
    void setRevision(const QString &revision);
    QString activityHash() const { return m_activityHash; }
    void setActivityHash(const QString &activityHash);

    // The year and month of the name. Asking a file whose name is not "<year>-<month>" is a programming
    // error and ends the process.
    uint year();
    uint month();
    // Whether the name splits into a year and a month, so that year() and month() may be asked.
    bool hasYearMonth();
    void calcYearMonth();

    // Whether the revision's family (its text before the first ":") is exactly `prefix`; false for a null
    // prefix or a revision without ":".
    bool hasRevisionPrefix(const QString &prefix) const;

    qint64 objectId() const { return m_id; }
    bool hasChanges() const { return m_changed; }

private:
    friend class StoreContext;
    friend class StoreWriter;
    void markChanged();

    qint64 m_id = 0;
    QString m_name;
    QString m_revision;
    QString m_activityHash;
    bool m_yearMonthComputed = false;
    std::optional<uint> m_year;
    std::optional<uint> m_month;
    bool m_changed = false;
    bool m_deleted = false;
    bool m_pending = false;
    StoreContext *m_context = nullptr;
};

using SyncFilePtr = std::shared_ptr<BVSyncFile>;
