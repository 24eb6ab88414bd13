#include "cli/exportcommand.h"

#include <QFile>

#include "cli/listcommand.h"
#include "export/activityexport.h"
#include "model/activityquery.h"
#include "model/store.h"
#include "model/storecontext.h"

int ExportCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Exports the activities that brimvale list would show, newest first, in the CSV or XML "
                       "layout set up in the preferences.\nDATE is local time: yyyy-MM-dd, yyyy-MM-ddTHH:mm or "
                       "yyyy-MM-ddTHH:mm:ss."));
    const QCommandLineOption format(QStringLiteral("format"), QStringLiteral("csv or xml."), QStringLiteral("FORMAT"));
    const QCommandLineOption output(QStringLiteral("output"),
        QStringLiteral("Write to FILE (replaced as a whole) instead of standard output."), QStringLiteral("FILE"));
    parser.addOptions({ format, output });
    ListCommand::addFilterOptions(parser);
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    if (!parser.positionalArguments().isEmpty())
        return fail(environment,
            QStringLiteral("Unexpected argument “%1” (see brimvale export --help).")
                .arg(parser.positionalArguments().constFirst()));
    const QString formatName = parser.value(format).toLower();
    int exportFormat = ActivityExport::CSVFormat;
    if (formatName == QLatin1String("xml"))
        exportFormat = ActivityExport::XMLFormat;
    else if (formatName != QLatin1String("csv"))
        return fail(environment,
            parser.isSet(format) ? QStringLiteral("--format takes csv or xml, not “%1”.").arg(parser.value(format))
                                 : QStringLiteral("Give --format csv or --format xml."));

    std::unique_ptr<Store> store = openStore(environment);
    if (!store)
        return CliExit::StoreUnavailable;
    std::unique_ptr<StoreContext> context = store->newContext();
    const auto query = ListCommand::filterQuery(parser, *context);
    if (!query)
        return fail(environment, query.error());
    const BvSettingsView settings = environment.settings ? environment.settings() : BvSettingsView::standard();
    // Plain records, as list reads them: a whole journal reads several times faster than as activities,
    // and task names are read only when the layout shows them.
    const bool withTasks = ActivityExport::showsTasks(
        exportFormat == ActivityExport::XMLFormat ? settings.getXMLFormat() : settings.getCSVFormat());
    const auto activities = context->fetchActivityRecords(*query, withTasks);
    if (!activities)
        return fail(environment, activities.error().message());

    QString message;
    if (parser.isSet(output)) {
        message = ActivityExport::exportRecords(*activities, parser.value(output), exportFormat, settings);
    } else {
        environment.out.flush();
        QFile standardOutput;
        if (!standardOutput.open(stdout, QIODevice::WriteOnly))
            return fail(environment, QStringLiteral("Standard output cannot be written."));
        message = ActivityExport::exportRecords(*activities, standardOutput, exportFormat, settings);
        standardOutput.flush();
    }
    if (!message.isNull())
        return fail(environment, message);
    return CliExit::Success;
}
