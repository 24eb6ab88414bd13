#pragma once

#include <optional>
#include <vector>

#include <QCoreApplication>
#include <QList>
#include <QString>

#include "export/csvtokenfield.h"
#include "model/activity.h"
#include "model/activityrecord.h"
#include "settings/bvsettingsview.h"

class QIODevice;

// Writes activities as CSV or XML in the user's layouts.
//
// CSV: one row per activity in the order given, every field quoted (see ActivityCSVFormatter), rows
// separated by "\r\n" with no line end after the last one, UTF-8. The separator is the
// "csvFieldSeparator" setting, "{TAB}" standing for a tab. With the "csvHeaderRow" setting on, a row of
// the columns' short titles comes first (the file then holds that row alone when nothing is exported).
//
// XML: a root "activities" holding one "activity" per activity, whose text is the activity's text and
// whose attributes are the XML layout: "uid", "invoiced" ("1"/"0"), "from" and "to" (local time,
// "yyy-MM-dd'T'HH:mm:ss") and then the user's attributes. An attribute without a usable XML name, or
// whose name an earlier attribute already took, is left out; characters XML cannot carry become U+FFFD.
//
// Main thread: rendering uses the shared date formatters, which every export drops at its end so that a
// change of locale or time zone reaches the next one.
class ActivityExport
{
    Q_DECLARE_TR_FUNCTIONS(ActivityExport)

public:
    static constexpr int CSVFormat = 0;
    static constexpr int XMLFormat = 1;

    // Writes the activities to the file at toUrl (a local path or a "file:" URL) in format 1 (XML) or
    // any other (CSV), atomically: the file is replaced only once everything is written. Layouts and
    // separator come from `settings`, or from BvSettingsView::standard() when none is given. Answers a
    // null string on success, else "Failed to write XML data to file!" or "Failed to write CSV data to
    // file!" followed by the system's reason ("Failed to write CSV data to file! No such file or
    // directory"); the file is then as it was.
    static QString exportActivities(const QList<ActivityPtr> &activities, const QString &toUrl, int withFormat,
        const std::optional<BvSettingsView> &settings = std::nullopt);
    // The same to an open device (standard output, for instance), which is written as the export goes.
    static QString exportActivities(const QList<ActivityPtr> &activities, QIODevice &toDevice, int withFormat,
        const std::optional<BvSettingsView> &settings = std::nullopt);
    // Both for stored activities read as plain records (StoreContext::fetchActivityRecords, with task names
    // when the layout shows them: see showsTasks), which a whole journal reads several times faster.
    static QString exportRecords(const std::vector<ActivityRecord> &activities, const QString &toUrl, int withFormat,
        const std::optional<BvSettingsView> &settings = std::nullopt);
    static QString exportRecords(const std::vector<ActivityRecord> &activities, QIODevice &toDevice, int withFormat,
        const std::optional<BvSettingsView> &settings = std::nullopt);
    // Whether the export writes an attribute of this name: one a namespace-aware parser accepts, without
    // ":" and other than "xmlns".
    static bool isXmlAttributeName(const QString &name);
    // Whether a layout has a task names column.
    static bool showsTasks(const QList<CSVTokenField> &format);

    // The two writers on their own, with explicit layouts; false when the device refused data.
    static bool writeCSV(const QList<ActivityPtr> &activities, const QList<CSVTokenField> &csvFormat,
        const QString &separator, QIODevice &device, bool headerRow = false);
    // The row of column titles: each column's short title, quoted like a field, joined by the separator.
    static QString csvHeaderRow(const QList<CSVTokenField> &csvFormat, const QString &separator);
    static bool writeXML(
        const QList<ActivityPtr> &activities, const QList<CSVTokenField> &xmlFormat, QIODevice &device);

    // The separator that a "csvFieldSeparator" value stands for: "{TAB}" is a tab, anything else is used
    // as it is (several characters too).
    static QString separatorFromSetting(const QString &csvFieldSeparator);

    static QString csvFailureMessage() { return tr("Failed to write CSV data to file!"); }
    static QString xmlFailureMessage() { return tr("Failed to write XML data to file!"); }
    // The failure message of the format, then the reason when there is one.
    static QString failureMessage(int withFormat, const QString &reason);
};
