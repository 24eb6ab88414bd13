#include "gui/report/editactivitywindowcontroller.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QShortcut>
#include <QToolButton>
#include <QVBoxLayout>

#include "app/trackingcontroller.h"
#include "base/clock.h"
#include "gui/app/activitytextview.h"
#include "gui/report/bvdatepicker.h"
#include "gui/report/bvsheetkeys.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "report/activityeditor.h"

namespace {

BvDatePicker *makePicker(QWidget *parent, const QString &objectName, const Clock &clock)
{
    auto *picker = new BvDatePicker(parent);
    picker->setObjectName(objectName);
    picker->setClock(clock);
    const QLocale locale = QLocale::system();
    // The locale's own order and clock, with seconds (an activity keeps them) but without the zone name, and
    // four-digit years, since a two-digit year cannot be typed back unambiguously. Hours and minutes in the
    // format give the calendar its time sliders.
    QString timeFormat = locale.timeFormat(QLocale::LongFormat);
    timeFormat.remove(QRegularExpression(QStringLiteral("\\s*\\bt+\\b")));
    QString dateFormat = locale.dateFormat(QLocale::ShortFormat);
    dateFormat.replace(QRegularExpression(QStringLiteral("(?<!y)yy(?!y)")), QStringLiteral("yyyy"));
    picker->setDisplayFormat(dateFormat + u' ' + timeFormat.trimmed());
    return picker;
}

} // namespace

EditActivityWindowController::EditActivityWindowController(
    Store &store, ActivityManager &activityManager, const std::optional<QString> &uid, QWidget *parent)
    : QDialog(parent, Qt::Sheet)
    , m_editor(std::make_unique<ActivityEditor>(store, uid))
    , m_activityManager(activityManager)
{
    setObjectName(QStringLiteral("editActivityWindow"));
    setWindowModality(Qt::WindowModal);
    setWindowTitle(m_editor->isNewActivity() ? tr("New activity") : tr("Edit activity"));

    m_startPicker = makePicker(this, QStringLiteral("startPicker"), *store.clock());
    m_endPicker = makePicker(this, QStringLiteral("endPicker"), *store.clock());
    const ActivityPtr &activity = m_editor->activity();
    if (activity) {
        m_startPicker->setDateTime(activity->timeFrom().toLocalTime());
        m_endPicker->setDateTime(activity->timeTo().toLocalTime());
    }
    m_shownStart = m_startPicker->dateTime();
    m_shownEnd = m_endPicker->dateTime();

    m_textView = new ActivityTextView(activityManager, this);
    m_textView->setObjectName(QStringLiteral("textView"));
    m_textView->setDefaultFont();
    if (activity)
        m_textView->setText(activity->text());
    m_textView->setMinimumHeight(m_textView->fontMetrics().lineSpacing() * 4);

    m_earlierActivitiesButton = new QToolButton(this);
    m_earlierActivitiesButton->setObjectName(QStringLiteral("earlierActivitiesButton"));
    m_earlierActivitiesButton->setArrowType(Qt::DownArrow);
    m_earlierActivitiesButton->setToolTip(tr("Previous activities"));
    m_earlierActivitiesButton->setFocusPolicy(Qt::StrongFocus);
    m_recentMenu = new QMenu(tr("Previous activities"), this);
    m_recentMenu->setObjectName(QStringLiteral("previousActivitiesMenu"));
    connect(m_recentMenu, &QMenu::aboutToShow, this, &EditActivityWindowController::fillRecentActivitiesMenu);
    connect(
        m_earlierActivitiesButton, &QToolButton::clicked, this, &EditActivityWindowController::showRecentActivities);
    // As a combo box opens its list.
    auto *openRecent
        = new QShortcut(QKeySequence(Qt::ALT | Qt::Key_Down), m_textView, nullptr, nullptr, Qt::WidgetShortcut);
    connect(openRecent, &QShortcut::activated, this, &EditActivityWindowController::showRecentActivities);

    m_errorLabel = new QLabel(this);
    m_errorLabel->setObjectName(QStringLiteral("errorLabel"));
    m_errorLabel->setWordWrap(true);
    QPalette errorPalette = m_errorLabel->palette();
    errorPalette.setColor(QPalette::WindowText, Qt::red);
    m_errorLabel->setPalette(errorPalette);
    // Its line is there before there is an error to show, so that the sheet does not jump when one comes.
    m_errorLabel->setMinimumHeight(m_errorLabel->fontMetrics().lineSpacing());

    auto *buttons = new QDialogButtonBox(this);
    m_saveButton = buttons->addButton(tr("Save"), QDialogButtonBox::AcceptRole);
    m_saveButton->setObjectName(QStringLiteral("saveButton"));
    m_saveButton->setDefault(true);
    m_cancelButton = buttons->addButton(tr("Cancel"), QDialogButtonBox::RejectRole);
    m_cancelButton->setObjectName(QStringLiteral("cancelButton"));
    m_deleteButton = buttons->addButton(tr("Delete"), QDialogButtonBox::DestructiveRole);
    m_deleteButton->setObjectName(QStringLiteral("deleteButton"));
    m_deleteButton->setAutoDefault(false);
    if (m_editor->isNewActivity())
        m_deleteButton->setVisible(false);
    connect(m_saveButton, &QPushButton::clicked, this, &EditActivityWindowController::saveActivity);
    connect(m_cancelButton, &QPushButton::clicked, this, &EditActivityWindowController::cancelAction);
    connect(m_deleteButton, &QPushButton::clicked, this, &EditActivityWindowController::deleteActivity);

    auto *times = new QFormLayout;
    times->addRow(tr("Start:"), m_startPicker);
    times->addRow(tr("End:"), m_endPicker);
    auto *textRow = new QHBoxLayout;
    textRow->addWidget(m_textView, 1);
    textRow->addWidget(m_earlierActivitiesButton, 0, Qt::AlignTop);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(times);
    layout->addLayout(textRow, 1);
    layout->addWidget(m_errorLabel);
    layout->addWidget(buttons);
    setMinimumWidth(420);

    setTabOrder(m_endPicker, m_textView);
    setTabOrder(m_textView, m_earlierActivitiesButton);
    auto *keys = new BvSheetKeys(*this, *m_textView);
    connect(keys, &BvSheetKeys::commandReturnPressed, this, &EditActivityWindowController::handleCMDEnter);

    if (const std::optional<QString> failed = m_editor->loadError()) {
        showError(*failed);
        for (QWidget *input : std::initializer_list<QWidget *> {
                 m_startPicker, m_endPicker, m_textView, m_earlierActivitiesButton, m_saveButton, m_deleteButton })
            input->setEnabled(false);
        m_cancelButton->setFocus();
        return;
    }
    if (!m_editor->isNewActivity())
        m_textView->setFocus();
}

EditActivityWindowController::~EditActivityWindowController() = default;

bool EditActivityWindowController::isNewActivity() const
{
    return m_editor->isNewActivity();
}

void EditActivityWindowController::saveActivity()
{
    showError(QString());
    if (m_startPicker->dateTime() != m_shownStart)
        m_editor->setTimeFrom(m_startPicker->dateTime());
    if (m_endPicker->dateTime() != m_shownEnd)
        m_editor->setTimeTo(m_endPicker->dateTime());
    if (!m_editor->activity())
        return;
    if (m_textView->text() != m_editor->activity()->text())
        m_editor->setText(m_textView->text());
    const ActivityEditor::Result result = m_editor->save();
    if (!result) {
        showError(result.error());
        return;
    }
    m_savedChange = *result;
    done(1);
}

void EditActivityWindowController::cancelAction()
{
    m_editor->cancel();
    done(0);
}

void EditActivityWindowController::reject()
{
    cancelAction();
}

void EditActivityWindowController::deleteActivity()
{
    auto *alert = new QMessageBox(
        QMessageBox::Warning, tr("Delete activity?"), tr("Delete activity?"), QMessageBox::NoButton, this, Qt::Sheet);
    alert->setObjectName(QStringLiteral("deleteActivityAlert"));
    alert->setInformativeText(tr("Activity will be deleted permanently!"));
    QPushButton *yes = alert->addButton(tr("Yes"), QMessageBox::YesRole);
    yes->setObjectName(QStringLiteral("yesButton"));
    QPushButton *no = alert->addButton(tr("No"), QMessageBox::NoRole);
    no->setObjectName(QStringLiteral("noButton"));
    alert->setDefaultButton(no);
    alert->setEscapeButton(no);
    alert->setWindowModality(Qt::WindowModal);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    connect(alert, &QMessageBox::buttonClicked, this, [this, yes](QAbstractButton *button) {
        if (button == yes)
            onDeleteConfirmed();
    });
    alert->open();
}

void EditActivityWindowController::onDeleteConfirmed()
{
    const ActivityEditor::Result result = m_editor->deleteActivity();
    if (result)
        m_savedChange = *result;
    done(1);
}

void EditActivityWindowController::showRecentActivities()
{
    // A context menu placed at the button's origin.
    m_recentMenu->popup(m_earlierActivitiesButton->mapToGlobal(QPoint(0, 0)));
}

void EditActivityWindowController::fillRecentActivitiesMenu()
{
    m_recentMenu->clear();
    const QList<RecentActivityItem> items = m_activityManager.recentActivities();
    if (items.isEmpty()) {
        QAction *none = m_recentMenu->addAction(tr("No previous activities!"));
        none->setObjectName(QStringLiteral("noPreviousActivities"));
        none->setEnabled(false);
        return;
    }
    for (const RecentActivityItem &item : items) {
        // A title may contain "&": it is the user's text, not a mnemonic.
        QString title = TrackingController::recentMenuTitle(item.text());
        title.replace(QLatin1Char('&'), QLatin1String("&&"));
        QAction *action = m_recentMenu->addAction(title);
        action->setData(item.text());
        const QString text = item.text();
        connect(action, &QAction::triggered, this, [this, text] { setPreviousActivity(text); });
    }
}

void EditActivityWindowController::setPreviousActivity(const QString &text)
{
    m_textView->setText(text);
}

void EditActivityWindowController::handleCMDEnter()
{
    saveActivity();
}

void EditActivityWindowController::showError(const QString &text)
{
    m_errorLabel->setText(text);
}
