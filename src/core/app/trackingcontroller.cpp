#include "app/trackingcontroller.h"

#include "base/clock.h"
#include "model/activitymanager.h"
#include "settings/bvsettings.h"

namespace {

const QString kStopPreviousFirst = QStringLiteral("Stop previous activity before tracking new!");
const QString kNotTracking = QStringLiteral("Can not update. Not tracking...");
const QString kActivityUpdated = QStringLiteral("Activity updated!");
const QString kUpdateTip = QStringLiteral("Tip: press \"Update activity\" to update current activity!");

// Recent texts longer than this are cut to kRecentTitleKept characters and "...".
constexpr qsizetype kRecentTitleMax = 50;
constexpr qsizetype kRecentTitleKept = 47;

struct HoursMinutesSeconds
{
    qint64 hours = 0;
    qint64 minutes = 0;
    qint64 seconds = 0;
};

// Hours count only past a full hour and minutes only past a full minute, exactly as the status line has
// always shown them; so the one second at 3,600 reads 00:60:00.
HoursMinutesSeconds split(qint64 secs)
{
    HoursMinutesSeconds parts;
    parts.hours = secs > 3600 ? secs / 3600 : 0;
    parts.minutes = secs > 60 ? (secs - 3600 * parts.hours) / 60 : 0;
    parts.seconds = secs % 60;
    return parts;
}

QString twoDigits(qint64 value)
{
    return QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0'));
}

} // namespace

TrackingController::TrackingController(
    ActivityManager &activityManager, BvSettings &settings, Clock &clock, QObject *parent)
    : QObject(parent)
    , m_activityManager(activityManager)
    , m_settings(settings)
    , m_clock(clock)
{
    // The display's tick is coarse, so the system may batch its wake-ups.
    m_trackTimer.setInterval(TouchIntervalMsecs);
    // Precise, so a killed app never loses more than the interval; it wakes once in 30 s all the same.
    m_trackTimer.setTimerType(Qt::PreciseTimer);
    m_counterTimer.setInterval(CounterIntervalMsecs);
    m_counterTimer.setTimerType(Qt::CoarseTimer);
    connect(&m_trackTimer, &QTimer::timeout, this, &TrackingController::touchActivity);
    connect(&m_counterTimer, &QTimer::timeout, this, &TrackingController::updateTrackStatus);
    connect(&m_activityManager, &ActivityManager::activityManagerStarted, this,
        &TrackingController::onActivityManagerStarted);
    connect(&m_activityManager, &ActivityManager::activityManagerStopped, this,
        &TrackingController::onActivityManagerStopped);
    connect(&m_activityManager, &ActivityManager::currentActivityRefreshed, this,
        &TrackingController::onCurrentActivityRefreshed);
    connect(&m_settings, &BvSettings::appStatusbarTypeChanged, this, &TrackingController::updateTrackStatus);
    updateTrackStatus();
}

bool TrackingController::isTracking() const
{
    return m_activityManager.isTracking();
}

void TrackingController::setActivityTextFromUser(const QString &text)
{
    m_activityText = text;
    if (isTracking())
        showInfo(kUpdateTip);
}

void TrackingController::setActivityText(const QString &text)
{
    if (text == m_activityText)
        return;
    m_activityText = text;
    Q_EMIT activityTextChanged(m_activityText);
}

bool TrackingController::doStartTrackAndShowWindow(bool show)
{
    Q_EMIT dockBouncingStopRequested();
    hideError();
    if (show)
        Q_EMIT mainWindowFrontRequested();
    if (isTracking() && m_settings.endCurrentActivityOnTrack())
        stopTrack();
    // With ending switched off the user stops the running activity first, by design.
    if (isTracking()) {
        showError(kStopPreviousFirst);
        if (show)
            Q_EMIT mainWindowFrontRequested();
        return false;
    }
    // A stop with nothing running still brings every display into the not-tracking state.
    stopTrack();
    const QString message = m_activityManager.startTrack(m_activityText);
    if (!message.isNull()) {
        showError(message);
        if (show)
            Q_EMIT mainWindowFrontRequested();
        return false;
    }
    return true;
}

bool TrackingController::doUpdateTrack(bool show)
{
    hideError();
    if (show)
        Q_EMIT mainWindowFrontRequested();
    if (!isTracking()) {
        showError(kNotTracking);
        if (show)
            Q_EMIT mainWindowFrontRequested();
        return false;
    }
    Q_EMIT attentionTimerRearmRequested();
    const QString message = m_activityManager.updateTrack(m_activityText);
    if (!message.isNull()) {
        showError(message);
        if (show)
            Q_EMIT mainWindowFrontRequested();
        return false;
    }
    // The engine would store the new text with the next touch; a report or a terminal open meanwhile
    // should not show the old one for up to half a minute.
    m_activityManager.touchCurrentActivity();
    showInfo(kActivityUpdated);
    reportTracking();
    return true;
}

void TrackingController::stopTrack()
{
    Q_EMIT dockBouncingStopRequested();
    m_trackTimer.stop();
    m_activityManager.stopTrack();
}

void TrackingController::touchActivity()
{
    m_activityManager.touchCurrentActivity();
    updateTrackStatus();
}

void TrackingController::setPreviousActivity(const QString &text)
{
    setActivityText(text);
    if (isTracking())
        showInfo(kUpdateTip);
}

bool TrackingController::setPreviousActivityAndStart(const QString &text)
{
    if (isTracking())
        stopTrack();
    setPreviousActivity(text);
    const bool started = doStartTrackAndShowWindow(true);
    Q_EMIT attentionTimerRearmRequested();
    return started;
}

bool TrackingController::shouldHideMainWindowOnTrack(bool keyboardStart, bool hasStatusItem) const
{
    switch (m_settings.hideMainWindowOnStart()) {
    case BvSettings::HideMainWindowOnStart::Never:
        return false;
    case BvSettings::HideMainWindowOnStart::Always:
        return true;
    case BvSettings::HideMainWindowOnStart::AfterKeyboardStart:
        // With a tray icon to come back through: the user typed and went on working.
        return keyboardStart && hasStatusItem;
    }
    return false;
}

void TrackingController::showError(const QString &text)
{
    setMessage(MessageKind::Error, text);
}

void TrackingController::showInfo(const QString &text)
{
    setMessage(MessageKind::Info, text);
}

void TrackingController::hideError()
{
    setMessage(MessageKind::None, QString());
}

void TrackingController::setMessage(MessageKind kind, const QString &text)
{
    if (kind == m_messageKind && text == m_messageText)
        return;
    m_messageKind = kind;
    m_messageText = text;
    Q_EMIT messageChanged();
}

QString TrackingController::statusTextFor(qint64 trackedSecs, bool tracking)
{
    if (!tracking)
        return QStringLiteral("Status: not tracking");
    const HoursMinutesSeconds parts = split(trackedSecs);
    return QStringLiteral("Status: tracking ") + twoDigits(parts.hours) + QLatin1Char(':') + twoDigits(parts.minutes)
        + QLatin1Char(':') + twoDigits(parts.seconds);
}

QString TrackingController::statusItemTitleFor(qint64 trackedSecs)
{
    const HoursMinutesSeconds parts = split(trackedSecs);
    return twoDigits(parts.hours) + QLatin1Char(':') + twoDigits(parts.minutes);
}

qint64 TrackingController::trackedSeconds() const
{
    const ActivityPtr current = m_activityManager.currentActivity();
    if (!current)
        return 0;
    const qint64 secs = m_clock.now().toSecsSinceEpoch() - current->timeFrom().toSecsSinceEpoch();
    return std::max<qint64>(secs, 0);
}

void TrackingController::updateTrackStatus()
{
    const bool tracking = isTracking();
    const qint64 secs = trackedSeconds();
    const QString status = statusTextFor(secs, tracking);
    const int type = m_settings.appStatusbarType();
    const QString title = tracking && (type == 1 || type == 2) ? statusItemTitleFor(secs) : QString();
    if (status == m_statusText && title == m_statusItemTitle && title.isNull() == m_statusItemTitle.isNull())
        return;
    m_statusText = status;
    m_statusItemTitle = title;
    Q_EMIT statusChanged();
}

void TrackingController::mainWindowDidBecomeMain()
{
    if (m_counterTimer.isActive())
        return;
    updateTrackStatus();
    m_counterTimer.start();
}

TrackingController::ActivityMenuState TrackingController::activityMenuState() const
{
    ActivityMenuState state;
    if (isTracking()) {
        state.start = m_settings.endCurrentActivityOnTrack();
        state.recentActivities = false;
        state.update = true;
        state.stop = true;
    }
    return state;
}

QList<TrackingController::RecentMenuEntry> TrackingController::recentMenuEntries(bool startTrack) const
{
    QList<RecentMenuEntry> entries;
    const QList<RecentActivityItem> items = m_activityManager.recentActivities();
    entries.reserve(items.size());
    for (const RecentActivityItem &item : items) {
        RecentMenuEntry entry;
        entry.title = recentMenuTitle(item.text());
        entry.text = item.text();
        entry.isCurrent = item.isCurrent();
        entry.enabled = !(startTrack && item.isCurrent());
        entries.append(entry);
    }
    return entries;
}

QString TrackingController::recentMenuTitle(const QString &text)
{
    if (text.size() <= kRecentTitleMax)
        return text;
    qsizetype kept = kRecentTitleKept;
    // Never cut a character that takes two UTF-16 units in half.
    if (text.at(kept - 1).isHighSurrogate())
        --kept;
    return text.left(kept) + QStringLiteral("...");
}

TrackingController::StartTimeBounds TrackingController::startTimeBounds() const
{
    const ActivityPtr current = m_activityManager.currentActivity();
    if (!current)
        return {};
    const QDateTime now = m_clock.now();
    const QDateTime dayAgo = now.addSecs(-86400);
    const QDateTime start = current->timeFrom();
    return { start < dayAgo ? start : dayAgo, now };
}

bool TrackingController::setCurrentActivityStart(const QDateTime &start)
{
    const ActivityPtr current = m_activityManager.currentActivity();
    if (!current || !start.isValid())
        return false;
    current->setTimeFrom(start);
    m_activityManager.touchCurrentActivity();
    updateTrackStatus();
    reportTracking();
    return true;
}

void TrackingController::onActivityManagerStarted()
{
    Q_EMIT idleTimerUpdateRequested();
    Q_EMIT attentionTimerRearmRequested();
    updateTrackStatus();
    reportTracking();
    m_trackTimer.start();
    // The tray shows the running time even when the main window was never opened (started at login, or
    // tray only), so the counter also starts with the first activity.
    if (!m_counterTimer.isActive())
        m_counterTimer.start();
}

void TrackingController::onActivityManagerStopped()
{
    // Also reached when another program deleted the running activity: nothing is left to touch.
    m_trackTimer.stop();
    Q_EMIT attentionTimerRearmRequested();
    reportTracking();
    hideError();
    updateTrackStatus();
    Q_EMIT idleTimerUpdateRequested();
}

void TrackingController::onCurrentActivityRefreshed()
{
    // Another program (brimvale edit) may have moved the start or changed the text.
    updateTrackStatus();
    reportTracking();
}

void TrackingController::reportTracking()
{
    // Every start first stops, running or not, and every touch re-reads the activity: listeners hear
    // only real changes.
    const ActivityPtr current = m_activityManager.currentActivity();
    const bool tracking = current != nullptr;
    const QString text = tracking ? current->text() : QString();
    const QDateTime start = tracking ? current->timeFrom() : QDateTime();
    if (tracking == m_reportedTracking && text == m_reportedText && start == m_reportedStart)
        return;
    m_reportedTracking = tracking;
    m_reportedText = text;
    m_reportedStart = start;
    Q_EMIT trackingChanged(tracking, text, start);
}
