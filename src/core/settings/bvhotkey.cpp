#include "settings/bvhotkey.h"

#include <array>
#include <utility>

#include <QStringList>

using namespace Qt::StringLiterals;

namespace {

// Qt::Key values of the keys with a name of their own (the rest of the printable keys are their character).
constexpr int KeyEscape = 0x01000000;
constexpr int KeyTab = 0x01000001;
constexpr int KeyBacktab = 0x01000002;
constexpr int KeyBackspace = 0x01000003;
constexpr int KeyReturn = 0x01000004;
constexpr int KeyEnter = 0x01000005;
constexpr int KeyF1 = 0x01000030;
constexpr int KeyF35 = 0x01000052;
constexpr int KeyShift = 0x01000020;
constexpr int KeyControl = 0x01000021;
constexpr int KeyMeta = 0x01000022;
constexpr int KeyAlt = 0x01000023;
constexpr int KeyCapsLock = 0x01000024;
constexpr int KeyNumLock = 0x01000025;
constexpr int KeyScrollLock = 0x01000026;
constexpr int KeySuperL = 0x01000053;
constexpr int KeySuperR = 0x01000054;
constexpr int KeyHyperL = 0x01000056;
constexpr int KeyHyperR = 0x01000057;
constexpr int KeyAltGr = 0x01001103;
constexpr int KeyUnknown = 0x01ffffff;

constexpr std::array NamedKeys {
    std::pair { KeyEscape, "Esc" },
    std::pair { KeyTab, "Tab" },
    std::pair { KeyBacktab, "Backtab" },
    std::pair { KeyBackspace, "Backspace" },
    std::pair { KeyReturn, "Return" },
    std::pair { KeyEnter, "Enter" },
    std::pair { 0x01000006, "Ins" },
    std::pair { 0x01000007, "Del" },
    std::pair { 0x01000008, "Pause" },
    std::pair { 0x01000009, "Print" },
    std::pair { 0x01000010, "Home" },
    std::pair { 0x01000011, "End" },
    std::pair { 0x01000012, "Left" },
    std::pair { 0x01000013, "Up" },
    std::pair { 0x01000014, "Right" },
    std::pair { 0x01000015, "Down" },
    std::pair { 0x01000016, "PgUp" },
    std::pair { 0x01000017, "PgDown" },
    std::pair { 0x01000055, "Menu" },
    std::pair { 0x20, "Space" },
};

} // namespace

std::optional<BvHotKey> BvHotKey::fromKeyPress(int key, quint32 modifiers)
{
    switch (key) {
    case 0:
    case KeyShift:
    case KeyControl:
    case KeyMeta:
    case KeyAlt:
    case KeyAltGr:
    case KeySuperL:
    case KeySuperR:
    case KeyHyperL:
    case KeyHyperR:
    case KeyCapsLock:
    case KeyNumLock:
    case KeyScrollLock:
    case KeyUnknown:
        return std::nullopt;
    default:
        break;
    }
    // Shift+Tab reaches applications as Backtab; the key pressed is Tab.
    if (key == KeyBacktab)
        key = KeyTab;
    // Letters are stored upper case whatever the keyboard produced, as Qt names them.
    if (key >= 'a' && key <= 'z')
        key -= 'a' - 'A';
    return BvHotKey { key, modifiers & ModifierMask };
}

QString BvHotKey::modifiersText(quint32 modifierFlags)
{
    QStringList parts;
    if (modifierFlags & SuperFlag)
        parts << u"Super"_s;
    if (modifierFlags & ControlFlag)
        parts << u"Ctrl"_s;
    if (modifierFlags & AltFlag)
        parts << u"Alt"_s;
    if (modifierFlags & ShiftFlag)
        parts << u"Shift"_s;
    return parts.join(u'+');
}

QString BvHotKey::keyName(int keyCode)
{
    for (const auto &[key, name] : NamedKeys) {
        if (key == keyCode)
            return QString::fromLatin1(name);
    }
    if (keyCode >= KeyF1 && keyCode <= KeyF35)
        return u"F%1"_s.arg(keyCode - KeyF1 + 1);
    if (keyCode > 0x20 && keyCode < 0x01000000) {
        const char32_t character = char32_t(keyCode);
        return QString::fromUcs4(&character, 1).toUpper();
    }
    return u"Key 0x%1"_s.arg(keyCode, 0, 16);
}

QString BvHotKey::toString() const
{
    const QString modifiers = modifiersText(modifierFlags);
    return modifiers.isEmpty() ? keyName(keyCode) : modifiers + u'+' + keyName(keyCode);
}

bool BvHotKey::isFunctionKey() const
{
    return keyCode >= KeyF1 && keyCode <= KeyF35;
}
