#pragma once

#include <QMenu>

class RecentActivitiesMenu;
class TrackingController;

// The tray icon's menu: "Open", "Track recent" (tag 1), "Stop tracking" (tag 2, enabled only while
// tracking, checked each time the menu opens), and "Quit". Windows that do not exist yet have no item.
class StatusBarMenu : public QMenu
{
    Q_OBJECT
public:
    StatusBarMenu(TrackingController &tracking, QWidget *parent = nullptr);

    RecentActivitiesMenu *recentActivitiesMenu() const { return m_recentMenu; }
    // menuWillOpen: brings the items' states up to date (done on every aboutToShow).
    void updateItems();
    QAction *actionWithTag(int tag) const;

Q_SIGNALS:
    void openRequested();
    void stopTrackRequested();
    void quitRequested();

private:
    TrackingController &m_tracking;
    RecentActivitiesMenu *m_recentMenu = nullptr;
    QAction *m_stop = nullptr;
};
