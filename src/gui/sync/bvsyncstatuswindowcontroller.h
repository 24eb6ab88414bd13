#pragma once

#include <QDialog>

#include "sync/bvsyncstatuswindowmodel.h"

class BVSyncService;
class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;

// The window of a sync run: an indicator while it runs, the current progress line, a Cancel button that
// becomes Close when the run ends, and a Details button that unfolds the run's activity log. It shows
// BVSyncStatusWindowModel, which follows one service at a time; a window opened after the run ended shows
// how it ended. Main thread.
class BVSyncStatusWindowController : public QDialog
{
    Q_OBJECT
public:
    explicit BVSyncStatusWindowController(QWidget *parent = nullptr);

    // Follows `service` (not owned; the window lets go of it when it is destroyed) and shows its state.
    void setSyncService(BVSyncService *service);

    // For tests and the accessibility tree: what the window shows.
    QString statusText() const;
    bool isFinished() const { return m_model.isFinished(); }

private:
    void showModel();
    void setClosable(bool closable);
    void onDetails();

    BVSyncStatusWindowModel m_model;
    QProgressBar *m_indicator = nullptr;
    QLabel *m_statusLabel = nullptr;
    QPushButton *m_cancelButton = nullptr;
    QPushButton *m_detailsButton = nullptr;
    QPlainTextEdit *m_details = nullptr;
};
