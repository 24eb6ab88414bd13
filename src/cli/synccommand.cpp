#include "cli/synccommand.h"

#include <QEventLoop>

#include "cli/appclient.h"
#include "cli/cliinterrupt.h"

#include "base/clock.h"
#include "model/store.h"
#include "settings/bvsettingsview.h"
#include "sync/bvdropboxsettings.h"
#include "sync/bvdropboxsyncbackend.h"
#include "sync/bvfoldersyncbackend.h"
#include "sync/bvsyncbackendfactory.h"
#include "sync/bvsyncerrors.h"
#include "sync/bvsyncservice.h"
#include "sync/bvtmpsyncfile.h"

int SyncCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Runs one sync with the sync method chosen in the preferences: merges what your other computers "
                       "changed and uploads what changed here."));
    const QCommandLineOption folder(QStringLiteral("folder"),
        QStringLiteral("Sync through this folder (kept in sync by another tool) instead of the chosen method."),
        QStringLiteral("DIR"));
    const QCommandLineOption log(
        QStringLiteral("log"), QStringLiteral("Print the run's activity log on stderr when it ends."));
    parser.addOption(folder);
    parser.addOption(log);
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    if (!parser.positionalArguments().isEmpty())
        return fail(environment, QStringLiteral("sync takes no arguments (see brimvale sync --help)."));

    // A running app syncs itself: it leaves the activity it tracks out of the files and keeps its sync date.
    // A folder or a log asked for here is this command's own run.
    if (!parser.isSet(folder) && !parser.isSet(log)) {
        AppClient app(AppClient::busFor(environment));
        if (app.isAppRunning()) {
            environment.out << QStringLiteral("Syncing in the running Brimvale app...") << Qt::endl;
            const auto answer = app.sync();
            if (!answer)
                return fail(environment, answer.error());
            if (answer->startsWith(QString::fromLatin1(BVSyncErrors::Title) + QLatin1Char('\n')))
                return fail(environment, *answer);
            environment.out << *answer << Qt::endl;
            return CliExit::Success;
        }
    }

    std::unique_ptr<BVSyncServiceBackend> backend;
    if (parser.isSet(folder)) {
        backend = std::make_unique<BVFolderSyncBackend>(parser.value(folder));
    } else {
        auto made = BVSyncBackendFactory::backendForSettings(
            environment.settings ? environment.settings() : BvSettingsView::standard(),
            environment.dropbox ? environment.dropbox() : nullptr);
        // The preferences are not the only way in: a folder works without any.
        if (!made)
            return fail(environment,
                made.error().message() + QStringLiteral(", or sync through a folder: brimvale sync --folder DIR"));
        backend = std::move(*made);
    }

    std::unique_ptr<Store> store = openStore(environment, Access::Write);
    if (!store)
        return CliExit::StoreUnavailable;

    // The command line tracks nothing itself, so no activity is held back from the files.
    BVSyncService service(std::move(backend), std::nullopt);
    // No settings for the service: a run from the command line records in them only the Dropbox sync date.
    service.setMOC(*store);
    QEventLoop loop;
    QObject::connect(&service, &BVSyncService::syncServiceProgress, &loop,
        [&](const QString &message) { environment.out << message << Qt::endl; });
    QObject::connect(&service, &BVSyncService::syncServiceFinish, &loop, [&](const QString &message) {
        // The one setting a run here records, so that `brimvale dropbox status` and the app tell when
        // Dropbox was last synced.
        if (service.syncMethod() == BVTmpSyncFile::DropboxSyncMethod && environment.dropbox) {
            if (const BVDropboxServices *services = environment.dropbox())
                services->settings->setDropboxSyncDate((store->clock() ? store->clock() : Clock::system())->now());
        }
        environment.out << message << Qt::endl;
        loop.exit(CliExit::Success);
    });
    QObject::connect(&service, &BVSyncService::syncServiceError, &loop, [&](const QString &details) {
        environment.err << QString::fromLatin1(BVSyncErrors::Title) << '\n' << details << Qt::endl;
        loop.exit(CliExit::Failure);
    });
    QObject::connect(&service, &BVSyncService::syncServiceCancelled, &loop, [&]() {
        environment.err << QStringLiteral("Operation cancelled.") << Qt::endl;
        loop.exit(CliExit::Failure);
    });
    // Ctrl-C stops the run at its next safe point instead of in the middle of a step; what it had
    // saved stays saved.
    CliInterrupt interrupt;
    QObject::connect(&interrupt, &CliInterrupt::interrupted, &service, [&]() {
        environment.err << QStringLiteral("Cancelling sync operation...") << Qt::endl;
        service.cancel();
    });
    service.sync();
    const int status = loop.exec();
    if (parser.isSet(log))
        environment.err << service.activityLog() << Qt::endl;
    return status;
}
