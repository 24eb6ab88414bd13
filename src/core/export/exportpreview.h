#pragma once

#include <expected>

#include <QString>

#include "base/bverror.h"

class BvSettingsView;
class Store;

// The text an export of the newest activities of the journal writes, for showing beside the layout
// editors: the same writer, layouts, separator and header setting as a real export. Main thread.
class ExportPreview
{
public:
    // The CSV (format 0) or XML (format 1) export of the `rows` latest activities, newest first.
    static std::expected<QString, BvError> previewText(
        Store &store, const BvSettingsView &settings, int format, int rows = 5);
};
