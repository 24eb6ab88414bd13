#pragma once

#include <QLoggingCategory>

// The agent's log: routes, statuses and retries; never a token, an Authorization header or file content.
Q_DECLARE_LOGGING_CATEGORY(lcAgent)
