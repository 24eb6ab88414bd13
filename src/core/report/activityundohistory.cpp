#include "report/activityundohistory.h"

ActivityUndoHistory::ActivityUndoHistory(Store &store, QObject *parent)
    : QObject(parent)
    , m_store(store)
{ }

void ActivityUndoHistory::record(const ActivityChange &change)
{
    m_done.append(change);
    if (m_done.size() > Limit)
        m_done.removeFirst();
    m_undone.clear();
    Q_EMIT historyChanged();
}

QString ActivityUndoHistory::undoTitle() const
{
    return m_done.isEmpty() ? QString() : m_done.constLast().title();
}

QString ActivityUndoHistory::redoTitle() const
{
    return m_undone.isEmpty() ? QString() : m_undone.constLast().title();
}

std::expected<void, BvError> ActivityUndoHistory::undo()
{
    return step(m_done, m_undone, true);
}

std::expected<void, BvError> ActivityUndoHistory::redo()
{
    return step(m_undone, m_done, false);
}

std::expected<void, BvError> ActivityUndoHistory::step(
    QList<ActivityChange> &from, QList<ActivityChange> &to, bool undo)
{
    if (from.isEmpty())
        return {};
    const ActivityChange change = from.constLast();
    std::expected<void, BvError> applied = undo ? change.undo(m_store) : change.redo(m_store);
    if (applied) {
        from.removeLast();
        to.append(change);
        Q_EMIT historyChanged();
    } else if (applied.error().code() == ActivityChange::ChangedElsewhereCode) {
        from.removeLast();
        Q_EMIT historyChanged();
    }
    return applied;
}

void ActivityUndoHistory::clear()
{
    if (m_done.isEmpty() && m_undone.isEmpty())
        return;
    m_done.clear();
    m_undone.clear();
    Q_EMIT historyChanged();
}
