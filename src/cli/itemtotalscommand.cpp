#include "cli/itemtotalscommand.h"

#include "cli/clitime.h"
#include "model/store.h"
#include "model/storecontext.h"

int ItemTotalsCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(m_tasks
            ? QStringLiteral("Lists every task with its activities and total time.")
            : QStringLiteral("Lists every project with its activities and total time."));
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    if (!parser.positionalArguments().isEmpty())
        return fail(environment,
            QStringLiteral("Unexpected argument “%1” (see brimvale %2 --help).")
                .arg(parser.positionalArguments().constFirst(), name()));
    std::unique_ptr<Store> store = openStore(environment);
    if (!store)
        return CliExit::StoreUnavailable;
    const auto totals = store->newContext()->itemTotals(m_tasks);
    if (!totals)
        return fail(environment, totals.error().message());
    qsizetype width = 4;
    for (const auto &total : *totals)
        width = qMax(width, total.name.size());
    for (const auto &total : *totals) {
        environment.out << total.name.leftJustified(width) << QStringLiteral("  ")
                        << QString::number(total.activities).rightJustified(7) << QStringLiteral("  ")
                        << CliTime::duration(total.seconds).rightJustified(10) << '\n';
    }
    environment.out.flush();
    return CliExit::Success;
}
