#include "sync/bvmonthfile.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string_view>
#include <vector>

#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QLatin1StringView>
#include <QSaveFile>
#include <QSet>

#include "base/datehelpers.h"
#include "base/logging.h"
#include "model/activityquery.h"
#include "model/activityrecord.h"
#include "model/deletedactivity.h"
#include "model/storecontext.h"
#include "sync/bvsyncdateformatter.h"
#include "sync/bvsyncerrors.h"

namespace {

BvError contentError(const char *message)
{
    return BVSyncErrors::error(BVSyncErrors::FileContentCode, QString::fromLatin1(message));
}

// One member of an element as the reading checks see it.
struct Field
{
    enum class Kind { Absent, String, Number, Bool, Other };
    Kind kind = Kind::Absent;
    // A String: plain ASCII stays a view into the file's bytes, anything else is decoded into `text`.
    QLatin1StringView ascii;
    QString text;
    double number = 0; // a Bool counts 0 or 1

    bool isString() const { return kind == Kind::String; }
    bool isEmptyString() const { return ascii.data() ? ascii.isEmpty() : text.isEmpty(); }
    QString string() const { return ascii.data() ? QString(ascii) : text; }
    QDateTime date(const BVSyncDateFormatter &dates,
        BVSyncDateFormatter::Reading reading = BVSyncDateFormatter::Reading::Later) const
    {
        return ascii.data() ? dates.dateFromString(ascii, reading) : dates.dateFromString(text, reading);
    }
};

struct RawElement
{
    bool isObject = true;
    Field uid;
    Field timeFrom;
    Field timeTo;
    Field createdAt;
    Field modifiedAt;
    Field text;
    Field invoiced;
};

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
std::expected<Element, BvError> checkElement(const RawElement &raw, const BVSyncDateFormatter &dates)
{
    if (!raw.isObject)
        return std::unexpected(contentError("Invalid json file content!"));
    if (!raw.timeFrom.isString())
        return std::unexpected(contentError("Invalid data for activity(1)!"));
    if (!raw.timeTo.isString())
        return std::unexpected(contentError("Invalid data for activity(2)!"));
    if (!raw.createdAt.isString())
        return std::unexpected(contentError("Invalid data for activity(3)!"));
    if (!raw.modifiedAt.isString())
        return std::unexpected(contentError("Invalid data for activity(4)!"));

    Element element;
    if (!raw.uid.isString() || raw.uid.isEmptyString())
        return std::unexpected(contentError("No UID for activity!"));
    element.timeFrom = raw.timeFrom.date(dates);
    if (!element.timeFrom.isValid())
        return std::unexpected(contentError("No start time for activity!"));
    // Repeated wall times read as the later instant. An activity inside the hour that the autumn change
    // repeats is written "02:30"-"02:30" (00:30Z-01:30Z in Berlin): when the end does not lie after the
    // start, the start's earlier reading is the one that makes sense of the element.
    element.timeTo = raw.timeTo.date(dates);
    if (!element.timeTo.isValid())
        return std::unexpected(contentError("No end time for activity!"));
    if (DateHelpers::compareBySeconds(element.timeFrom, element.timeTo) != -1) {
        const QDateTime earlier = raw.timeFrom.date(dates, BVSyncDateFormatter::Reading::Earlier);
        if (DateHelpers::compareBySeconds(earlier, element.timeTo) == -1)
            element.timeFrom = earlier;
    }
    if (DateHelpers::compareBySeconds(element.timeFrom, element.timeTo) == 1)
        return std::unexpected(contentError("Start time for activity is greater than end time"));
    // The store holds no activity shorter than a second; an element that starts and ends in one second
    // (a hand-edited file) would otherwise stop every run on every machine.
    if (DateHelpers::compareBySeconds(element.timeFrom, element.timeTo) == 0)
        element.timeTo
            = QDateTime::fromMSecsSinceEpoch((DateHelpers::floorSeconds(element.timeFrom) + 1) * 1000, Qt::UTC);
    element.createdAt = raw.createdAt.date(dates);
    if (!element.createdAt.isValid())
        return std::unexpected(contentError("No 'created at' time for activity!"));
    element.modifiedAt = raw.modifiedAt.date(dates);
    if (!element.modifiedAt.isValid())
        return std::unexpected(contentError("No 'modified at' time for activity!"));
    if (!raw.text.isString() || raw.text.isEmptyString())
        return std::unexpected(contentError("No text for activity!"));

    if (raw.invoiced.kind != Field::Kind::Number && raw.invoiced.kind != Field::Kind::Bool)
        return std::unexpected(contentError("Invalid invoiced value for activity!"));
    // The integer value of a number is its whole part: 1.5 counts as 1, -0.5 as 0.
    const double number = raw.invoiced.number;
    const double whole = number < 0 ? -std::floor(-number) : std::floor(number);
    if (whole != 0.0 && whole != 1.0)
        return std::unexpected(contentError("Invalid invoiced value for activity (0/1)!"));
    element.isInvoiced = whole == 1.0;
    element.uid = raw.uid.string();
    element.text = raw.text.string();
    return element;
}

// The elements of a file in order, checked, up to the first one that fails a check.
struct CheckedElements
{
    explicit CheckedElements(const BVSyncDateFormatter &formatter)
        : dates(formatter)
    { }

    const BVSyncDateFormatter &dates;
    std::vector<Element> elements;
    std::optional<BvError> failure; // the check that ended the list

    void add(const RawElement &raw)
    {
        if (failure)
            return;
        std::expected<Element, BvError> element = checkElement(raw, dates);
        if (element)
            elements.push_back(std::move(*element));
        else
            failure = element.error();
    }
};

Field fieldOf(const QJsonObject &object, QLatin1StringView key)
{
    const QJsonValue value = object.value(key);
    Field field;
    switch (value.type()) {
    case QJsonValue::Undefined:
        break;
    case QJsonValue::String:
        field.kind = Field::Kind::String;
        field.text = value.toString();
        break;
    case QJsonValue::Double:
        field.kind = Field::Kind::Number;
        field.number = value.toDouble();
        break;
    case QJsonValue::Bool:
        field.kind = Field::Kind::Bool;
        field.number = value.toBool() ? 1.0 : 0.0;
        break;
    default:
        field.kind = Field::Kind::Other;
        break;
    }
    return field;
}

RawElement rawElement(const QJsonValue &value)
{
    RawElement element;
    if (!value.isObject()) {
        element.isObject = false;
        return element;
    }
    const QJsonObject object = value.toObject();
    element.uid = fieldOf(object, QLatin1StringView("uid"));
    element.timeFrom = fieldOf(object, QLatin1StringView("time_from"));
    element.timeTo = fieldOf(object, QLatin1StringView("time_to"));
    element.createdAt = fieldOf(object, QLatin1StringView("created_at"));
    element.modifiedAt = fieldOf(object, QLatin1StringView("modified_at"));
    element.text = fieldOf(object, QLatin1StringView("text"));
    element.invoiced = fieldOf(object, QLatin1StringView("is_invoiced"));
    return element;
}

// Well-formed UTF-8 without noncharacters. QJsonDocument refuses malformed sequences with an error of
// its own; whatever this refuses is left to it.
bool isPlainUtf8(const char *p, const char *end)
{
    while (p < end) {
        const auto lead = static_cast<unsigned char>(*p);
        if (lead < 0x80) {
            ++p;
            continue;
        }
        int continuation = 0;
        char32_t point = 0;
        if (lead >= 0xc2 && lead <= 0xdf) {
            continuation = 1;
            point = lead & 0x1f;
        } else if (lead >= 0xe0 && lead <= 0xef) {
            continuation = 2;
            point = lead & 0x0f;
        } else if (lead >= 0xf0 && lead <= 0xf4) {
            continuation = 3;
            point = lead & 0x07;
        } else {
            return false;
        }
        if (end - p <= continuation)
            return false;
        for (int i = 1; i <= continuation; ++i) {
            const auto byte = static_cast<unsigned char>(p[i]);
            if ((byte & 0xc0) != 0x80)
                return false;
            point = (point << 6) | (byte & 0x3f);
        }
        if ((continuation == 2 && (point < 0x800 || (point >= 0xd800 && point <= 0xdfff)))
            || (continuation == 3 && (point < 0x10000 || point > 0x10ffff)))
            return false;
        if ((point & 0xfffe) == 0xfffe || (point >= 0xfdd0 && point <= 0xfdef))
            return false;
        p += continuation + 1;
    }
    return true;
}

// Reads the form json() writes, and only that: an array of objects whose members are the known keys,
// each at most once, with string values or the numbers 0 and 1; strings without \u escapes or control
// characters. A first sync reads a hundred such files, and building a QJsonDocument for each cost more
// than everything else done with them before the store. Anything outside that form is refused and goes
// through QJsonDocument, which stays the authority on what a file holds and on its error texts.
class CompactReader
{
public:
    explicit CompactReader(QByteArrayView bytes)
        : m_p(bytes.data())
        , m_end(bytes.data() + bytes.size())
    { }

    // Hands each element to `checked` in order; false, perhaps after handing over some, when the bytes
    // are not in the compact form.
    bool read(CheckedElements &checked)
    {
        skipSpace();
        if (!take('['))
            return false;
        skipSpace();
        if (!take(']')) {
            do {
                skipSpace();
                RawElement element;
                if (!take('{') || !readObject(element))
                    return false;
                checked.add(element);
                skipSpace();
            } while (take(','));
            if (!take(']'))
                return false;
        }
        skipSpace();
        return m_p == m_end;
    }

private:
    void skipSpace()
    {
        while (m_p < m_end && (*m_p == ' ' || *m_p == '\t' || *m_p == '\n' || *m_p == '\r'))
            ++m_p;
    }

    bool take(char c)
    {
        if (m_p < m_end && *m_p == c) {
            ++m_p;
            return true;
        }
        return false;
    }

    bool readObject(RawElement &element)
    {
        skipSpace();
        if (take('}'))
            return true;
        do {
            skipSpace();
            Field *field = readKey(element);
            if (!field || field->kind != Field::Kind::Absent)
                return false;
            skipSpace();
            if (!take(':'))
                return false;
            skipSpace();
            if (!readValue(*field))
                return false;
            skipSpace();
        } while (take(','));
        return take('}');
    }

    Field *readKey(RawElement &element)
    {
        if (!take('"'))
            return nullptr;
        const char *begin = m_p;
        while (m_p < m_end && *m_p != '"') {
            if (*m_p == '\\')
                return nullptr;
            ++m_p;
        }
        if (m_p == m_end)
            return nullptr;
        const std::string_view key(begin, std::size_t(m_p - begin));
        ++m_p;
        if (key == "uid")
            return &element.uid;
        if (key == "time_from")
            return &element.timeFrom;
        if (key == "time_to")
            return &element.timeTo;
        if (key == "created_at")
            return &element.createdAt;
        if (key == "modified_at")
            return &element.modifiedAt;
        if (key == "text")
            return &element.text;
        if (key == "is_invoiced")
            return &element.invoiced;
        return nullptr;
    }

    bool readValue(Field &field)
    {
        if (take('"')) {
            field.kind = Field::Kind::String;
            return readString(field);
        }
        if (m_p < m_end && (*m_p == '0' || *m_p == '1')) {
            // A longer number ("10", "1.5", "1e0") leaves a character here that no member may be followed
            // by, and the object is refused.
            field.kind = Field::Kind::Number;
            field.number = *m_p == '1' ? 1.0 : 0.0;
            ++m_p;
            return true;
        }
        return false;
    }

    bool readString(Field &field)
    {
        const char *begin = m_p;
        bool escaped = false;
        bool ascii = true;
        while (m_p < m_end && *m_p != '"') {
            const auto c = static_cast<unsigned char>(*m_p);
            if (c < 0x20)
                return false;
            if (c == '\\') {
                escaped = true;
                if (++m_p == m_end)
                    return false;
            } else if (c >= 0x80) {
                ascii = false;
            }
            ++m_p;
        }
        if (m_p == m_end)
            return false;
        const char *end = m_p;
        ++m_p;
        if (!escaped) {
            if (ascii) {
                field.ascii = QLatin1StringView(begin, end);
                return true;
            }
            if (!isPlainUtf8(begin, end))
                return false;
            field.text = QString::fromUtf8(begin, end - begin);
            return true;
        }
        QByteArray bytes;
        bytes.reserve(end - begin);
        for (const char *p = begin; p < end; ++p) {
            if (*p != '\\') {
                bytes.append(*p);
                continue;
            }
            switch (*++p) {
            case '"':
            case '\\':
            case '/':
                bytes.append(*p);
                break;
            case 'b':
                bytes.append('\b');
                break;
            case 'f':
                bytes.append('\f');
                break;
            case 'n':
                bytes.append('\n');
                break;
            case 'r':
                bytes.append('\r');
                break;
            case 't':
                bytes.append('\t');
                break;
            default:
                return false;
            }
        }
        if (!isPlainUtf8(bytes.constData(), bytes.constData() + bytes.size()))
            return false;
        field.text = QString::fromUtf8(bytes);
        return true;
    }

    const char *m_p;
    const char *m_end;
};

// The file's checked elements, or the designed error of a file that is no JSON array.
std::expected<CheckedElements, BvError> readElements(const QByteArray &bytes, const BVSyncDateFormatter &dates)
{
    CheckedElements checked(dates);
    // An element takes some 300 bytes in the compact form.
    checked.elements.reserve(std::size_t(bytes.size() / 256));
    if (CompactReader(bytes).read(checked))
        return checked;

    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        return std::unexpected(BVSyncErrors::error(BVSyncErrors::FileContentCode,
            QStringLiteral("Failed to load json file. %1").arg(parseError.errorString())));
    }
    if (!document.isArray()) {
        // No parser error stands behind this one: the designed details show "(null)" for it.
        return std::unexpected(contentError("Failed to load json file. (null)"));
    }
    checked.elements.clear();
    checked.failure.reset();
    const QJsonArray array = document.array();
    for (const QJsonValue &value : array)
        checked.add(rawElement(value));
    return checked;
}

QJsonObject elementObject(const QString &uid, const QDateTime &timeFrom, const QDateTime &timeTo,
    const QDateTime &createdAt, const QDateTime &modifiedAt, bool isInvoiced, const QString &text,
    const BVSyncDateFormatter &dates)
{
    QJsonObject object;
    object.insert(QLatin1String("uid"), uid);
    object.insert(QLatin1String("time_from"), dates.stringFromDate(timeFrom));
    object.insert(QLatin1String("time_to"), dates.stringFromDate(timeTo));
    object.insert(QLatin1String("created_at"), dates.stringFromDate(createdAt));
    object.insert(QLatin1String("modified_at"), dates.stringFromDate(modifiedAt));
    object.insert(QLatin1String("is_invoiced"), isInvoiced ? 1 : 0);
    object.insert(QLatin1String("text"), text);
    return object;
}

// One version of an activity as its element would be written, in a form every machine of the journal
// builds alike (the sync zone's texts, keys in one order): what breaks a tie of equal seconds.
QByteArray encoded(const Activity &activity, const BVSyncDateFormatter &dates)
{
    return QJsonDocument(elementObject(activity.uid(), activity.timeFrom(), activity.timeTo(), activity.createdAt(),
                             activity.modifiedAt(), activity.isInvoiced(), activity.text(), dates))
        .toJson(QJsonDocument::Compact);
}

QByteArray encoded(const Element &element, const BVSyncDateFormatter &dates)
{
    return QJsonDocument(elementObject(element.uid, element.timeFrom, element.timeTo, element.createdAt,
                             element.modifiedAt, element.isInvoiced, element.text, dates))
        .toJson(QJsonDocument::Compact);
}

// The activities filed under a month: those whose start lies in it, in the order of their start.
ActivityQuery monthQuery(const BVMonthDateRange &month)
{
    ActivityQuery query;
    query.startsFrom = month.dateFrom();
    // The last second counts whole: an activity started at 23:59:59.5 on the last day belongs to this
    // month, and the next month starts only at 00:00:00 of its first day.
    query.startsUntil = month.dateTo().addMSecs(999);
    query.order = ActivityQuery::Order::TimeFromAscending;
    return query;
}

} // namespace

std::expected<QList<ActivityPtr>, BvError> BVMonthFile::activitiesForMonth(
    StoreContext &context, const BVMonthDateRange &month, const QString &excludedUid)
{
    if (!month.dateFrom().isValid() || !month.dateTo().isValid())
        return QList<ActivityPtr>();
    std::expected<QList<ActivityPtr>, BvError> fetched = context.fetchActivities(monthQuery(month));
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

std::expected<BVMonthFile::Summary, BvError> BVMonthFile::summaryForMonth(
    StoreContext &context, const BVMonthDateRange &month, const QString &excludedUid)
{
    if (!month.dateFrom().isValid() || !month.dateTo().isValid())
        return Summary();
    std::expected<std::vector<ActivityStamp>, BvError> stamps = context.fetchActivityStamps(monthQuery(month));
    if (!stamps)
        return std::unexpected(stamps.error());
    // The hash orders its items by uid itself, so the order of the rows does not matter.
    QList<ActivityHashItem> items;
    items.reserve(qsizetype(stamps->size()));
    for (const ActivityStamp &stamp : *stamps) {
        if (stamp.uid != excludedUid || excludedUid.isEmpty())
            items.append(ActivityHashItem(stamp.uid, ActivityRecord::instant(stamp.modifiedAt)));
    }
    return Summary { items.size(), ActivityHashItem::hashForItems(items, month.timeZone()) };
}

std::expected<qint64, BvError> BVMonthFile::countForMonth(StoreContext &context, const BVMonthDateRange &month)
{
    if (!month.dateFrom().isValid() || !month.dateTo().isValid())
        return 0;
    return context.countActivities(monthQuery(month));
}

QList<ActivityHashItem> BVMonthFile::hashItems(const QList<ActivityPtr> &activities)
{
    QList<ActivityHashItem> items;
    items.reserve(activities.size());
    for (const ActivityPtr &activity : activities)
        items.append(ActivityHashItem(activity->uid(), activity->modifiedAt()));
    return items;
}

QString BVMonthFile::hashForActivities(const QList<ActivityPtr> &activities, const QTimeZone &zone)
{
    return ActivityHashItem::hashForItems(hashItems(activities), zone);
}

QByteArray BVMonthFile::json(const QList<ActivityPtr> &activities, const QTimeZone &zone)
{
    const BVSyncDateFormatter dates(zone);
    QJsonArray array;
    for (const ActivityPtr &activity : activities) {
        array.append(elementObject(activity->uid(), activity->timeFrom(), activity->timeTo(), activity->createdAt(),
            activity->modifiedAt(), activity->isInvoiced(), activity->text(), dates));
    }
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

std::expected<void, BvError> BVMonthFile::write(
    const QList<ActivityPtr> &activities, const QString &filePath, const QTimeZone &zone)
{
    QSaveFile file(filePath);
    const QByteArray bytes = json(activities, zone);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        return std::unexpected(BVSyncErrors::error(BVSyncErrors::FileSystemCode,
            QStringLiteral("Failed to write json data file %1! %2").arg(filePath, file.errorString())));
    }
    return {};
}

std::expected<void, BvError> BVMonthFile::check(const QByteArray &content, const QTimeZone &zone)
{
    const BVSyncDateFormatter dates(zone);
    const std::expected<CheckedElements, BvError> read = readElements(content, dates);
    if (!read)
        return std::unexpected(read.error());
    if (read->failure)
        return std::unexpected(*read->failure);
    return {};
}

std::expected<void, BvError> BVMonthFile::merge(
    StoreContext &context, const QString &filePath, BVTmpSyncFile &file, const QTimeZone &zone, const BVSyncLog &log)
{
    const BVSyncDateFormatter dates(zone);
    QFile input(filePath);
    if (!input.open(QIODevice::ReadOnly)) {
        return std::unexpected(BVSyncErrors::error(
            BVSyncErrors::FileContentCode, QStringLiteral("Failed to load json file. %1").arg(input.errorString())));
    }
    const std::expected<CheckedElements, BvError> read = readElements(input.readAll(), dates);
    input.close();
    if (!read)
        return std::unexpected(read.error());
    // Checking has no effects of its own, so every element was checked as the file was read. One that
    // failed still stops the merge only where it stands: the elements before it are handled first.
    const std::vector<Element> &elements = read->elements;

    QList<ActivityHashItem> items;
    items.reserve(qsizetype(elements.size()));
    // Fetches read the stored rows only; an element that repeats a uid must find the activity that an
    // earlier element of this file inserted, and no deletion record deleted here may count again.
    QHash<QString, ActivityPtr> insertedHere;
    QHash<QString, ActivityPtr> storedByUid;
    bool storedLoaded = false;
    QSet<const DeletedActivity *> deletedHere;
    QHash<QString, QList<DeletedActivityPtr>> tombstonesByUid;
    bool tombstonesLoaded = false;
    // A local version that differs from the file's and wins: the file must be written again from here.
    bool localWins = false;

    for (const Element &element : elements) {
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
            uids.reserve(qsizetype(elements.size()));
            for (const Element &candidate : elements)
                uids.append(candidate.uid);
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
            // The later second wins. Two machines that edit within one second must still agree on a
            // version: the greater encoding wins, which every machine decides alike.
            const int bySeconds = DateHelpers::compareBySeconds(activity->modifiedAt(), element.modifiedAt);
            if (bySeconds == 1)
                continue;
            if (bySeconds == 0) {
                const QByteArray ours = encoded(*activity, dates);
                const QByteArray theirs = encoded(element, dates);
                if (ours >= theirs) {
                    localWins = localWins || ours != theirs;
                    continue;
                }
            }
        } else {
            activity = context.insertActivity(element.uid);
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
    if (read->failure)
        return std::unexpected(*read->failure);

    if (std::expected<void, BvError> saved = context.save(); !saved)
        return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("25"), saved.error()));

    // A file that lost to a local version of the same second gets no hash: the month's own hash cannot
    // equal it, so the month is written and uploaded. A local version of a later second differs in the
    // hash already.
    file.setActivityHash(
        localWins ? std::nullopt : std::optional<QString>(ActivityHashItem::hashForItems(items, zone)));
    if (std::expected<void, BvError> stored = file.store(context); !stored)
        return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("26"), stored.error()));
    if (std::expected<void, BvError> saved = context.save(); !saved)
        return std::unexpected(BVSyncErrors::localStorage(QStringLiteral("26"), saved.error()));
    return {};
}
