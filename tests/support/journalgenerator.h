#pragma once

#include <QDateTime>
#include <QString>

#include "model/storecontext.h"

// Fills a store with a deterministic journal for benchmarks and load tests: `count` activities spread
// evenly over `years` years from 1 January 2015 (local time), naming `projects` projects and `tasks`
// tasks, one to three tasks each.
class JournalGenerator
{
public:
    JournalGenerator(int count, int years, int projects, int tasks);

    // The text of the i-th activity, e.g. "@Project07 #task123 #task45 review notes 17".
    QString text(int i) const;
    QDateTime timeFrom(int i) const;
    QDateTime timeTo(int i) const;
    int count() const { return m_count; }

    // Inserts every activity into `context` (nothing is saved).
    void insertInto(StoreContext &context) const;

private:
    int m_count;
    int m_projects;
    int m_tasks;
    QDateTime m_start;
    qint64 m_stepSecs;
};
