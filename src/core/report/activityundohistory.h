#pragma once

#include <expected>

#include <QList>
#include <QObject>
#include <QString>

#include "base/bverror.h"
#include "report/activitychange.h"

class Store;

// The steps taken on stored activities from the report, newest last, which the Edit menu's Undo and Redo
// walk back and forth. Recording a new step forgets what was undone. A step that can no longer be taken
// back or made again because its activities changed meanwhile is dropped from the history with the
// refusal; one that failed in the store stays, to be tried again. Main thread.
class ActivityUndoHistory : public QObject
{
    Q_OBJECT
public:
    // Steps beyond this many are forgotten, oldest first.
    static constexpr int Limit = 100;

    // `store` is not owned and outlives the history.
    explicit ActivityUndoHistory(Store &store, QObject *parent = nullptr);

    void record(const ActivityChange &change);
    bool canUndo() const { return !m_done.isEmpty(); }
    bool canRedo() const { return !m_undone.isEmpty(); }
    // The title of the step Undo (Redo) would take, empty when there is none.
    QString undoTitle() const;
    QString redoTitle() const;
    std::expected<void, BvError> undo();
    std::expected<void, BvError> redo();
    void clear();

Q_SIGNALS:
    // A step was recorded, undone, redone or dropped.
    void historyChanged();

private:
    std::expected<void, BvError> step(QList<ActivityChange> &from, QList<ActivityChange> &to, bool undo);

    Store &m_store;
    QList<ActivityChange> m_done;
    QList<ActivityChange> m_undone;
};
