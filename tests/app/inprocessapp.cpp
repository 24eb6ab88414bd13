#include "inprocessapp.h"

#include <QDBusPendingCall>
#include <QTest>

#include "app/services/brimvaledbus.h"

InProcessApp::InProcessApp()
    : InProcessApp(Options {})
{ }

InProcessApp::InProcessApp(const Options &options)
{
    defaults = std::make_unique<UserDefaults>(home.configHome() + QStringLiteral("/Brimvale/Brimvale.conf"));
    defaults->setBool(options.endCurrentActivityOnTrack, QStringLiteral("endCurrentActivityOnTrack"));
    defaults->synchronize();
    settings = std::make_unique<BvSettings>(defaults.get());
    if (!options.syncFolder.isEmpty()) {
        settings->setSyncFolderPath(options.syncFolder);
        settings->setSyncMethod(2);
    }
    StoreOptions storeOptions;
    storeOptions.applicationFilesDirectory = home.applicationFilesDirectory();
    storeOptions.clock = &clock;
    store = std::move(*Store::open(storeOptions));
    activityManager = std::make_unique<ActivityManager>(*store);
    tracking = std::make_unique<TrackingController>(*activityManager, *settings, clock);
    syncRunner = std::make_unique<SyncRunner>(*store, *settings, *activityManager);
    service = std::make_unique<BrimvaleDBusService>(*tracking, *syncRunner);
}

QDBusConnection otherClientConnection()
{
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("brimvale-test-client"));
}

QDBusMessage callApp(QDBusConnection connection, const QString &method, const QVariantList &arguments, int timeoutMsecs)
{
    QDBusMessage call = QDBusMessage::createMethodCall(QString::fromLatin1(BrimvaleDBus::ServiceName),
        QString::fromLatin1(BrimvaleDBus::ObjectPath), QString::fromLatin1(BrimvaleDBus::InterfaceName), method);
    call.setArguments(arguments);
    QDBusPendingCall pending = connection.asyncCall(call, timeoutMsecs);
    if (!QTest::qWaitFor([&] { return pending.isFinished(); }, timeoutMsecs + 1000))
        return QDBusMessage::createError(QDBusError::Timeout, QStringLiteral("no answer"));
    return pending.reply();
}
