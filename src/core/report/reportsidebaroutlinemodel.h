#pragma once

#include <optional>

#include <QAbstractItemModel>

#include "report/reportsidebaritemsmanager.h"

// The report sidebar as a two-level tree for an outline view: the group rows "@Projects" and "#Tasks",
// each with its items as children. Clicking ticks an item (toggleItem) instead of selecting it; in edit
// mode every item carries a check box for its visibility. Items are dragged one at a time, and a drop is
// taken only between the children of the item's own group, never onto an item or into the other group;
// it stores the new order at once.
class ReportSidebarOutlineModel : public QAbstractItemModel
{
    Q_OBJECT
public:
    enum Role {
        // The ReportSidebarItem of an item row; nothing for a group row.
        ItemRole = Qt::UserRole + 1,
        // Whether the row is a group row.
        GroupRole,
        // Whether the item is ticked as a report filter.
        SelectedRole,
    };
    // The private drag type; it carries the dragged item's title.
    static QString dragType() { return QStringLiteral("adfadasdfasfd"); }

    explicit ReportSidebarOutlineModel(ReportSidebarItemsManager &manager, QObject *parent = nullptr);

    ReportSidebarItemsManager &manager() const { return m_manager; }
    QModelIndex groupIndex(ReportSidebarItemsManager::Group group) const;
    // The group of a group row or of an item row.
    std::optional<ReportSidebarItemsManager::Group> groupOf(const QModelIndex &index) const;
    std::optional<ReportSidebarItem> itemAt(const QModelIndex &index) const;

    // Ticks or unticks the item of an item row; false for anything else.
    bool toggleItem(const QModelIndex &index);

    QModelIndex index(int row, int column, const QModelIndex &parent = {}) const override;
    QModelIndex parent(const QModelIndex &child) const override;
    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    QStringList mimeTypes() const override;
    QMimeData *mimeData(const QModelIndexList &indexes) const override;
    Qt::DropActions supportedDragActions() const override;
    Qt::DropActions supportedDropActions() const override;
    bool canDropMimeData(
        const QMimeData *data, Qt::DropAction action, int row, int column, const QModelIndex &parent) const override;
    bool dropMimeData(
        const QMimeData *data, Qt::DropAction action, int row, int column, const QModelIndex &parent) override;

private:
    struct Dragged
    {
        ReportSidebarItemsManager::Group group;
        qint64 objectId;
    };
    int rowOf(const Dragged &dragged) const;

    ReportSidebarItemsManager &m_manager;
    // The item being dragged, kept from the start of the drag to its drop.
    mutable std::optional<Dragged> m_dragged;
};
