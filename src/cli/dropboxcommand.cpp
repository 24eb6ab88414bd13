#include "cli/dropboxcommand.h"

#include "cli/dropboxconnectcommand.h"
#include "cli/dropboxdisconnectcommand.h"
#include "cli/dropboxstatuscommand.h"

DropboxCommand::DropboxCommand()
{
    m_subcommands.push_back(std::make_unique<DropboxConnectCommand>());
    m_subcommands.push_back(std::make_unique<DropboxStatusCommand>());
    m_subcommands.push_back(std::make_unique<DropboxDisconnectCommand>());
}

DropboxCommand::~DropboxCommand() = default;

int DropboxCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    const QString chosen = arguments.value(0);
    for (const auto &command : m_subcommands) {
        if (command->name() == chosen)
            return command->run(arguments.mid(1), environment);
    }
    QString usage = QStringLiteral("Usage: brimvale dropbox COMMAND\n\nCommands:\n");
    for (const auto &command : m_subcommands)
        usage += QStringLiteral("  %1  %2\n").arg(command->name().leftJustified(10), command->summary());
    if (chosen == QLatin1String("--help") || chosen == QLatin1String("-h")) {
        environment.out << usage << Qt::flush;
        return CliExit::Success;
    }
    environment.err << (chosen.isEmpty() ? QString()
                                         : QStringLiteral("Unknown dropbox command \"%1\".\n\n").arg(chosen))
                    << usage << Qt::flush;
    return CliExit::Failure;
}
