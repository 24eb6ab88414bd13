#include <csignal>
#include <memory>

#include <QApplication>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QLoggingCategory>
#include <QTextStream>

#include "app/brimvaleapplication.h"
#include "app/services/brimvaledbusservice.h"
#include "app/services/singleinstance.h"
#include "base/clock.h"
#include "cli/commandline.h"
#include "gui/app/storeerroralert.h"
#include "model/store.h"
#include "platform/dropboxagentclient.h"
#include "platform/keychainqt.h"
#include "platform/unixsignalwatcher.h"
#include "settings/bvsettingsview.h"
#include "settings/userdefaults.h"
#include "sync/bvdropboxsettings.h"
#include "sync/bvdropboxsyncbackend.h"

namespace {

// The command line reads settings without writing any back: the whole settings object would rewrite
// values that only the app can judge (such as whether the desktop shows notifications).
bool sidebarOrderedByHand(bool tasks)
{
    const QString key
        = tasks ? QStringLiteral("report_sidebar_tasks_ordered") : QStringLiteral("report_sidebar_projects_ordered");
    return UserDefaults::standardUserDefaults()->stringForKey(key) == QLatin1String("1");
}

bool isAppUrl(const QString &argument)
{
    return argument.startsWith(QLatin1String("brimvaleapp:"), Qt::CaseInsensitive);
}

// `brimvale` alone, at login with "launchFromHelper", or from the browser with a brimvaleapp: URL is the
// app; anything else is a command.
bool isAppLaunch(const QStringList &arguments, AppLaunchOptions *options)
{
    for (const QString &argument : arguments) {
        if (argument == QLatin1String("launchFromHelper"))
            options->launchFromHelper = true;
        else if (isAppUrl(argument))
            options->url = argument;
        else
            return false;
    }
    return true;
}

QStringList argumentsOf(int argc, char **argv)
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    return arguments;
}

int runCommandLine(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Brimvale"));
    QCoreApplication::setApplicationVersion(QStringLiteral(BRIMVALE_VERSION));

    // A command speaks through its one line on stderr; the log lines behind it stay quiet unless asked
    // for with QT_LOGGING_RULES (which wins over these rules).
    QLoggingCategory::setFilterRules(QStringLiteral("brimvale.*=false"));

    QTextStream out(stdout);
    QTextStream err(stderr);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.value(0) == QLatin1String("--version")) {
        out << "brimvale " << BRIMVALE_VERSION << Qt::endl;
        return 0;
    }
    StoreOptions options;
    options.applicationFilesDirectory = Store::applicationFilesDirectory();
    options.skipMigrations = UserDefaults::standardUserDefaults()->boolForKey(QStringLiteral("skipMigrations"));
    options.projectsOrderedByHand = sidebarOrderedByHand(false);
    options.tasksOrderedByHand = sidebarOrderedByHand(true);
    // Made only for the commands that reach Dropbox: they open the session bus and the keyring.
    std::unique_ptr<DropboxAgentClient> agent;
    std::unique_ptr<KeychainQt> keychain;
    std::unique_ptr<BVDropboxSettings> dropboxSettings;
    BVDropboxServices dropbox;
    const auto dropboxServices = [&]() -> const BVDropboxServices * {
        if (!agent) {
            if (!QDBusConnection::sessionBus().isConnected())
                return nullptr;
            agent = std::make_unique<DropboxAgentClient>();
            keychain = std::make_unique<KeychainQt>();
            dropboxSettings = std::make_unique<BVDropboxSettings>(*UserDefaults::standardUserDefaults());
            dropbox = BVDropboxServices { agent.get(), keychain.get(), dropboxSettings.get(), Clock::system() };
        }
        return &dropbox;
    };
    CliEnvironment environment { out, err, options, &BvSettingsView::standard, {}, {}, dropboxServices };

    CommandLine commandLine;
    return commandLine.run(arguments, environment);
}

int runApp(int argc, char **argv, const AppLaunchOptions &options)
{
    QApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Brimvale"));
    QCoreApplication::setApplicationVersion(QStringLiteral(BRIMVALE_VERSION));
    QGuiApplication::setDesktopFileName(QStringLiteral("brimvale"));
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/brimvale.svg")));
    // The controller decides when closing the window quits: with a tray icon it does not.
    QApplication::setQuitOnLastWindowClosed(false);

    // One app per session: a second `brimvale` raises the first, or hands it the browser's URL, and ends.
    if (!SingleInstance::claim())
        return SingleInstance::forwardToRunning(options.url) ? 0 : 1;

    BrimvaleApplication application(PlatformServices::forSession());

    // Logout, shutdown and Ctrl+C end the running activity at that moment, as the Quit command does.
    UnixSignalWatcher signalWatcher({ SIGTERM, SIGINT, SIGHUP });
    QObject::connect(&signalWatcher, &UnixSignalWatcher::unixSignal, &application, &BrimvaleApplication::quit);

    const auto launched = application.launch(options);
    if (!launched) {
        qCritical().noquote() << "Could not open the store:" << launched.error().message();
        // Nothing answers on the bus while the alert shows: a second launch should try for itself.
        SingleInstance::release();
        auto *alert = new StoreErrorAlert(launched.error());
        QObject::connect(alert, &QMessageBox::finished, &app, &QCoreApplication::quit);
        alert->open();
        app.exec();
        return 2;
    }
    BrimvaleDBusService service(application.tracking(), application.syncManager());
    QObject::connect(
        &service, &BrimvaleDBusService::showMainWindowRequested, &application, &BrimvaleApplication::showMainWindow);
    QObject::connect(&service, &BrimvaleDBusService::openUrlRequested, &application, &BrimvaleApplication::openUrl);
    QObject::connect(
        &service, &BrimvaleDBusService::showReportRequested, &application, &BrimvaleApplication::showReport);
    if (!service.registerOnSessionBus())
        qWarning() << "The app is not reachable on the session bus: brimvale start, stop and status cannot reach it";
    return app.exec();
}

// Whether a window can open at all: without a display Qt would abort with a message about its plugins.
bool hasDisplay()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

} // namespace

int main(int argc, char **argv)
{
    AppLaunchOptions options;
    if (!isAppLaunch(argumentsOf(argc, argv), &options))
        return runCommandLine(argc, argv);
    if (!hasDisplay()) {
        QCoreApplication app(argc, argv);
        QTextStream err(stderr);
        err << "brimvale: no display to open the app on (neither DISPLAY nor WAYLAND_DISPLAY is set); "
               "the command line works without one:\n\n"
            << CommandLine().overview() << Qt::flush;
        return 1;
    }
    return runApp(argc, argv, options);
}
