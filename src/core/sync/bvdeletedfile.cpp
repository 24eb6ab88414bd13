#include "sync/bvdeletedfile.h"

#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QSaveFile>
#include <QSet>

#include "base/datehelpers.h"
#include "base/logging.h"
#include "model/activityquery.h"
#include "model/storecontext.h"
#include "sync/bvsyncdateformatter.h"
#include "sync/bvsyncerrors.h"

namespace {

void logLine(const BVSyncLog &log, const QString &line)
{
    qCInfo(lcSync).noquote() << line;
    if (log)
        log(line);
}

// How a value shows in a log line: a string as it is, a missing value as "(null)".
QString shown(const QJsonValue &value)
{
    if (value.isString())
        return value.toString();
    if (value.isUndefined() || value.isNull())
        return QStringLiteral("(null)");
    if (value.isBool())
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    if (value.isDouble())
        return QString::number(value.toDouble(), 'g', 17);
    if (value.isArray())
        return QString::fromUtf8(QJsonDocument(value.toArray()).toJson(QJsonDocument::Compact));
    return QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact));
}

std::expected<QList<ActivityPtr>, BvError> activitiesWithUid(StoreContext &context, const QString &uid)
{
    ActivityQuery query;
    query.uid = uid;
    std::expected<QList<ActivityPtr>, BvError> found = context.fetchActivities(query);
    if (found)
        found->removeIf([](const ActivityPtr &activity) { return activity->isDeleted(); });
    return found;
}

} // namespace

std::expected<QList<ActivityHashItem>, BvError> BVDeletedFile::read(
    const QString &filePath, const QTimeZone &zone, const BVSyncLog &log)
{
    QFile input(filePath);
    if (!input.open(QIODevice::ReadOnly)) {
        return std::unexpected(BVSyncErrors::error(
            BVSyncErrors::FileContentCode, QStringLiteral("Failed to read deleted.json %1").arg(input.errorString())));
    }
    return read(input.readAll(), zone, log);
}

std::expected<QList<ActivityHashItem>, BvError> BVDeletedFile::read(
    const QByteArray &content, const QTimeZone &zone, const BVSyncLog &log)
{
    const BVSyncDateFormatter dates(zone);
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(content, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        return std::unexpected(BVSyncErrors::error(BVSyncErrors::FileContentCode,
            QStringLiteral("Failed to read deleted.json %1").arg(parseError.errorString())));
    }
    if (!document.isArray()) {
        return std::unexpected(BVSyncErrors::error(
            BVSyncErrors::FileContentCode, QStringLiteral("deleted.json does not contain array of items!")));
    }
    const QJsonArray elements = document.array();
    QList<ActivityHashItem> items;
    items.reserve(elements.size());
    for (const QJsonValue &value : elements) {
        const QJsonObject object = value.toObject();
        const QJsonValue uid = object.value(QLatin1String("uid"));
        const QJsonValue deletedAt = object.value(QLatin1String("deleted_at"));
        if (!value.isObject() || !uid.isString() || !deletedAt.isString()) {
            const QString line = QStringLiteral("Invalid deleted.json entity (uid: %1; deleted_at: %2).")
                                     .arg(shown(uid), shown(deletedAt));
            logLine(log, line);
            return std::unexpected(BVSyncErrors::error(BVSyncErrors::FileContentCode, line));
        }
        const QDateTime date = dates.dateFromString(deletedAt.toString());
        if (!date.isValid()) {
            const QString line = QStringLiteral("Invalid date for deleted.json entity (uid: %1; deleted_at: %2).")
                                     .arg(uid.toString(), deletedAt.toString());
            logLine(log, line);
            return std::unexpected(BVSyncErrors::error(BVSyncErrors::FileContentCode, line));
        }
        items.append(ActivityHashItem(uid.toString(), date));
    }
    return items;
}

std::expected<void, BvError> BVDeletedFile::apply(StoreContext &context, const QList<ActivityHashItem> &entries)
{
    // Fetches read the stored rows only: records inserted or deleted for earlier entries of this pass are
    // tracked here, so that an entry repeating a uid sees what the one before it left.
    QHash<QString, QList<DeletedActivityPtr>> insertedHere;
    QSet<const DeletedActivity *> deletedHere;

    for (const ActivityHashItem &entry : entries) {
        std::expected<QList<DeletedActivityPtr>, BvError> stored = context.fetchDeletedActivities(entry.uid());
        if (!stored)
            return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("7"), stored.error()));
        QList<DeletedActivityPtr> records;
        for (const DeletedActivityPtr &record : std::as_const(*stored)) {
            if (!deletedHere.contains(record.get()))
                records.append(record);
        }
        records += insertedHere.value(entry.uid());

        bool laterRecord = false;
        for (const DeletedActivityPtr &record : std::as_const(records)) {
            if (DateHelpers::compareBySeconds(record->deletedAt(), entry.modifiedAt()) == 1) {
                laterRecord = true;
                continue;
            }
            context.deleteObject(record);
            deletedHere.insert(record.get());
            insertedHere[entry.uid()].removeOne(record);
        }
        if (laterRecord)
            continue;

        std::expected<QList<ActivityPtr>, BvError> activities = activitiesWithUid(context, entry.uid());
        if (!activities)
            return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("8"), activities.error()));
        // An edit after the deletion wins over it.
        const bool editedLater = std::any_of(activities->cbegin(), activities->cend(), [&](const ActivityPtr &a) {
            return DateHelpers::compareBySeconds(a->modifiedAt(), entry.modifiedAt()) == 1;
        });
        if (editedLater)
            continue;

        DeletedActivityPtr record = context.insertDeletedActivity();
        record->setUid(entry.uid());
        record->setIsSynced(true);
        record->setDeletedAt(entry.modifiedAt());
        insertedHere[entry.uid()].append(record);
    }
    if (std::expected<void, BvError> saved = context.save(); !saved)
        return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("9"), saved.error()));

    std::expected<QList<DeletedActivityPtr>, BvError> records = context.fetchDeletedActivities();
    if (!records)
        return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("10"), records.error()));
    for (const DeletedActivityPtr &record : std::as_const(*records)) {
        std::expected<QList<ActivityPtr>, BvError> activities = activitiesWithUid(context, record->uid());
        if (!activities)
            return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("11"), activities.error()));
        bool editedLater = false;
        for (const ActivityPtr &activity : std::as_const(*activities)) {
            if (DateHelpers::compareBySeconds(activity->modifiedAt(), record->deletedAt()) == 1) {
                editedLater = true;
                continue;
            }
            // The record that causes this deletion exists already: no new one is made.
            context.deleteObject(activity);
        }
        if (editedLater)
            context.deleteObject(record);
    }
    if (std::expected<void, BvError> saved = context.save(); !saved)
        return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("12"), saved.error()));
    return {};
}

std::expected<void, BvError> BVDeletedFile::merge(
    StoreContext &context, const QString &filePath, BVTmpSyncFile &file, const QTimeZone &zone, const BVSyncLog &log)
{
    std::expected<QList<ActivityHashItem>, BvError> entries = read(filePath, zone, log);
    if (!entries) {
        return std::unexpected(BVSyncErrors::error(BVSyncErrors::FileContentCode,
            QStringLiteral("Failed to read deleted items! %1").arg(entries.error().message())));
    }
    if (std::expected<void, BvError> applied = apply(context, *entries); !applied)
        return applied;
    file.setActivityHash(ActivityHashItem::hashForItems(*entries, zone));
    if (std::expected<void, BvError> stored = file.store(context); !stored)
        return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("26"), stored.error()));
    if (std::expected<void, BvError> saved = context.save(); !saved)
        return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("26"), saved.error()));
    return {};
}

QByteArray BVDeletedFile::json(const QList<DeletedActivityPtr> &records, const QTimeZone &zone)
{
    const BVSyncDateFormatter dates(zone);
    QJsonArray array;
    for (const DeletedActivityPtr &record : records) {
        QJsonObject object;
        object.insert(QLatin1String("uid"), record->uid());
        object.insert(QLatin1String("deleted_at"), dates.stringFromDate(record->deletedAt()));
        array.append(object);
    }
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

std::expected<std::optional<QString>, BvError> BVDeletedFile::write(
    StoreContext &context, BVTmpSyncFile &file, const QString &filePath, const QTimeZone &zone, const BVSyncLog &log)
{
    std::expected<QList<DeletedActivityPtr>, BvError> records = context.fetchDeletedActivities();
    if (!records)
        return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("13"), records.error()));
    QList<ActivityHashItem> items;
    items.reserve(records->size());
    for (const DeletedActivityPtr &record : std::as_const(*records))
        items.append(ActivityHashItem(record->uid(), record->deletedAt()));
    const QString hash = ActivityHashItem::hashForItems(items, zone);
    if (!file.activityHash())
        file.setActivityHash(ActivityHashItem::hashForItems({}, zone));
    if (hash == *file.activityHash()) {
        logLine(log, QStringLiteral("Deleted activities not changed, not uploading ..."));
        return std::optional<QString>();
    }
    QSaveFile output(filePath);
    const QByteArray bytes = json(*records, zone);
    if (!output.open(QIODevice::WriteOnly) || output.write(bytes) != bytes.size() || !output.commit()) {
        return std::unexpected(BVSyncErrors::error(BVSyncErrors::FileSystemCode,
            QStringLiteral("Failed to write data to local deleted.json file: %1").arg(output.errorString())));
    }
    return std::optional<QString>(hash);
}
