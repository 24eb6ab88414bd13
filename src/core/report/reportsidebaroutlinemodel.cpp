#include "report/reportsidebaroutlinemodel.h"

#include <QMimeData>

namespace {

using Group = ReportSidebarItemsManager::Group;

// internalId: 0 for a group row, 1 + the group for its items.
constexpr quintptr GroupRowId = 0;

quintptr childIdOf(Group group)
{
    return quintptr(group) + 1;
}

} // namespace

ReportSidebarOutlineModel::ReportSidebarOutlineModel(ReportSidebarItemsManager &manager, QObject *parent)
    : QAbstractItemModel(parent)
    , m_manager(manager)
{
    connect(&m_manager, &ReportSidebarItemsManager::contentChanged, this, [this] {
        beginResetModel();
        endResetModel();
    });
}

QModelIndex ReportSidebarOutlineModel::groupIndex(Group group) const
{
    return createIndex(int(group), 0, GroupRowId);
}

std::optional<Group> ReportSidebarOutlineModel::groupOf(const QModelIndex &index) const
{
    if (!index.isValid() || index.model() != this)
        return std::nullopt;
    if (index.internalId() == GroupRowId)
        return Group(index.row());
    return Group(index.internalId() - 1);
}

std::optional<ReportSidebarItem> ReportSidebarOutlineModel::itemAt(const QModelIndex &index) const
{
    if (!index.isValid() || index.model() != this || index.internalId() == GroupRowId)
        return std::nullopt;
    const QList<ReportSidebarItem> &items = m_manager.items(*groupOf(index));
    if (index.row() >= items.size())
        return std::nullopt;
    return items.at(index.row());
}

bool ReportSidebarOutlineModel::toggleItem(const QModelIndex &index)
{
    const std::optional<ReportSidebarItem> item = itemAt(index);
    if (!item || !m_manager.toggleItem(*groupOf(index), item->managedObjectID))
        return false;
    Q_EMIT dataChanged(index, index, { SelectedRole, ItemRole, Qt::DecorationRole });
    return true;
}

QModelIndex ReportSidebarOutlineModel::index(int row, int column, const QModelIndex &parent) const
{
    if (column != 0 || row < 0)
        return {};
    if (!parent.isValid())
        return row < 2 ? createIndex(row, 0, GroupRowId) : QModelIndex();
    if (parent.internalId() != GroupRowId || row >= rowCount(parent))
        return {};
    return createIndex(row, 0, childIdOf(Group(parent.row())));
}

QModelIndex ReportSidebarOutlineModel::parent(const QModelIndex &child) const
{
    if (!child.isValid() || child.internalId() == GroupRowId)
        return {};
    return groupIndex(Group(child.internalId() - 1));
}

int ReportSidebarOutlineModel::rowCount(const QModelIndex &parent) const
{
    if (!parent.isValid())
        return 2;
    if (parent.internalId() != GroupRowId || parent.column() != 0)
        return 0;
    return int(m_manager.items(Group(parent.row())).size());
}

int ReportSidebarOutlineModel::columnCount(const QModelIndex &) const
{
    return 1;
}

QVariant ReportSidebarOutlineModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return {};
    if (index.internalId() == GroupRowId) {
        switch (role) {
        case Qt::DisplayRole:
            return Group(index.row()) == Group::Tasks ? ReportSidebarItemsManager::tasksNodeTitle()
                                                      : ReportSidebarItemsManager::projectsNodeTitle();
        case GroupRole:
            return true;
        default:
            return {};
        }
    }
    const std::optional<ReportSidebarItem> item = itemAt(index);
    if (!item)
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return item->title;
    case Qt::CheckStateRole:
        if (!m_manager.isEditMode())
            return {};
        return item->visible ? Qt::Checked : Qt::Unchecked;
    case ItemRole:
        return QVariant::fromValue(*item);
    case GroupRole:
        return false;
    case SelectedRole:
        return item->selected;
    default:
        return {};
    }
}

bool ReportSidebarOutlineModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    const std::optional<ReportSidebarItem> item = itemAt(index);
    if (role != Qt::CheckStateRole || !item || !m_manager.isEditMode())
        return false;
    const bool visible = value.value<Qt::CheckState>() == Qt::Checked;
    if (!m_manager.setVisible(*groupOf(index), item->managedObjectID, visible))
        return false;
    Q_EMIT dataChanged(index, index, { Qt::CheckStateRole, ItemRole });
    return true;
}

Qt::ItemFlags ReportSidebarOutlineModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    // Never selectable: a click ticks the item, and the row keeps no selection to drag or delete.
    if (index.internalId() == GroupRowId)
        return Qt::ItemIsEnabled | Qt::ItemIsDropEnabled;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsDragEnabled | Qt::ItemNeverHasChildren;
    if (m_manager.isEditMode())
        flags |= Qt::ItemIsUserCheckable;
    return flags;
}

QStringList ReportSidebarOutlineModel::mimeTypes() const
{
    return { dragType() };
}

QMimeData *ReportSidebarOutlineModel::mimeData(const QModelIndexList &indexes) const
{
    m_dragged.reset();
    for (const QModelIndex &index : indexes) {
        if (const std::optional<ReportSidebarItem> item = itemAt(index)) {
            m_dragged = Dragged { *groupOf(index), item->managedObjectID };
            auto *data = new QMimeData;
            data->setData(dragType(), item->title.toUtf8());
            return data;
        }
    }
    return nullptr;
}

Qt::DropActions ReportSidebarOutlineModel::supportedDragActions() const
{
    return Qt::MoveAction;
}

Qt::DropActions ReportSidebarOutlineModel::supportedDropActions() const
{
    return Qt::MoveAction;
}

int ReportSidebarOutlineModel::rowOf(const Dragged &dragged) const
{
    const QList<ReportSidebarItem> &items = m_manager.items(dragged.group);
    for (qsizetype row = 0; row < items.size(); ++row) {
        if (items.at(row).managedObjectID == dragged.objectId)
            return int(row);
    }
    return -1;
}

bool ReportSidebarOutlineModel::canDropMimeData(
    const QMimeData *data, Qt::DropAction action, int row, int, const QModelIndex &parent) const
{
    // Between two children of the dragged item's own group only: never onto an item, never across groups.
    if (!data || !data->hasFormat(dragType()) || action != Qt::MoveAction || !m_dragged || row < 0)
        return false;
    if (!parent.isValid() || parent.internalId() != GroupRowId || Group(parent.row()) != m_dragged->group)
        return false;
    return row <= rowCount(parent) && rowOf(*m_dragged) >= 0;
}

bool ReportSidebarOutlineModel::dropMimeData(
    const QMimeData *data, Qt::DropAction action, int row, int column, const QModelIndex &parent)
{
    if (!canDropMimeData(data, action, row, column, parent))
        return false;
    const Dragged dragged = *m_dragged;
    m_dragged.reset();
    const int from = rowOf(dragged);
    // Qt names a move's destination before the row leaves, as the drop does; moving a row onto its own
    // place or just below it changes nothing.
    const bool moves = row != from && row != from + 1;
    if (moves)
        beginMoveRows(parent, from, from, parent, row);
    m_manager.moveItem(dragged.group, from, row);
    if (moves)
        endMoveRows();
    if (auto stored = m_manager.updateOrder(dragged.group); !stored)
        return false;
    return true;
}
