#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

class BVSyncService;

// What the sync status window shows of one run, and what its buttons do: the status text, the spinning
// indicator, the cancel button that becomes "Close" when the run ends, the details button and the run's
// log. The window is a view of this. Main thread.
class BVSyncStatusWindowModel : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // Follows `service` (not owned; it may be deleted after it ended): a run that has ended, or never
    // will, shows its last progress message ("Sync operation is not running." without one) as finished;
    // a running one shows its progress ("Initializing sync service..." before the first).
    void setSyncService(BVSyncService *service);

    QString statusText() const { return m_statusText; }
    bool isIndicatorRunning() const { return m_indicatorRunning; }
    // "Cancel" while the run goes on, "Close" once it ended.
    QString actionTitle() const { return m_finished ? tr("Close") : tr("Cancel"); }
    bool isActionEnabled() const { return m_actionEnabled; }
    // Whether the window may be closed, and the details offered: once the run ended.
    bool isFinished() const { return m_finished; }
    bool isDetailsShown() const { return m_detailsShown; }
    QString detailsText() const { return m_detailsText; }

public Q_SLOTS:
    // The action button: cancels the run ("Cancelling sync operation..."), or closes the window.
    void triggerAction();
    // Shows the run's activity log.
    void showDetails();

Q_SIGNALS:
    void changed();
    void closeRequested();

private:
    void finishedWithMessage(const QString &message);
    void showProgress(const QString &message);

    QPointer<BVSyncService> m_service;
    QString m_statusText;
    bool m_indicatorRunning = false;
    bool m_actionEnabled = true;
    bool m_finished = false;
    bool m_detailsShown = false;
    QString m_log;
    QString m_detailsText;
};
