#include "gui/app/recentactivitiesmenu.h"

#include <QStyle>

#include "app/trackingcontroller.h"

RecentActivitiesMenu::RecentActivitiesMenu(
    TrackingController &tracking, bool startTrack, const QString &title, QWidget *parent)
    : QMenu(title, parent)
    , m_tracking(tracking)
    , m_startTrack(startTrack)
{
    connect(this, &QMenu::aboutToShow, this, &RecentActivitiesMenu::fill);
}

void RecentActivitiesMenu::fill()
{
    clear();
    const QList<TrackingController::RecentMenuEntry> entries = m_tracking.recentMenuEntries(m_startTrack);
    if (entries.isEmpty()) {
        QAction *none = addAction(tr("No previous activities!"));
        none->setObjectName(QStringLiteral("noPreviousActivities"));
        none->setEnabled(false);
        return;
    }
    const QIcon runningIcon = style()->standardIcon(QStyle::SP_MediaPlay);
    for (const TrackingController::RecentMenuEntry &entry : entries) {
        // A title may contain "&": it is the user's text, not a mnemonic.
        QString title = entry.title;
        title.replace(QLatin1Char('&'), QLatin1String("&&"));
        QAction *action = addAction(title);
        action->setData(entry.text);
        action->setEnabled(entry.enabled);
        if (m_startTrack && entry.isCurrent)
            action->setIcon(runningIcon);
        const QString text = entry.text;
        connect(action, &QAction::triggered, this, [this, text] { Q_EMIT activityChosen(text); });
    }
}
