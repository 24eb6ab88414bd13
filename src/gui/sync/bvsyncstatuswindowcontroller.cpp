#include "gui/sync/bvsyncstatuswindowcontroller.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "sync/bvsyncservice.h"

namespace {

constexpr int kCompactWidth = 420;
constexpr int kDetailsHeight = 260;

} // namespace

BVSyncStatusWindowController::BVSyncStatusWindowController(QWidget *parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("syncStatusWindow"));
    setWindowTitle(tr("Sync"));
    setModal(false);

    m_indicator = new QProgressBar(this);
    m_indicator->setObjectName(QStringLiteral("syncIndicator"));
    // No range: a busy indicator, since a run cannot know how much is left.
    m_indicator->setRange(0, 0);
    m_indicator->setTextVisible(false);
    m_indicator->setMaximumHeight(8);

    m_statusLabel = new QLabel(this);
    m_statusLabel->setObjectName(QStringLiteral("syncStatusLabel"));
    m_statusLabel->setWordWrap(true);
    m_statusLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);

    m_cancelButton = new QPushButton(tr("Cancel"), this);
    m_cancelButton->setObjectName(QStringLiteral("syncCancelButton"));
    m_detailsButton = new QPushButton(tr("Details"), this);
    m_detailsButton->setObjectName(QStringLiteral("syncDetailsButton"));
    m_detailsButton->hide();

    m_details = new QPlainTextEdit(this);
    m_details->setObjectName(QStringLiteral("syncDetails"));
    m_details->setReadOnly(true);
    m_details->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_details->hide();

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_detailsButton);
    buttons->addStretch();
    buttons->addWidget(m_cancelButton);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_indicator);
    layout->addWidget(m_statusLabel);
    layout->addWidget(m_details, 1);
    layout->addLayout(buttons);
    setMinimumWidth(kCompactWidth);

    connect(m_cancelButton, &QPushButton::clicked, this, &BVSyncStatusWindowController::onCancelOrClose);
    connect(m_detailsButton, &QPushButton::clicked, this, &BVSyncStatusWindowController::onDetails);
    showServiceState();
}

void BVSyncStatusWindowController::setSyncService(BVSyncService *service)
{
    if (m_service)
        disconnect(m_service, nullptr, this, nullptr);
    m_service = service;
    if (m_service) {
        connect(m_service, &BVSyncService::syncServiceProgress, this, &BVSyncStatusWindowController::onProgress);
        connect(m_service, &BVSyncService::syncServiceFinish, this, &BVSyncStatusWindowController::onFinish);
        connect(m_service, &BVSyncService::syncServiceError, this, &BVSyncStatusWindowController::onError);
        connect(m_service, &BVSyncService::syncServiceCancelled, this, &BVSyncStatusWindowController::onCancelled);
    }
    showServiceState();
}

QString BVSyncStatusWindowController::statusText() const
{
    return m_statusLabel->text();
}

void BVSyncStatusWindowController::showServiceState()
{
    m_finished = false;
    m_cancelButton->setText(tr("Cancel"));
    m_cancelButton->setEnabled(true);
    m_detailsButton->hide();
    if (!m_service || m_service->syncStatus() != BVSyncService::Running) {
        const QString message = m_service ? m_service->currentProgressMessage() : QString();
        finishedWithMessage(message.isEmpty() ? QStringLiteral("Sync operation is not running.") : message);
        return;
    }
    m_indicator->show();
    const QString message = m_service->currentProgressMessage();
    m_statusLabel->setText(message.isEmpty() ? QStringLiteral("Initializing sync service...") : message);
    // While the run goes on, the window closes only through Cancel, which says what it does.
    setClosable(false);
}

void BVSyncStatusWindowController::setClosable(bool closable)
{
    if (windowFlags().testFlag(Qt::WindowCloseButtonHint) == closable)
        return;
    const bool wasVisible = isVisible();
    setWindowFlag(Qt::WindowCloseButtonHint, closable);
    // Changing a window flag hides a shown window; bring it back where it was.
    if (wasVisible)
        show();
}

void BVSyncStatusWindowController::onProgress(const QString &message)
{
    if (!m_finished)
        m_statusLabel->setText(message);
}

void BVSyncStatusWindowController::onFinish(const QString &message)
{
    finishedWithMessage(message);
}

void BVSyncStatusWindowController::onError(const QString &details)
{
    finishedWithMessage(QStringLiteral("Failure. %1").arg(details));
}

void BVSyncStatusWindowController::onCancelled()
{
    finishedWithMessage(QStringLiteral("Operation cancelled."));
}

void BVSyncStatusWindowController::finishedWithMessage(const QString &message)
{
    m_finished = true;
    m_indicator->hide();
    m_statusLabel->setText(message);
    m_cancelButton->setText(tr("Close"));
    m_cancelButton->setEnabled(true);
    m_detailsButton->setVisible(!m_details->isVisible());
    setClosable(true);
}

void BVSyncStatusWindowController::onCancelOrClose()
{
    if (m_finished || !m_service) {
        close();
        return;
    }
    m_statusLabel->setText(QStringLiteral("Cancelling sync operation..."));
    m_cancelButton->setEnabled(false);
    m_service->cancel();
}

void BVSyncStatusWindowController::onDetails()
{
    m_details->setPlainText(m_service ? m_service->activityLog() : QString());
    m_details->show();
    m_detailsButton->hide();
    setMaximumHeight(QWIDGETSIZE_MAX);
    resize(width(), height() + kDetailsHeight);
}
