#include "platform/keysymtable.h"

#include <array>

#include <QStringList>

#include "settings/bvhotkey.h"

using namespace Qt::StringLiterals;

namespace {

struct Named
{
    int qtKey;
    quint32 keysym;
    const char *name;
};

// The keys beyond letters, digits and F-keys; punctuation keysyms equal their Latin-1 character.
constexpr std::array NamedKeys {
    Named { 0x01000000, 0xff1b, "Escape" },
    Named { 0x01000001, 0xff09, "Tab" },
    Named { 0x01000003, 0xff08, "BackSpace" },
    Named { 0x01000004, 0xff0d, "Return" },
    Named { 0x01000005, 0xff8d, "KP_Enter" },
    Named { 0x01000006, 0xff63, "Insert" },
    Named { 0x01000007, 0xffff, "Delete" },
    Named { 0x01000008, 0xff13, "Pause" },
    Named { 0x01000009, 0xff61, "Print" },
    Named { 0x01000010, 0xff50, "Home" },
    Named { 0x01000011, 0xff57, "End" },
    Named { 0x01000012, 0xff51, "Left" },
    Named { 0x01000013, 0xff52, "Up" },
    Named { 0x01000014, 0xff53, "Right" },
    Named { 0x01000015, 0xff54, "Down" },
    Named { 0x01000016, 0xff55, "Prior" },
    Named { 0x01000017, 0xff56, "Next" },
    Named { 0x01000055, 0xff67, "Menu" },
    Named { 0x01000070, 0x1008ff11, "XF86AudioLowerVolume" },
    Named { 0x01000071, 0x1008ff12, "XF86AudioMute" },
    Named { 0x01000072, 0x1008ff13, "XF86AudioRaiseVolume" },
    Named { 0x01000080, 0x1008ff14, "XF86AudioPlay" },
    Named { 0x01000081, 0x1008ff15, "XF86AudioStop" },
    Named { 0x01000082, 0x1008ff16, "XF86AudioPrev" },
    Named { 0x01000083, 0x1008ff17, "XF86AudioNext" },
    Named { 0x20, 0x20, "space" },
    Named { 0x21, 0x21, "exclam" },
    Named { 0x22, 0x22, "quotedbl" },
    Named { 0x23, 0x23, "numbersign" },
    Named { 0x24, 0x24, "dollar" },
    Named { 0x25, 0x25, "percent" },
    Named { 0x26, 0x26, "ampersand" },
    Named { 0x27, 0x27, "apostrophe" },
    Named { 0x28, 0x28, "parenleft" },
    Named { 0x29, 0x29, "parenright" },
    Named { 0x2a, 0x2a, "asterisk" },
    Named { 0x2b, 0x2b, "plus" },
    Named { 0x2c, 0x2c, "comma" },
    Named { 0x2d, 0x2d, "minus" },
    Named { 0x2e, 0x2e, "period" },
    Named { 0x2f, 0x2f, "slash" },
    Named { 0x3a, 0x3a, "colon" },
    Named { 0x3b, 0x3b, "semicolon" },
    Named { 0x3c, 0x3c, "less" },
    Named { 0x3d, 0x3d, "equal" },
    Named { 0x3e, 0x3e, "greater" },
    Named { 0x3f, 0x3f, "question" },
    Named { 0x40, 0x40, "at" },
    Named { 0x5b, 0x5b, "bracketleft" },
    Named { 0x5c, 0x5c, "backslash" },
    Named { 0x5d, 0x5d, "bracketright" },
    Named { 0x5e, 0x5e, "asciicircum" },
    Named { 0x5f, 0x5f, "underscore" },
    Named { 0x60, 0x60, "grave" },
    Named { 0x7b, 0x7b, "braceleft" },
    Named { 0x7c, 0x7c, "bar" },
    Named { 0x7d, 0x7d, "braceright" },
    Named { 0x7e, 0x7e, "asciitilde" },
};

constexpr int KeyF1 = 0x01000030;
constexpr int KeyF35 = 0x01000052;
constexpr quint32 KeysymF1 = 0xffbe;

const Named *named(int qtKey)
{
    for (const Named &key : NamedKeys) {
        if (key.qtKey == qtKey)
            return &key;
    }
    return nullptr;
}

} // namespace

std::optional<quint32> KeySymTable::keysym(int qtKey)
{
    if (qtKey >= 'A' && qtKey <= 'Z')
        return quint32(qtKey - 'A' + 'a');
    if (qtKey >= '0' && qtKey <= '9')
        return quint32(qtKey);
    if (qtKey >= KeyF1 && qtKey <= KeyF35)
        return KeysymF1 + quint32(qtKey - KeyF1);
    if (const Named *key = named(qtKey))
        return key->keysym;
    // Latin-1 letters: Qt names the upper case one, the layout's first level holds the lower case.
    if (qtKey >= 0xc0 && qtKey <= 0xde && qtKey != 0xd7)
        return quint32(qtKey + 0x20);
    if (qtKey >= 0xa0 && qtKey <= 0xff)
        return quint32(qtKey);
    return std::nullopt;
}

QString KeySymTable::name(int qtKey)
{
    if ((qtKey >= 'A' && qtKey <= 'Z') || (qtKey >= '0' && qtKey <= '9'))
        return QString(QChar(*keysym(qtKey)));
    if (qtKey >= KeyF1 && qtKey <= KeyF35)
        return u"F%1"_s.arg(qtKey - KeyF1 + 1);
    if (const Named *key = named(qtKey))
        return QString::fromLatin1(key->name);
    return QString();
}

QString KeySymTable::trigger(int qtKey, quint32 modifierFlags)
{
    const QString key = name(qtKey);
    if (key.isEmpty())
        return QString();
    QStringList parts;
    if (modifierFlags & BvHotKey::ControlFlag)
        parts << u"CTRL"_s;
    if (modifierFlags & BvHotKey::AltFlag)
        parts << u"ALT"_s;
    if (modifierFlags & BvHotKey::ShiftFlag)
        parts << u"SHIFT"_s;
    if (modifierFlags & BvHotKey::SuperFlag)
        parts << u"LOGO"_s;
    parts << key;
    return parts.join(u'+');
}
