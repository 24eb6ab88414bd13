#include "platform/notificationserverfreedesktop.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>

bool NotificationServerFreedesktop::isAvailable()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return false;
    const QDBusReply<bool> owned
        = bus.interface()->isServiceRegistered(QStringLiteral("org.freedesktop.Notifications"));
    return owned.isValid() && owned.value();
}
