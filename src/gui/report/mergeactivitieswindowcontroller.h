#pragma once

#include <memory>
#include <optional>

#include <QDialog>
#include <QStringList>

#include "report/activitychange.h"

class ActivityManager;
class ActivityMerge;
class ActivityTextView;
class QCheckBox;
class QLabel;
class QPushButton;
class Store;

// The sheet that joins two or more activities chosen in the report into the one that started last: the
// joined text (editable, with the main window's completion), "Total duration: " in the report's duration
// format, the invoiced check box (with a mixed state while the activities disagree) and an error line. Its
// work stays in a private unit of work until saved. Window-modal over the report; open it with open().
// Ends with finished(1) once saved, finished(0) when cancelled.
class MergeActivitiesWindowController : public QDialog
{
    Q_OBJECT
public:
    // initWithActivityIds: the activities with these uids. `durationFormat` is the report's
    // (reportDurationFormat). Neither `store` nor `activityManager` (completion) is owned; both outlive the
    // sheet.
    MergeActivitiesWindowController(Store &store, ActivityManager &activityManager, const QStringList &uids,
        int durationFormat, QWidget *parent = nullptr);
    ~MergeActivitiesWindowController() override;

    // The step the sheet stored, for the report's undo history.
    const std::optional<ActivityChange> &savedChange() const { return m_savedChange; }
    // invoicedState: 1 invoiced, 0 not, -1 mixed.
    int invoicedState() const;

    // saveActivity: "Please specify invoiced status" while the box is mixed; a refusal of the merged
    // activity in the error line; else saves and closes with 1.
    void saveActivity();
    // cancelAction: drops every change, closes with 0.
    void cancelAction();
    // Ctrl+Return: saves.
    void handleCMDEnter();

    void reject() override;

private:
    void onInvoicedStateChanged(int checkState);
    void showError(const QString &text);

    std::unique_ptr<ActivityMerge> m_merge;
    std::optional<ActivityChange> m_savedChange;
    ActivityTextView *m_textView = nullptr;
    QLabel *m_durationLabel = nullptr;
    QCheckBox *m_isInvoicedCb = nullptr;
    QLabel *m_errorLabel = nullptr;
    QPushButton *m_saveButton = nullptr;
    QPushButton *m_cancelButton = nullptr;
};
