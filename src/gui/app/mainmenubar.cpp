#include "gui/app/mainmenubar.h"

#include "gui/app/keyboardaction.h"
#include "gui/app/menutags.h"
#include "gui/app/recentactivitiesmenu.h"

namespace {

QAction *tagged(QAction *action, int tag, const char *objectName)
{
    action->setData(tag);
    action->setObjectName(QString::fromLatin1(objectName));
    return action;
}

} // namespace

MainMenuBar::MainMenuBar(TrackingController &tracking, QWidget *parent)
    : QMenuBar(parent)
{
    setObjectName(QStringLiteral("mainMenuBar"));

    // Later windows (preferences) add their commands to this menu.
    QMenu *appMenu = addMenu(tr("&Brimvale"));
    appMenu->setObjectName(QStringLiteral("applicationMenu"));
    QAction *report = tagged(appMenu->addAction(tr("&Report...")), MenuTags::ShowReport, "showReportAction");
    report->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_R));
    report->setShortcutContext(Qt::ApplicationShortcut);
    connect(report, &QAction::triggered, this, &MainMenuBar::reportRequested);
    QAction *import = tagged(
        appMenu->addAction(tr("Import activities...")), MenuTags::ImportActivities, "importActivitiesAction");
    connect(import, &QAction::triggered, this, &MainMenuBar::importRequested);
    appMenu->addSeparator();
    QAction *quit = appMenu->addAction(tr("&Quit"));
    quit->setObjectName(QStringLiteral("quitAction"));
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    quit->setShortcutContext(Qt::ApplicationShortcut);
    quit->setMenuRole(QAction::QuitRole);
    connect(quit, &QAction::triggered, this, &MainMenuBar::quitRequested);

    m_activityMenu = addMenu(tr("&Activity"));
    m_activityMenu->setObjectName(QStringLiteral("activityMenu"));
    m_activityMenu->menuAction()->setData(MenuTags::ActivityMenu);

    m_start = new KeyboardAction(tr("Start tracking"), m_activityMenu);
    tagged(m_start, MenuTags::StartTrack, "startTrackAction");
    // Return in the field starts too; Ctrl+Return works wherever the focus is.
    m_start->setShortcuts({ QKeySequence(Qt::CTRL | Qt::Key_Return), QKeySequence(Qt::CTRL | Qt::Key_Enter) });
    m_start->setShortcutContext(Qt::ApplicationShortcut);
    m_activityMenu->addAction(m_start);
    connect(
        m_start, &QAction::triggered, this, [this] { Q_EMIT startTrackRequested(m_start->isTriggeredByKeyboard()); });

    m_recentMenu = new RecentActivitiesMenu(tracking, true, tr("Track recent"), m_activityMenu);
    m_recentMenu->setObjectName(QStringLiteral("recentActivitiesMenu"));
    tagged(m_recentMenu->menuAction(), MenuTags::RecentActivities, "recentActivitiesAction");
    m_activityMenu->addMenu(m_recentMenu);

    m_update = new KeyboardAction(tr("Update activity"), m_activityMenu);
    tagged(m_update, MenuTags::UpdateTrack, "updateTrackAction");
    m_activityMenu->addAction(m_update);
    connect(m_update, &QAction::triggered, this,
        [this] { Q_EMIT updateTrackRequested(m_update->isTriggeredByKeyboard()); });

    m_stop = tagged(m_activityMenu->addAction(tr("Stop tracking")), MenuTags::StopTrack, "stopTrackAction");
    connect(m_stop, &QAction::triggered, this, &MainMenuBar::stopTrackRequested);

    QMenu *windowMenu = addMenu(tr("&Window"));
    windowMenu->setObjectName(QStringLiteral("windowMenu"));
    QAction *minimize = windowMenu->addAction(tr("Minimize"));
    minimize->setObjectName(QStringLiteral("minimizeAction"));
    minimize->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_M));
    connect(minimize, &QAction::triggered, this, &MainMenuBar::minimizeRequested);
    QAction *zoom = windowMenu->addAction(tr("Zoom"));
    zoom->setObjectName(QStringLiteral("zoomAction"));
    connect(zoom, &QAction::triggered, this, &MainMenuBar::zoomRequested);
    windowMenu->addSeparator();
    m_mainWindowItem = windowMenu->addAction(tr("Brimvale"));
    m_mainWindowItem->setObjectName(QStringLiteral("mainWindowAction"));
    m_mainWindowItem->setEnabled(false);
    connect(m_mainWindowItem, &QAction::triggered, this, &MainMenuBar::mainWindowRequested);
    m_reportItem = tagged(windowMenu->addAction(tr("Report")), MenuTags::WindowReport, "windowReportAction");
    m_reportItem->setEnabled(false);
    connect(m_reportItem, &QAction::triggered, this, &MainMenuBar::reportRequested);

    setActivityMenuState(tracking.activityMenuState());
}

void MainMenuBar::setActivityMenuState(const TrackingController::ActivityMenuState &state)
{
    m_start->setEnabled(state.start);
    m_recentMenu->menuAction()->setEnabled(state.recentActivities);
    m_update->setEnabled(state.update);
    m_stop->setEnabled(state.stop);
}

void MainMenuBar::setMainWindowItemEnabled(bool enabled)
{
    m_mainWindowItem->setEnabled(enabled);
}

void MainMenuBar::setReportItemEnabled(bool enabled)
{
    m_reportItem->setEnabled(enabled);
}

QAction *MainMenuBar::actionWithTag(int tag) const
{
    const QList<QAction *> all = findChildren<QAction *>();
    for (QAction *action : all) {
        if (action->data().typeId() == QMetaType::Int && action->data().toInt() == tag)
            return action;
    }
    return nullptr;
}
