#include "cli/listcommand.h"

#include "cli/clitime.h"
#include "model/activityquery.h"
#include "model/namekey.h"
#include "model/store.h"
#include "model/storecontext.h"

namespace {

const QString kFrom = QStringLiteral("from");
const QString kTo = QStringLiteral("to");
const QString kSearch = QStringLiteral("search");
const QString kProject = QStringLiteral("project");
const QString kTask = QStringLiteral("task");
const QString kInvoiced = QStringLiteral("invoiced");
const QString kNotInvoiced = QStringLiteral("not-invoiced");

template<typename Item>
std::expected<QList<qint64>, QString> idsNamed(
    const QStringList &names, const QList<std::shared_ptr<Item>> &items, const QString &kind)
{
    QList<qint64> ids;
    for (const QString &name : names) {
        const QString key = NameKey::fromName(name);
        auto it = std::find_if(items.cbegin(), items.cend(),
            [&](const std::shared_ptr<Item> &item) { return NameKey::fromName(item->name()) == key; });
        if (it == items.cend())
            return std::unexpected(QStringLiteral("No %1 named “%2”.").arg(kind, name));
        ids.append((*it)->objectId());
    }
    return ids;
}

// JSON text of one string, escaped as RFC 8259 asks; everything else passes as UTF-8.
void appendJsonString(QString &out, const QString &text)
{
    out += QLatin1Char('"');
    for (const QChar c : text) {
        switch (c.unicode()) {
        case u'"':
            out += QLatin1String("\\\"");
            break;
        case u'\\':
            out += QLatin1String("\\\\");
            break;
        case u'\n':
            out += QLatin1String("\\n");
            break;
        case u'\r':
            out += QLatin1String("\\r");
            break;
        case u'\t':
            out += QLatin1String("\\t");
            break;
        default:
            if (c.unicode() < 0x20)
                out += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
            else
                out += c;
        }
    }
    out += QLatin1Char('"');
}

// One activity as a JSON object on one line. Written by hand rather than through QJsonDocument, which
// needs several times the time and memory for a whole journal.
void appendJson(QString &out, const ActivityRecord &activity)
{
    out += QLatin1String("{\"uid\": ");
    appendJsonString(out, activity.uid);
    out += QLatin1String(", \"text\": ");
    appendJsonString(out, activity.text);
    out += QLatin1String(", \"project\": ");
    if (!activity.project.isNull())
        appendJsonString(out, activity.project);
    else
        out += QLatin1String("null");
    out += QLatin1String(", \"tasks\": [");
    for (qsizetype i = 0; i < activity.tasks.size(); ++i) {
        if (i > 0)
            out += QLatin1String(", ");
        appendJsonString(out, activity.tasks.at(i));
    }
    out += QLatin1String("], \"from\": \"") + CliTime::rfc3339(activity.timeFrom) + QLatin1String("\", \"to\": \"")
        + CliTime::rfc3339(activity.timeTo) + QLatin1String("\", \"created_at\": \"")
        + CliTime::rfc3339(activity.createdAt) + QLatin1String("\", \"modified_at\": \"")
        + CliTime::rfc3339(activity.modifiedAt) + QLatin1String("\", \"duration_secs\": ")
        + QString::number(activity.durationSecs()) + QLatin1String(", \"invoiced\": ")
        + (activity.isInvoiced ? QLatin1String("true") : QLatin1String("false")) + QLatin1Char('}');
}

// A text on one line of the listing; most texts already are, and keep their own string.
QString oneLine(const QString &text)
{
    for (const QChar c : text) {
        if (c.unicode() < 0x20 || c == QChar::LineSeparator || c == QChar::ParagraphSeparator)
            return text.simplified();
    }
    return text;
}

} // namespace

void ListCommand::addFilterOptions(QCommandLineParser &parser)
{
    parser.addOptions({
        { kFrom, QStringLiteral("Only activities that end at or after DATE."), QStringLiteral("DATE") },
        { kTo, QStringLiteral("Only activities that start before DATE (a date alone includes that whole day)."),
            QStringLiteral("DATE") },
        { kSearch,
            QStringLiteral("Only activities whose text contains TEXT, regardless of case. * and ? are "
                           "wildcards: * for any characters, ? for one."),
            QStringLiteral("TEXT") },
        { kProject, QStringLiteral("Only activities of this project (repeatable)."), QStringLiteral("NAME") },
        { kTask, QStringLiteral("Only activities with this task (repeatable)."), QStringLiteral("NAME") },
        { kInvoiced, QStringLiteral("Only invoiced activities.") },
        { kNotInvoiced, QStringLiteral("Only activities not invoiced.") },
    });
}

std::expected<ActivityQuery, QString> ListCommand::filterQuery(const QCommandLineParser &parser, StoreContext &context)
{
    ActivityQuery query;
    query.order = ActivityQuery::Order::TimeFromDescending;
    if (parser.isSet(kFrom)) {
        auto from = CliTime::parse(parser.value(kFrom), kFrom);
        if (!from)
            return std::unexpected(from.error());
        query.overlapsFrom = from->instant;
    }
    if (parser.isSet(kTo)) {
        auto to = CliTime::parse(parser.value(kTo), kTo);
        if (!to)
            return std::unexpected(to.error());
        // "--to 2024-03-17" means up to the end of that day, as a person reads it.
        query.overlapsUntil = to->dateOnly ? CliTime::nextMidnight(to->instant) : to->instant;
    }
    if (parser.isSet(kInvoiced) && parser.isSet(kNotInvoiced))
        return std::unexpected(QStringLiteral("--invoiced and --not-invoiced exclude each other."));
    if (parser.isSet(kInvoiced))
        query.isInvoiced = true;
    if (parser.isSet(kNotInvoiced))
        query.isInvoiced = false;
    const QString search = parser.value(kSearch);
    if (!search.isEmpty())
        query.textLike = QLatin1Char('*') + search + QLatin1Char('*');
    if (parser.isSet(kProject)) {
        auto projects = context.projects();
        if (!projects)
            return std::unexpected(projects.error().message());
        auto ids = idsNamed(parser.values(kProject), *projects, QStringLiteral("project"));
        if (!ids)
            return std::unexpected(ids.error());
        query.projectIds = *ids;
    }
    if (parser.isSet(kTask)) {
        auto tasks = context.tasks();
        if (!tasks)
            return std::unexpected(tasks.error().message());
        auto ids = idsNamed(parser.values(kTask), *tasks, QStringLiteral("task"));
        if (!ids)
            return std::unexpected(ids.error());
        query.taskIds = *ids;
    }
    return query;
}

int ListCommand::run(const QStringList &arguments, CliEnvironment &environment)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Lists activities newest first, with their total duration.\n"
                       "DATE is local time: yyyy-MM-dd, yyyy-MM-ddTHH:mm or yyyy-MM-ddTHH:mm:ss."));
    addFilterOptions(parser);
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print one JSON array instead of a table."));
    parser.addOption(json);
    if (const std::optional<int> done = parse(parser, arguments, environment))
        return *done;
    if (!parser.positionalArguments().isEmpty())
        return fail(environment,
            QStringLiteral("Unexpected argument “%1” (see brimvale list --help).")
                .arg(parser.positionalArguments().constFirst()));

    std::unique_ptr<Store> store = openStore(environment);
    if (!store)
        return CliExit::StoreUnavailable;
    std::unique_ptr<StoreContext> context = store->newContext();
    const auto query = filterQuery(parser, *context);
    if (!query)
        return fail(environment, query.error());
    const auto activities = context->fetchActivityRecords(*query, parser.isSet(json));
    if (!activities)
        return fail(environment, activities.error().message());
    const qsizetype count = qsizetype(activities->size());

    if (parser.isSet(json)) {
        constexpr qsizetype objectsPerPiece = 2048;
        QString text;
        text.reserve(objectsPerPiece * 340);
        text += QLatin1Char('[');
        for (qsizetype i = 0; i < count; ++i) {
            text += i == 0 ? QLatin1String("\n  ") : QLatin1String(",\n  ");
            appendJson(text, (*activities)[std::size_t(i)]);
            if ((i + 1) % objectsPerPiece == 0) {
                environment.out << text;
                text.clear();
            }
        }
        text += count == 0 ? QLatin1String("]\n") : QLatin1String("\n]\n");
        environment.out << text;
        environment.out.flush();
        return CliExit::Success;
    }

    // Written in pieces, so that a whole journal never sits in memory a second time as text.
    constexpr qsizetype linesPerPiece = 4096;
    qint64 total = 0;
    QString lines;
    lines.reserve(linesPerPiece * 128);
    for (qsizetype i = 0; i < count; ++i) {
        const ActivityRecord &activity = (*activities)[std::size_t(i)];
        total += activity.durationSecs();
        lines += activity.uid + QStringLiteral("  ") + CliTime::span(activity.timeFrom, activity.timeTo)
            + QStringLiteral("  ") + CliTime::duration(activity.durationSecs()).rightJustified(9) + QStringLiteral("  ")
            + (activity.isInvoiced ? QStringLiteral("[invoiced] ") : QString()) + oneLine(activity.text)
            + QLatin1Char('\n');
        if ((i + 1) % linesPerPiece == 0) {
            environment.out << lines;
            lines.clear();
        }
    }
    environment.out << lines;
    environment.out << QStringLiteral("Total: %1 (%2 %3)")
                           .arg(CliTime::duration(total))
                           .arg(count)
                           .arg(count == 1 ? QStringLiteral("activity") : QStringLiteral("activities"))
                    << Qt::endl;
    return CliExit::Success;
}
