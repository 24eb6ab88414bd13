#pragma once

#include <QCoreApplication>
#include <QList>
#include <QString>

// One entry of a fixed choice: the value stored and the title shown.
struct BVFixedCollectionItem
{
    int value = 0;
    QString title;
    bool operator==(const BVFixedCollectionItem &) const = default;
};

// The export formats offered when saving activities, in the order shown: "XML" (1) and "CSV" (0). The
// collection type also knows a separator entry, "---" with value 9999, which is never a format.
class BVFileExportFormatCollection
{
    Q_DECLARE_TR_FUNCTIONS(BVFileExportFormatCollection)

public:
    static constexpr int SeparatorValue = 9999;

    static QList<BVFixedCollectionItem> items();
    static BVFixedCollectionItem separatorItem();
    // The file type the save dialog asks for: "csv" for 0, "xml" for 1, none otherwise.
    static QString fileType(int format);
    // The dialog's name filter of an item, e.g. "XML (*.xml)", and the format a filter names (-1 for none).
    static QString nameFilter(const BVFixedCollectionItem &item);
    static int formatOfNameFilter(const QString &filter);
};
