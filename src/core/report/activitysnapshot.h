#pragma once

#include <QDateTime>
#include <QString>

class Activity;

// What the user sees of one stored activity and can change from the report: enough to put it back as it
// was after an edit, a merge or a deletion. Instants in UTC.
struct ActivitySnapshot
{
    QString uid;
    QString text;
    QDateTime timeFrom;
    QDateTime timeTo;
    QDateTime createdAt;
    bool isInvoiced = false;

    static ActivitySnapshot of(const Activity &activity);
    // Whether `activity` still holds what this snapshot saw (text, times, invoiced mark): nobody changed it
    // since. The modification stamp is not compared, so a sync that only re-stamped it does not count.
    bool matches(const Activity &activity) const;
    // Gives `activity` the snapshot's text, times and invoiced mark.
    void applyTo(Activity &activity) const;
};
