#pragma once

#include <optional>

#include <QString>
#include <QtGlobal>

// The system-wide hot key that shows the main window: a key code and modifier flags, stored as they are
// under "globalHotKeyCode" and "globalHotKeyFlags". The key code is a Qt::Key value (letters upper case,
// as Qt reports them), the flags the Qt::KeyboardModifiers bits of Shift, Ctrl, Alt and Super (Meta) and
// nothing else, so the numbers mean the same on every desktop and every backend translates them for its
// own grab (docs/shortcut.md).
struct BvHotKey
{
    static constexpr quint32 ShiftFlag = 0x02000000; // Qt::ShiftModifier
    static constexpr quint32 ControlFlag = 0x04000000; // Qt::ControlModifier
    static constexpr quint32 AltFlag = 0x08000000; // Qt::AltModifier
    static constexpr quint32 SuperFlag = 0x10000000; // Qt::MetaModifier
    static constexpr quint32 ModifierMask = ShiftFlag | ControlFlag | AltFlag | SuperFlag;

    int keyCode = 0;
    quint32 modifierFlags = 0;

    bool operator==(const BvHotKey &other) const = default;

    // The combination of a key press: the modifiers reduced to the four above (the keypad flag and the
    // like dropped). None for a press of a modifier key alone, which is not a combination yet.
    static std::optional<BvHotKey> fromKeyPress(int key, quint32 modifiers);

    // "Ctrl+Alt+T", modifiers in the order Super, Ctrl, Alt, Shift as desktops write them.
    QString toString() const;
    static QString modifiersText(quint32 modifierFlags);
    // The key's own name: "T", "F5", "Space", "Page Up"; "Key 0x1234" for one without a name.
    static QString keyName(int keyCode);
    // Qt's combined form (key | modifiers), as an int key sequence element carries it.
    int combined() const { return int(quint32(keyCode) | modifierFlags); }

    bool isFunctionKey() const;
    bool hasModifier() const { return (modifierFlags & ModifierMask) != 0; }
};
