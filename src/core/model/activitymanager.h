#pragma once

#include <memory>

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include "base/bverror.h"
#include "model/activity.h"
#include "model/recentactivityitem.h"
#include "model/recentitemsoptions.h"

class Store;
class StoreChanges;
class StoreContext;

// The tracking engine: knows the running activity, starts, updates, touches and stops it, and answers the
// lists that menus and completion need. Main thread only. Failures come back as message strings (null on
// success), never as exceptions. The running activity lives only here, not in the store; it is stored
// from its first second, and every touch moves its stored end (and nothing else) to now. It follows the
// store: when another context or process changes the running activity it re-reads it, and when one
// deletes it tracking stops.
class ActivityManager : public QObject
{
    Q_OBJECT
public:
    ActivityManager(Store &store, const RecentItemsOptions &recentItems = {}, QObject *parent = nullptr);
    ~ActivityManager() override;

    RecentItemsOptions recentItemsOptions() const { return m_recentItems; }
    void setRecentItemsOptions(const RecentItemsOptions &options) { m_recentItems = options; }

    // The main context: the running activity and every list handed out live in it.
    StoreContext &context() const { return *m_context; }
    ActivityPtr currentActivity() const { return m_currentActivity; }
    bool isTracking() const { return m_currentActivity != nullptr; }

    // Stores a new running activity from now to one second later and makes it current. Does not stop a
    // running one: the caller decides that first.
    QString startTrack(const QString &text);
    // Replaces the running activity's text; it is stored with the next touch or stop.
    QString updateTrack(const QString &text);
    // Ends the running activity at `at` (kept at its last touched end if `at` is not after its start), at
    // least one second after its start, and saves. Optionally starts a new one with the same text.
    void stopCurrentActivityAt(const QDateTime &at, bool andContinueTracking);
    void stopTrack();
    // Moves the running activity's end to now and saves, so that a crash loses at most one interval.
    void touchCurrentActivity();

    // Inserts a stored activity in a context of its own and makes it current. Messages: "Activity can not
    // be empty!", "Some kind of error!".
    bool saveActivity(const QString &text, const QDateTime &from, const QDateTime &to, QString *error);
    // Rewrites the activity with `uid`: "Activity not found!" when there is none (also when it is deleted
    // while saving). A refused edit leaves no message and no unsaved change behind.
    bool update(
        const QString &uid, const QString &activity, const QDateTime &from, const QDateTime &to, QString *error);

    // Finds the project (task) named so regardless of case, renaming it to this spelling, or creates it.
    static ProjectPtr findProject(const QString &name, StoreContext &inManagedObjectContext);
    static TaskPtr findTask(const QString &name, StoreContext &inManagedObjectContext);

    // Completion candidates for a typed prefix: names matching "prefix*" regardless of case ("*" and "?"
    // typed by the user are wildcards), each given as the prefix followed by the rest of the stored name.
    // Projects sort regardless of case, tasks case-sensitively. `andChangeCase` is not consulted.
    QStringList findProjectNames(const QString &prefix, bool andChangeCase);
    QStringList findTaskNames(const QString &prefix, bool andChangeCase);

    // True for a null text or one that is nothing but blanks and tabs; line breaks count as content.
    static bool isEmpty(const QString &text);

    // Distinct recent texts in the order and number the options ask for, marking the running one.
    QList<RecentActivityItem> recentActivities() const;
    // Activities that started today (local calendar), newest first.
    QList<ActivityPtr> todaysActivities() const;

    // Writes the activities as XML (format 1) or CSV (any other format) in the user's layouts.
    // "Failed to write XML data to file!" or "Failed to write CSV data to file!" on failure.
    static QString exportActivities(const QList<ActivityPtr> &activities, const QString &toUrl, int withFormat);

Q_SIGNALS:
    // A new running activity has been saved and made current.
    void activityManagerStarted(ActivityManager *manager);
    // After every stop, also when nothing was running, and when the running activity was deleted by
    // another context or process.
    void activityManagerStopped(ActivityManager *manager);
    // The running activity was read again after a save of this or another context or process; its text
    // or start may have changed (brimvale edit in a terminal).
    void currentActivityRefreshed(ActivityManager *manager);
    // A touch or stop could not be saved; the changes stay unsaved and the next touch tries again. For the
    // app to show: nothing else reports it.
    void saveFailed(const BvError &error);

private:
    QStringList completionNames(const QString &prefix, bool tasks);
    void onStoreChanged(const StoreChanges &changes);
    void saveRunning(const char *what);
    bool runningActivityVanished();

    Store &m_store;
    RecentItemsOptions m_recentItems;
    std::unique_ptr<StoreContext> m_context;
    ActivityPtr m_currentActivity;
};
