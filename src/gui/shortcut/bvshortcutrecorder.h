#pragma once

#include <functional>

#include <QKeySequence>
#include <QList>
#include <QPair>
#include <QWidget>

#include "settings/bvshortcutrecorderrules.h"

class BvSettings;
class GlobalHotKey;
class QLabel;
class QLineEdit;
class QPushButton;
class QToolButton;

// The global shortcut control: click it and type a combination. It stores what the rules accept in the
// settings (the app delegate then grabs it), says why it refuses the rest, clears with Backspace or its
// clear button, and shows whether the grab worked. Where the session lets no application grab keys, it
// offers the command to bind in the desktop's own settings instead.
class BvShortcutRecorder : public QWidget
{
    Q_OBJECT
public:
    BvShortcutRecorder(BvSettings &settings, GlobalHotKey &hotKey, QWidget *parent = nullptr);

    // The app's own menu shortcuts with the menu item's title, refused with a message naming it. Asked
    // each time recording starts, so that menus changed since (an item's new key) count.
    using ReservedShortcuts = std::function<QList<QPair<QKeySequence, QString>>()>;
    void setReservedShortcuts(ReservedShortcuts reserved);

    bool isRecording() const { return m_recording; }
    void startRecording();
    // Ends recording; the stored shortcut stays.
    void stopRecording();
    // Removes the stored shortcut.
    void clearShortcut();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void onKeyPress(int key, Qt::KeyboardModifiers modifiers);
    void accept(const BvHotKey &hotKey);
    void updateTexts();
    void showMessage(const QString &message);

    BvSettings &m_settings;
    GlobalHotKey &m_hotKey;
    BvShortcutRecorderRules m_rules;
    bool m_recording = false;
    // The grab was released for recording and must be taken again when it ends.
    bool m_released = false;
    ReservedShortcuts m_reserved;
    QString m_pending;
    // A refusal stays until the next key press or the next recording.
    QString m_refusal;

    QPushButton *m_field;
    QToolButton *m_clearButton;
    QLabel *m_message;
    QWidget *m_unavailable;
    QLineEdit *m_command;
};
