#include "report/bvfileexportformatcollection.h"

QList<BVFixedCollectionItem> BVFileExportFormatCollection::items()
{
    return { { 1, tr("XML") }, { 0, tr("CSV") } };
}

BVFixedCollectionItem BVFileExportFormatCollection::separatorItem()
{
    return { SeparatorValue, QStringLiteral("---") };
}

QString BVFileExportFormatCollection::fileType(int format)
{
    switch (format) {
    case 0:
        return QStringLiteral("csv");
    case 1:
        return QStringLiteral("xml");
    default:
        return {};
    }
}

QString BVFileExportFormatCollection::nameFilter(const BVFixedCollectionItem &item)
{
    return item.title + QStringLiteral(" (*.") + fileType(item.value) + QLatin1Char(')');
}

int BVFileExportFormatCollection::formatOfNameFilter(const QString &filter)
{
    for (const BVFixedCollectionItem &item : items()) {
        if (nameFilter(item) == filter)
            return item.value;
    }
    return -1;
}
