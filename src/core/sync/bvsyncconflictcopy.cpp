#include "sync/bvsyncconflictcopy.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>

#include "base/datehelpers.h"
#include "sync/bvdeletedfile.h"
#include "sync/bvmonthfile.h"
#include "sync/bvsyncdateformatter.h"
#include "sync/bvsyncfilename.h"

namespace {

const QRegularExpression &copyPattern()
{
    // The base name, then the tool's marker: ".sync-conflict-..." (Syncthing), "_conflict-..." (ownCloud),
    // or a parenthesised note that speaks of a conflict in one of the languages the tools are shown in.
    // Only the words ignore case: the tools keep the extension, and "2024-03.JSON" is no sync file.
    static const QRegularExpression pattern(
        QStringLiteral("\\A([0-9]{4}-[0-9]{2}|deleted)(?:\\.sync-conflict-[^/]*|_conflict-[^/]*"
                       "| \\([^()/]*(?:conflict|conflit|konflikt)[^()/]*\\))(?-i:\\.json)\\z"),
        QRegularExpression::CaseInsensitiveOption);
    return pattern;
}

std::expected<QJsonArray, QString> records(const QByteArray &content, const char *side)
{
    if (content.isEmpty())
        return QJsonArray();
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(content, &error);
    if (error.error != QJsonParseError::NoError)
        return std::unexpected(
            QStringLiteral("the %1 is not valid JSON (%2)").arg(QLatin1String(side), error.errorString()));
    if (!document.isArray())
        return std::unexpected(QStringLiteral("the %1 does not hold a list of records").arg(QLatin1String(side)));
    const QJsonArray array = document.array();
    for (const QJsonValue &value : array) {
        if (!value.isObject() || !value.toObject().value(QLatin1String("uid")).isString())
            return std::unexpected(QStringLiteral("the %1 holds a record without a uid").arg(QLatin1String(side)));
    }
    return array;
}

QDateTime modifiedAt(const QJsonValue &record, const BVSyncDateFormatter &dates)
{
    return dates.dateFromString(record.toObject().value(QLatin1String("modified_at")).toString());
}

QByteArray encoded(const QJsonValue &record)
{
    return QJsonDocument(record.toObject()).toJson(QJsonDocument::Compact);
}

QJsonArray mergeMonth(QJsonArray original, const QJsonArray &copy, const BVSyncDateFormatter &dates)
{
    QHash<QString, qsizetype> indexByUid;
    for (qsizetype i = 0; i < original.size(); ++i)
        indexByUid.insert(original.at(i).toObject().value(QLatin1String("uid")).toString(), i);
    for (const QJsonValue &record : copy) {
        const QString uid = record.toObject().value(QLatin1String("uid")).toString();
        const auto known = indexByUid.constFind(uid);
        if (known == indexByUid.cend()) {
            indexByUid.insert(uid, original.size());
            original.append(record);
            continue;
        }
        const QDateTime theirs = modifiedAt(record, dates);
        const QDateTime ours = modifiedAt(original.at(*known), dates);
        // A record whose date does not read never wins over one that does. In equal seconds the greater
        // encoding wins, as in a merge into the store, so that the result does not depend on which side
        // the sync tool called the copy.
        const int bySeconds = DateHelpers::compareBySeconds(theirs, ours);
        if (theirs.isValid()
            && (!ours.isValid() || bySeconds == 1
                || (bySeconds == 0 && encoded(record) > encoded(original.at(*known)))))
            original.replace(*known, record);
    }
    return original;
}

QJsonArray mergeDeletions(QJsonArray original, const QJsonArray &copy)
{
    // Spelled out as QString: with QStringBuilder the deduced type would be a builder that refers to the
    // temporaries of the return statement.
    const auto key = [](const QJsonValue &entry) -> QString {
        const QJsonObject object = entry.toObject();
        return object.value(QLatin1String("uid")).toString() + QLatin1Char('\n')
            + object.value(QLatin1String("deleted_at")).toString();
    };
    QSet<QString> known;
    for (const QJsonValue &entry : std::as_const(original))
        known.insert(key(entry));
    for (const QJsonValue &entry : copy) {
        if (!known.contains(key(entry))) {
            known.insert(key(entry));
            original.append(entry);
        }
    }
    return original;
}

} // namespace

std::optional<QString> BVSyncConflictCopy::originalFileName(const QString &fileName)
{
    const QRegularExpressionMatch match = copyPattern().match(fileName);
    if (!match.hasMatch())
        return std::nullopt;
    const QString base = match.captured(1);
    // The pattern ignores case for the tools' words; "Deleted.json" is no sync file.
    if (!base.at(0).isDigit() && base != QLatin1String(BVSyncFileName::DeletedName))
        return std::nullopt;
    return BVSyncFileName::fileName(base);
}

std::expected<QByteArray, QString> BVSyncConflictCopy::merge(
    const QString &originalFileName, const QByteArray &original, const QByteArray &copy, const QTimeZone &zone)
{
    std::expected<QJsonArray, QString> ours = records(original, "file");
    if (!ours)
        return std::unexpected(ours.error());
    std::expected<QJsonArray, QString> theirs = records(copy, "conflict copy");
    if (!theirs)
        return std::unexpected(theirs.error());
    const bool isDeletionFile = originalFileName == QLatin1String(BVSyncFileName::DeletedFileName);
    // A copy holds whatever a machine or a hand wrote; merged unchecked, one bad record would stop every
    // machine's runs on the file. It must pass the checks of a download.
    if (!copy.isEmpty()) {
        std::optional<BvError> failure;
        if (isDeletionFile) {
            if (const auto entries = BVDeletedFile::read(copy, zone); !entries)
                failure = entries.error();
        } else if (const std::expected<void, BvError> checked = BVMonthFile::check(copy, zone); !checked) {
            failure = checked.error();
        }
        if (failure)
            return std::unexpected(
                QStringLiteral("the conflict copy does not pass the reading checks (%1)").arg(failure->message()));
    }
    const BVSyncDateFormatter dates(zone);
    const QJsonArray merged = isDeletionFile ? mergeDeletions(*ours, *theirs) : mergeMonth(*ours, *theirs, dates);
    return QJsonDocument(merged).toJson(QJsonDocument::Compact);
}
