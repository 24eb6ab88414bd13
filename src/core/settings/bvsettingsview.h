#pragma once

#include <QList>
#include <QString>

#include "export/csvtokenfield.h"

class UserDefaults;

// The settings that the export and sync read, read-only over the defaults store: export layouts and
// separator, sync method and folder. Reading never writes anything back, so the command line and a sync
// run can use it without touching preferences that only the app can judge. BvSettings answers these
// values through a view, so the fallbacks live here once. Same thread rules as the UserDefaults it reads.
class BvSettingsView
{
public:
    // `defaults` is not owned and must outlive the view.
    explicit BvSettingsView(const UserDefaults &defaults);

    // The view over UserDefaults::standardUserDefaults() with the bundled defaults registered (registering
    // defaults writes nothing to the file). Main thread.
    static BvSettingsView standard();

    // CSV field separator, ";" when none is stored; "{TAB}" stands for a tab.
    QString csvFieldSeparator() const;
    // Whether a CSV export starts with a row of column titles; false when none is stored.
    bool csvHeaderRow() const;
    // The CSV export columns, each with its value's short title switched on. The default layout when
    // "csv_row_format" is missing; an empty one when it holds something that is not a layout.
    QList<CSVTokenField> getCSVFormat() const;
    // The XML export attributes: the four fixed ones, then the user's from "xml_properties", each with
    // its value's short title switched on.
    QList<CSVTokenField> getXMLFormat() const;
    // Start date (short style), start time, formatted duration, project, text, invoiced: all CSV columns.
    static QList<CSVTokenField> defaultCSVFormat();
    // The fixed XML attributes, not enabled: "uid" (403), "invoiced" (404), "from" (121), "to" (171).
    static QList<CSVTokenField> defaultXMLFormat();

    // 0 no sync, 1 Dropbox, 2 a folder kept in sync by another tool; other stored values read as 0.
    int syncMethod() const;
    // The folder that sync method 2 writes its files into; null when none was chosen.
    QString syncFolderPath() const;

private:
    const UserDefaults *m_defaults;
};
