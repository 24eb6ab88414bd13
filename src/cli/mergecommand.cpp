#include "cli/mergecommand.h"

#include "cli/appclient.h"
#include "cli/uidprefix.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "report/activitymerge.h"

namespace {

// The uid among `uids` of the activity the running app tracks, if any: the app stores it when it starts,
// and it is the one that started at the tracked second with the tracked text.
QString runningUid(Store &store, const QStringList &uids, CliEnvironment &environment)
{
    AppClient app(AppClient::busFor(environment));
    if (!app.isAppRunning())
        return {};
    const auto status = app.status();
    if (!status || !status->tracking)
        return {};
    const auto found = store.newContext()->activitiesWithUids(uids);
    if (!found)
        return {};
    for (const ActivityPtr &activity : *found) {
        if (activity->timeFrom().toSecsSinceEpoch() == status->startSecs && activity->text() == status->text)
            return activity->uid();
    }
    return {};
}

} // namespace

int MergeCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Joins activities into the one that started last, which keeps its UID and end and starts earlier "
        "by the others' durations (gaps between them are dropped). Its text becomes the distinct texts, "
        "newest first, separated by a blank line; the others are deleted, and sync passes the deletions on."));
    parser.addPositionalArgument(QStringLiteral("UID..."),
        QStringLiteral("Two or more activities, as brimvale list shows them, or the first 8 or more characters "
                       "of their UIDs."));
    const QCommandLineOption invoiced(QStringLiteral("invoiced"),
        QStringLiteral("Invoiced mark of the merged activity: yes or no. Required when the activities disagree."),
        QStringLiteral("yes|no"));
    parser.addOption(invoiced);
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    const QStringList given = parser.positionalArguments();
    if (given.size() < 2)
        return fail(environment, QStringLiteral("Give at least two UIDs (see brimvale merge --help)."));
    std::optional<int> invoicedState;
    if (parser.isSet(invoiced)) {
        const QString value = parser.value(invoiced).toLower();
        if (value != QLatin1String("yes") && value != QLatin1String("no"))
            return fail(
                environment, QStringLiteral("--invoiced takes yes or no, not “%1”.").arg(parser.value(invoiced)));
        invoicedState = value == QLatin1String("yes") ? ActivityMerge::Invoiced : ActivityMerge::NotInvoiced;
    }

    std::unique_ptr<Store> store = openStore(environment, Access::Write);
    if (!store)
        return CliExit::StoreUnavailable;
    QStringList uids;
    for (const QString &text : given) {
        const auto whole = UidPrefix::resolve(*store, text);
        if (!whole)
            return fail(environment, whole.error());
        if (whole->isNull())
            return fail(environment, QStringLiteral("Activity not found! (%1)").arg(text));
        if (!uids.contains(*whole))
            uids.append(*whole);
    }
    if (uids.size() < 2)
        return fail(environment, QStringLiteral("Give at least two different activities to merge."));

    ActivityMerge merge(*store, uids, runningUid(*store, uids, environment));
    if (const std::optional<QString> failed = merge.loadError())
        return fail(environment, *failed);
    if (merge.originalActivities().size() != uids.size())
        return fail(environment, QStringLiteral("Activity not found!"));
    if (invoicedState)
        merge.setInvoicedState(*invoicedState);
    const ActivityMerge::Result saved = merge.save();
    if (!saved) {
        if (merge.invoicedState() == ActivityMerge::Mixed)
            return fail(environment, saved.error() + QStringLiteral(" (--invoiced yes or no)."));
        return fail(environment, saved.error());
    }
    if (const std::optional<BvError> error = merge.saveError())
        return saveFailed(environment, *error);
    environment.out << QStringLiteral("Merged %1 activities into %2.").arg(uids.size()).arg(merge.activity()->uid())
                    << Qt::endl;
    return CliExit::Success;
}
