#include "sync/bvmonthfile.h"

#include <algorithm>
#include <cmath>

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
#include "model/deletedactivity.h"
#include "model/storecontext.h"
#include "sync/bvsyncdateformatter.h"
#include "sync/bvsyncerrors.h"

namespace {

BvError contentError(const char *message)
{
    return BVSyncErrors::error(BVSyncErrors::FileContentCode, QString::fromLatin1(message));
}

struct Element
{
    QString uid;
    QDateTime timeFrom;
    QDateTime timeTo;
    QDateTime createdAt;
    QDateTime modifiedAt;
    QString text;
    bool isInvoiced = false;
};

// The checks of one element, in their designed order; the first failure is the message.
std::expected<Element, BvError> checkElement(const QJsonValue &value)
{
    if (!value.isObject())
        return std::unexpected(contentError("Invalid json file content!"));
    const QJsonObject object = value.toObject();
    const QJsonValue timeFrom = object.value(QLatin1String("time_from"));
    const QJsonValue timeTo = object.value(QLatin1String("time_to"));
    const QJsonValue createdAt = object.value(QLatin1String("created_at"));
    const QJsonValue modifiedAt = object.value(QLatin1String("modified_at"));
    if (!timeFrom.isString())
        return std::unexpected(contentError("Invalid data for activity(1)!"));
    if (!timeTo.isString())
        return std::unexpected(contentError("Invalid data for activity(2)!"));
    if (!createdAt.isString())
        return std::unexpected(contentError("Invalid data for activity(3)!"));
    if (!modifiedAt.isString())
        return std::unexpected(contentError("Invalid data for activity(4)!"));

    Element element;
    const QJsonValue uid = object.value(QLatin1String("uid"));
    if (!uid.isString() || uid.toString().isEmpty())
        return std::unexpected(contentError("No UID for activity!"));
    element.uid = uid.toString();
    element.timeFrom = BVSyncDateFormatter::dateFromString(timeFrom.toString());
    if (!element.timeFrom.isValid())
        return std::unexpected(contentError("No start time for activity!"));
    element.timeTo = BVSyncDateFormatter::dateFromString(timeTo.toString());
    if (!element.timeTo.isValid())
        return std::unexpected(contentError("No end time for activity!"));
    if (DateHelpers::compareBySeconds(element.timeFrom, element.timeTo) == 1)
        return std::unexpected(contentError("Start time for activity is greater than end time"));
    element.createdAt = BVSyncDateFormatter::dateFromString(createdAt.toString());
    if (!element.createdAt.isValid())
        return std::unexpected(contentError("No 'created at' time for activity!"));
    element.modifiedAt = BVSyncDateFormatter::dateFromString(modifiedAt.toString());
    if (!element.modifiedAt.isValid())
        return std::unexpected(contentError("No 'modified at' time for activity!"));
    const QJsonValue text = object.value(QLatin1String("text"));
    if (!text.isString() || text.toString().isEmpty())
        return std::unexpected(contentError("No text for activity!"));
    element.text = text.toString();

    const QJsonValue invoiced = object.value(QLatin1String("is_invoiced"));
    if (!invoiced.isDouble() && !invoiced.isBool())
        return std::unexpected(contentError("Invalid invoiced value for activity!"));
    // The integer value of a number is its whole part: 1.5 counts as 1, -0.5 as 0.
    const double number = invoiced.isBool() ? (invoiced.toBool() ? 1.0 : 0.0) : invoiced.toDouble();
    const double whole = number < 0 ? -std::floor(-number) : std::floor(number);
    if (whole != 0.0 && whole != 1.0)
        return std::unexpected(contentError("Invalid invoiced value for activity (0/1)!"));
    element.isInvoiced = whole == 1.0;
    return element;
}

} // namespace

std::expected<QList<ActivityPtr>, BvError> BVMonthFile::activitiesForMonth(
    StoreContext &context, const BVMonthDateRange &month, const QString &excludedUid)
{
    if (!month.dateFrom().isValid() || !month.dateTo().isValid())
        return QList<ActivityPtr>();
    ActivityQuery query;
    query.startsFrom = month.dateFrom();
    // The last second counts whole: an activity started at 23:59:59.5 on the last day belongs to this
    // month, and the next month starts only at 00:00:00 of its first day.
    query.startsUntil = month.dateTo().addMSecs(999);
    query.order = ActivityQuery::Order::TimeFromAscending;
    std::expected<QList<ActivityPtr>, BvError> fetched = context.fetchActivities(query);
    if (!fetched)
        return fetched;
    QList<ActivityPtr> activities = std::move(*fetched);
    if (!excludedUid.isEmpty())
        activities.removeIf([&](const ActivityPtr &activity) { return activity->uid() == excludedUid; });
    activities.removeIf([](const ActivityPtr &activity) { return activity->isDeleted(); });
    std::stable_sort(activities.begin(), activities.end(),
        [](const ActivityPtr &a, const ActivityPtr &b) { return a->modifiedAt() < b->modifiedAt(); });
    return activities;
}

QList<ActivityHashItem> BVMonthFile::hashItems(const QList<ActivityPtr> &activities)
{
    QList<ActivityHashItem> items;
    items.reserve(activities.size());
    for (const ActivityPtr &activity : activities)
        items.append(ActivityHashItem(activity->uid(), activity->modifiedAt()));
    return items;
}

QString BVMonthFile::hashForActivities(const QList<ActivityPtr> &activities)
{
    return ActivityHashItem::hashForItems(hashItems(activities));
}

QByteArray BVMonthFile::json(const QList<ActivityPtr> &activities)
{
    QJsonArray array;
    for (const ActivityPtr &activity : activities) {
        QJsonObject object;
        object.insert(QLatin1String("uid"), activity->uid());
        object.insert(QLatin1String("time_from"), BVSyncDateFormatter::stringFromDate(activity->timeFrom()));
        object.insert(QLatin1String("time_to"), BVSyncDateFormatter::stringFromDate(activity->timeTo()));
        object.insert(QLatin1String("created_at"), BVSyncDateFormatter::stringFromDate(activity->createdAt()));
        object.insert(QLatin1String("modified_at"), BVSyncDateFormatter::stringFromDate(activity->modifiedAt()));
        object.insert(QLatin1String("is_invoiced"), activity->isInvoiced() ? 1 : 0);
        object.insert(QLatin1String("text"), activity->text());
        array.append(object);
    }
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

std::expected<void, BvError> BVMonthFile::write(const QList<ActivityPtr> &activities, const QString &filePath)
{
    QSaveFile file(filePath);
    const QByteArray bytes = json(activities);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        return std::unexpected(BVSyncErrors::error(BVSyncErrors::FileSystemCode,
            QStringLiteral("Failed to write json data file %1! %2").arg(filePath, file.errorString())));
    }
    return {};
}

std::expected<void, BvError> BVMonthFile::merge(
    StoreContext &context, const QString &filePath, BVTmpSyncFile &file, const BVSyncLog &log)
{
    QFile input(filePath);
    if (!input.open(QIODevice::ReadOnly)) {
        return std::unexpected(BVSyncErrors::error(
            BVSyncErrors::FileContentCode, QStringLiteral("Failed to load json file. %1").arg(input.errorString())));
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(input.readAll(), &parseError);
    input.close();
    if (parseError.error != QJsonParseError::NoError) {
        return std::unexpected(BVSyncErrors::error(BVSyncErrors::FileContentCode,
            QStringLiteral("Failed to load json file. %1").arg(parseError.errorString())));
    }
    if (!document.isArray()) {
        // No parser error stands behind this one: the designed details show "(null)" for it.
        return std::unexpected(contentError("Failed to load json file. (null)"));
    }

    const QJsonArray elements = document.array();
    QList<ActivityHashItem> items;
    items.reserve(elements.size());
    // Fetches read the stored rows only; an element that repeats a uid must find the activity that an
    // earlier element of this file inserted, and no deletion record deleted here may count again.
    QHash<QString, ActivityPtr> insertedHere;
    QHash<QString, ActivityPtr> storedByUid;
    bool storedLoaded = false;
    QSet<const DeletedActivity *> deletedHere;
    QHash<QString, QList<DeletedActivityPtr>> tombstonesByUid;
    bool tombstonesLoaded = false;

    for (const QJsonValue &value : elements) {
        std::expected<Element, BvError> checked = checkElement(value);
        if (!checked)
            return std::unexpected(checked.error());
        const Element &element = *checked;

        // Deletion records are few next to activities: one fetch of them all, at the first element that
        // needs them, costs less than a query per element.
        if (!tombstonesLoaded) {
            std::expected<QList<DeletedActivityPtr>, BvError> all = context.fetchDeletedActivities();
            if (!all)
                return std::unexpected(BVSyncErrors::error(
                    BVSyncErrors::LocalStorageCode, QStringLiteral("Failed to check if activity is deleted")));
            for (const DeletedActivityPtr &tombstone : std::as_const(*all))
                tombstonesByUid[tombstone->uid()].append(tombstone);
            tombstonesLoaded = true;
        }
        bool isDeleted = false;
        for (const DeletedActivityPtr &tombstone : tombstonesByUid.value(element.uid)) {
            if (deletedHere.contains(tombstone.get()))
                continue;
            // Edited after it was deleted elsewhere: the activity comes back and the deletion is void.
            if (DateHelpers::compareBySeconds(element.modifiedAt, tombstone->deletedAt()) == 1) {
                context.deleteObject(tombstone);
                deletedHere.insert(tombstone.get());
            } else {
                isDeleted = true;
            }
        }
        if (isDeleted) {
            const QString line = QStringLiteral("Activity (UID: %1) is marked as deleted, skipping").arg(element.uid);
            qCInfo(lcSync).noquote() << line;
            if (log)
                log(line);
            continue;
        }

        // One fetch for every uid of the file, at the first element that needs it, instead of a query
        // per element: a file holds up to a month of activities, and a first sync merges years of them.
        if (!storedLoaded) {
            QStringList uids;
            uids.reserve(elements.size());
            for (const QJsonValue &candidate : elements) {
                const QJsonValue uid = candidate.toObject().value(QStringLiteral("uid"));
                if (uid.isString() && !uid.toString().isEmpty())
                    uids.append(uid.toString());
            }
            std::expected<QHash<QString, ActivityPtr>, BvError> found = context.activitiesWithUids(uids);
            if (!found)
                return std::unexpected(
                    BVSyncErrors::error(BVSyncErrors::LocalStorageCode, QStringLiteral("Failed to process activity!")));
            storedByUid = std::move(*found);
            storedLoaded = true;
        }
        ActivityPtr activity = insertedHere.value(element.uid);
        if (!activity) {
            activity = storedByUid.value(element.uid);
            if (activity && activity->isDeleted())
                activity.reset();
        }
        items.append(ActivityHashItem(element.uid, element.modifiedAt));

        if (activity) {
            // The local copy wins unless the file's copy was modified in a later second.
            if (DateHelpers::compareBySeconds(activity->modifiedAt(), element.modifiedAt) != -1)
                continue;
        } else {
            activity = context.insertActivity();
            insertedHere.insert(element.uid, activity);
        }
        activity->setUid(element.uid);
        activity->setTimeFrom(element.timeFrom);
        activity->setTimeTo(element.timeTo);
        activity->setCreatedAt(element.createdAt);
        activity->setModifiedAt(element.modifiedAt);
        activity->setText(element.text);
        activity->setIsInvoiced(element.isInvoiced);
    }

    if (std::expected<void, BvError> saved = context.save(); !saved)
        return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("25"), saved.error()));

    file.setActivityHash(ActivityHashItem::hashForItems(items));
    if (std::expected<void, BvError> stored = file.store(context); !stored)
        return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("26"), stored.error()));
    if (std::expected<void, BvError> saved = context.save(); !saved)
        return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("26"), saved.error()));
    return {};
}
