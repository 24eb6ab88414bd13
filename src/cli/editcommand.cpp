#include "cli/editcommand.h"

#include "cli/clitime.h"
#include "cli/uidprefix.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "model/storecontext.h"

int EditCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Changes a stored activity; options not given stay as they are.\n"
                                                    "WHEN is local time: yyyy-MM-dd, yyyy-MM-ddTHH:mm or "
                                                    "yyyy-MM-ddTHH:mm:ss."));
    parser.addPositionalArgument(QStringLiteral("UID"),
        QStringLiteral("The activity, as brimvale list shows it, or the first 8 or more characters of its UID."));
    const QCommandLineOption text(QStringLiteral("text"), QStringLiteral("New text."), QStringLiteral("TEXT"));
    const QCommandLineOption from(QStringLiteral("from"), QStringLiteral("New start."), QStringLiteral("WHEN"));
    const QCommandLineOption to(QStringLiteral("to"), QStringLiteral("New end."), QStringLiteral("WHEN"));
    const QCommandLineOption invoiced(
        QStringLiteral("invoiced"), QStringLiteral("Invoiced mark: yes or no."), QStringLiteral("yes|no"));
    parser.addOptions({ text, from, to, invoiced });
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;

    if (parser.positionalArguments().size() != 1)
        return fail(environment, QStringLiteral("Give exactly one UID (see brimvale edit --help)."));
    if (!parser.isSet(text) && !parser.isSet(from) && !parser.isSet(to) && !parser.isSet(invoiced))
        return fail(environment, QStringLiteral("Nothing to change: give --text, --from, --to or --invoiced."));
    std::optional<CliTime::When> start;
    std::optional<CliTime::When> end;
    if (parser.isSet(from)) {
        auto parsed = CliTime::parse(parser.value(from), QStringLiteral("from"));
        if (!parsed)
            return fail(environment, parsed.error());
        start = *parsed;
    }
    if (parser.isSet(to)) {
        auto parsed = CliTime::parse(parser.value(to), QStringLiteral("to"));
        if (!parsed)
            return fail(environment, parsed.error());
        end = *parsed;
    }
    std::optional<bool> invoicedState;
    if (parser.isSet(invoiced)) {
        const QString value = parser.value(invoiced).toLower();
        if (value != QLatin1String("yes") && value != QLatin1String("no"))
            return fail(
                environment, QStringLiteral("--invoiced takes yes or no, not “%1”.").arg(parser.value(invoiced)));
        invoicedState = value == QLatin1String("yes");
    }
    if (parser.isSet(text) && ActivityManager::isEmpty(parser.value(text)))
        return fail(environment, QStringLiteral("Activity can not be empty!"));

    std::unique_ptr<Store> store = openStore(environment, Access::Write);
    if (!store)
        return CliExit::StoreUnavailable;
    std::unique_ptr<StoreContext> context = store->newContext();
    const auto uid = UidPrefix::resolve(*store, parser.positionalArguments().constFirst());
    if (!uid)
        return fail(environment, uid.error());
    if (uid->isNull())
        return fail(environment, QStringLiteral("Activity not found!"));
    auto found = context->activityWithUid(*uid);
    if (!found)
        return fail(environment, found.error().message());
    if (!*found)
        return fail(environment, QStringLiteral("Activity not found!"));
    const ActivityPtr &activity = *found;
    if (parser.isSet(text))
        activity->setText(parser.value(text));
    if (start)
        activity->setTimeFrom(start->instant);
    if (end)
        activity->setTimeTo(end->instant);
    if (invoicedState)
        activity->setIsInvoiced(*invoicedState);
    activity->setModifiedAt(context->now());
    if (auto saved = context->save(); !saved)
        return saveFailed(environment, saved.error());
    return CliExit::Success;
}
