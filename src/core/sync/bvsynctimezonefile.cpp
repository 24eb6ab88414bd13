#include "sync/bvsynctimezonefile.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTimeZone>

namespace {

const QLatin1StringView kKey("timeZone");

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
    if (!QTimeZone::isTimeZoneIdAvailable(id) || !QTimeZone(id).isValid())
        return std::unexpected(
            QStringLiteral("the time zone \"%1\" is not known on this machine").arg(value.toString()));
    return id;
}

QByteArray BVSyncTimeZoneFile::proposedZoneId()
{
    const QByteArray id = QTimeZone::systemTimeZoneId();
    if (!id.isEmpty() && QTimeZone::isTimeZoneIdAvailable(id) && QTimeZone(id).isValid())
        return id;
    return QByteArrayLiteral("UTC");
}
