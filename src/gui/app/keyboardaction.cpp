#include "gui/app/keyboardaction.h"

#include <QEvent>

KeyboardAction::KeyboardAction(const QString &text, QObject *parent)
    : QAction(text, parent)
{ }

bool KeyboardAction::event(QEvent *event)
{
    // Qt delivers a shortcut press as a Shortcut event to the action, which triggers synchronously inside
    // QAction::event; a click on the menu item reaches `activate` directly.
    if (event->type() != QEvent::Shortcut)
        return QAction::event(event);
    m_byKeyboard = true;
    const bool handled = QAction::event(event);
    m_byKeyboard = false;
    return handled;
}
