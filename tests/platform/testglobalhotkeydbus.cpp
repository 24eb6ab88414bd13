#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QtTest>

#include "platform/globalhotkeykglobalaccel.h"
#include "platform/globalhotkeynull.h"
#include "platform/globalhotkeyportal.h"
#include "platform/platformservices.h"
#include "support/dbusmock.h"

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 Ctrl = BvHotKey::ControlFlag;
constexpr quint32 Alt = BvHotKey::AltFlag;
constexpr quint32 Shift = BvHotKey::ShiftFlag;
constexpr quint32 Super = BvHotKey::SuperFlag;

const QString ShortcutsInterface = u"org.freedesktop.portal.GlobalShortcuts"_s;
const QString ComponentInterface = u"org.kde.kglobalaccel.Component"_s;

// This process's name on the bus as the portal writes it into request and session paths.
QString portalSender()
{
    return QDBusConnection::sessionBus().baseService().mid(1).replace(u'.', u'_');
}

// A portal whose CreateSession and BindShortcuts answer at once, the way a desktop that asks nobody does:
// the Response goes out on the request path the caller chose, before the method returns. BindShortcuts
// answers `bindResponse` (0 bound, 1 cancelled by the user, 2 failed) and echoes the preferred trigger.
std::unique_ptr<DBusMock> startPortal(uint bindResponse)
{
    auto portal
        = DBusMock::bare(u"org.freedesktop.portal.Desktop"_s, u"/org/freedesktop/portal/desktop"_s, ShortcutsInterface);
    if (!portal)
        return nullptr;
    portal->mock(u"AddProperty"_s, { QString(), u"version"_s, QVariant::fromValue(QDBusVariant(1u)) });
    const QString respond = uR"(
def respond(mock, path, code, results):
    if path not in objects:
        mock.AddObject(path, 'org.freedesktop.portal.Request', {}, [])
    objects[path].EmitSignal('org.freedesktop.portal.Request', 'Response', 'ua{sv}', [dbus.UInt32(code), results])
)"_s;
    const QString sender = portalSender();
    portal->mock(
        u"AddMethod"_s, QVariantList { QString(), u"CreateSession"_s, u"a{sv}"_s, u"o"_s, QString(respond + uR"(
request = '/org/freedesktop/portal/desktop/request/%1/' + args[0]['handle_token']
session = '/org/freedesktop/portal/desktop/session/%1/' + args[0]['session_handle_token']
self.AddObject(session, 'org.freedesktop.portal.Session', {}, [('Close', '', '', '')])
respond(self, request, 0, {'session_handle': dbus.String(session, variant_level=1)})
ret = dbus.ObjectPath(request)
)"_s.arg(sender)) });
    portal->mock(u"AddMethod"_s,
        QVariantList { QString(), u"BindShortcuts"_s, u"oa(sa{sv})sa{sv}"_s, u"o"_s,
            QString(respond
                + uR"(
request = '/org/freedesktop/portal/desktop/request/%1/' + args[3]['handle_token']
bound = dbus.Array([dbus.Struct((s[0], dbus.Dictionary({'description': s[1]['description'],
    'trigger_description': s[1]['preferred_trigger']}, signature='sv'))) for s in args[1]], signature='(sa{sv})')
respond(self, request, %2, {'shortcuts': dbus.Array(bound if %2 == 0 else [], signature='(sa{sv})', variant_level=1)})
ret = dbus.ObjectPath(request)
)"_s.arg(sender)
                      .arg(bindResponse)) });
    return portal;
}

// KDE's daemon, which gives every key asked for except Ctrl+Alt+X, held by "another component".
std::unique_ptr<DBusMock> startKGlobalAccel()
{
    auto daemon = DBusMock::bare(u"org.kde.kglobalaccel"_s, u"/kglobalaccel"_s, u"org.kde.KGlobalAccel"_s);
    if (!daemon)
        return nullptr;
    const int taken = BvHotKey { Qt::Key_X, Ctrl | Alt }.combined();
    daemon->mock(u"AddMethod"_s,
        { QString(), u"doRegister"_s, u"as"_s, QString(),
            u"self.AddObject('/component/brimvale', '%1', {}, [])"_s.arg(ComponentInterface) });
    daemon->mock(u"AddMethod"_s,
        { QString(), u"setShortcut"_s, u"asaiu"_s, u"ai"_s,
            u"ret = dbus.Array([] if %1 in args[1] else args[1], signature='i')"_s.arg(taken) });
    return daemon;
}

QList<int> intList(const QVariant &value)
{
    if (value.canConvert<QDBusArgument>())
        return qdbus_cast<QList<int>>(value.value<QDBusArgument>());
    QList<int> list;
    for (const QVariant &item : value.toList())
        list << item.toInt();
    return value.metaType() == QMetaType::fromType<QList<int>>() ? value.value<QList<int>>() : list;
}

enum class Daemon { Absent, Activatable, Running };
// The bus lists a service as activatable when a .service file for it lies in its search path, which
// for the private session bus includes $XDG_DATA_HOME (the test's own) once the bus reloads.
void setActivatable(const QString &name, bool activatable)
{
    const QString folder
        = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + u"/dbus-1/services"_s;
    QFile file(folder + u'/' + name + u".service"_s);
    if (activatable) {
        QVERIFY(QDir().mkpath(folder));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(u"[D-BUS Service]\nName=%1\nExec=/bin/false\n"_s.arg(name).toUtf8());
        file.close();
    } else {
        file.remove();
    }
    QDBusMessage reload = QDBusMessage::createMethodCall(
        u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s, u"org.freedesktop.DBus"_s, u"ReloadConfig"_s);
    QCOMPARE(QDBusConnection::sessionBus().call(reload).type(), QDBusMessage::ReplyMessage);
    QTRY_COMPARE(
        QDBusConnection::sessionBus().interface()->activatableServiceNames().value().contains(name), activatable);
}

} // namespace

Q_DECLARE_METATYPE(BvHotKey)
Q_DECLARE_METATYPE(Daemon)

// The portal and KDE backends against python3-dbusmock stand-ins on the test's private session bus.
class TestGlobalHotKeyDBus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void portalBindsThePreferredTrigger_data();
    void portalBindsThePreferredTrigger();
    void portalRefusalArrivesLater_data();
    void portalRefusalArrivesLater();
    void portalRebindingClosesTheOldSession();
    void kglobalaccelGivesTheKey();
    void kglobalaccelSaysWhenTaken();
    void withoutTheServicesNothingIsOffered();
    void sessionChoosesTheBackend_data();
    void sessionChoosesTheBackend();
};

void TestGlobalHotKeyDBus::portalBindsThePreferredTrigger_data()
{
    QTest::addColumn<BvHotKey>("hotKey");
    QTest::addColumn<QString>("trigger");

    QTest::newRow("ctrl+alt+t") << BvHotKey { Qt::Key_T, Ctrl | Alt } << u"CTRL+ALT+t"_s;
    QTest::newRow("super+shift+f9") << BvHotKey { Qt::Key_F9, Super | Shift } << u"SHIFT+LOGO+F9"_s;
    QTest::newRow("ctrl+alt+space") << BvHotKey { Qt::Key_Space, Ctrl | Alt } << u"CTRL+ALT+space"_s;
    QTest::newRow("ctrl+page down") << BvHotKey { Qt::Key_PageDown, Ctrl } << u"CTRL+Next"_s;
}

void TestGlobalHotKeyDBus::portalBindsThePreferredTrigger()
{
    QFETCH(BvHotKey, hotKey);
    QFETCH(QString, trigger);

    auto portal = startPortal(0);
    QVERIFY(portal);
    GlobalHotKeyPortal shortcuts(QDBusConnection::sessionBus());
    QVERIFY(shortcuts.isAvailable());
    QVERIFY(shortcuts.registerHotKey(hotKey));
    QTRY_COMPARE(portal->methodCalls(u"BindShortcuts"_s).size(), 1);
    QTRY_VERIFY(!shortcuts.sessionHandle().isEmpty());

    const QVariantList bind = portal->methodCalls(u"BindShortcuts"_s).constFirst();
    QCOMPARE(bind.value(0).value<QDBusObjectPath>().path(), shortcuts.sessionHandle());
    QVERIFY(shortcuts.sessionHandle().startsWith(u"/org/freedesktop/portal/desktop/session/%1/"_s.arg(portalSender())));
    const QDBusArgument list = bind.value(1).value<QDBusArgument>();
    QString id;
    QVariantMap properties;
    list.beginArray();
    list.beginStructure();
    list >> id >> properties;
    list.endStructure();
    QVERIFY(list.atEnd());
    list.endArray();
    QCOMPARE(id, u"show-main-window"_s);
    QCOMPARE(properties.value(u"preferred_trigger"_s).toString(), trigger);
    QCOMPARE(properties.value(u"description"_s).toString(), u"Show Brimvale"_s);

    // Only this session's own shortcut brings the window up.
    QSignalSpy activated(&shortcuts, &GlobalHotKey::activated);
    const QVariantList options { QVariant::fromValue(QVariantMap()) };
    portal->emitSignal(ShortcutsInterface, u"Activated"_s, u"osta{sv}"_s,
        QVariantList { QVariant::fromValue(QDBusObjectPath(u"/org/freedesktop/portal/desktop/session/x/other"_s)),
            u"show-main-window"_s, quint64(1) }
            + options);
    portal->emitSignal(ShortcutsInterface, u"Activated"_s, u"osta{sv}"_s,
        QVariantList {
            QVariant::fromValue(QDBusObjectPath(shortcuts.sessionHandle())), u"something-else"_s, quint64(2) }
            + options);
    portal->emitSignal(ShortcutsInterface, u"Activated"_s, u"osta{sv}"_s,
        QVariantList {
            QVariant::fromValue(QDBusObjectPath(shortcuts.sessionHandle())), u"show-main-window"_s, quint64(3) }
            + options);
    QVERIFY(activated.wait(5000));
    QCOMPARE(activated.count(), 1);
    QVERIFY(shortcuts.registrationError().isEmpty());
}

void TestGlobalHotKeyDBus::portalRefusalArrivesLater_data()
{
    QTest::addColumn<uint>("response");
    QTest::addColumn<QString>("error");

    QTest::newRow("user cancelled") << 1u << u"The shortcut was not confirmed."_s;
    QTest::newRow("failed") << 2u << u"The desktop did not bind the shortcut."_s;
}

void TestGlobalHotKeyDBus::portalRefusalArrivesLater()
{
    QFETCH(uint, response);
    QFETCH(QString, error);

    auto portal = startPortal(response);
    QVERIFY(portal);
    GlobalHotKeyPortal shortcuts(QDBusConnection::sessionBus());
    QSignalSpy changed(&shortcuts, &GlobalHotKey::registrationChanged);
    // The desktop has not answered yet: no complaint so far.
    QVERIFY(shortcuts.registerHotKey(BvHotKey { Qt::Key_T, Ctrl | Alt }));
    QTRY_COMPARE(shortcuts.registrationError(), error);
    QVERIFY(changed.count() >= 1);

    // Removing the key ends the complaint with the session.
    QVERIFY(shortcuts.registerHotKey(std::nullopt));
    QVERIFY(shortcuts.registrationError().isEmpty());
}

void TestGlobalHotKeyDBus::portalRebindingClosesTheOldSession()
{
    auto portal = startPortal(0);
    QVERIFY(portal);
    GlobalHotKeyPortal shortcuts(QDBusConnection::sessionBus());
    QVERIFY(shortcuts.registerHotKey(BvHotKey { Qt::Key_K, Ctrl | Alt }));
    QTRY_COMPARE(portal->methodCalls(u"BindShortcuts"_s).size(), 1);
    QTRY_VERIFY(!shortcuts.sessionHandle().isEmpty());
    const QString first = shortcuts.sessionHandle();

    // The same key again asks the desktop nothing.
    QVERIFY(shortcuts.registerHotKey(BvHotKey { Qt::Key_K, Ctrl | Alt }));
    QVERIFY(shortcuts.registerHotKey(BvHotKey { Qt::Key_T, Ctrl | Alt }));
    QTRY_COMPARE(portal->methodCalls(u"BindShortcuts"_s).size(), 2);
    QTRY_VERIFY(!shortcuts.sessionHandle().isEmpty());
    QVERIFY(shortcuts.sessionHandle() != first);
    QTRY_COMPARE(portal->methodCalls(u"Close"_s, first).size(), 1);
    QCOMPARE(portal->methodCalls(u"CreateSession"_s).size(), 2);

    // The old session's presses are not ours any more.
    QSignalSpy activated(&shortcuts, &GlobalHotKey::activated);
    const QVariant options = QVariant::fromValue(QVariantMap());
    portal->emitSignal(ShortcutsInterface, u"Activated"_s, u"osta{sv}"_s,
        { QVariant::fromValue(QDBusObjectPath(first)), u"show-main-window"_s, quint64(1), options });
    portal->emitSignal(ShortcutsInterface, u"Activated"_s, u"osta{sv}"_s,
        { QVariant::fromValue(QDBusObjectPath(shortcuts.sessionHandle())), u"show-main-window"_s, quint64(2),
            options });
    QVERIFY(activated.wait(5000));
    QCOMPARE(activated.count(), 1);
}

void TestGlobalHotKeyDBus::kglobalaccelGivesTheKey()
{
    auto daemon = startKGlobalAccel();
    QVERIFY(daemon);
    GlobalHotKeyKGlobalAccel shortcuts(QDBusConnection::sessionBus());
    QVERIFY(shortcuts.isAvailable());
    const BvHotKey ctrlAltT { Qt::Key_T, Ctrl | Alt };
    QVERIFY(shortcuts.registerHotKey(ctrlAltT));

    const QStringList action { u"brimvale"_s, u"show-main-window"_s, u"Brimvale"_s, u"Show Brimvale"_s };
    const QList<QVariantList> registrations = daemon->methodCalls(u"doRegister"_s);
    QCOMPARE(registrations.size(), 1);
    QCOMPARE(registrations.constFirst().value(0).toStringList(), action);
    QList<QVariantList> set = daemon->methodCalls(u"setShortcut"_s);
    QCOMPARE(set.size(), 1);
    QCOMPARE(set.constFirst().value(0).toStringList(), action);
    // Qt's combined key code, which the daemon reads: Ctrl+Alt+T.
    QCOMPARE(intList(set.constFirst().value(1)), QList<int> { 0x0c000054 });
    QCOMPARE(set.constFirst().value(2).toUInt(), 6u);

    QSignalSpy activated(&shortcuts, &GlobalHotKey::activated);
    daemon->emitSignal(ComponentInterface, u"globalShortcutPressed"_s, u"ssx"_s,
        { u"brimvale"_s, u"other-action"_s, qint64(1) }, u"/component/brimvale"_s);
    daemon->emitSignal(ComponentInterface, u"globalShortcutPressed"_s, u"ssx"_s,
        { u"otherapp"_s, u"show-main-window"_s, qint64(2) }, u"/component/brimvale"_s);
    daemon->emitSignal(ComponentInterface, u"globalShortcutPressed"_s, u"ssx"_s,
        { u"brimvale"_s, u"show-main-window"_s, qint64(3) }, u"/component/brimvale"_s);
    QVERIFY(activated.wait(5000));
    QCOMPARE(activated.count(), 1);

    // Removing the key leaves the action with none.
    QVERIFY(shortcuts.registerHotKey(std::nullopt));
    set = daemon->methodCalls(u"setShortcut"_s);
    QCOMPARE(set.size(), 2);
    QCOMPARE(intList(set.constLast().value(1)), QList<int>());
}

void TestGlobalHotKeyDBus::kglobalaccelSaysWhenTaken()
{
    auto daemon = startKGlobalAccel();
    QVERIFY(daemon);
    GlobalHotKeyKGlobalAccel shortcuts(QDBusConnection::sessionBus());
    const auto refused = shortcuts.registerHotKey(BvHotKey { Qt::Key_X, Ctrl | Alt });
    QVERIFY(!refused);
    QCOMPARE(refused.error(), u"Taken by another application."_s);
    QCOMPARE(shortcuts.registrationError(), refused.error());
    QVERIFY(shortcuts.registerHotKey(BvHotKey { Qt::Key_T, Ctrl | Alt }));
    QVERIFY(shortcuts.registrationError().isEmpty());
    // The action was announced once.
    QCOMPARE(daemon->methodCalls(u"doRegister"_s).size(), 1);
}

void TestGlobalHotKeyDBus::withoutTheServicesNothingIsOffered()
{
    GlobalHotKeyPortal portal(QDBusConnection::sessionBus());
    QVERIFY(!portal.isAvailable());
    QVERIFY(!portal.registerHotKey(BvHotKey { Qt::Key_T, Ctrl | Alt }));
    GlobalHotKeyKGlobalAccel daemon(QDBusConnection::sessionBus());
    QVERIFY(!daemon.isAvailable());
    QVERIFY(!daemon.registerHotKey(BvHotKey { Qt::Key_T, Ctrl | Alt }));
}

void TestGlobalHotKeyDBus::sessionChoosesTheBackend_data()
{
    QTest::addColumn<bool>("wayland");
    QTest::addColumn<QString>("desktop");
    QTest::addColumn<bool>("portal");
    QTest::addColumn<Daemon>("kglobalaccel");
    QTest::addColumn<QByteArray>("expected");
    const QByteArray portal = GlobalHotKeyPortal::staticMetaObject.className();
    const QByteArray kde = GlobalHotKeyKGlobalAccel::staticMetaObject.className();
    const QByteArray none = GlobalHotKeyNull::staticMetaObject.className();
    // Plasma's portal first; without it, KDE's own daemon.
    QTest::newRow("Plasma 6 Wayland") << true << u"KDE"_s << true << Daemon::Running << portal;
    QTest::newRow("Plasma 5 Wayland, daemon not started yet")
        << true << u"KDE"_s << false << Daemon::Activatable << kde;
    // GNOME ships the daemon's service file with KDE apps installed; starting it there grabs nothing.
    QTest::newRow("GNOME Wayland with KDE apps installed")
        << true << u"ubuntu:GNOME"_s << false << Daemon::Activatable << none;
    QTest::newRow("sway with KDE apps installed") << true << u"sway"_s << false << Daemon::Activatable << none;
    QTest::newRow("GNOME Wayland with the portal") << true << u"GNOME"_s << true << Daemon::Activatable << portal;
    // Someone runs the daemon on purpose: it is in use.
    QTest::newRow("sway running the daemon") << true << u"sway"_s << false << Daemon::Running << kde;
    QTest::newRow("Plasma without the daemon") << true << u"KDE"_s << false << Daemon::Absent << none;
    // No X server to grab on and no portal outside Wayland.
    QTest::newRow("X11 without a display, portal") << false << u"GNOME"_s << true << Daemon::Absent << none;
    QTest::newRow("X11 without a display, Plasma") << false << u"KDE"_s << false << Daemon::Activatable << kde;
}

void TestGlobalHotKeyDBus::sessionChoosesTheBackend()
{
    QFETCH(bool, wayland);
    QFETCH(QString, desktop);
    QFETCH(bool, portal);
    QFETCH(Daemon, kglobalaccel);
    QFETCH(QByteArray, expected);
    std::unique_ptr<DBusMock> portalMock = portal ? startPortal(0) : nullptr;
    QVERIFY(!portal || portalMock);
    std::unique_ptr<DBusMock> daemon = kglobalaccel == Daemon::Running ? startKGlobalAccel() : nullptr;
    QVERIFY(kglobalaccel != Daemon::Running || daemon);
    setActivatable(u"org.kde.kglobalaccel"_s, kglobalaccel == Daemon::Activatable);
    auto clear = qScopeGuard([] { setActivatable(u"org.kde.kglobalaccel"_s, false); });

    const std::unique_ptr<GlobalHotKey> chosen = PlatformServices::globalHotKeyFor(
        { .wayland = wayland, .currentDesktop = desktop, .x11Display = u":nodisplay"_s },
        QDBusConnection::sessionBus());
    QCOMPARE(QByteArray(chosen->metaObject()->className()), expected);
}

QTEST_GUILESS_MAIN(TestGlobalHotKeyDBus)
#include "testglobalhotkeydbus.moc"
