#pragma once

#include <QDialog>
#include <QPointer>

class BVSyncService;
class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;

// The window of a sync run: an indicator while it runs, the current progress line, a Cancel button that
// becomes Close when the run ends, and a Details button that unfolds the run's activity log. It follows
// one service at a time; a window opened after the run ended shows how it ended. Main thread.
class BVSyncStatusWindowController : public QDialog
{
    Q_OBJECT
public:
    explicit BVSyncStatusWindowController(QWidget *parent = nullptr);

    // Follows `service` (not owned; the window lets go of it when it is destroyed) and shows its state.
    void setSyncService(BVSyncService *service);

    // For tests and the accessibility tree: what the window shows.
    QString statusText() const;
    bool isFinished() const { return m_finished; }

private:
    void showServiceState();
    void onProgress(const QString &message);
    void onFinish(const QString &message);
    void onError(const QString &details);
    void onCancelled();
    void finishedWithMessage(const QString &message);
    void setClosable(bool closable);
    void onCancelOrClose();
    void onDetails();

    QPointer<BVSyncService> m_service;
    QProgressBar *m_indicator = nullptr;
    QLabel *m_statusLabel = nullptr;
    QPushButton *m_cancelButton = nullptr;
    QPushButton *m_detailsButton = nullptr;
    QPlainTextEdit *m_details = nullptr;
    bool m_finished = false;
};
