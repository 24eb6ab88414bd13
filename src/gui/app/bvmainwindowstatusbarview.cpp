#include "gui/app/bvmainwindowstatusbarview.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QToolButton>

namespace {

QToolButton *makeImageButton(QWidget *parent, const QString &objectName, QSize size)
{
    auto *button = new QToolButton(parent);
    button->setObjectName(objectName);
    button->setAutoRaise(true);
    button->setToolButtonStyle(Qt::ToolButtonIconOnly);
    button->setFocusPolicy(Qt::NoFocus);
    button->setFixedSize(size);
    button->setIconSize(size);
    return button;
}

} // namespace

BVMainWindowStatusbarView::BVMainWindowStatusbarView(QWidget *parent)
    : QWidget(parent)
    , m_layout(new QHBoxLayout(this))
    , m_label(new QLabel(this))
{
    setObjectName(QStringLiteral("statusbarView"));
    m_layout->setContentsMargins(6, 2, 6, 2);
    m_layout->setSpacing(4);
    m_label->setObjectName(QStringLiteral("statusLabel"));
    m_label->setTextInteractionFlags(Qt::NoTextInteraction);
    m_label->setAutoFillBackground(false);
    m_label->setFrameShape(QFrame::NoFrame);
    // Ignored width: a long status text is cut rather than pushing the buttons out of the window.
    m_label->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_label->setMinimumWidth(0);
    m_layout->addWidget(m_label, 1);
}

void BVMainWindowStatusbarView::setStatusString(const QString &text)
{
    m_label->setText(text);
}

QString BVMainWindowStatusbarView::statusString() const
{
    return m_label->text();
}

void BVMainWindowStatusbarView::setEditStartTimeButtonVisible(bool visible)
{
    m_editStartTimeButtonVisible = visible;
    if (visible && !m_editStartTimeButton) {
        m_editStartTimeButton = makeImageButton(this, QStringLiteral("editStartTimeButton"), QSize(19, 15));
        m_editStartTimeButton->setIcon(QIcon(QStringLiteral(":/icons/status_edit_start_date.svg")));
        m_editStartTimeButton->setToolTip(tr("Change start time for current activity"));
        connect(m_editStartTimeButton, &QToolButton::clicked, this, &BVMainWindowStatusbarView::onEditStartTimeButton);
        // Directly after the label, before the sync button.
        m_layout->insertWidget(1, m_editStartTimeButton);
    }
    if (m_editStartTimeButton)
        m_editStartTimeButton->setVisible(visible);
}

void BVMainWindowStatusbarView::setSyncStatus(int status, int withSyncMethod)
{
    m_syncStatus = status;
    m_syncMethod = withSyncMethod;
    showSyncButton(status);
}

void BVMainWindowStatusbarView::showSyncButton(int status)
{
    if (!m_syncButton) {
        m_syncButton = makeImageButton(this, QStringLiteral("syncStatusButton"), QSize(20, 15));
        connect(m_syncButton, &QToolButton::clicked, this, &BVMainWindowStatusbarView::onSyncStatusButton);
        m_layout->addWidget(m_syncButton);
    }
    const QString method = m_syncMethod == 1 ? QStringLiteral("Dropbox") : QString();
    QString image;
    QString toolTip;
    switch (status) {
    case 2:
        image = QStringLiteral("DropboxSyncProgress");
        toolTip = tr("%1 syncing ...").arg(method);
        break;
    case 3:
        image = QStringLiteral("DropboxSyncSuccess");
        toolTip = tr("%1 sync completed").arg(method);
        break;
    case 4:
        image = QStringLiteral("DropboxSyncError");
        toolTip = tr("%1 sync error").arg(method);
        break;
    default:
        break;
    }
    m_syncButton->setIcon(image.isEmpty() ? QIcon() : QIcon(u":/icons/" + image + u".svg"));
    m_syncButton->setToolTip(toolTip);
    m_syncButton->setVisible(status != 1);
}

QString BVMainWindowStatusbarView::syncButtonToolTip() const
{
    return m_syncButton && !m_syncButton->isHidden() ? m_syncButton->toolTip() : QString();
}
