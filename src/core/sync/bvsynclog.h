#pragma once

#include <functional>

#include <QString>

// Where a sync component sends one line of the run's activity log (or one progress message). Called on
// the thread of the component that logs; an empty function drops the line.
using BVSyncLog = std::function<void(const QString &line)>;
