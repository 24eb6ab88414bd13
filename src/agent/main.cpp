#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcessEnvironment>

#include "agent/agentlogging.h"
#include "agent/dropboxendpoints.h"
#include "agent/dropboxhttpclient.h"
#include "agent/dropboxsyncservice.h"
#include "agent/idlewatch.h"

using namespace Qt::StringLiterals;

// brimvale-dropbox-agent: Brimvale's only link to Dropbox. The bus (or the app, where the bus cannot) starts
// it on the first call; it exits after a period without calls.
int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(u"brimvale-dropbox-agent"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(BRIMVALE_VERSION));

    const QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const auto endpoints = DropboxEndpoints::fromEnvironment(environment);
    if (!endpoints) {
        qCCritical(lcAgent).noquote() << endpoints.error();
        return 1;
    }
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        qCCritical(lcAgent).noquote() << "No session bus:" << bus.lastError().message();
        return 1;
    }
    if (!(bus.connectionCapabilities() & QDBusConnection::UnixFileDescriptorPassing)) {
        qCCritical(lcAgent) << "The session bus cannot pass file descriptors";
        return 1;
    }

    DropboxHttpClient http;
    IdleWatch idle(IdleWatch::periodFromEnvironment(environment));
    DropboxSyncService service(http, *endpoints, idle, bus);
    QObject::connect(&idle, &IdleWatch::idle, &app, [] {
        qCInfo(lcAgent) << "No calls for a while; exiting";
        QCoreApplication::quit();
    });

    // The object first, then the name: a caller the bus queued for the name finds the object there.
    if (!bus.registerObject(DropboxSyncService::objectPath(), &service, QDBusConnection::ExportAllSlots)) {
        qCCritical(lcAgent).noquote() << "Could not export the service object:" << bus.lastError().message();
        return 1;
    }
    if (!bus.registerService(DropboxSyncService::serviceName())) {
        // Another agent answers already; two would share nothing but the name's queue.
        qCInfo(lcAgent).noquote() << "Another agent owns" << DropboxSyncService::serviceName() << "; exiting";
        return 0;
    }
    return app.exec();
}
