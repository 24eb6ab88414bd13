#include "export/activityimport.h"

#include <QDir>
#include <QFile>
#include <QSet>
#include <QTemporaryDir>
#include <QUrl>
#include <QXmlStreamReader>

#include "base/datehelpers.h"
#include "base/logging.h"
#include "export/activitydateformatter.h"
#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "sync/bvsyncdateformatter.h"

namespace {

constexpr qint64 kChunkBytes = 64 * 1024;
// Up to this many activities are looked up one by one in the real store; above, one read of the whole
// store and its deletion records is cheaper than a query per activity.
constexpr qsizetype kLookupEachUpTo = 256;

BvError importError(int code, const QString &description)
{
    return BvError(QString::fromLatin1(ActivityImportErrors::Domain), code, description);
}

QString localPath(const QString &url)
{
    if (url.startsWith(QLatin1String("file:"), Qt::CaseInsensitive))
        return QUrl(url).toLocalFile();
    return url;
}

} // namespace

struct ActivityImport::Record
{
    std::optional<QString> uid;
    bool invoiced = false;
    std::optional<QString> from;
    std::optional<QString> to;
    QString text = QStringLiteral("");
};

QString ActivityImportSkipped::text() const
{
    QStringList reasons;
    if (unreadableTimes > 0)
        reasons.append(tr("%1 without readable \"from\" and \"to\" times").arg(unreadableTimes));
    if (endBeforeStart > 0)
        reasons.append(endBeforeStart == 1 ? tr("1 ending before it starts")
                                           : tr("%1 ending before they start").arg(endBeforeStart));
    QStringList parts;
    if (total() > 0)
        parts.append((total() == 1 ? tr("Skipped 1 element: ") : tr("Skipped %1 elements: ").arg(total()))
            + reasons.join(QStringLiteral(", ")));
    if (lengthened > 0)
        parts.append(lengthened == 1
                ? tr("kept 1 element that starts and ends in one second one second long")
                : tr("kept %1 elements that start and end in one second one second long").arg(lengthened));
    QString text = parts.join(QStringLiteral("; "));
    if (!text.isEmpty())
        text[0] = text.at(0).toUpper();
    return text;
}

QString ActivityImportResult::text() const
{
    if (error)
        return tr("Error occurred!");
    return tr("Imported %1 activities").arg(count);
}

ActivityImport::ActivityImport() = default;

ActivityImport::~ActivityImport()
{
    m_byUid.clear();
    m_context.reset();
    m_store.reset();
}

std::expected<void, BvError> ActivityImport::ensurePersistentStore()
{
    if (!m_store) {
        auto directory
            = std::make_unique<QTemporaryDir>(QDir(QDir::tempPath()).filePath(QStringLiteral("brimVale.XXXXXX")));
        if (!directory->isValid()) {
            const BvError error(QString::fromLatin1(BvErrorDomain::Cocoa), 512,
                tr("Could not create a temporary folder: %1").arg(directory->errorString()));
            qCWarning(lcExport).noquote() << error.description();
            return std::unexpected(error);
        }
        StoreOptions options;
        options.applicationFilesDirectory = directory->path();
        std::expected<std::unique_ptr<Store>, BvError> store = Store::open(options);
        if (!store)
            return std::unexpected(store.error());
        m_directory = std::move(directory);
        m_store = std::move(*store);
    }
    if (!m_context)
        m_context = m_store->newContext();
    return {};
}

std::expected<QList<ActivityPtr>, BvError> ActivityImport::importActivitiesFromURL(const QString &url)
{
    QFile file(localPath(url));
    if (!file.open(QIODevice::ReadOnly)) {
        const BvError error = importError(
            ActivityImportErrors::UnreadableCode, tr("Cannot read %1: %2").arg(file.fileName(), file.errorString()));
        qCWarning(lcExport).noquote() << QStringLiteral("Import refused: %1").arg(error.description());
        return std::unexpected(error);
    }
    return importActivitiesFromDevice(file);
}

std::expected<QList<ActivityPtr>, BvError> ActivityImport::importActivitiesFromDevice(QIODevice &device)
{
    std::expected<QList<Record>, BvError> records = readRecords(device);
    if (!records) {
        qCWarning(lcExport).noquote() << QStringLiteral("Import refused: %1").arg(records.error().description());
        return std::unexpected(records.error());
    }
    if (records->isEmpty())
        return QList<ActivityPtr>();
    if (std::expected<void, BvError> ready = ensurePersistentStore(); !ready)
        return std::unexpected(ready.error());

    const ActivityDateFormatter formatter(QStringLiteral("yyy-MM-dd'T'HH:mm:ss"));
    const BVSyncDateFormatter zone(QTimeZone::systemTimeZone());
    QList<ActivityPtr> read;
    QSet<const Activity *> seen;
    for (const Record &record : std::as_const(*records)) {
        QDate fromDay;
        QTime fromTime;
        QDate toDay;
        QTime toTime;
        if (!record.from || !record.to || !formatter.wallTimeFromString(*record.from, &fromDay, &fromTime)
            || !formatter.wallTimeFromString(*record.to, &toDay, &toTime)) {
            ++m_skipped.unreadableTimes;
            continue;
        }
        // A repeated wall time reads as its later instant, unless only the earlier start puts the end
        // after it: an activity inside the hour that the autumn change repeats is written "02:30"-"02:30".
        QDateTime from = zone.instantFromWall(fromDay, fromTime);
        QDateTime to = zone.instantFromWall(toDay, toTime);
        if (DateHelpers::compareBySeconds(from, to) != -1) {
            const QDateTime earlier = zone.instantFromWall(fromDay, fromTime, BVSyncDateFormatter::Reading::Earlier);
            if (DateHelpers::compareBySeconds(earlier, to) == -1)
                from = earlier;
        }
        if (DateHelpers::compareBySeconds(from, to) == 1) {
            ++m_skipped.endBeforeStart;
            continue;
        }
        // The store holds no activity shorter than a second; kept one second long, such an element
        // neither fails the whole import nor gets lost.
        if (DateHelpers::compareBySeconds(from, to) == 0) {
            to = from.addSecs(1);
            ++m_skipped.lengthened;
        }
        const QString uid = record.uid ? record.uid->trimmed() : QString();
        ActivityPtr activity = uid.isEmpty() ? ActivityPtr() : m_byUid.value(uid);
        if (!activity) {
            activity = m_context->insertActivity();
            if (!uid.isEmpty())
                activity->setUid(uid);
            m_byUid.insert(activity->uid(), activity);
        }
        activity->setIsInvoiced(record.invoiced);
        activity->setTimeFrom(from);
        activity->setTimeTo(to);
        activity->setText(record.text);
        if (!seen.contains(activity.get())) {
            seen.insert(activity.get());
            read.append(activity);
        }
    }
    if (std::expected<void, BvError> saved = m_context->save(); !saved) {
        resetContext();
        return std::unexpected(saved.error());
    }
    return read;
}

std::expected<QList<ActivityPtr>, BvError> ActivityImport::listedActivities()
{
    if (!m_context)
        return QList<ActivityPtr>();
    ActivityQuery query;
    query.order = ActivityQuery::Order::TimeFromAscending;
    return m_context->fetchActivities(query);
}

void ActivityImport::resetContext()
{
    // After a failed save the context's objects no longer match the store; start again from what is stored.
    m_byUid.clear();
    m_context = m_store->newContext();
    if (std::expected<QList<ActivityPtr>, BvError> stored = m_context->fetchActivities()) {
        for (const ActivityPtr &activity : std::as_const(*stored))
            m_byUid.insert(activity->uid(), activity);
    }
}

std::expected<QList<ActivityImport::Record>, BvError> ActivityImport::readRecords(QIODevice &device)
{
    using namespace ActivityImportErrors;
    // The file is fed to the reader piece by piece and every token is dealt with as it comes, so memory
    // stays bounded by the largest single token, which is capped as well.
    QXmlStreamReader reader;
    QList<Record> records;
    std::optional<Record> current;
    int depth = 0;
    bool rootClosed = false;
    bool atEnd = false;
    qint64 sinceLastToken = 0;
    QByteArray chunk(kChunkBytes, Qt::Uninitialized);

    auto notXml = [&reader] {
        return std::unexpected(importError(NotXmlCode,
            tr("Not a well-formed XML file: %1 (line %2, column %3)")
                .arg(reader.errorString())
                .arg(reader.lineNumber())
                .arg(reader.columnNumber())));
    };
    auto documentType = [] {
        return std::unexpected(importError(DocumentTypeCode,
            tr("The file declares a document type or entities; activity files never do, and such files "
               "are refused")));
    };
    auto tooLarge = [] {
        return std::unexpected(importError(TooLargeCode,
            tr("The file holds a single item larger than %1 MB; it is not an activity file")
                .arg(MaxItemBytes / (1024 * 1024))));
    };

    for (;;) {
        const QXmlStreamReader::TokenType token = reader.readNext();
        if (token == QXmlStreamReader::Invalid) {
            if (reader.error() != QXmlStreamReader::PrematureEndOfDocumentError)
                return notXml();
            if (atEnd) {
                // Whatever may follow the root (comments, white space) is optional, so the reader waits
                // for more; once the root is closed the end of the file is the end of the document.
                if (rootClosed)
                    break;
                return notXml();
            }
            const qint64 read = device.read(chunk.data(), chunk.size());
            if (read < 0) {
                return std::unexpected(
                    importError(UnreadableCode, tr("Cannot read the file: %1").arg(device.errorString())));
            }
            if (read == 0) {
                if (!device.isSequential() || device.atEnd() || !device.waitForReadyRead(30000))
                    atEnd = true;
                continue;
            }
            sinceLastToken += read;
            if (sinceLastToken > MaxItemBytes)
                return tooLarge();
            reader.addData(QByteArray(chunk.constData(), read));
            continue;
        }
        sinceLastToken = 0;

        switch (token) {
        case QXmlStreamReader::DTD:
        case QXmlStreamReader::EntityReference:
            return documentType();
        case QXmlStreamReader::StartElement:
            if (++depth > MaxDepth) {
                return std::unexpected(importError(TooDeepCode,
                    tr("Elements are nested deeper than %1 levels; activity files have two").arg(MaxDepth)));
            }
            if (depth == 1 && reader.qualifiedName() != QLatin1String("activities")) {
                return std::unexpected(importError(WrongRootCode,
                    tr("The root element is \"%1\", not \"activities\"").arg(reader.qualifiedName().toString())));
            }
            if (depth == 2 && reader.qualifiedName() == QLatin1String("activity")) {
                const QXmlStreamAttributes attributes = reader.attributes();
                Record record;
                if (attributes.hasAttribute(QLatin1String("uid")))
                    record.uid = attributes.value(QLatin1String("uid")).toString();
                record.invoiced = attributes.value(QLatin1String("invoiced")) == QLatin1String("1");
                if (attributes.hasAttribute(QLatin1String("from")))
                    record.from = attributes.value(QLatin1String("from")).toString();
                if (attributes.hasAttribute(QLatin1String("to")))
                    record.to = attributes.value(QLatin1String("to")).toString();
                current = std::move(record);
            }
            break;
        case QXmlStreamReader::EndElement:
            if (depth == 2 && current) {
                records.append(std::move(*current));
                current.reset();
            }
            if (depth == 1)
                rootClosed = true;
            --depth;
            break;
        case QXmlStreamReader::Characters:
            if (current) {
                current->text += reader.text();
                if (current->text.size() > MaxTextLength) {
                    return std::unexpected(importError(TooLargeCode,
                        tr("An activity's text is longer than %1 characters; it is not an activity file")
                            .arg(MaxTextLength)));
                }
            }
            break;
        case QXmlStreamReader::EndDocument:
            return records;
        default:
            break;
        }
    }
    return records;
}

ActivityImportResult ActivityImport::importActivities(const QList<ActivityPtr> &activities, Store &intoStore)
{
    ActivityImportResult result;
    auto fail = [&result](const BvError &error) {
        qCWarning(lcExport).noquote() << QStringLiteral("Import failed: %1").arg(error.message());
        result.count = 0;
        result.error = error;
        return result;
    };

    std::unique_ptr<StoreContext> context = intoStore.newContext();
    const bool lookUpEach = activities.size() <= kLookupEachUpTo;
    QHash<QString, ActivityPtr> stored;
    QHash<QString, QList<DeletedActivityPtr>> tombstones;
    if (!lookUpEach) {
        std::expected<QList<ActivityPtr>, BvError> all = context->fetchActivities();
        if (!all)
            return fail(all.error());
        for (const ActivityPtr &activity : std::as_const(*all)) {
            if (!stored.contains(activity->uid()))
                stored.insert(activity->uid(), activity);
        }
        std::expected<QList<DeletedActivityPtr>, BvError> deleted = context->fetchDeletedActivities();
        if (!deleted)
            return fail(deleted.error());
        for (const DeletedActivityPtr &tombstone : std::as_const(*deleted))
            tombstones[tombstone->uid()].append(tombstone);
    }

    // An activity already written in this run is the match for a second one of the same UID: the store
    // has not seen the first yet.
    QHash<QString, ActivityPtr> written;
    for (const ActivityPtr &source : activities) {
        if (!source)
            continue;
        const QString uid = source->uid();
        ActivityPtr target = written.value(uid);
        if (!target) {
            if (lookUpEach) {
                std::expected<ActivityPtr, BvError> found = context->activityWithUid(uid);
                if (!found)
                    continue;
                target = *found;
            } else {
                target = stored.value(uid);
            }
        }
        const bool overwrites = target != nullptr;
        if (!target)
            target = context->insertActivity();
        // An overwritten activity that changes is a new version: a fresh modification time lets sync carry
        // it to the other machines, where the later version wins.
        const bool changes = overwrites
            && (target->isInvoiced() != source->isInvoiced() || target->timeFrom() != source->timeFrom()
                || target->timeTo() != source->timeTo() || target->text() != source->text());
        target->setUid(uid);
        target->setIsInvoiced(source->isInvoiced());
        target->setTimeFrom(source->timeFrom());
        target->setTimeTo(source->timeTo());
        target->setText(source->text());
        if (changes)
            target->setModifiedAt(context->now());

        QList<DeletedActivityPtr> deleted;
        if (lookUpEach) {
            std::expected<QList<DeletedActivityPtr>, BvError> found = context->fetchDeletedActivities(uid);
            if (!found)
                return fail(found.error());
            deleted = *found;
        } else {
            deleted = tombstones.take(uid);
        }
        for (const DeletedActivityPtr &tombstone : std::as_const(deleted))
            context->deleteObject(tombstone);

        written.insert(uid, target);
        ++result.count;
    }

    if (std::expected<void, BvError> saved = context->save(); !saved)
        return fail(saved.error());
    qCInfo(lcExport).noquote() << QStringLiteral("Imported %1 activities").arg(result.count);
    return result;
}
