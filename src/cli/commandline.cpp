#include "cli/commandline.h"

#include "cli/addcommand.h"
#include "cli/deletecommand.h"
#include "cli/dropboxcommand.h"
#include "cli/editcommand.h"
#include "cli/exportcommand.h"
#include "cli/importcommand.h"
#include "cli/itemtotalscommand.h"
#include "cli/listcommand.h"
#include "cli/mergecommand.h"
#include "cli/reportcommand.h"
#include "cli/preferencescommand.h"
#include "cli/showcommand.h"
#include "cli/startcommand.h"
#include "cli/statuscommand.h"
#include "cli/stopcommand.h"
#include "cli/synccommand.h"
#include "cli/updatecommand.h"

namespace {
bool isHelp(const QString &word)
{
    return word == QLatin1String("--help") || word == QLatin1String("-h") || word == QLatin1String("help");
}
} // namespace

CommandLine::CommandLine()
{
    m_commands.push_back(std::make_unique<AddCommand>());
    m_commands.push_back(std::make_unique<ListCommand>());
    m_commands.push_back(std::make_unique<EditCommand>());
    m_commands.push_back(std::make_unique<DeleteCommand>());
    m_commands.push_back(std::make_unique<MergeCommand>());
    m_commands.push_back(std::make_unique<ItemTotalsCommand>(false));
    m_commands.push_back(std::make_unique<ItemTotalsCommand>(true));
    m_commands.push_back(std::make_unique<ExportCommand>());
    m_commands.push_back(std::make_unique<ImportCommand>());
    m_commands.push_back(std::make_unique<SyncCommand>());
    m_commands.push_back(std::make_unique<StartCommand>());
    m_commands.push_back(std::make_unique<UpdateCommand>());
    m_commands.push_back(std::make_unique<StopCommand>());
    m_commands.push_back(std::make_unique<StatusCommand>());
    m_commands.push_back(std::make_unique<ReportCommand>());
    m_commands.push_back(std::make_unique<ShowCommand>());
    m_commands.push_back(std::make_unique<DropboxCommand>());
    m_commands.push_back(std::make_unique<PreferencesCommand>());
}

CommandLine::~CommandLine() = default;

CliCommand *CommandLine::command(const QString &name) const
{
    for (const auto &command : m_commands) {
        if (command->name() == name)
            return command.get();
    }
    return nullptr;
}

QString CommandLine::overview() const
{
    QString text
        = QStringLiteral("Usage: brimvale [COMMAND [ARGUMENTS...]]\n\n"
                         "Brimvale tracks what you work on: one line like \"@Acme #design mock-ups\" names\n"
                         "the project (@) and tasks (#). Every command works on the same journal as the app.\n\n"
                         "Commands:\n");
    for (const auto &command : m_commands)
        text += QStringLiteral("  %1%2\n").arg(command->name().leftJustified(13), command->summary());
    text += QStringLiteral(
        "\nRun \"brimvale COMMAND --help\" for the options of a command, \"brimvale --version\" for the "
        "version.\n");
    return text;
}

int CommandLine::run(const QStringList &arguments, CliEnvironment &environment)
{
    if (arguments.isEmpty() || isHelp(arguments.constFirst())) {
        if (arguments.size() >= 2 && command(arguments.at(1)))
            return command(arguments.at(1))->run({ QStringLiteral("--help") }, environment);
        environment.out << overview();
        environment.out.flush();
        return CliExit::Success;
    }
    CliCommand *chosen = command(arguments.constFirst());
    if (!chosen) {
        environment.err << QStringLiteral("Unknown command “%1” (see brimvale --help).").arg(arguments.constFirst())
                        << Qt::endl;
        return CliExit::Failure;
    }
    return chosen->run(arguments.mid(1), environment);
}
