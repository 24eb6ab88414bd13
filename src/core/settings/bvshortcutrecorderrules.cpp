#include "settings/bvshortcutrecorderrules.h"

#include <algorithm>
#include <array>

using namespace Qt::StringLiterals;

namespace {

constexpr int KeyEscape = 0x01000000;
constexpr int KeyTab = 0x01000001;
constexpr int KeyBackspace = 0x01000003;
constexpr int KeyDelete = 0x01000007;
constexpr int KeyF1 = 0x01000030;
constexpr int KeyF4 = 0x01000033;
constexpr int KeyF12 = 0x0100003b;

constexpr quint32 Ctrl = BvHotKey::ControlFlag;
constexpr quint32 Alt = BvHotKey::AltFlag;
constexpr quint32 Shift = BvHotKey::ShiftFlag;

// Combinations the desktop itself handles before any application sees them: a grab of one either fails or
// takes the key away from the desktop, so the recorder refuses them outright.
bool belongsToDesktop(const BvHotKey &hotKey)
{
    static constexpr std::array Desktop {
        BvHotKey { KeyTab, Alt },
        BvHotKey { KeyTab, Alt | Shift },
        BvHotKey { KeyF4, Alt },
        BvHotKey { KeyDelete, Ctrl | Alt },
        BvHotKey { KeyBackspace, Ctrl | Alt },
    };
    if (std::ranges::find(Desktop, hotKey) != Desktop.end())
        return true;
    // Ctrl+Alt+F1...F12 switch virtual terminals.
    return hotKey.modifierFlags == (Ctrl | Alt) && hotKey.keyCode >= KeyF1 && hotKey.keyCode <= KeyF12;
}

} // namespace

BvShortcutRecorderRules::Outcome BvShortcutRecorderRules::keyPressed(int key, quint32 modifiers) const
{
    const std::optional<BvHotKey> hotKey = BvHotKey::fromKeyPress(key, modifiers);
    if (!hotKey) {
        const QString held = BvHotKey::modifiersText(modifiers & BvHotKey::ModifierMask);
        return { Outcome::Kind::KeepRecording, std::nullopt, QString(), held.isEmpty() ? held : held + u'+' };
    }
    if (hotKey->modifierFlags == 0) {
        if (hotKey->keyCode == KeyEscape)
            return { Outcome::Kind::Cancel, std::nullopt, QString(), QString() };
        if (hotKey->keyCode == KeyBackspace || hotKey->keyCode == KeyDelete)
            return { Outcome::Kind::Clear, std::nullopt, QString(), QString() };
    }
    if (const std::optional<QString> reason = refusal(*hotKey))
        return { Outcome::Kind::Refused, std::nullopt, *reason, QString() };
    return { Outcome::Kind::Accepted, hotKey, QString(), QString() };
}

std::optional<QString> BvShortcutRecorderRules::refusal(const BvHotKey &hotKey) const
{
    // Shift alone would take a character away from every text field; a function key types nothing, so
    // Shift is enough there. A function key alone is still refused: F1, F5 and F11 mean something in
    // most applications.
    const quint32 strong = hotKey.modifierFlags & (BvHotKey::ControlFlag | BvHotKey::AltFlag | BvHotKey::SuperFlag);
    if (!hotKey.hasModifier() || (!strong && !hotKey.isFunctionKey())) {
        if (hotKey.isFunctionKey())
            return tr("Add Shift, Ctrl, Alt or Super to %1: a function key alone is used by other applications.")
                .arg(hotKey.toString());
        return tr("Add Ctrl, Alt or Super to %1: without one, the key would no longer type in other applications.")
            .arg(hotKey.toString());
    }
    for (const Reserved &reserved : m_reserved) {
        if (reserved.hotKey == hotKey)
            return tr("%1 is the shortcut of the menu item \u201c%2\u201d.").arg(hotKey.toString(), reserved.title);
    }
    if (belongsToDesktop(hotKey))
        return tr("%1 belongs to the desktop.").arg(hotKey.toString());
    return std::nullopt;
}

QString BvShortcutRecorderRules::placeholderText()
{
    return tr("Click to record shortcut");
}

QString BvShortcutRecorderRules::recordingText()
{
    return tr("Type shortcut");
}

QString BvShortcutRecorderRules::unavailableText()
{
    return tr("This desktop does not let applications set global shortcuts. To bring Brimvale up with a key, "
              "add a shortcut for this command in the desktop's keyboard settings:");
}

QString BvShortcutRecorderRules::showCommand()
{
    return u"brimvale show"_s;
}
