#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

class BVSyncManager;
class BVSyncService;
class TrackingController;

// The running app's interface on the session bus: interface com.brimvaleapp.Brimvale1 at
// /com/brimvaleapp/Brimvale under the name com.brimvaleapp.Brimvale. The command line, scripts and status
// bars start, update and stop tracking, read the status, raise the main window, hand over a brimvaleapp:
// URL and run a sync. The methods call the same controller commands as the main window and answer the
// messages its error line shows ("" on success); they never bring the window up themselves. Main thread.
//
// The bus sees the scriptable slots and signals below under their C++ names, so a new method is one
// Q_SCRIPTABLE slot here and its body.
class BrimvaleDBusService : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.brimvaleapp.Brimvale1")
public:
    // Neither is owned; both outlive this object.
    BrimvaleDBusService(TrackingController &tracking, BVSyncManager &sync, QObject *parent = nullptr);
    // Gives up the interface and the name.
    ~BrimvaleDBusService() override;

    // Publishes the object on the session bus and holds the service name (kept if SingleInstance::claim()
    // took it already). False without a session bus, or when another process owns the name.
    bool registerOnSessionBus();

public Q_SLOTS:
    // Puts the text into the activity line and starts it: the refusal or the engine's message, "" when
    // tracking started.
    Q_SCRIPTABLE QString StartTrack(const QString &text);
    // Puts the text into the activity line and updates the running activity with it: "Can not update. Not
    // tracking...", the engine's message, or "" when updated.
    Q_SCRIPTABLE QString UpdateTrack(const QString &text);
    Q_SCRIPTABLE void StopTrack();
    // Whether an activity runs, its text and its start in seconds since the Unix epoch ("" and 0 when
    // idle). The bus answers the three as (b s x).
    Q_SCRIPTABLE bool Status(QString &text, qint64 &startSecs);
    Q_SCRIPTABLE void ShowMainWindow();
    Q_SCRIPTABLE void OpenUrl(const QString &url);
    // Starts a run of the sync manager now, or joins the run under way (also one its timer started), and
    // answers when it ends: "Sync operation completed!", or "Error occurred" and the details on the next
    // line. With sync turned off the error comes at once.
    Q_SCRIPTABLE QString Sync();
    // Opens the report window (or brings the open one to the front).
    Q_SCRIPTABLE void ShowReport();

Q_SIGNALS:
    // Tracking started, stopped, or the running activity changed its text or start; arguments as Status()
    // answers them.
    Q_SCRIPTABLE void TrackingChanged(bool tracking, const QString &text, qint64 startSecs);
    // A second `brimvale` or a script asks for the main window.
    void showMainWindowRequested();
    // A URL handed over by a second `brimvale` (a brimvaleapp: redirect from the browser).
    void openUrlRequested(const QString &url);
    // A script or `brimvale report` asks for the report window.
    void showReportRequested();

private:
    // Answers every waiting caller when `service`'s run ends.
    void watch(BVSyncService *service);
    void onSyncFinished(const QString &message);

    // A caller of Sync() waiting for its delayed answer.
    struct PendingSync
    {
        QDBusConnection connection;
        QDBusMessage call;
    };

    TrackingController &m_tracking;
    BVSyncManager &m_sync;
    QPointer<BVSyncService> m_watched;
    QList<PendingSync> m_pendingSyncs;
    bool m_registered = false;
};
