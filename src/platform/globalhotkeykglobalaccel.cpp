#include "platform/globalhotkeykglobalaccel.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcKGlobalAccel, "brimvale.platform.hotkey")

const QString Service = u"org.kde.kglobalaccel"_s;
const QString Path = u"/kglobalaccel"_s;
const QString Interface = u"org.kde.KGlobalAccel"_s;
const QString ComponentInterface = u"org.kde.kglobalaccel.Component"_s;
// SetPresent (the action exists in a running program) | NoAutoloading (this key, not one the daemon kept
// from an earlier run).
constexpr uint SetPresentNoAutoloading = 2 | 4;
constexpr int CallTimeoutMsecs = 3000;

} // namespace

GlobalHotKeyKGlobalAccel::GlobalHotKeyKGlobalAccel(const QDBusConnection &bus, QObject *parent)
    : GlobalHotKey(parent)
    , m_bus(bus)
{
    qDBusRegisterMetaType<QList<int>>();
    if (!m_bus.isConnected() || !m_bus.interface())
        return;
    m_available = m_bus.interface()->isServiceRegistered(Service).value()
        || m_bus.interface()->activatableServiceNames().value().contains(Service);
    if (!m_available)
        return;
    // Every component's object sends the signal; the arguments name the component.
    m_bus.connect(Service, QString(), ComponentInterface, u"globalShortcutPressed"_s, this,
        SLOT(onPressed(QString, QString, qlonglong)));
}

QStringList GlobalHotKeyKGlobalAccel::actionId()
{
    return { QString::fromLatin1(Component), QString::fromLatin1(Action), u"Brimvale"_s, tr("Show Brimvale") };
}

std::expected<void, QString> GlobalHotKeyKGlobalAccel::registerHotKey(const std::optional<BvHotKey> &hotKey)
{
    if (!m_available)
        return registered(std::unexpected(tr("KDE's shortcut service is not running.")));
    if (hotKey == m_hotKey && registrationError().isEmpty())
        return {};
    m_hotKey.reset();
    if (!hotKey) {
        if (!m_registeredAction)
            return registered({});
        const auto cleared = setShortcut({});
        return registered(cleared ? std::expected<void, QString>() : std::unexpected(cleared.error()));
    }
    if (!m_registeredAction) {
        QDBusMessage call = QDBusMessage::createMethodCall(Service, Path, Interface, u"doRegister"_s);
        call.setArguments({ actionId() });
        const QDBusMessage reply = m_bus.call(call, QDBus::Block, CallTimeoutMsecs);
        if (reply.type() != QDBusMessage::ReplyMessage)
            return registered(std::unexpected(tr("KDE's shortcut service failed: %1").arg(reply.errorMessage())));
        m_registeredAction = true;
    }
    const auto given = setShortcut({ hotKey->combined() });
    if (!given)
        return registered(std::unexpected(given.error()));
    if (!given->contains(hotKey->combined())) {
        // The daemon keeps the action; it simply has no key now.
        return registered(std::unexpected(tr("Taken by another application.")));
    }
    m_hotKey = hotKey;
    qCInfo(lcKGlobalAccel).noquote() << "KDE's shortcut service gave" << hotKey->toString();
    return registered({});
}

std::expected<QList<int>, QString> GlobalHotKeyKGlobalAccel::setShortcut(const QList<int> &keys)
{
    QDBusMessage call = QDBusMessage::createMethodCall(Service, Path, Interface, u"setShortcut"_s);
    call.setArguments({ actionId(), QVariant::fromValue(keys), SetPresentNoAutoloading });
    const QDBusMessage reply = m_bus.call(call, QDBus::Block, CallTimeoutMsecs);
    if (reply.type() != QDBusMessage::ReplyMessage)
        return std::unexpected(tr("KDE's shortcut service failed: %1").arg(reply.errorMessage()));
    if (reply.arguments().isEmpty())
        return QList<int>();
    return qdbus_cast<QList<int>>(reply.arguments().constFirst());
}

void GlobalHotKeyKGlobalAccel::onPressed(const QString &component, const QString &action, qlonglong)
{
    if (m_hotKey && component == QLatin1String(Component) && action == QLatin1String(Action))
        Q_EMIT activated();
}
