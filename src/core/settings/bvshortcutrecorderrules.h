#pragma once

#include <optional>

#include <QCoreApplication>
#include <QList>
#include <QString>

#include "settings/bvhotkey.h"

// What the shortcut recorder does with each key press while it records: which combinations it takes,
// which it refuses and why, and the texts it shows. The control only shows the outcome.
class BvShortcutRecorderRules
{
    Q_DECLARE_TR_FUNCTIONS(BvShortcutRecorderRules)
public:
    // A combination the app's own menus use, with the title of the menu item.
    struct Reserved
    {
        BvHotKey hotKey;
        QString title;
    };

    struct Outcome
    {
        enum class Kind {
            // A modifier alone so far: the control shows `pending` and waits for the key.
            KeepRecording,
            // Escape: recording ends, the stored shortcut stays.
            Cancel,
            // Backspace or Delete: the stored shortcut is removed.
            Clear,
            // Not taken: `message` says why; recording goes on.
            Refused,
            // `hotKey` is the new shortcut.
            Accepted,
        };
        Kind kind = Kind::KeepRecording;
        std::optional<BvHotKey> hotKey;
        QString message;
        QString pending;
    };

    void setReserved(const QList<Reserved> &reserved) { m_reserved = reserved; }

    // A key press (Qt::Key and Qt::KeyboardModifiers values) while recording.
    Outcome keyPressed(int key, quint32 modifiers) const;

    // The reason `hotKey` can not be the global shortcut, or none.
    std::optional<QString> refusal(const BvHotKey &hotKey) const;

    static QString placeholderText();
    static QString recordingText();
    // Where the session lets no application grab keys: what to bind in the desktop's own settings.
    static QString unavailableText();
    static QString showCommand();

private:
    QList<Reserved> m_reserved;
};
