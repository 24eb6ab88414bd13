#include "sync/bvsyncstatuswindowmodel.h"

#include "sync/bvsyncservice.h"

void BVSyncStatusWindowModel::setSyncService(BVSyncService *service)
{
    if (m_service)
        disconnect(m_service, nullptr, this, nullptr);
    m_service = service;
    m_finished = false;
    m_detailsShown = false;
    m_detailsText.clear();
    m_actionEnabled = true;
    if (!service) {
        finishedWithMessage(tr("Sync operation is not running."));
        return;
    }
    connect(service, &BVSyncService::syncServiceProgress, this, &BVSyncStatusWindowModel::showProgress);
    connect(service, &BVSyncService::syncServiceFinish, this, &BVSyncStatusWindowModel::finishedWithMessage);
    connect(service, &BVSyncService::syncServiceError, this,
        [this](const QString &details) { finishedWithMessage(tr("Failure. %1").arg(details)); });
    connect(service, &BVSyncService::syncServiceCancelled, this,
        [this] { finishedWithMessage(tr("Operation cancelled.")); });
    const QString progress = service->currentProgressMessage();
    if (service->syncStatus() != BVSyncService::Running) {
        finishedWithMessage(progress.isEmpty() ? tr("Sync operation is not running.") : progress);
        return;
    }
    m_indicatorRunning = true;
    showProgress(progress.isEmpty() ? tr("Initializing sync service...") : progress);
}

void BVSyncStatusWindowModel::showProgress(const QString &message)
{
    if (m_finished)
        return;
    m_statusText = message;
    Q_EMIT changed();
}

void BVSyncStatusWindowModel::finishedWithMessage(const QString &message)
{
    m_finished = true;
    m_indicatorRunning = false;
    m_actionEnabled = true;
    m_statusText = message;
    // The service may be gone by the time the details are asked for.
    m_log = m_service ? m_service->activityLog() : QString();
    Q_EMIT changed();
}

void BVSyncStatusWindowModel::triggerAction()
{
    if (m_finished) {
        Q_EMIT closeRequested();
        return;
    }
    m_statusText = tr("Cancelling sync operation...");
    m_actionEnabled = false;
    Q_EMIT changed();
    if (m_service)
        m_service->cancel();
}

void BVSyncStatusWindowModel::showDetails()
{
    if (!m_finished)
        return;
    m_detailsText = m_log;
    m_detailsShown = true;
    Q_EMIT changed();
}
