#include "cli/addcommand.h"

#include "cli/clitime.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "model/storecontext.h"

int AddCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Adds a finished activity. Quote the text: the shell takes # as the start of a comment.\n"
                       "WHEN is local time: yyyy-MM-dd, yyyy-MM-ddTHH:mm or yyyy-MM-ddTHH:mm:ss."));
    parser.addPositionalArgument(
        QStringLiteral("TEXT"), QStringLiteral("What was done, e.g. \"@Acme #design mock-ups\"."));
    const QCommandLineOption from(
        QStringLiteral("from"), QStringLiteral("Start of the activity."), QStringLiteral("WHEN"));
    const QCommandLineOption to(QStringLiteral("to"), QStringLiteral("End of the activity."), QStringLiteral("WHEN"));
    const QCommandLineOption invoiced(QStringLiteral("invoiced"), QStringLiteral("Mark the activity as invoiced."));
    parser.addOptions({ from, to, invoiced });
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;

    const QString text = parser.positionalArguments().join(QLatin1Char(' '));
    if (!parser.isSet(from) || !parser.isSet(to))
        return fail(environment, QStringLiteral("Both --from and --to are required (see brimvale add --help)."));
    const auto start = CliTime::parse(parser.value(from), QStringLiteral("from"));
    if (!start)
        return fail(environment, start.error());
    const auto end = CliTime::parse(parser.value(to), QStringLiteral("to"));
    if (!end)
        return fail(environment, end.error());
    if (ActivityManager::isEmpty(text))
        return fail(environment, QStringLiteral("Activity can not be empty!"));

    std::unique_ptr<Store> store = openStore(environment, Access::Write);
    if (!store)
        return CliExit::StoreUnavailable;
    std::unique_ptr<StoreContext> context = store->newContext();
    ActivityPtr activity = context->insertActivity();
    activity->setText(text);
    activity->setTimeFrom(start->instant);
    activity->setTimeTo(end->instant);
    activity->setIsInvoiced(parser.isSet(invoiced));
    activity->setModifiedAt(context->now());
    if (auto saved = context->save(); !saved)
        return saveFailed(environment, saved.error());
    environment.out << activity->uid() << Qt::endl;
    return CliExit::Success;
}
