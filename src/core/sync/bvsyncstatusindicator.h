#pragma once

#include <QObject>
#include <QString>

// What the status bar's sync button shows for the manager's statuses: hidden after a cancellation;
// "DropboxSyncProgress" / "%1 syncing ...", "DropboxSyncSuccess" / "%1 sync completed" and
// "DropboxSyncError" / "%1 sync error" for a started, completed and failed run, %1 being the method's
// title ("Dropbox", "Folder"). A completed run's button hides 3 seconds later, unless another run has
// started meanwhile; an error stays until the next run. Main thread.
class BVSyncStatusIndicator : public QObject
{
    Q_OBJECT
public:
    static constexpr int HideDelayMsecs = 3000;

    using QObject::QObject;

    bool isVisible() const { return m_visible; }
    QString imageName() const { return m_imageName; }
    QString toolTip() const { return m_toolTip; }

    // A status of BVSyncManager for a run of `syncMethod`.
    void syncOperationChanged(int status, int syncMethod);
    // The runs started so far; a completed run is known by this number at its completion.
    int runNumber() const { return m_runNumber; }
    // The hide delay after the completion of run `runNumber` elapsed (the indicator's own timer calls it).
    void hideDelayElapsed(int runNumber);

Q_SIGNALS:
    void changed();

private:
    void show(const QString &imageName, const QString &toolTip);

    bool m_visible = false;
    QString m_imageName;
    QString m_toolTip;
    int m_runNumber = 0;
};
