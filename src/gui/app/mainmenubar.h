#pragma once

#include <QMenuBar>

#include "app/trackingcontroller.h"

class KeyboardAction;
class RecentActivitiesMenu;

// The main window's menu bar: the application menu (Quit), the Activity menu (tag 1) with Start (1001),
// Track recent (1002), Update (1003) and Stop (1004), and the Window menu. It holds no rule: the controller
// sets the Activity items' states and acts on the commands it reports. Every item carries its tag in
// QAction::data and an objectName.
class MainMenuBar : public QMenuBar
{
    Q_OBJECT
public:
    MainMenuBar(TrackingController &tracking, QWidget *parent = nullptr);

    // updateActivityMenu: an item without its action is disabled.
    void setActivityMenuState(const TrackingController::ActivityMenuState &state);
    // The Window menu's item for the main window is enabled while that window is main.
    void setMainWindowItemEnabled(bool enabled);
    // The Window menu's report item is enabled while the report window is active.
    void setReportItemEnabled(bool enabled);

    QMenu *activityMenu() const { return m_activityMenu; }
    RecentActivitiesMenu *recentActivitiesMenu() const { return m_recentMenu; }
    // The item with `tag` in any of the menus, or null.
    QAction *actionWithTag(int tag) const;

Q_SIGNALS:
    // `byKeyboard`: the shortcut, not a click, chose the command.
    void startTrackRequested(bool byKeyboard);
    void updateTrackRequested(bool byKeyboard);
    void stopTrackRequested();
    void minimizeRequested();
    void zoomRequested();
    void mainWindowRequested();
    void quitRequested();
    void reportRequested();
    void importRequested();

private:
    QMenu *m_activityMenu = nullptr;
    RecentActivitiesMenu *m_recentMenu = nullptr;
    KeyboardAction *m_start = nullptr;
    KeyboardAction *m_update = nullptr;
    QAction *m_stop = nullptr;
    QAction *m_mainWindowItem = nullptr;
    QAction *m_reportItem = nullptr;
};
