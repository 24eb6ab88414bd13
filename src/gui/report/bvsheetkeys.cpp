#include "gui/report/bvsheetkeys.h"

#include <QCoreApplication>
#include <QKeyEvent>
#include <QPlainTextEdit>

namespace {

bool isReturn(const QKeyEvent &event)
{
    return event.key() == Qt::Key_Return || event.key() == Qt::Key_Enter;
}

} // namespace

BvSheetKeys::BvSheetKeys(QWidget &sheet, QPlainTextEdit &textField)
    : QObject(&sheet)
    , m_sheet(sheet)
    , m_textField(textField)
{
    // On the application, so that the keys are seen before the focused widget acts on them (a button clicks
    // itself on Ctrl+Return) and before the shortcut map (the start command's Ctrl+Return).
    QCoreApplication::instance()->installEventFilter(this);
}

bool BvSheetKeys::eventFilter(QObject *watched, QEvent *event)
{
    const QEvent::Type type = event->type();
    if (type != QEvent::ShortcutOverride && type != QEvent::KeyPress)
        return false;
    auto *widget = qobject_cast<QWidget *>(watched);
    // Pop-ups of the sheet (the completion list, menus) are windows of their own and keep their keys.
    if (!widget || (widget != &m_sheet && !m_sheet.isAncestorOf(widget)))
        return false;
    auto *key = static_cast<QKeyEvent *>(event);
    if (!isReturn(*key))
        return false;
    if (key->modifiers() & Qt::ControlModifier) {
        if (type == QEvent::ShortcutOverride) {
            // Delivered as a key press, which is caught below, rather than as a shortcut.
            key->accept();
            return true;
        }
        Q_EMIT commandReturnPressed();
        return true;
    }
    if (widget == &m_textField || widget == m_textField.viewport()) {
        if (type == QEvent::KeyPress
            && !(key->modifiers() & (Qt::ShiftModifier | Qt::AltModifier | Qt::MetaModifier))) {
            m_textField.textCursor().insertText(QStringLiteral("\n"));
            m_textField.ensureCursorVisible();
            return true;
        }
    }
    return false;
}
