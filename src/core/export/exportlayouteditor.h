#pragma once

#include <utility>

#include <QCoreApplication>
#include <QList>
#include <QObject>
#include <QString>

#include "export/csvtokenfield.h"

class BvSettings;

// One choice of a column's menu: a token type and value with its long title.
struct ExportTokenChoice
{
    int tokenType = 0;
    int tokenValue = 0;
    QString title;
    bool checked = false;
};

// A group of choices, shown as one submenu: "Start Date/Time", "End Date/Time", "Duration", "Activity".
// `current` marks the group holding the column's own token.
struct ExportTokenChoiceGroup
{
    QString title;
    QList<ExportTokenChoice> choices;
    bool current = false;
};

// The rules of the editor of one export layout, the CSV columns or the XML attributes, without widgets.
// It holds the layout as the settings give it and writes every change through BvSettings at once
// (setCSVFormat / setXMLFormat), then announces layoutChanged(). In the XML layout the first
// fixedCount() entries are the fixed attributes ("uid", "invoiced", "from", "to"): shown, never removed,
// moved, renamed or given another token, and the user's attributes always follow them. Main thread.
class ExportLayoutEditor : public QObject
{
    Q_OBJECT

public:
    // `mode` is CSVTokenField::CSVMode or XMLMode; `settings` is not owned and must outlive the editor.
    ExportLayoutEditor(BvSettings &settings, int mode, QObject *parent = nullptr);

    int mode() const { return m_mode; }
    // The layout as exported: for XML the fixed attributes first.
    const QList<CSVTokenField> &fields() const { return m_fields; }
    qsizetype fixedCount() const;
    bool isEditable(qsizetype index) const;

    // What a column shows: its value's short title, and in the XML layout "name: title".
    QString title(qsizetype index) const;
    // The column's menu: every token, grouped, the column's own checked.
    QList<ExportTokenChoiceGroup> choices(qsizetype index) const;

    // Appends a new column and answers its index: the activity's text for CSV; for XML the project name,
    // named "project" (or "project-2", ... when taken).
    qsizetype addField();
    // False for a fixed attribute or an index out of range.
    bool removeField(qsizetype index);
    // Moves the column at `from` to stand before the column now at `insertBefore` (the count for the
    // end). A user attribute never moves before the fixed ones. False when nothing moved.
    bool moveField(qsizetype from, qsizetype insertBefore);
    // Gives the column the token chosen from its menu. False when nothing changed.
    bool chooseToken(qsizetype index, int tokenType, int tokenValue);
    // Names an XML attribute: the name is normalised as CSVTokenField does ("my field" gives "my-field").
    // Answers a null string when stored, else why the name was refused: no name, not an XML name, or a
    // name another attribute of the layout already has (the fixed ones included).
    QString renameField(qsizetype index, const QString &name);
    // The built-in layout: the six default CSV columns, or the fixed XML attributes alone.
    void resetToDefaults();
    bool isDefault() const;

    // The separator presets offered beside a free entry: the stored setting and its title ("{TAB}" for
    // the tab).
    static QList<std::pair<QString, QString>> separatorChoices();

Q_SIGNALS:
    // The layout changed and is stored.
    void layoutChanged();

private:
    QList<CSVTokenField> defaults() const;
    void store();

    BvSettings &m_settings;
    int m_mode;
    QList<CSVTokenField> m_fields;
};
