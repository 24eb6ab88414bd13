#pragma once

#include <expected>

#include <QKeySequence>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include "base/bverror.h"
#include "report/activityundohistory.h"

class ActivityManager;
class EditActivityWindowController;
class MergeActivitiesWindowController;
class QAction;
class QDialog;
class QMessageBox;
class QWidget;
class Store;

// The report's editing commands: the edit and merge sheets over the report window, and the history of
// what they and the report's deletions stored, walked by the Edit menu's Undo and Redo. One sheet at a
// time. The report's list, the sidebar and the main window's menus follow the store, so they show what a
// sheet saved without being told. Main thread.
class ReportEditingController : public QObject
{
    Q_OBJECT
public:
    // None is owned; all outlive this object. `window` is the report window the sheets open over.
    ReportEditingController(Store &store, ActivityManager &activityManager, QWidget &window);
    ~ReportEditingController() override;

    // editSelectedActivity: the edit sheet for the activity with `uid`; nothing for the activity being
    // tracked, which the main window's start-time sheet edits.
    void editActivity(const QString &uid);
    // The uid of the first selected row, empty without a selection: what the Edit button and the Edit
    // menu's "Edit Activity..." would edit.
    void setSelectedUid(const QString &uid);
    // Whether they can: there is a selection and its first row is not the activity being tracked.
    bool canEdit() const { return m_canEdit; }
    // newActivity: the edit sheet for an earlier activity to add.
    void newActivity();
    // onMergeSelectedActivities: the merge sheet for these activities, its total in `durationFormat`.
    void mergeActivities(const QStringList &uids, int durationFormat);
    // Records a deletion the report made (the activities as they were before it), so it can be undone.
    void recordDeletion(const ActivityChange &deletion);

    ActivityUndoHistory &history() { return m_history; }
    // Undo (Ctrl+Z) and Redo (Ctrl+Shift+Z), titled after the step they take and enabled when there is one;
    // the report puts them in its Edit menu, where they act while the report is the active window.
    QAction *undoAction() const { return m_undoAction; }
    QAction *redoAction() const { return m_redoAction; }
    void undo();
    void redo();
    // A standard key's bindings (QKeySequence::keyBindings, which follow the desktop's key scheme) plus
    // `always` unless they already hold it.
    static QList<QKeySequence> withKey(QList<QKeySequence> keys, const QKeySequence &always);

    // The sheet open over the report, or null.
    QDialog *sheet() const;
    // The alert of a step that could not be undone or redone, or null.
    QMessageBox *alert() const { return m_alert; }

Q_SIGNALS:
    // A sheet ended: 1 when it stored something, 0 when cancelled.
    void sheetFinished(int result);
    void canEditChanged(bool canEdit);

private:
    void onSheetFinished(QDialog *sheet, int result);
    void updateActions();
    void updateCanEdit();
    bool isRunning(const QString &uid) const;
    void showRefusal(const BvError &error);

    Store &m_store;
    ActivityManager &m_activityManager;
    QWidget &m_window;
    ActivityUndoHistory m_history;
    QPointer<EditActivityWindowController> m_editSheet;
    QPointer<MergeActivitiesWindowController> m_mergeSheet;
    QPointer<QMessageBox> m_alert;
    QAction *m_undoAction = nullptr;
    QAction *m_redoAction = nullptr;
    QString m_selectedUid;
    bool m_canEdit = false;
};
