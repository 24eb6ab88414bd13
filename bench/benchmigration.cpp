// Opening a store that an older Brimvale wrote: the journal of ten years of heavy use (100,000 activities)
// in the version 3 schema, migrated through version 4 to the current one before it opens.
#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>

#include "model/bvmigrationmanager.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "support/benchmarkjournal.h"
#include "support/isolatedhome.h"

namespace {

// Writes the rows of the current store at `current` into a new file at `older` in the schema of `version`,
// with the columns both schemas have: the store as that version of Brimvale would have held it.
bool writeAsVersion(const QString &current, const QString &older, int version)
{
    bool done = false;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("older"));
        db.setDatabaseName(older);
        done = db.open();
        QSqlQuery query(db);
        done = done && query.exec(QStringLiteral("ATTACH DATABASE '%1' AS current").arg(current))
            && query.exec(QStringLiteral("BEGIN"));
        for (const QString &statement : BvMigrationManager::models().value(version))
            done = done && query.exec(statement);
        QStringList tables;
        if (done && query.exec(QStringLiteral("SELECT name FROM main.sqlite_master WHERE type = 'table'")))
            while (query.next())
                tables.append(query.value(0).toString());
        for (const QString &table : std::as_const(tables)) {
            QStringList columns;
            QSqlQuery info(QStringLiteral("SELECT m.name FROM pragma_table_info('%1', 'main') m"
                                          " JOIN pragma_table_info('%1', 'current') c ON c.name = m.name")
                               .arg(table),
                db);
            while (info.next())
                columns.append(info.value(0).toString());
            const QString list = columns.join(QLatin1Char(','));
            done = done && query.exec(QStringLiteral("DELETE FROM main.%1").arg(table))
                && query.exec(QStringLiteral("INSERT INTO main.%1 (%2) SELECT %2 FROM current.%1").arg(table, list));
        }
        done = done && query.exec(QStringLiteral("PRAGMA user_version = %1").arg(version))
            && query.exec(QStringLiteral("COMMIT")) && query.exec(QStringLiteral("PRAGMA journal_mode = WAL"));
        query.clear();
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("older"));
    return done;
}

// The version 3 store file, written once for every run.
const QString &version3Store()
{
    static IsolatedHome home;
    static const QString path = [] {
        {
            auto store = BenchmarkJournal::openStore(home.applicationFilesDirectory());
            BenchmarkJournal::fill(*store);
        }
        const QString older = home.root() + QStringLiteral("/storedata-v3");
        if (!writeAsVersion(home.applicationFilesDirectory() + QStringLiteral("/db/storedata"), older, 3))
            qFatal("could not write the version 3 store");
        return older;
    }();
    return path;
}

void BM_MigrateVersion3Store(benchmark::State &state)
{
    const QString source = version3Store();
    for (auto _ : state) {
        state.PauseTiming();
        IsolatedHome home;
        QDir().mkpath(home.applicationFilesDirectory() + QStringLiteral("/db"));
        if (!QFile::copy(source, home.applicationFilesDirectory() + QStringLiteral("/db/storedata")))
            state.SkipWithError("could not copy the version 3 store");
        state.ResumeTiming();

        // The whole opening, as the app and the command line do it: migration, then the store itself.
        auto store = BenchmarkJournal::openStore(home.applicationFilesDirectory());

        state.PauseTiming();
        if (*store->newContext()->countActivities() != BenchmarkJournal::Activities)
            state.SkipWithError("activities lost");
        store.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * BenchmarkJournal::Activities);
}
BENCHMARK(BM_MigrateVersion3Store)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace
