#include "gui/report/mergeactivitieswindowcontroller.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "export/bvdurationtransformer.h"
#include "gui/app/activitytextview.h"
#include "gui/report/bvsheetkeys.h"
#include "model/activitymanager.h"
#include "report/activitymerge.h"

MergeActivitiesWindowController::MergeActivitiesWindowController(
    Store &store, ActivityManager &activityManager, const QStringList &uids, int durationFormat, QWidget *parent)
    : QDialog(parent, Qt::Sheet)
    , m_merge(std::make_unique<ActivityMerge>(
          store, uids, activityManager.isTracking() ? activityManager.currentActivity()->uid() : QString()))
{
    setObjectName(QStringLiteral("mergeActivitiesWindow"));
    setWindowModality(Qt::WindowModal);
    setWindowTitle(tr("Merge activities"));

    m_textView = new ActivityTextView(activityManager, this);
    m_textView->setObjectName(QStringLiteral("textView"));
    m_textView->setDefaultFont();
    m_textView->setMinimumHeight(m_textView->fontMetrics().lineSpacing() * 6);
    m_durationLabel = new QLabel(this);
    m_durationLabel->setObjectName(QStringLiteral("durationLabel"));
    m_isInvoicedCb = new QCheckBox(tr("Invoiced"), this);
    m_isInvoicedCb->setObjectName(QStringLiteral("isInvoicedCb"));
    m_errorLabel = new QLabel(this);
    m_errorLabel->setObjectName(QStringLiteral("errorLabel"));
    m_errorLabel->setWordWrap(true);
    QPalette errorPalette = m_errorLabel->palette();
    errorPalette.setColor(QPalette::WindowText, Qt::red);
    m_errorLabel->setPalette(errorPalette);
    // Its line is there before there is an error to show, so that the sheet does not jump when one comes.
    m_errorLabel->setMinimumHeight(m_errorLabel->fontMetrics().lineSpacing());

    auto *buttons = new QDialogButtonBox(this);
    m_saveButton = buttons->addButton(tr("Merge"), QDialogButtonBox::AcceptRole);
    m_saveButton->setObjectName(QStringLiteral("saveButton"));
    m_saveButton->setDefault(true);
    m_cancelButton = buttons->addButton(tr("Cancel"), QDialogButtonBox::RejectRole);
    m_cancelButton->setObjectName(QStringLiteral("cancelButton"));
    connect(m_saveButton, &QPushButton::clicked, this, &MergeActivitiesWindowController::saveActivity);
    connect(m_cancelButton, &QPushButton::clicked, this, &MergeActivitiesWindowController::cancelAction);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_textView, 1);
    layout->addWidget(m_durationLabel);
    layout->addWidget(m_isInvoicedCb);
    layout->addWidget(m_errorLabel);
    layout->addWidget(buttons);
    setMinimumWidth(420);

    auto *keys = new BvSheetKeys(*this, *m_textView);
    connect(keys, &BvSheetKeys::commandReturnPressed, this, &MergeActivitiesWindowController::handleCMDEnter);

    if (const std::optional<QString> failed = m_merge->loadError()) {
        showError(*failed);
        m_textView->setEnabled(false);
        m_isInvoicedCb->setEnabled(false);
        m_saveButton->setEnabled(false);
        return;
    }
    m_textView->setText(m_merge->activity()->text());
    BVDurationTransformer transformer(durationFormat);
    transformer.setPrefix(tr("Total duration: "));
    m_durationLabel->setText(transformer.transformedValue(m_merge->activity()->durationSecs()));
    // The mixed state is offered only while the activities disagree; once the user picks a side it is one
    // of the three states the box cycles through.
    m_isInvoicedCb->setTristate(m_merge->offersMixedState());
    switch (m_merge->invoicedState()) {
    case ActivityMerge::Invoiced:
        m_isInvoicedCb->setCheckState(Qt::Checked);
        break;
    case ActivityMerge::NotInvoiced:
        m_isInvoicedCb->setCheckState(Qt::Unchecked);
        break;
    default:
        m_isInvoicedCb->setCheckState(Qt::PartiallyChecked);
        break;
    }
    connect(m_isInvoicedCb, &QCheckBox::stateChanged, this, &MergeActivitiesWindowController::onInvoicedStateChanged);
    m_textView->setFocus();
}

MergeActivitiesWindowController::~MergeActivitiesWindowController() = default;

int MergeActivitiesWindowController::invoicedState() const
{
    return m_merge->invoicedState();
}

void MergeActivitiesWindowController::onInvoicedStateChanged(int checkState)
{
    switch (Qt::CheckState(checkState)) {
    case Qt::Checked:
        m_merge->setInvoicedState(ActivityMerge::Invoiced);
        break;
    case Qt::Unchecked:
        m_merge->setInvoicedState(ActivityMerge::NotInvoiced);
        break;
    case Qt::PartiallyChecked:
        m_merge->setInvoicedState(ActivityMerge::Mixed);
        break;
    }
}

void MergeActivitiesWindowController::saveActivity()
{
    showError(QString());
    if (!m_merge->activity())
        return;
    if (m_textView->text() != m_merge->activity()->text())
        m_merge->setText(m_textView->text());
    const ActivityMerge::Result result = m_merge->save();
    if (!result) {
        showError(result.error());
        return;
    }
    m_savedChange = *result;
    done(1);
}

void MergeActivitiesWindowController::cancelAction()
{
    m_merge->cancel();
    done(0);
}

void MergeActivitiesWindowController::reject()
{
    cancelAction();
}

void MergeActivitiesWindowController::handleCMDEnter()
{
    saveActivity();
}

void MergeActivitiesWindowController::showError(const QString &text)
{
    m_errorLabel->setText(text);
}
