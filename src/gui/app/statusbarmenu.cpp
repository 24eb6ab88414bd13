#include "gui/app/statusbarmenu.h"

#include "app/trackingcontroller.h"
#include "gui/app/menutags.h"
#include "gui/app/recentactivitiesmenu.h"

StatusBarMenu::StatusBarMenu(TrackingController &tracking, QWidget *parent)
    : QMenu(parent)
    , m_tracking(tracking)
{
    setObjectName(QStringLiteral("statusBarMenu"));

    QAction *open = addAction(tr("Open"));
    open->setObjectName(QStringLiteral("statusOpenAction"));
    connect(open, &QAction::triggered, this, &StatusBarMenu::openRequested);

    m_recentMenu = new RecentActivitiesMenu(tracking, true, tr("Track recent"), this);
    m_recentMenu->setObjectName(QStringLiteral("statusRecentActivitiesMenu"));
    m_recentMenu->menuAction()->setData(MenuTags::StatusTrackRecent);
    m_recentMenu->menuAction()->setObjectName(QStringLiteral("statusTrackRecentAction"));
    addMenu(m_recentMenu);

    m_stop = addAction(tr("Stop tracking"));
    m_stop->setObjectName(QStringLiteral("statusStopAction"));
    m_stop->setData(MenuTags::StatusStopTracking);
    connect(m_stop, &QAction::triggered, this, &StatusBarMenu::stopTrackRequested);

    addSeparator();
    QAction *report = addAction(tr("Report..."));
    report->setObjectName(QStringLiteral("statusReportAction"));
    report->setData(MenuTags::StatusReport);
    connect(report, &QAction::triggered, this, &StatusBarMenu::reportRequested);
    m_activitiesMenu = addMenu(tr("Activities"));
    m_activitiesMenu->setObjectName(QStringLiteral("statusActivitiesMenu"));
    m_activitiesMenu->menuAction()->setObjectName(QStringLiteral("statusActivitiesAction"));
    m_activitiesMenu->menuAction()->setData(MenuTags::StatusActivities);
    QAction *import = m_activitiesMenu->addAction(tr("Import activities..."));
    import->setObjectName(QStringLiteral("statusImportAction"));
    import->setData(MenuTags::StatusImportActivities);
    connect(import, &QAction::triggered, this, &StatusBarMenu::importRequested);
    m_sync = m_activitiesMenu->addAction(QString());
    m_sync->setObjectName(QStringLiteral("statusSyncAction"));
    m_sync->setData(MenuTags::StatusSync);
    connect(m_sync, &QAction::triggered, this, &StatusBarMenu::syncRequested);
    setSyncMenuTitle(QString());

    addSeparator();
    QAction *quit = addAction(tr("Quit"));
    quit->setObjectName(QStringLiteral("statusQuitAction"));
    connect(quit, &QAction::triggered, this, &StatusBarMenu::quitRequested);

    connect(this, &QMenu::aboutToShow, this, &StatusBarMenu::updateItems);
    updateItems();
}

void StatusBarMenu::updateItems()
{
    m_stop->setEnabled(m_tracking.isTracking());
}

void StatusBarMenu::setSyncMenuTitle(const QString &title)
{
    m_sync->setText(title);
    m_sync->setVisible(!title.isNull());
}

QAction *StatusBarMenu::actionWithTag(int tag) const
{
    const QList<QAction *> all = findChildren<QAction *>();
    for (QAction *action : all) {
        if (action->data().typeId() == QMetaType::Int && action->data().toInt() == tag)
            return action;
    }
    return nullptr;
}
