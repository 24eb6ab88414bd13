#include "export/exportpreview.h"

#include <QBuffer>

#include "export/activityexport.h"
#include "model/activityquery.h"
#include "model/journalqueries.h"
#include "settings/bvsettingsview.h"

std::expected<QString, BvError> ExportPreview::previewText(
    Store &store, const BvSettingsView &settings, int format, int rows)
{
    ActivityQuery query;
    query.order = ActivityQuery::Order::TimeFromDescending;
    query.limit = rows;
    const bool xml = format == ActivityExport::XMLFormat;
    const bool withTasks = ActivityExport::showsTasks(xml ? settings.getXMLFormat() : settings.getCSVFormat());
    auto records = JournalQueries(store).fetchActivityRecords(query, withTasks);
    if (!records)
        return std::unexpected(records.error());
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    const QString failure = ActivityExport::exportRecords(*records, buffer, format, settings);
    if (!failure.isNull())
        return std::unexpected(BvError(QStringLiteral("BrimvaleExport"), 1, failure));
    return QString::fromUtf8(buffer.data());
}
