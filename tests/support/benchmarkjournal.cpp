#include "support/benchmarkjournal.h"

#include "model/store.h"
#include "model/storecontext.h"

const JournalGenerator &BenchmarkJournal::generator()
{
    static const JournalGenerator journal(Activities, 10, 50, 300);
    return journal;
}

std::unique_ptr<Store> BenchmarkJournal::openStore(const QString &applicationFilesDirectory)
{
    StoreOptions options;
    options.applicationFilesDirectory = applicationFilesDirectory;
    auto store = Store::open(options);
    if (!store)
        qFatal("%s", qPrintable(store.error().message()));
    return std::move(*store);
}

void BenchmarkJournal::fill(Store &store)
{
    auto context = store.newContext();
    generator().insertInto(*context);
    if (auto saved = context->save(); !saved)
        qFatal("could not fill the store: %s", qPrintable(saved.error().message()));
}
