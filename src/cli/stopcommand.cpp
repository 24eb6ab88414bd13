#include "cli/stopcommand.h"

#include "cli/appclient.h"

int StopCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Stops tracking in the running Brimvale app: the running activity ends now."));
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    if (!parser.positionalArguments().isEmpty())
        return fail(environment, QStringLiteral("stop takes no arguments (see brimvale stop --help)."));

    AppClient app(AppClient::busFor(environment));
    if (const auto stopped = app.stopTrack(); !stopped)
        return fail(environment, stopped.error());
    return CliExit::Success;
}
