#pragma once

#include <expected>
#include <memory>
#include <optional>

#include <QCoreApplication>
#include <QHash>
#include <QList>
#include <QString>

#include "base/bverror.h"
#include "model/activity.h"

class QIODevice;
class QTemporaryDir;
class Store;
class StoreContext;

namespace ActivityImportErrors {
inline constexpr auto Domain = "brimvale.import";
inline constexpr int UnreadableCode = 1;
inline constexpr int NotXmlCode = 2;
inline constexpr int WrongRootCode = 3;
inline constexpr int DocumentTypeCode = 4;
inline constexpr int TooDeepCode = 5;
inline constexpr int TooLargeCode = 6;
} // namespace ActivityImportErrors

// The elements that stage 1 did not read as they stand, as the user is told: "Skipped 3 elements: 2
// without readable "from" and "to" times, 1 ending before it starts" (and those kept one second long
// because they start and end in one second).
struct ActivityImportSkipped
{
    Q_DECLARE_TR_FUNCTIONS(ActivityImportSkipped)

public:
    // "from" or "to" missing or not a date in the pattern.
    qint64 unreadableTimes = 0;
    // The end before the start, under every reading of a repeated hour.
    qint64 endBeforeStart = 0;
    // Read, with the end moved to one second after the start.
    qint64 lengthened = 0;

    qint64 total() const { return unreadableTimes + endBeforeStart; }
    // The sentence above; empty when every element was read as it stands.
    QString text() const;
};

// What the import into the real store did, as the user is told: the title "Activity import!" with
// "Imported %ld activities", or "Error occurred!" (critical) after a failure.
struct ActivityImportResult
{
    Q_DECLARE_TR_FUNCTIONS(ActivityImportResult)

public:
    // Activities written to the store; 0 after a failure.
    qint64 count = 0;
    std::optional<BvError> error;

    bool isError() const { return error.has_value(); }
    static QString title() { return tr("Activity import!"); }
    QString text() const;
};

// Import of activities from XML files, in two stages. Stage 1 reads a file into a temporary store of its
// own (a folder made from "brimVale.XXXXXX" in the temporary directory, removed with this object), where
// the activities can be looked at and chosen. Stage 2 copies chosen activities into the real store,
// matched by UID.
//
// Stage 1 reads the file as a stream and refuses, with a BvError of the domain "brimvale.import", files
// that are not well-formed XML, whose root is not "activities", that declare a document type or entities
// (nothing is ever expanded), that nest elements deeper than MaxDepth or hold one item (a tag, a text)
// larger than MaxItemBytes or an activity text longer than MaxTextLength characters. A refused file adds
// nothing. Each "activity" child of the root gives one activity: "uid" (trimmed; a fresh one when
// missing or empty), "invoiced" ("1" is invoiced, anything else not), "from" and "to" as local time
// "yyy-MM-dd'T'HH:mm:ss" in the user's zone, and as text the element's whole string value, untrimmed.
// Digits may be those of any script (an export made under fa_IR reads everywhere). A wall time that the
// autumn change repeats reads as its later instant, the start as its earlier one when only that puts the
// end after it; an element that still starts and ends in one second is kept one second long. Elements
// whose "from" or "to" is missing or unreadable, or that end before they start, are skipped and counted
// (skipped()); other attributes are ignored. An element whose UID was read
// before (in this file or an earlier one) replaces what was read for it.
//
// Main thread, or one thread per object.
class ActivityImport
{
    Q_DECLARE_TR_FUNCTIONS(ActivityImport)

public:
    static constexpr int MaxDepth = 32;
    static constexpr qint64 MaxItemBytes = 4 * 1024 * 1024;
    static constexpr qsizetype MaxTextLength = 1024 * 1024;

    ActivityImport();
    ~ActivityImport();
    ActivityImport(const ActivityImport &) = delete;
    ActivityImport &operator=(const ActivityImport &) = delete;

    // Makes the temporary store on first use; the store's error when it cannot be made.
    std::expected<void, BvError> ensurePersistentStore();
    // The temporary store and its context; null until ensurePersistentStore succeeded.
    Store *temporaryStore() const { return m_store.get(); }
    StoreContext *temporaryContext() const { return m_context.get(); }

    // Stage 1 from the file at url (a local path or a "file:" URL), or from an open device. Answers the
    // activities this call read, in the order of their first element: what a dry run lists. A file
    // without "activity" elements reads nothing and makes no temporary store.
    std::expected<QList<ActivityPtr>, BvError> importActivitiesFromURL(const QString &url);
    std::expected<QList<ActivityPtr>, BvError> importActivitiesFromDevice(QIODevice &device);
    // Every activity of the temporary store, earliest start first.
    std::expected<QList<ActivityPtr>, BvError> listedActivities();
    // What stage 1 skipped or lengthened, over every file this object read.
    const ActivityImportSkipped &skipped() const { return m_skipped; }

    // Stage 2: for each activity, the real activity with its UID (the first found) or a new one takes the
    // UID, invoiced flag, start, end and text, in that order, and every deletion record of that UID is
    // removed, so that the import brings a deleted activity back on every machine. Activities whose
    // lookup fails are left out. One transaction: after a failure the store is as it was.
    static ActivityImportResult importActivities(const QList<ActivityPtr> &activities, Store &intoStore);

private:
    struct Record;
    static std::expected<QList<Record>, BvError> readRecords(QIODevice &device);
    void resetContext();

    std::unique_ptr<QTemporaryDir> m_directory;
    std::unique_ptr<Store> m_store;
    std::unique_ptr<StoreContext> m_context;
    QHash<QString, ActivityPtr> m_byUid;
    ActivityImportSkipped m_skipped;
};
