#include "cli/showcommand.h"

#include "cli/appclient.h"

int ShowCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Brings the main window of the running Brimvale app to the front, launching the app when it does not run. "
        "Bind a key to this command in the desktop's keyboard settings where Brimvale can not set its global "
        "shortcut itself (GNOME on Wayland, sway)."));
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    if (!parser.positionalArguments().isEmpty())
        return fail(environment, QStringLiteral("show takes no arguments (see brimvale show --help)."));

    AppClient app(AppClient::busFor(environment));
    if (const auto running = app.ensureAppRunning(AppClient::launcherFor(environment)); !running)
        return fail(environment, running.error());
    if (const auto shown = app.showMainWindow(); !shown)
        return fail(environment, shown.error());
    return CliExit::Success;
}
