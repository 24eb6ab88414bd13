#include "gui/report/reporteditingcontroller.h"

#include <QAction>
#include <QMessageBox>

#include "gui/report/editactivitywindowcontroller.h"
#include "gui/report/mergeactivitieswindowcontroller.h"
#include "model/activitymanager.h"

QList<QKeySequence> ReportEditingController::withKey(QList<QKeySequence> keys, const QKeySequence &always)
{
    // A key held twice makes Qt treat it as ambiguous, and then neither binding fires.
    if (!keys.contains(always))
        keys.append(always);
    return keys;
}

ReportEditingController::ReportEditingController(Store &store, ActivityManager &activityManager, QWidget &window)
    : QObject(&window)
    , m_store(store)
    , m_activityManager(activityManager)
    , m_window(window)
    , m_history(store)
    , m_undoAction(new QAction(this))
    , m_redoAction(new QAction(this))
{
    m_undoAction->setObjectName(QStringLiteral("undoAction"));
    m_undoAction->setShortcuts(
        withKey(QKeySequence::keyBindings(QKeySequence::Undo), QKeySequence(Qt::CTRL | Qt::Key_Z)));
    m_redoAction->setObjectName(QStringLiteral("redoAction"));
    // Ctrl+Shift+Z everywhere, not only where the desktop's redo key is Ctrl+Y.
    m_redoAction->setShortcuts(
        withKey(QKeySequence::keyBindings(QKeySequence::Redo), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z)));
    connect(m_undoAction, &QAction::triggered, this, &ReportEditingController::undo);
    connect(m_redoAction, &QAction::triggered, this, &ReportEditingController::redo);
    connect(&m_history, &ActivityUndoHistory::historyChanged, this, &ReportEditingController::updateActions);
    connect(
        &m_activityManager, &ActivityManager::activityManagerStarted, this, &ReportEditingController::updateCanEdit);
    connect(
        &m_activityManager, &ActivityManager::activityManagerStopped, this, &ReportEditingController::updateCanEdit);
    updateActions();
}

ReportEditingController::~ReportEditingController()
{
    // The sheets are the window's children and go with it; one still open must not report into a
    // controller that is gone.
    for (QDialog *open : { static_cast<QDialog *>(m_editSheet.data()), static_cast<QDialog *>(m_mergeSheet.data()) }) {
        if (open)
            open->disconnect(this);
    }
}

QDialog *ReportEditingController::sheet() const
{
    if (m_editSheet)
        return m_editSheet;
    return m_mergeSheet;
}

void ReportEditingController::editActivity(const QString &uid)
{
    if (sheet() || uid.isEmpty() || isRunning(uid))
        return;
    m_editSheet = new EditActivityWindowController(m_store, m_activityManager, uid, &m_window);
    connect(m_editSheet, &QDialog::finished, this,
        [this, sheet = m_editSheet.data()](int result) { onSheetFinished(sheet, result); });
    m_editSheet->open();
}

void ReportEditingController::setSelectedUid(const QString &uid)
{
    m_selectedUid = uid;
    updateCanEdit();
}

void ReportEditingController::updateCanEdit()
{
    const bool canEdit = !m_selectedUid.isEmpty() && !isRunning(m_selectedUid);
    if (canEdit == m_canEdit)
        return;
    m_canEdit = canEdit;
    Q_EMIT canEditChanged(canEdit);
}

bool ReportEditingController::isRunning(const QString &uid) const
{
    return m_activityManager.isTracking() && m_activityManager.currentActivity()->uid() == uid;
}

void ReportEditingController::newActivity()
{
    if (sheet())
        return;
    m_editSheet = new EditActivityWindowController(m_store, m_activityManager, std::nullopt, &m_window);
    connect(m_editSheet, &QDialog::finished, this,
        [this, sheet = m_editSheet.data()](int result) { onSheetFinished(sheet, result); });
    m_editSheet->open();
}

void ReportEditingController::mergeActivities(const QStringList &uids, int durationFormat)
{
    if (sheet() || uids.size() < 2)
        return;
    m_mergeSheet = new MergeActivitiesWindowController(m_store, m_activityManager, uids, durationFormat, &m_window);
    connect(m_mergeSheet, &QDialog::finished, this,
        [this, sheet = m_mergeSheet.data()](int result) { onSheetFinished(sheet, result); });
    m_mergeSheet->open();
}

void ReportEditingController::recordDeletion(const ActivityChange &deletion)
{
    if (!deletion.entries().isEmpty())
        m_history.record(deletion);
}

void ReportEditingController::onSheetFinished(QDialog *sheet, int result)
{
    std::optional<ActivityChange> change;
    if (auto *edit = qobject_cast<EditActivityWindowController *>(sheet))
        change = edit->savedChange();
    else if (auto *merge = qobject_cast<MergeActivitiesWindowController *>(sheet))
        change = merge->savedChange();
    if (change)
        m_history.record(*change);
    // The report drops the sheet once it has ended.
    sheet->deleteLater();
    Q_EMIT sheetFinished(result);
}

void ReportEditingController::undo()
{
    if (sheet() || !m_history.canUndo())
        return;
    if (std::expected<void, BvError> done = m_history.undo(); !done)
        showRefusal(done.error());
}

void ReportEditingController::redo()
{
    if (sheet() || !m_history.canRedo())
        return;
    if (std::expected<void, BvError> done = m_history.redo(); !done)
        showRefusal(done.error());
}

void ReportEditingController::updateActions()
{
    m_undoAction->setEnabled(m_history.canUndo());
    m_undoAction->setText(m_history.canUndo() ? tr("Undo %1").arg(m_history.undoTitle()) : tr("Undo"));
    m_redoAction->setEnabled(m_history.canRedo());
    m_redoAction->setText(m_history.canRedo() ? tr("Redo %1").arg(m_history.redoTitle()) : tr("Redo"));
}

void ReportEditingController::showRefusal(const BvError &error)
{
    auto *box = new QMessageBox(
        QMessageBox::Warning, error.description(), error.description(), QMessageBox::Ok, &m_window, Qt::Sheet);
    box->setObjectName(QStringLiteral("undoAlert"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    m_alert = box;
    box->open();
}
