#include <benchmark/benchmark.h>

#include <QList>
#include <QString>

#include "model/activityparser.h"

namespace {

// Lines as people type them: mostly short, often a project with one to three tasks, some long notes, some with no
// markers at all, a few with accents, emoji, e-mail addresses or punctuation next to the markers.
QList<QString> typicalLines()
{
    return {
        QStringLiteral("@Acme #design mock-ups"),
        QStringLiteral("standup"),
        QStringLiteral("@Brimvale #parser #tests write the activity line parser"),
        QStringLiteral("lunch"),
        QStringLiteral("@acme.com: call with Jane about the renewal, #sales #followup #crm"),
        QStringLiteral("reading mail from bob@example.org and answering the urgent ones"),
        QStringLiteral("@Café #réunion hebdomadaire"),
        QStringLiteral("#review! PR 1432, then #review again after lunch"),
        QStringLiteral("Long notes about the migration: first we export everything from the old system, then we "
                       "check every row against the new schema, fix what does not fit and import it again. "
                       "@Internal #migration"),
        QStringLiteral("@Client42 #support 🚀 release night"),
        QStringLiteral("code review"),
        QStringLiteral("@Home #chores #garden #shopping"),
    };
}

void componentsFromTextOnTypicalLines(benchmark::State &state)
{
    const QList<QString> lines = typicalLines();
    const ActivityParser &parser = ActivityParser::defaultParser();
    for ([[maybe_unused]] auto pass : state) {
        for (const QString &line : lines) {
            ActivityComponents components = parser.componentsFromText(line);
            benchmark::DoNotOptimize(components);
        }
    }
    state.SetItemsProcessed(state.iterations() * lines.size());
}
BENCHMARK(componentsFromTextOnTypicalLines);

// One long line of free text with a project and a task at its end: the cost of walking the text itself.
void componentsFromTextOnLongLine(benchmark::State &state)
{
    const QString line
        = QStringLiteral("lorem ipsum, dolor sit amet. ").repeated(state.range(0)) + QStringLiteral("@acme #review");
    const ActivityParser &parser = ActivityParser::defaultParser();
    for ([[maybe_unused]] auto pass : state) {
        ActivityComponents components = parser.componentsFromText(line);
        benchmark::DoNotOptimize(components);
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * line.size() * qsizetype(sizeof(QChar)));
}
BENCHMARK(componentsFromTextOnLongLine)->Arg(4)->Arg(64)->Arg(1024);

} // namespace

BENCHMARK_MAIN();
