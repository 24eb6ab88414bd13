#pragma once

#include <QLoggingCategory>

// The desktop app's controller: launch, tray, URL events, quit.
Q_DECLARE_LOGGING_CATEGORY(lcApp)
