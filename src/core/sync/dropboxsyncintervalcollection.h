#pragma once

#include <QList>
#include <QString>

// The automatic sync intervals the preferences offer, as value and title, in order: 0 "Manually" (no
// automatic runs, shown with a separator after it), 1 "Every 15 minutes", 2 "Every 30 minutes", 3 "Every
// hour". The setting "dropboxSyncInterval" holds the value. Any thread.
class DropboxSyncIntervalCollection
{
public:
    struct Item
    {
        int value;
        QString title;
    };

    static QList<Item> items();
    // Whether a separator follows the item at `index` (only the first).
    static bool separatorAfter(int index) { return index == 0; }
    // The interval in seconds of a value: 900, 1800, 3600; 0 for "Manually" and unknown values.
    static int intervalSeconds(int value);
};
