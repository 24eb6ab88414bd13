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

    connect(&m_model, &BVSyncStatusWindowModel::changed, this, &BVSyncStatusWindowController::showModel);
    connect(&m_model, &BVSyncStatusWindowModel::closeRequested, this, &QWidget::close);
    connect(m_cancelButton, &QPushButton::clicked, &m_model, &BVSyncStatusWindowModel::triggerAction);
    connect(m_detailsButton, &QPushButton::clicked, this, &BVSyncStatusWindowController::onDetails);
    m_model.setSyncService(nullptr);
}

void BVSyncStatusWindowController::setSyncService(BVSyncService *service)
{
    m_model.setSyncService(service);
    // A window shown again for another run starts compact.
    if (!m_model.isDetailsShown() && m_details->isVisible()) {
        m_details->hide();
        adjustSize();
    }
    showModel();
}

QString BVSyncStatusWindowController::statusText() const
{
    return m_statusLabel->text();
}

void BVSyncStatusWindowController::showModel()
{
    m_indicator->setVisible(m_model.isIndicatorRunning());
    m_statusLabel->setText(m_model.statusText());
    m_cancelButton->setText(m_model.actionTitle());
    m_cancelButton->setEnabled(m_model.isActionEnabled());
    m_detailsButton->setVisible(m_model.isFinished() && !m_model.isDetailsShown());
    // While the run goes on, the window closes only through Cancel, which says what it does.
    setClosable(m_model.isFinished());
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

void BVSyncStatusWindowController::onDetails()
{
    m_model.showDetails();
    if (!m_model.isDetailsShown())
        return;
    m_details->setPlainText(m_model.detailsText());
    m_details->show();
    setMaximumHeight(QWIDGETSIZE_MAX);
    resize(width(), height() + kDetailsHeight);
}
