#pragma once

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

class ActivityManager;
class BvSettings;
class Clock;

// The rules of the app's tracking commands that need no window: starting, updating and stopping from the
// activity line, the messages of the error line, the status texts, the timers that refresh them and touch
// the running activity, the Activity menu's states, the recent-activities entries and the running
// activity's start-time bounds. The windows and the tray only show its state and forward the user's
// commands; the D-Bus interface calls the same commands. Main thread.
class TrackingController : public QObject
{
    Q_OBJECT
public:
    // What the main window's message line shows.
    enum class MessageKind { None, Error, Info };

    // The Activity menu's items (tags 1001-1004): whether each has its action.
    struct ActivityMenuState
    {
        bool start = true;
        bool recentActivities = true;
        bool update = false;
        bool stop = false;
        bool operator==(const ActivityMenuState &) const = default;
    };

    // One item of a recent-activities menu.
    struct RecentMenuEntry
    {
        QString title; // the text, or its first 47 characters and "..." when longer than 50
        QString text; // the full text
        bool isCurrent = false; // the running activity's text (shown with a triangle, disabled, when starting)
        bool enabled = true;
    };

    // Bounds of the running activity's start in the start-time sheet.
    struct StartTimeBounds
    {
        QDateTime minimum;
        QDateTime maximum;
    };

    static constexpr int TouchIntervalMsecs = 30 * 1000;
    static constexpr int CounterIntervalMsecs = 1000;

    // Neither is owned; both outlive this object. `clock` is the store's.
    TrackingController(ActivityManager &activityManager, BvSettings &settings, Clock &clock, QObject *parent = nullptr);

    ActivityManager &activityManager() const { return m_activityManager; }
    bool isTracking() const;

    // The activity line: the main window's field edits it, commands read it.
    QString activityText() const { return m_activityText; }
    // A text the user typed: while tracking it earns the hint to update.
    void setActivityTextFromUser(const QString &text);
    // A text put in by a command (a recent item, D-Bus, the last text at launch); emits activityTextChanged.
    void setActivityText(const QString &text);

    // doStartTrackAndShowWindow: refuses while tracking unless endCurrentActivityOnTrack, else stops and
    // starts the line. `show` asks the main window to the front. True when tracking started.
    bool doStartTrackAndShowWindow(bool show);
    // doUpdateTrack: "Can not update. Not tracking..." or the manager's message; "Activity updated!". The
    // new text is saved at once, so other programs see it. `show` asks the main window to the front.
    bool doUpdateTrack(bool show = true);
    // stopTrack: ends the touch timer and stops (also when nothing runs: that refreshes the displays).
    void stopTrack();
    // Timer target: moves the running activity's end to now.
    void touchActivity();
    // setPreviousActivity: puts a recent text into the line, with the hint while tracking.
    void setPreviousActivity(const QString &text);
    // setPreviousActivityAndStart: stops what runs, puts the text in, starts it.
    bool setPreviousActivityAndStart(const QString &text);

    // Whether the main window closes after a start: `keyboardStart` when a key press started it,
    // `hasStatusItem` when a tray icon exists.
    bool shouldHideMainWindowOnTrack(bool keyboardStart, bool hasStatusItem) const;

    // The message line.
    MessageKind messageKind() const { return m_messageKind; }
    QString messageText() const { return m_messageText; }
    void showError(const QString &text);
    void showInfo(const QString &text);
    void hideError();

    // updateTrackStatus: "Status: tracking %0.2ld:%0.2ld:%0.2ld" or "Status: not tracking".
    QString statusText() const { return m_statusText; }
    // The tray title: "%0.2ld:%0.2ld" while tracking and the tray shows a timer, else a null string (the
    // tray then shows "--:--" or nothing, by its type).
    QString statusItemTitle() const { return m_statusItemTitle; }
    static QString statusTextFor(qint64 trackedSecs, bool tracking);
    static QString statusItemTitleFor(qint64 trackedSecs);
    // Seconds the running activity has run, 0 when none.
    qint64 trackedSeconds() const;
    // Refreshes the status texts now (every second once the counter runs, and after each start and stop).
    void updateTrackStatus();
    // The main window became main: the first time, the one-second counter starts.
    void mainWindowDidBecomeMain();
    bool isCounterRunning() const { return m_counterTimer.isActive(); }
    bool isTouchTimerRunning() const { return m_trackTimer.isActive(); }

    ActivityMenuState activityMenuState() const;
    // fillRecentActivitiesMenu: the entries; with `startTrack` the running text's entry is disabled.
    // Empty when there are none (the menu then says "No previous activities!").
    QList<RecentMenuEntry> recentMenuEntries(bool startTrack) const;
    static QString recentMenuTitle(const QString &text);

    // The start-time sheet: from the current start when that is more than a day ago, else from a day ago,
    // up to now. Invalid when nothing runs.
    StartTimeBounds startTimeBounds() const;
    // onSet: moves the running activity's start and touches it. False when nothing runs.
    bool setCurrentActivityStart(const QDateTime &start);

Q_SIGNALS:
    void activityTextChanged(const QString &text);
    void messageChanged();
    void statusChanged();
    // Tracking started or stopped; menus follow. `startedAt` is invalid when not tracking.
    void trackingChanged(bool tracking, const QString &text, const QDateTime &startedAt);
    // A command wants the main window in front (a refusal, or a start that shows the window).
    void mainWindowFrontRequested();
    // Seams of the attention rules: re-arm the reminder or nag timer, switch the idle timer on or off to
    // match the tracking state, and cancel a taskbar attention request.
    void attentionTimerRearmRequested();
    void idleTimerUpdateRequested();
    void dockBouncingStopRequested();

private:
    void onActivityManagerStarted();
    void onActivityManagerStopped();
    void setMessage(MessageKind kind, const QString &text);

    ActivityManager &m_activityManager;
    BvSettings &m_settings;
    Clock &m_clock;
    QString m_activityText;
    MessageKind m_messageKind = MessageKind::None;
    QString m_messageText;
    QString m_statusText;
    QString m_statusItemTitle;
    bool m_reportedTracking = false;
    QTimer m_trackTimer;
    QTimer m_counterTimer;
};
