#pragma once

#include <optional>

#include <QDateTime>
#include <QObject>
#include <QString>

// Where the time of the user's last input comes from: a desktop service, an X11 extension or a Wayland
// protocol. Counter-based sources know the idle time at every moment; threshold-based ones (the Wayland
// protocols) know only that the user has been idle since some instant, which is the model every source
// answers in. Main thread.
class IdleSource : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // A short name of the mechanism, for the preferences ("GNOME idle monitor", "X11 screen saver").
    virtual QString name() const = 0;
    // Whether this source works in the running session; when it does not, why, in one sentence.
    virtual bool isAvailable() const = 0;
    virtual QString unavailableReason() const = 0;
    // Since when the user has not touched keyboard or mouse; nothing while they are active (or when the
    // source cannot tell). `now` is the caller's clock.
    virtual std::optional<QDateTime> idleSince(const QDateTime &now) const = 0;
    // Threshold-based sources need to know the threshold in advance; counter-based ones ignore it.
    virtual void setThresholdSeconds(int seconds) { Q_UNUSED(seconds); }

Q_SIGNALS:
    // A threshold-based source saw the user go idle or come back; counter-based ones never say.
    void idleSinceChanged();
};
