#pragma once

#include <memory>

#include <QObject>
#include <QString>

class ActivityManager;
class BVSyncService;
class BvSettings;
class Store;

// Runs one sync of the method chosen in the settings when asked (a sync requested over the bus), in the
// app: the run works on a thread of its own, the running activity is left out of the files, and a
// successful Dropbox run records its date in the settings. One run at a time: a request while one runs
// joins it and hears the same result. Main thread.
class SyncRunner : public QObject
{
    Q_OBJECT
public:
    // None is owned; all outlive this object.
    SyncRunner(Store &store, BvSettings &settings, ActivityManager &activityManager, QObject *parent = nullptr);
    // A run still under way is abandoned, its unsaved work dropped; the next run repeats it.
    ~SyncRunner() override;

    bool isRunning() const { return m_running; }

public Q_SLOTS:
    // Starts a run now, or joins the one under way. A method that cannot run (sync off, Dropbox not
    // connected) ends the run at once, from the event loop, like any other failure.
    void run();

Q_SIGNALS:
    // The run's progress messages, as `brimvale sync` prints them.
    void syncProgress(const QString &message);
    // Once per run: "Sync operation completed!", or "Error occurred" and the details on the next line.
    void syncFinished(bool succeeded, const QString &message);

private:
    void finish(bool succeeded, const QString &message);

    Store &m_store;
    BvSettings &m_settings;
    ActivityManager &m_activityManager;
    std::unique_ptr<BVSyncService> m_service;
    bool m_running = false;
};
