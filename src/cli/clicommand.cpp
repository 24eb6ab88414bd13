#include "cli/clicommand.h"

#include <QRegularExpression>

#include "model/store.h"
#include "model/storeerrors.h"

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

std::unique_ptr<Store> CliCommand::openStore(CliEnvironment &environment, Access access)
{
    auto store = Store::open(environment.storeOptions);
    if (!store) {
        environment.err << store.error().message() << Qt::endl;
        return nullptr;
    }
    if (access == Access::Write && (*store)->isReadOnly()) {
        environment.err << StoreErrors::readOnly((*store)->storePath()).message() << Qt::endl;
        return nullptr;
    }
    return std::move(*store);
}

int CliCommand::saveFailed(CliEnvironment &environment, const BvError &error)
{
    // A refused activity explains itself in the failure reason ("Duration must be ..."); a store error in
    // its description.
    environment.err << (error.failureReason().isEmpty() ? error.message() : error.failureReason()) << Qt::endl;
    return StoreErrors::isStoreUnavailable(error) ? CliExit::StoreUnavailable : CliExit::Failure;
}

int CliCommand::fail(CliEnvironment &environment, const QString &message)
{
    environment.err << message << Qt::endl;
    return CliExit::Failure;
}
