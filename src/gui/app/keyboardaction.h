#pragma once

#include <QAction>

// A menu action that knows whether its shortcut, rather than a click, triggered it: a start by keyboard
// may close the main window, one by mouse does not.
class KeyboardAction : public QAction
{
    Q_OBJECT
public:
    KeyboardAction(const QString &text, QObject *parent);

    // True only while `triggered` is being emitted for a shortcut press.
    bool isTriggeredByKeyboard() const { return m_byKeyboard; }

protected:
    bool event(QEvent *event) override;

private:
    bool m_byKeyboard = false;
};
