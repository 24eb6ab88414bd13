#pragma once

#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QVariantMap>

#include "platform/sessionevents.h"

// systemd-logind on the system bus: the machine going to sleep and waking (PrepareForSleep), and the
// session's lock (the Lock / Unlock requests and the LockedHint the locker sets). While an activity runs
// it holds a "delay" sleep inhibitor, so that the machine waits until the stop is in the store; the lock
// is let go once the sleep event has been handled and taken again after the wake.
class SessionEventsLogind : public SessionEvents
{
    Q_OBJECT
public:
    // `sessionId` names the logind session to watch ($XDG_SESSION_ID); empty: the caller's session.
    SessionEventsLogind(const QDBusConnection &systemBus, const QString &sessionId, QObject *parent = nullptr);
    ~SessionEventsLogind() override;

    // Whether logind answers on the bus.
    bool isAvailable() const;

    void start() override;
    void setTracking(bool tracking) override;

    bool holdsSleepInhibitor() const { return m_inhibitor.isValid(); }
    QString sessionPath() const { return m_sessionPath; }

private Q_SLOTS:
    void onPrepareForSleep(bool start);
    void onLock();
    void onUnlock();
    void onSessionPropertiesChanged(const QString &interface, const QVariantMap &changed, const QStringList &);

private:
    void setLocked(bool locked);
    void takeInhibitor();
    void releaseInhibitor();

    QDBusConnection m_bus;
    QString m_sessionId;
    QString m_sessionPath;
    QDBusUnixFileDescriptor m_inhibitor;
    bool m_tracking = false;
    bool m_started = false;
    bool m_locked = false;
};
