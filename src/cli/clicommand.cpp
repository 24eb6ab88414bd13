#include "cli/clicommand.h"

#include <QRegularExpression>

#include "model/store.h"

std::optional<int> CliCommand::parse(
    QCommandLineParser &parser, const QStringList &arguments, CliEnvironment &environment)
{
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    const QCommandLineOption help({ QStringLiteral("h"), QStringLiteral("help") }, QStringLiteral("Show this help."));
    parser.addOption(help);
    // The parser expects the program name first.
    if (!parser.parse(QStringList { QStringLiteral("brimvale ") + name() } + arguments))
        return fail(environment, parser.errorText() + QStringLiteral(" (see brimvale %1 --help)").arg(name()));
    if (parser.isSet(help)) {
        QString text = parser.helpText();
        // Qt names the executable's path in the usage line; users type "brimvale <command>".
        static const QRegularExpression usage(QStringLiteral("^Usage: \\S+"));
        text.replace(usage, QStringLiteral("Usage: brimvale ") + name());
        environment.out << text;
        environment.out.flush();
        return CliExit::Success;
    }
    return std::nullopt;
}

std::unique_ptr<Store> CliCommand::openStore(CliEnvironment &environment)
{
    auto store = Store::open(environment.storeOptions);
    if (!store) {
        environment.err << store.error().message() << Qt::endl;
        return nullptr;
    }
    return std::move(*store);
}

int CliCommand::fail(CliEnvironment &environment, const QString &message)
{
    environment.err << message << Qt::endl;
    return CliExit::Failure;
}
