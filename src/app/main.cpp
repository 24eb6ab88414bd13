#include <QCoreApplication>
#include <QDBusConnection>
#include <QLoggingCategory>
#include <QTextStream>

#include "base/clock.h"
#include "cli/commandline.h"
#include "model/store.h"
#include "platform/dropboxagentclient.h"
#include "platform/keychainqt.h"
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

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Brimvale"));
    QCoreApplication::setApplicationVersion(QStringLiteral(BRIMVALE_VERSION));

    // A command speaks through its one line on stderr; the log lines behind it stay quiet unless asked
    // for with QT_LOGGING_RULES (which wins over these rules).
    QLoggingCategory::setFilterRules(QStringLiteral("brimvale.*=false"));

    QTextStream out(stdout);
    QTextStream err(stderr);
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
    CliEnvironment environment { out, err, options, &BvSettingsView::standard, dropboxServices };

    CommandLine commandLine;
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.value(0) == QLatin1String("--version")) {
        out << "brimvale " << BRIMVALE_VERSION << Qt::endl;
        return 0;
    }
    return commandLine.run(arguments, environment);
}
