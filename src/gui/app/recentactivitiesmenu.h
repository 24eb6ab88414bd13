#pragma once

#include <QMenu>

class TrackingController;

// A menu of the recent activity texts, refilled from the tracking controller each time it opens. Starting
// menus (the Activity menu's and the tray's "Track recent") disable the running text's item and mark it
// with a triangle; the earlier-activities menu only offers texts for the field. With no recent texts it
// holds the one disabled item "No previous activities!".
class RecentActivitiesMenu : public QMenu
{
    Q_OBJECT
public:
    RecentActivitiesMenu(
        TrackingController &tracking, bool startTrack, const QString &title, QWidget *parent = nullptr);

    bool startsTrack() const { return m_startTrack; }
    // Rebuilds the items now (done on every aboutToShow).
    void fill();

Q_SIGNALS:
    // The user chose an item; `text` is the full recent text.
    void activityChosen(const QString &text);

private:
    TrackingController &m_tracking;
    const bool m_startTrack;
};
