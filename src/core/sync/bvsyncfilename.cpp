#include "sync/bvsyncfilename.h"

#include <QRegularExpression>

namespace {

// Anchored with \A and \z so that the whole path must match: "$" would also accept a final line break.
const QRegularExpression &monthPattern()
{
    static const QRegularExpression pattern(QStringLiteral("\\A(?:\\/?(.*)\\/)?(\\d{4})-(\\d{2})\\.json\\z"));
    return pattern;
}

const QRegularExpression &deletedPattern()
{
    static const QRegularExpression pattern(QStringLiteral("\\A(?:\\/?(.*)\\/)?deleted\\.json\\z"));
    return pattern;
}

bool folderAccepted(const QRegularExpressionMatch &match, const std::optional<QString> &pathPrefix)
{
    if (!pathPrefix)
        return true;
    return match.hasCaptured(1) && match.captured(1) == *pathPrefix;
}

} // namespace

QString BVSyncFileName::monthName(uint year, uint month)
{
    return QStringLiteral("%1-%2").arg(year).arg(month, 2, 10, QLatin1Char('0'));
}

QString BVSyncFileName::fileName(const QString &name)
{
    return name + QStringLiteral(".json");
}

std::optional<BVSyncFileName::Match> BVSyncFileName::match(
    const QString &path, const std::optional<QString> &pathPrefix)
{
    const QRegularExpressionMatch month = monthPattern().match(path);
    if (month.hasMatch()) {
        if (!folderAccepted(month, pathPrefix))
            return std::nullopt;
        Match result;
        result.year = month.capturedView(2).toUInt();
        result.month = month.capturedView(3).toUInt();
        return result;
    }
    const QRegularExpressionMatch deleted = deletedPattern().match(path);
    if (deleted.hasMatch() && folderAccepted(deleted, pathPrefix)) {
        Match result;
        result.isDeletedIndexFile = true;
        return result;
    }
    return std::nullopt;
}
