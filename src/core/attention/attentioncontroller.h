#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QTimer>

#include "attention/idletimer.h"

class Activity;
class ActivityManager;
class BvSettings;
class BvUserNotificationService;
class Clock;
class IdleSource;

// The app's attention rules, without a window: the idle watch and what the answer to the idle question
// does, the reminder while tracking and the nag while not (notification and taskbar attention), and
// tracking across sleep, screen sleep, screensaver and lock. The composition root connects the tracking
// controller's seams and the session's events to its commands; the windows show what its signals ask
// for and hand the user's answers back. Main thread.
class AttentionController : public QObject
{
    Q_OBJECT
public:
    // None is owned; all outlive this object. `clock` is the store's.
    AttentionController(ActivityManager &activityManager, BvSettings &settings, Clock &clock, IdleSource &idleSource,
        BvUserNotificationService &notifications, QObject *parent = nullptr);
    ~AttentionController() override;

    // --- Idle time
    IdleTimer &idleTimer() { return m_idleTimer; }
    // Watches idle time while tracking with detection on, with the threshold of the settings; else stops.
    void enableDisableIdleTimer();
    // Detection switched or its threshold changed.
    void bvIdleDetectionChanged();
    // True from the moment the user was found idle until the question is answered.
    bool hasIdlePrompt() const { return m_hasIdlePrompt; }
    // The idle start the open question is about; null when none is open.
    std::optional<QDateTime> idlePromptIdleFromDate() const;
    // The answer to the idle question, from the window or the notification, whichever comes first: 0 keeps
    // the idle time, 1 ends the running activity at the idle start, 2 does that and starts the same text
    // now. A second answer to the same question is ignored.
    void idlePromptDidEnd(int response);

    // --- Reminder and nag
    // Re-arms the one attention timer for the current tracking state from the settings.
    void setReminderTimer();
    void stopReminderTimer();
    // The timer's action: posts and asks for attention as the setting of the current state says.
    void performReminder();
    // Milliseconds between two ticks; null when no timer is armed.
    std::optional<int> reminderInterval() const;
    // Asked at every tick: whether the main window with the activity line is the active window, in which
    // case the tick does nothing. Without one, it never is.
    void setTrackingWindowIsMain(std::function<bool()> isMain) { m_trackingWindowIsMain = std::move(isMain); }
    // Cancels a taskbar attention request that repeats until the app is activated.
    void stopDockBouncing();
    // The app is becoming active: the desktop ends any attention request itself.
    void applicationWillBecomeActive() { m_attentionRequestPending = false; }
    bool hasPendingAttentionRequest() const { return m_attentionRequestPending; }

    // --- Computer events (1 sleep, 2 screen sleep, 3 screensaver, 4 screen locked)
    // The first event that stops tracking is remembered until it ends; others change nothing meanwhile.
    void computerEventDidStart(int computerEvent);
    void computerEventDidStop(int computerEvent);
    int activeComputerEvent() const { return m_activeComputerEvent; }
    // The text that resumes when the active event ends; null when nothing will.
    QString resumeSleepActivity() const { return m_resumeSleepActivity; }

Q_SIGNALS:
    // The user has been idle since `idleFromDate`: ask what to do with the time.
    void idlePromptRequested(const QDateTime &idleFromDate);
    // The idle question was answered (see idlePromptDidEnd); whatever still asks it closes.
    void idlePromptEnded(int response);
    // The idle question opened or closed: the controller's menu items are disabled while it is open.
    void hasIdlePromptChanged(bool hasIdlePrompt);
    // Ask for the user's attention through the taskbar: once, or until the app is activated (`critical`).
    void userAttentionRequested(bool critical);
    // Stop asking for attention.
    void userAttentionCancelled();
    // A click on a notification: show the main window and bring it to the front.
    void mainWindowRequested();

private:
    void onIdleTimerDidBecomeIdle();
    void onReminderIntervalChanged(bool ofTrackingState);
    void setHasIdlePrompt(bool hasIdlePrompt);

    ActivityManager &m_activityManager;
    BvSettings &m_settings;
    Clock &m_clock;
    BvUserNotificationService &m_notifications;
    IdleTimer m_idleTimer;

    bool m_hasIdlePrompt = false;
    std::optional<QDateTime> m_promptIdleFromDate;
    // The activity running when the question was asked: an answer cuts only that one.
    std::weak_ptr<Activity> m_promptActivity;

    QTimer m_reminderTimer;
    std::function<bool()> m_trackingWindowIsMain;
    bool m_repeatingBounceRequested = false;
    bool m_attentionRequestPending = false;

    int m_activeComputerEvent = 0;
    QString m_resumeSleepActivity;
};
