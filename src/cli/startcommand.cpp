#include "cli/startcommand.h"

#include "cli/appclient.h"

int StartCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Starts tracking TEXT in the running Brimvale app (launching it in the background when it does not run), "
        "as if typed into its activity line. Quote the text: the shell takes # as the start of a comment."));
    parser.addPositionalArgument(
        QStringLiteral("TEXT"), QStringLiteral("What you work on, e.g. \"@Acme #design mock-ups\"."));
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    const QString text = parser.positionalArguments().join(QLatin1Char(' '));
    if (text.isEmpty())
        return fail(environment, QStringLiteral("start needs the activity's text (see brimvale start --help)."));

    AppClient app(AppClient::busFor(environment));
    if (const auto running = app.ensureAppRunning(AppClient::launcherFor(environment)); !running)
        return fail(environment, running.error());
    const auto answer = app.startTrack(text);
    if (!answer)
        return fail(environment, answer.error());
    // The app refused (an activity runs and may not be ended, an empty text): its error line.
    if (!answer->isEmpty())
        return fail(environment, *answer);
    return CliExit::Success;
}
