#include "platform/globalhotkeyportal.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QLoggingCategory>

#include "platform/keysymtable.h"

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcPortal, "brimvale.platform.hotkey")

const QString PortalService = u"org.freedesktop.portal.Desktop"_s;
const QString PortalPath = u"/org/freedesktop/portal/desktop"_s;
const QString ShortcutsInterface = u"org.freedesktop.portal.GlobalShortcuts"_s;
const QString RequestInterface = u"org.freedesktop.portal.Request"_s;
const QString SessionInterface = u"org.freedesktop.portal.Session"_s;
constexpr int AvailabilityTimeoutMsecs = 2000;

// One entry of BindShortcuts' a(sa{sv}).
struct PortalShortcut
{
    QString id;
    QVariantMap properties;
};

QDBusArgument &operator<<(QDBusArgument &argument, const PortalShortcut &shortcut)
{
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, PortalShortcut &shortcut)
{
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

QString pathOf(const QVariant &value)
{
    if (value.canConvert<QDBusObjectPath>() && value.metaType() == QMetaType::fromType<QDBusObjectPath>())
        return value.value<QDBusObjectPath>().path();
    return value.toString();
}

} // namespace

Q_DECLARE_METATYPE(PortalShortcut)

GlobalHotKeyPortal::GlobalHotKeyPortal(const QDBusConnection &bus, QObject *parent)
    : GlobalHotKey(parent)
    , m_bus(bus)
{
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<QList<PortalShortcut>>();
    if (!m_bus.isConnected())
        return;
    // Without a backend for it (GNOME, wlroots) the portal does not export the interface at all.
    QDBusMessage version
        = QDBusMessage::createMethodCall(PortalService, PortalPath, u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
    version.setArguments({ ShortcutsInterface, u"version"_s });
    const QDBusMessage reply = m_bus.call(version, QDBus::Block, AvailabilityTimeoutMsecs);
    m_available = reply.type() == QDBusMessage::ReplyMessage;
    if (!m_available)
        return;
    m_bus.connect(PortalService, PortalPath, ShortcutsInterface, u"Activated"_s, this, SLOT(onActivated(QDBusMessage)));
}

GlobalHotKeyPortal::~GlobalHotKeyPortal()
{
    closeSession();
}

std::expected<void, QString> GlobalHotKeyPortal::registerHotKey(const std::optional<BvHotKey> &hotKey)
{
    if (!m_available)
        return registered(std::unexpected(tr("The desktop portal offers no global shortcuts.")));
    if (hotKey == m_hotKey)
        return {};
    m_hotKey = hotKey;
    closeSession();
    if (!hotKey)
        return registered({});
    if (KeySymTable::trigger(hotKey->keyCode, hotKey->modifierFlags).isEmpty())
        return registered(std::unexpected(tr("%1 can not be handed to the desktop.").arg(hotKey->toString())));
    setRegistrationError(QString());
    createSession();
    return {};
}

QString GlobalHotKeyPortal::expectResponse()
{
    const QString token = u"brimvale%1"_s.arg(++m_tokens);
    QString sender = m_bus.baseService().mid(1);
    sender.replace(u'.', u'_');
    watchRequest(u"/org/freedesktop/portal/desktop/request/%1/%2"_s.arg(sender, token));
    return token;
}

void GlobalHotKeyPortal::watchRequest(const QString &path)
{
    forgetRequest();
    m_request = path;
    m_bus.connect(PortalService, m_request, RequestInterface, u"Response"_s, this, SLOT(onResponse(QDBusMessage)));
}

void GlobalHotKeyPortal::forgetRequest()
{
    if (m_request.isEmpty())
        return;
    m_bus.disconnect(PortalService, m_request, RequestInterface, u"Response"_s, this, SLOT(onResponse(QDBusMessage)));
    m_request.clear();
}

void GlobalHotKeyPortal::createSession()
{
    m_step = Step::CreatingSession;
    const QString token = expectResponse();
    QDBusMessage call
        = QDBusMessage::createMethodCall(PortalService, PortalPath, ShortcutsInterface, u"CreateSession"_s);
    call.setArguments({ QVariantMap { { u"handle_token"_s, token }, { u"session_handle_token"_s, token } } });
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    const int generation = m_tokens;
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, generation] {
        watcher->deleteLater();
        const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
        if (generation != m_tokens)
            return;
        if (reply.isError())
            fail(tr("The desktop's shortcut service failed: %1").arg(reply.error().message()));
        // A portal older than handle_token answers on a path of its own choosing.
        else if (reply.value().path() != m_request && m_step == Step::CreatingSession)
            watchRequest(reply.value().path());
    });
}

void GlobalHotKeyPortal::bindShortcut()
{
    m_step = Step::Binding;
    const QString token = expectResponse();
    const QList<PortalShortcut> shortcuts { { QString::fromLatin1(ShortcutId),
        { { u"description"_s, tr("Show Brimvale") },
            { u"preferred_trigger"_s, KeySymTable::trigger(m_hotKey->keyCode, m_hotKey->modifierFlags) } } } };
    QDBusMessage call
        = QDBusMessage::createMethodCall(PortalService, PortalPath, ShortcutsInterface, u"BindShortcuts"_s);
    call.setArguments({ QVariant::fromValue(QDBusObjectPath(m_session)), QVariant::fromValue(shortcuts), QString(),
        QVariantMap { { u"handle_token"_s, token } } });
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    const int generation = m_tokens;
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, generation] {
        watcher->deleteLater();
        const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
        if (generation != m_tokens)
            return;
        if (reply.isError())
            fail(tr("The desktop's shortcut service failed: %1").arg(reply.error().message()));
        else if (reply.value().path() != m_request && m_step == Step::Binding)
            watchRequest(reply.value().path());
    });
}

void GlobalHotKeyPortal::onResponse(const QDBusMessage &message)
{
    if (message.path() != m_request || message.arguments().size() < 2)
        return;
    forgetRequest();
    const uint response = message.arguments().at(0).toUInt();
    const QVariantMap results = qdbus_cast<QVariantMap>(message.arguments().at(1));
    if (response != 0) {
        fail(response == 1 ? tr("The shortcut was not confirmed.") : tr("The desktop did not bind the shortcut."));
        return;
    }
    if (m_step == Step::CreatingSession) {
        m_session = pathOf(results.value(u"session_handle"_s));
        if (m_session.isEmpty()) {
            fail(tr("The desktop did not bind the shortcut."));
            return;
        }
        bindShortcut();
        return;
    }
    if (m_step != Step::Binding)
        return;
    m_step = Step::Idle;
    // The desktop lists what it bound; the user may have chosen another key there.
    const QList<PortalShortcut> bound = qdbus_cast<QList<PortalShortcut>>(results.value(u"shortcuts"_s));
    for (const PortalShortcut &shortcut : bound) {
        if (shortcut.id == QLatin1String(ShortcutId)) {
            qCInfo(lcPortal).noquote() << "The desktop bound the shortcut to"
                                       << shortcut.properties.value(u"trigger_description"_s).toString();
            setRegistrationError(QString());
            return;
        }
    }
    fail(tr("The desktop did not bind the shortcut."));
}

void GlobalHotKeyPortal::onActivated(const QDBusMessage &message)
{
    const QVariantList arguments = message.arguments();
    if (arguments.size() < 2 || m_session.isEmpty())
        return;
    if (pathOf(arguments.at(0)) == m_session && arguments.at(1).toString() == QLatin1String(ShortcutId))
        Q_EMIT activated();
}

void GlobalHotKeyPortal::closeSession()
{
    forgetRequest();
    ++m_tokens;
    m_step = Step::Idle;
    if (m_session.isEmpty())
        return;
    m_bus.asyncCall(QDBusMessage::createMethodCall(PortalService, m_session, SessionInterface, u"Close"_s));
    m_session.clear();
}

void GlobalHotKeyPortal::fail(const QString &reason)
{
    qCWarning(lcPortal).noquote() << "Global shortcut through the portal:" << reason;
    forgetRequest();
    m_step = Step::Idle;
    setRegistrationError(reason);
}
