#include "cli/reportcommand.h"

#include "cli/appclient.h"

int ReportCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Opens the report window of the running Brimvale app (launching it in the background when it does not run)."));
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    if (!parser.positionalArguments().isEmpty())
        return fail(environment, QStringLiteral("report takes no arguments (see brimvale report --help)."));

    AppClient app(AppClient::busFor(environment));
    if (const auto running = app.ensureAppRunning(AppClient::launcherFor(environment)); !running)
        return fail(environment, running.error());
    if (const auto shown = app.showReport(); !shown)
        return fail(environment, shown.error());
    return CliExit::Success;
}
