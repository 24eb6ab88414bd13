#pragma once

#include <functional>

#include <QTreeView>

// An outline that lets its owner act on the Delete and Forward Delete keys: the delete action runs with
// the outline, then the key goes on to the outline's own handling.
class BvOutlineView : public QTreeView
{
    Q_OBJECT
public:
    using Action = std::function<void(BvOutlineView &)>;

    explicit BvOutlineView(QWidget *parent = nullptr);

    void setDeleteAction(Action deleteAction) { m_deleteAction = std::move(deleteAction); }

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    Action m_deleteAction;
};
