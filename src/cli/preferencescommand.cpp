#include "cli/preferencescommand.h"

#include "cli/appclient.h"
#include "platform/brimvaledbus.h"

namespace {
// Any number the window does not know keeps the tab it showed last.
constexpr int LastShownTab = -1;
} // namespace

std::optional<int> PreferencesCommand::tabForName(const QString &name)
{
    const QString key = name.toLower();
    if (key == QLatin1String("general"))
        return PreferencesTab::General;
    if (key == QLatin1String("attention"))
        return PreferencesTab::Attention;
    if (key == QLatin1String("export"))
        return PreferencesTab::Export;
    if (key == QLatin1String("sync"))
        return PreferencesTab::Sync;
    return std::nullopt;
}

int PreferencesCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Opens the preferences window of the running Brimvale app (launching the app in the background when it "
        "does not run), at the tab named, or at the tab shown last."));
    parser.addPositionalArgument(
        QStringLiteral("TAB"), QStringLiteral("general, attention, export or sync."), QStringLiteral("[TAB]"));
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    const QStringList words = parser.positionalArguments();
    if (words.size() > 1)
        return fail(
            environment, QStringLiteral("preferences takes one tab at most (see brimvale preferences --help)."));
    int tab = LastShownTab;
    if (!words.isEmpty()) {
        const std::optional<int> named = tabForName(words.constFirst());
        if (!named)
            return fail(environment,
                QStringLiteral("Unknown tab “%1”: general, attention, export or sync.").arg(words.constFirst()));
        tab = *named;
    }

    AppClient app(AppClient::busFor(environment));
    if (const auto running = app.ensureAppRunning(AppClient::launcherFor(environment)); !running)
        return fail(environment, running.error());
    if (const auto shown = app.showPreferences(tab); !shown)
        return fail(environment, shown.error());
    return CliExit::Success;
}
