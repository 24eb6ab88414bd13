#pragma once

#include <optional>

#include <QMetaType>
#include <QString>

// One project or task as the report sidebar lists it: a plain value read from the store, with whether the
// user ticked it as a report filter. The store's row id names the project or task.
struct ReportSidebarItem
{
    enum ItemType { ProjectItem = 1, TaskItem = 2 };

    QString title;
    bool selected = false;
    qint64 managedObjectID = 0;
    int itemType = ProjectItem;
    // The stored `visible` and `position` of the project or task; no position until ordered by hand.
    bool visible = true;
    std::optional<qint64> position;

    bool isProject() const { return itemType == ProjectItem; }
    bool operator==(const ReportSidebarItem &other) const = default;
};

Q_DECLARE_METATYPE(ReportSidebarItem)
