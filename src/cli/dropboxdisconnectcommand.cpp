#include "cli/dropboxdisconnectcommand.h"

#include <QEventLoop>

#include "sync/bvdropboxsyncbackend.h"

int DropboxDisconnectCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Forgets the Dropbox account on this computer and revokes its access at Dropbox."));
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    const BVDropboxServices *services = environment.dropbox ? environment.dropbox() : nullptr;
    if (!services)
        return fail(environment, QStringLiteral("Dropbox cannot be reached: there is no session bus."));
    BVDropboxSyncBackend account(*services);
    if (!account.isDropboxConnected())
        return fail(environment, QStringLiteral("Dropbox is not connected."));

    QString revokeError;
    QEventLoop loop;
    account.disconnectDropbox([&](const QString &error) {
        QMetaObject::invokeMethod(&loop, [&, error] {
            revokeError = error;
            loop.quit();
        });
    });
    loop.exec();
    environment.out << QStringLiteral("Disconnected from Dropbox.") << Qt::endl;
    // The account is forgotten here either way; a token Dropbox did not revoke expires by itself.
    if (!revokeError.isEmpty())
        environment.err << QStringLiteral("Dropbox did not confirm the revocation: %1").arg(revokeError) << Qt::endl;
    return CliExit::Success;
}
