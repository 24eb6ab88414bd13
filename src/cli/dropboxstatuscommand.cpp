#include "cli/dropboxstatuscommand.h"

#include <QEventLoop>

#include "sync/bvdropboxsettings.h"
#include "sync/bvdropboxsyncbackend.h"

int DropboxStatusCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Shows the Dropbox account this computer syncs with."));
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    const BVDropboxServices *services = environment.dropbox ? environment.dropbox() : nullptr;
    if (!services)
        return fail(environment, QStringLiteral("Dropbox cannot be reached: there is no session bus."));
    BVDropboxSyncBackend account(*services);
    if (!account.isDropboxConnected())
        return fail(environment, QStringLiteral("Dropbox is not connected. Connect with: brimvale dropbox connect"));

    DropboxSyncServiceProtocol::AccountInfo info;
    QEventLoop loop;
    account.retrieveAccountInfoWithReply([&](DropboxSyncServiceProtocol::AccountInfo reply) {
        QMetaObject::invokeMethod(&loop, [&, reply] {
            info = reply;
            loop.quit();
        });
    });
    loop.exec();

    if (info.error.isEmpty()) {
        environment.out << QStringLiteral("Dropbox: %1 <%2>").arg(info.name, info.email) << '\n';
    } else {
        const QString name = services->settings->dropboxAccountName();
        environment.out
            << QStringLiteral("Dropbox: %1").arg(name.isEmpty() ? services->settings->dropboxAccountID() : name)
            << '\n';
        environment.err << QStringLiteral("The account could not be asked: %1").arg(info.error) << Qt::endl;
    }
    const QDateTime lastSync = services->settings->dropboxSyncDate();
    environment.out << QStringLiteral("Last sync: %1")
                           .arg(lastSync.isValid() ? lastSync.toLocalTime().toString(Qt::ISODate)
                                                   : QStringLiteral("never"))
                    << Qt::endl;
    return info.error.isEmpty() ? CliExit::Success : CliExit::Failure;
}
