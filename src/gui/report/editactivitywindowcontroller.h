#pragma once

#include <memory>
#include <optional>

#include <QDateTime>
#include <QDialog>

#include "report/activitychange.h"

class ActivityEditor;
class ActivityManager;
class ActivityTextView;
class BvDatePicker;
class QLabel;
class QMenu;
class QPushButton;
class QToolButton;
class Store;

// The sheet that edits one finished activity from the report, or adds an earlier one: start and end
// pickers, the activity field of the main window with its completion, the "Previous activities" menu, an
// error line and, for a stored activity, delete. Its work stays in a private unit of work until saved.
// Window-modal over the report; open it with open(). Ends with finished(1) when something was saved or
// deleted, finished(0) when cancelled.
class EditActivityWindowController : public QDialog
{
    Q_OBJECT
public:
    // initWithActivityUID: the activity with `uid`, or a new one (starting and ending now) without. Neither
    // `store` nor `activityManager` (completion and recent texts) is owned; both outlive the sheet.
    EditActivityWindowController(
        Store &store, ActivityManager &activityManager, const std::optional<QString> &uid, QWidget *parent = nullptr);
    ~EditActivityWindowController() override;

    bool isNewActivity() const;
    // The step the sheet stored (saved or deleted), for the report's undo history; nothing before that or
    // when it ended without storing one.
    const std::optional<ActivityChange> &savedChange() const { return m_savedChange; }

    // saveActivity: the pickers and the field go into the activity, which is saved; a refusal shows in the
    // error line and the sheet stays open.
    void saveActivity();
    // cancelAction: drops every change, closes with 0.
    void cancelAction();
    // deleteActivity: asks "Delete activity?" in a window-modal message box; "Yes" deletes.
    void deleteActivity();
    // showRecentActivities: the "Previous activities" menu at the earlier-activities button.
    void showRecentActivities();
    // setPreviousActivity: the chosen recent text becomes the activity's text.
    void setPreviousActivity(const QString &text);
    // Ctrl+Return: saves.
    void handleCMDEnter();
    QMenu *recentActivitiesMenu() const { return m_recentMenu; }

    void reject() override;

private:
    void fillRecentActivitiesMenu();
    void onDeleteConfirmed();
    void showError(const QString &text);

    std::unique_ptr<ActivityEditor> m_editor;
    std::optional<ActivityChange> m_savedChange;
    BvDatePicker *m_startPicker = nullptr;
    BvDatePicker *m_endPicker = nullptr;
    // What the pickers showed when opened: a time the user did not touch keeps its milliseconds.
    QDateTime m_shownStart;
    QDateTime m_shownEnd;
    ActivityTextView *m_textView = nullptr;
    QToolButton *m_earlierActivitiesButton = nullptr;
    ActivityManager &m_activityManager;
    QMenu *m_recentMenu = nullptr;
    QLabel *m_errorLabel = nullptr;
    QPushButton *m_deleteButton = nullptr;
    QPushButton *m_saveButton = nullptr;
    QPushButton *m_cancelButton = nullptr;
};
