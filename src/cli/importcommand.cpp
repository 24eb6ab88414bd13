#include "cli/importcommand.h"

#include "cli/clitime.h"
#include "export/activityimport.h"
#include "model/store.h"

int ImportCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Imports the activities of an XML export. An activity whose UID is already in the journal is "
                       "replaced by the file's version, and a deleted one comes back."));
    parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The XML file."));
    const QCommandLineOption dryRun(
        QStringLiteral("dry-run"), QStringLiteral("Only list what the file holds; import nothing."));
    parser.addOption(dryRun);
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    if (parser.positionalArguments().size() != 1)
        return fail(environment, QStringLiteral("Give exactly one XML file (see brimvale import --help)."));

    ActivityImport import;
    const auto read = import.importActivitiesFromURL(parser.positionalArguments().constFirst());
    if (!read)
        return fail(environment, read.error().message());
    const auto activities = import.listedActivities();
    if (!activities)
        return fail(environment, activities.error().message());
    if (const QString skipped = import.skipped().text(); !skipped.isEmpty())
        environment.err << skipped << Qt::endl;

    if (parser.isSet(dryRun)) {
        for (const ActivityPtr &activity : *activities) {
            environment.out << activity->uid() << QStringLiteral("  ")
                            << CliTime::span(
                                   activity->timeFrom().toMSecsSinceEpoch(), activity->timeTo().toMSecsSinceEpoch())
                            << QStringLiteral("  ")
                            << (activity->isInvoiced() ? QStringLiteral("[invoiced] ") : QString())
                            << activity->text().simplified() << '\n';
        }
        environment.out << QStringLiteral("Would import %1 activities").arg(activities->size()) << Qt::endl;
        return CliExit::Success;
    }

    std::unique_ptr<Store> store = openStore(environment, Access::Write);
    if (!store)
        return CliExit::StoreUnavailable;
    const ActivityImportResult result = ActivityImport::importActivities(*activities, *store);
    if (result.isError())
        return fail(environment, result.text() + QLatin1Char(' ') + result.error->message());
    environment.out << result.text() << Qt::endl;
    return CliExit::Success;
}
