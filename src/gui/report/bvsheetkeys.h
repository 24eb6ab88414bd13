#pragma once

#include <QObject>

class QPlainTextEdit;
class QWidget;

// The keys of the editing sheets. Ctrl+Return (handleCMDEnter) saves wherever the focus is in the sheet,
// and is kept from the application-wide Ctrl+Return that starts tracking and from the focused button. In
// the sheet's text field, whose text may hold several paragraphs (a merge joins texts with blank lines),
// Return starts a new line instead of acting as the main window's start command.
class BvSheetKeys : public QObject
{
    Q_OBJECT
public:
    // Watches the keys typed into `sheet`; both `sheet` and `textField` outlive this object (make it a child
    // of the sheet).
    BvSheetKeys(QWidget &sheet, QPlainTextEdit &textField);

Q_SIGNALS:
    void commandReturnPressed();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget &m_sheet;
    QPlainTextEdit &m_textField;
};
