#pragma once

#include <expected>
#include <optional>

#include <QObject>
#include <QString>

#include "settings/bvhotkey.h"

// A system-wide key combination that brings the main window up. Main thread.
class GlobalHotKey : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // Grabs `hotKey` in place of the one grabbed before; none releases it. On failure (taken by another
    // program, or no way to grab keys in this session) the reason, and nothing is grabbed.
    virtual std::expected<void, QString> registerHotKey(const std::optional<BvHotKey> &hotKey) = 0;

Q_SIGNALS:
    void activated();
};
