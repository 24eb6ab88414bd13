#include "gui/app/mainwindow.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>

#include "gui/app/activitytextview.h"
#include "gui/app/bvmainwindowstatusbarview.h"
#include "gui/app/mainmenubar.h"
#include "gui/app/recentactivitiesmenu.h"

namespace {

// NSColor's dark grey (one third white) and pure red, as the message line has always used.
constexpr QRgb InfoColor = qRgb(85, 85, 85);
constexpr QRgb ErrorColor = qRgb(255, 0, 0);

} // namespace

MainWindow::MainWindow(TrackingController &tracking, QWidget *parent)
    : QMainWindow(parent)
{
    setObjectName(QStringLiteral("mainWindow"));
    setWindowTitle(QStringLiteral("Brimvale"));

    m_menuBar = new MainMenuBar(tracking, this);
    setMenuBar(m_menuBar);

    auto *central = new QWidget(this);
    auto *layout = new QVBoxLayout(central);
    layout->setContentsMargins(12, 12, 12, 4);
    layout->setSpacing(6);

    auto *fieldRow = new QHBoxLayout;
    fieldRow->setSpacing(6);
    m_textView = new ActivityTextView(tracking.activityManager(), central);
    m_textView->setObjectName(QStringLiteral("textView"));
    m_textView->setSingleLine(true);
    m_textView->setPlaceholderText(tr("@project #task what you are doing"));
    fieldRow->addWidget(m_textView, 1);

    m_earlierActivitiesButton = new QToolButton(central);
    m_earlierActivitiesButton->setObjectName(QStringLiteral("earlierActivitiesButton"));
    m_earlierActivitiesButton->setArrowType(Qt::DownArrow);
    m_earlierActivitiesButton->setToolTip(tr("Previous activities"));
    m_earlierActivitiesButton->setFocusPolicy(Qt::NoFocus);
    fieldRow->addWidget(m_earlierActivitiesButton, 0, Qt::AlignTop);
    layout->addLayout(fieldRow);

    m_earlierActivitiesMenu = new RecentActivitiesMenu(tracking, false, tr("Previous activities"), this);
    m_earlierActivitiesMenu->setObjectName(QStringLiteral("earlierActivitiesMenu"));
    connect(m_earlierActivitiesButton, &QToolButton::clicked, this, &MainWindow::showEarlierActivities);

    m_errorLabel = new QLabel(central);
    m_errorLabel->setObjectName(QStringLiteral("errorLabel"));
    m_errorLabel->setWordWrap(true);
    m_errorLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_errorLabel->hide();
    layout->addWidget(m_errorLabel);
    layout->addStretch(1);

    m_statusbarView = new BVMainWindowStatusbarView(central);
    m_statusbarView->setObjectName(QStringLiteral("statusbarView"));
    layout->addWidget(m_statusbarView);

    setCentralWidget(central);
    resize(520, 150);

    connect(m_textView, &ActivityTextView::returnPressed, this, &MainWindow::returnPressed);
    connect(m_textView, &ActivityTextView::textEdited, this, &MainWindow::textEdited);
}

MainWindow::~MainWindow() = default;

void MainWindow::showMessage(TrackingController::MessageKind kind, const QString &text)
{
    if (kind == TrackingController::MessageKind::None) {
        m_errorLabel->clear();
        m_errorLabel->hide();
        return;
    }
    QPalette palette = m_errorLabel->palette();
    palette.setColor(
        QPalette::WindowText, QColor(kind == TrackingController::MessageKind::Error ? ErrorColor : InfoColor));
    m_errorLabel->setPalette(palette);
    m_errorLabel->setText(text);
    m_errorLabel->show();
}

void MainWindow::showEarlierActivities()
{
    m_earlierActivitiesMenu->popup(
        m_earlierActivitiesButton->mapToGlobal(QPoint(0, m_earlierActivitiesButton->height())));
}

void MainWindow::changeEvent(QEvent *event)
{
    QMainWindow::changeEvent(event);
    if (event->type() != QEvent::ActivationChange)
        return;
    if (isActiveWindow())
        Q_EMIT becameMain();
    else
        Q_EMIT resignedMain();
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    // The window is only hidden: the field keeps its text and the controller decides whether the app goes on.
    event->accept();
    QMainWindow::closeEvent(event);
    Q_EMIT closed();
}
