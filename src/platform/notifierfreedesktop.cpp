#include "platform/notifierfreedesktop.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QLoggingCategory>

namespace {
Q_LOGGING_CATEGORY(lcNotify, "brimvale.notifications")

const QString Service = QStringLiteral("org.freedesktop.Notifications");
const QString Path = QStringLiteral("/org/freedesktop/Notifications");
const QString Interface = QStringLiteral("org.freedesktop.Notifications");
const QString DefaultAction = QStringLiteral("default");
// Servers that draw the default action as a button (or in a context menu, as dunst does) show this.
const QString DefaultActionLabel = QStringLiteral("Show Brimvale");
// A server that does not answer in this time is taken to have no capabilities.
constexpr int CapabilitiesTimeoutMsecs = 2000;

QDBusMessage serverCall(const QString &method)
{
    return QDBusMessage::createMethodCall(Service, Path, Interface, method);
}
} // namespace

NotifierFreedesktop::NotifierFreedesktop(const QDBusConnection &bus, QObject *parent)
    : Notifier(parent)
    , m_bus(bus)
{
    m_bus.connect(
        Service, Path, Interface, QStringLiteral("ActionInvoked"), this, SLOT(onActionInvoked(uint, QString)));
    m_bus.connect(
        Service, Path, Interface, QStringLiteral("NotificationClosed"), this, SLOT(onNotificationClosed(uint, uint)));
}

QString NotifierFreedesktop::serverOwner() const
{
    if (!m_bus.isConnected() || !m_bus.interface())
        return {};
    const QDBusReply<QString> owner = m_bus.interface()->serviceOwner(Service);
    return owner.isValid() ? owner.value() : QString();
}

bool NotifierFreedesktop::isAvailable() const
{
    return !serverOwner().isEmpty();
}

bool NotifierFreedesktop::supportsActions() const
{
    const QString owner = serverOwner();
    if (owner.isEmpty())
        return false;
    if (owner != m_capabilitiesOwner) {
        const QDBusMessage reply
            = m_bus.call(serverCall(QStringLiteral("GetCapabilities")), QDBus::Block, CapabilitiesTimeoutMsecs);
        m_capabilities
            = reply.type() == QDBusMessage::ReplyMessage ? reply.arguments().value(0).toStringList() : QStringList();
        m_capabilitiesOwner = owner;
    }
    return m_capabilities.contains(QStringLiteral("actions"));
}

void NotifierFreedesktop::post(const UserNotification &notification)
{
    if (!isAvailable())
        return;
    QStringList actions { DefaultAction, DefaultActionLabel };
    if (supportsActions()) {
        for (const auto &[key, label] : notification.actions)
            actions << key << label;
    }
    const QVariantMap hints { { QStringLiteral("desktop-entry"), QStringLiteral("brimvale") } };
    QDBusMessage call = serverCall(QStringLiteral("Notify"));
    call << QStringLiteral("Brimvale") << m_shown.value(notification.name, 0u) << QStringLiteral("brimvale")
         << notification.title << notification.body << actions << hints << qint32(-1);

    const quint64 sequence = ++m_sequence;
    m_pending.insert(notification.name, sequence);
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
        [this, name = notification.name, sequence](QDBusPendingCallWatcher *finished) {
            finished->deleteLater();
            const QDBusPendingReply<uint> reply = *finished;
            if (reply.isError()) {
                qCWarning(lcNotify) << "The notification server refused a notification:" << reply.error().message();
                if (m_pending.value(name) == sequence)
                    m_pending.remove(name);
                return;
            }
            onNotifyAnswered(name, sequence, reply.value());
        });
}

void NotifierFreedesktop::onNotifyAnswered(const QString &name, quint64 sequence, uint id)
{
    if (m_pending.value(name) != sequence) {
        // Withdrawn or posted again while this one was on its way.
        if (m_shown.value(name) != id)
            closeOnServer(id);
        return;
    }
    m_pending.remove(name);
    m_shown.insert(name, id);
}

void NotifierFreedesktop::withdraw(const QString &name)
{
    m_pending.remove(name);
    const auto shown = m_shown.constFind(name);
    if (shown == m_shown.constEnd())
        return;
    closeOnServer(*shown);
    m_shown.erase(shown);
}

void NotifierFreedesktop::closeOnServer(uint id)
{
    QDBusMessage call = serverCall(QStringLiteral("CloseNotification"));
    call << id;
    m_bus.asyncCall(call);
}

void NotifierFreedesktop::onActionInvoked(uint id, const QString &actionKey)
{
    // Other applications' notifications share the server; only ours have names.
    const QString name = m_shown.key(id);
    if (!name.isNull())
        Q_EMIT actionInvoked(name, actionKey);
}

void NotifierFreedesktop::onNotificationClosed(uint id, uint)
{
    const QString name = m_shown.key(id);
    if (!name.isNull())
        m_shown.remove(name);
}
