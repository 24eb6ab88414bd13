#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>

// A stored activity as plain values, for reading a large part of the journal at once (listings,
// scripts): no identity, no change tracking, nothing to save.
struct ActivityRecord
{
    QString uid;
    QString text;
    qint64 timeFrom = 0; // UTC milliseconds
    qint64 timeTo = 0;
    qint64 createdAt = 0;
    qint64 modifiedAt = 0;
    bool isInvoiced = false;
    QString project; // null without one
    QStringList tasks; // distinct, sorted as Activity::tasksStr sorts them

    // As Activity::durationSecs: both instants truncated to whole seconds first.
    qint64 durationSecs() const { return floorSeconds(timeTo) - floorSeconds(timeFrom); }
    static QDateTime instant(qint64 msecs) { return QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC); }

private:
    static qint64 floorSeconds(qint64 ms) { return ms >= 0 ? ms / 1000 : -((-ms + 999) / 1000); }
};

// Which version of an activity is stored: enough to tell whether a set of activities changed.
struct ActivityStamp
{
    QString uid;
    qint64 modifiedAt = 0; // UTC milliseconds
};
