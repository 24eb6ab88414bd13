#include "sync/bvsyncstatusindicator.h"

#include <QTimer>

#include "sync/bvsyncmanager.h"
#include "sync/bvsyncoption.h"

void BVSyncStatusIndicator::syncOperationChanged(int status, int syncMethod)
{
    const QString title = syncMethod == 0 ? QString() : BVSyncOption::titleForSyncMethod(syncMethod);
    switch (status) {
    case BVSyncManager::Cancelled:
        m_visible = false;
        Q_EMIT changed();
        return;
    case BVSyncManager::Started:
        ++m_runNumber;
        show(QStringLiteral("DropboxSyncProgress"), tr("%1 syncing ...").arg(title));
        return;
    case BVSyncManager::Completed:
        show(QStringLiteral("DropboxSyncSuccess"), tr("%1 sync completed").arg(title));
        QTimer::singleShot(HideDelayMsecs, this, [this, run = m_runNumber] { hideDelayElapsed(run); });
        return;
    case BVSyncManager::Failed:
        show(QStringLiteral("DropboxSyncError"), tr("%1 sync error").arg(title));
        return;
    default:
        return;
    }
}

void BVSyncStatusIndicator::hideDelayElapsed(int runNumber)
{
    // A run that started in between owns the button now.
    if (runNumber != m_runNumber)
        return;
    m_visible = false;
    Q_EMIT changed();
}

void BVSyncStatusIndicator::show(const QString &imageName, const QString &toolTip)
{
    m_visible = true;
    m_imageName = imageName;
    m_toolTip = toolTip;
    Q_EMIT changed();
}
