#pragma once

#include <QMenu>

class RecentActivitiesMenu;
class TrackingController;

// The tray icon's menu: "Open", "Track recent" (tag 1), "Stop tracking" (tag 2, enabled only while
// tracking, checked each time the menu opens), "Report..." (tag 2003), "Activities" (tag 2002) with
// "Import activities..." (tag 2004) and the sync command (tag 2001) while a sync method is chosen, and
// "Quit".
class StatusBarMenu : public QMenu
{
    Q_OBJECT
public:
    StatusBarMenu(TrackingController &tracking, QWidget *parent = nullptr);

    RecentActivitiesMenu *recentActivitiesMenu() const { return m_recentMenu; }
    // menuWillOpen: brings the items' states up to date (done on every aboutToShow).
    void updateItems();
    QAction *actionWithTag(int tag) const;
    // The sync command's title; a null title hides the command.
    void setSyncMenuTitle(const QString &title);

Q_SIGNALS:
    void openRequested();
    void stopTrackRequested();
    void quitRequested();
    void syncRequested();
    void reportRequested();
    void importRequested();

private:
    TrackingController &m_tracking;
    RecentActivitiesMenu *m_recentMenu = nullptr;
    QAction *m_stop = nullptr;
    QMenu *m_activitiesMenu = nullptr;
    QAction *m_sync = nullptr;
};
