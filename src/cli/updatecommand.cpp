#include "cli/updatecommand.h"

#include "cli/appclient.h"

int UpdateCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Gives the activity the running Brimvale app tracks the text TEXT (its project and tasks follow the text)."));
    parser.addPositionalArgument(QStringLiteral("TEXT"), QStringLiteral("The new text, e.g. \"@Acme #review notes\"."));
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    const QString text = parser.positionalArguments().join(QLatin1Char(' '));
    if (text.isEmpty())
        return fail(environment, QStringLiteral("update needs the activity's text (see brimvale update --help)."));

    AppClient app(AppClient::busFor(environment));
    const auto answer = app.updateTrack(text);
    if (!answer)
        return fail(environment, answer.error());
    if (!answer->isEmpty())
        return fail(environment, *answer);
    return CliExit::Success;
}
