#pragma once

#include <memory>

#include <QString>

#include "support/journalgenerator.h"

class Store;

// The journal every benchmark measures against: 100,000 activities over ten years, 50 projects and
// 300 tasks, the size of a decade of heavy use.
class BenchmarkJournal
{
public:
    static constexpr int Activities = 100000;

    static const JournalGenerator &generator();
    // Opens the store of an application folder; a benchmark cannot go on without it, so failure ends it.
    static std::unique_ptr<Store> openStore(const QString &applicationFilesDirectory);
    // Saves the whole journal into `store` in one transaction.
    static void fill(Store &store);
};
