#include "sync/bvsynctimezonefile.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimeZone>

namespace {

const QLatin1StringView kKey("timeZone");

// An IANA id that the zone database here holds. Qt's own list has the canonical names only ("US/Pacific"
// and "Etc/UTC" are links), and QTimeZone takes any unknown name for a POSIX rule of UTC, so the database
// folder decides for the names Qt does not list.
bool isKnownZoneId(const QByteArray &id)
{
    if (id.isEmpty() || id.contains("..") || id.startsWith('/'))
        return false;
    if (QTimeZone::isTimeZoneIdAvailable(id))
        return true;
    const QString name = QString::fromUtf8(id);
    const QString tzdir = qEnvironmentVariable("TZDIR");
    for (const QString &folder :
        { tzdir, QStringLiteral("/usr/share/zoneinfo"), QStringLiteral("/usr/lib/zoneinfo") }) {
        if (!folder.isEmpty() && QFileInfo(folder + QLatin1Char('/') + name).isFile())
            return QTimeZone(id).isValid();
    }
    return false;
}

} // namespace

QByteArray BVSyncTimeZoneFile::json(const QByteArray &zoneId)
{
    QJsonObject object;
    object.insert(kKey, QString::fromUtf8(zoneId));
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

std::expected<QByteArray, QString> BVSyncTimeZoneFile::read(const QByteArray &content)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(content, &error);
    if (error.error != QJsonParseError::NoError)
        return std::unexpected(QStringLiteral("it is not valid JSON (%1)").arg(error.errorString()));
    const QJsonValue value = document.object().value(kKey);
    if (!document.isObject() || !value.isString())
        return std::unexpected(QStringLiteral("it does not name a time zone"));
    const QByteArray id = value.toString().toUtf8();
    if (!isKnownZoneId(id))
        return std::unexpected(
            QStringLiteral("the time zone \"%1\" is not known on this machine").arg(value.toString()));
    return id;
}

QByteArray BVSyncTimeZoneFile::proposedZoneId()
{
    const QByteArray id = QTimeZone::systemTimeZoneId();
    if (isKnownZoneId(id))
        return id;
    return QByteArrayLiteral("UTC");
}
