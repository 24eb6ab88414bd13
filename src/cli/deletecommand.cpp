#include "cli/deletecommand.h"

#include "cli/uidprefix.h"
#include "model/deletedactivity.h"
#include "model/store.h"
#include "model/storecontext.h"

int DeleteCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Deletes activities. Either all of them are deleted or, if one is unknown, none."));
    parser.addPositionalArgument(QStringLiteral("UID..."),
        QStringLiteral(
            "The activities, as brimvale list shows them, or the first 8 or more characters of their UIDs."));
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    const QStringList uids = parser.positionalArguments();
    if (uids.isEmpty())
        return fail(environment, QStringLiteral("Give at least one UID (see brimvale delete --help)."));

    std::unique_ptr<Store> store = openStore(environment, Access::Write);
    if (!store)
        return CliExit::StoreUnavailable;
    std::unique_ptr<StoreContext> context = store->newContext();
    QList<ActivityPtr> doomed;
    for (const QString &uid : uids) {
        const auto whole = UidPrefix::resolve(*store, uid);
        if (!whole)
            return fail(environment, whole.error());
        if (whole->isNull())
            return fail(environment, QStringLiteral("Activity not found! (%1)").arg(uid));
        auto found = context->activityWithUid(*whole);
        if (!found)
            return fail(environment, found.error().message());
        if (!*found)
            return fail(environment, QStringLiteral("Activity not found! (%1)").arg(uid));
        if (!doomed.contains(*found))
            doomed.append(*found);
    }
    for (const ActivityPtr &activity : std::as_const(doomed))
        DeletedActivity::deleteActivity(activity, *context);
    if (auto saved = context->save(); !saved)
        return saveFailed(environment, saved.error());
    environment.out << (doomed.size() == 1 ? QStringLiteral("Deleted 1 activity.")
                                           : QStringLiteral("Deleted %1 activities.").arg(doomed.size()))
                    << Qt::endl;
    return CliExit::Success;
}
