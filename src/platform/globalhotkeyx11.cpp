#include "platform/globalhotkeyx11.h"

#include <array>
#include <cstdlib>

#include <QLoggingCategory>
#include <QSocketNotifier>

#include <xcb/xcb.h>

#include "platform/keysymtable.h"

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcHotKey, "brimvale.platform.hotkey")

// X reports Caps Lock and Num Lock (Mod2 on every usual layout) as modifiers: a grab of Ctrl+Alt+T alone
// would not fire while either is on.
constexpr std::array<quint16, 4> LockVariants { 0, XCB_MOD_MASK_LOCK, XCB_MOD_MASK_2,
    XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2 };
constexpr quint16 LockMask = XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2;
constexpr quint8 BadAccess = 10;

} // namespace

GlobalHotKeyX11::GlobalHotKeyX11(const QString &display, bool waylandSession, QObject *parent)
    : GlobalHotKey(parent)
{
    if (waylandSession)
        return;
    const QByteArray name = display.toLocal8Bit();
    xcb_connection_t *connection = xcb_connect(name.isEmpty() ? nullptr : name.constData(), nullptr);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        return;
    }
    m_connection = connection;
    m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    m_notifier = new QSocketNotifier(xcb_get_file_descriptor(m_connection), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &GlobalHotKeyX11::readEvents);
}

GlobalHotKeyX11::~GlobalHotKeyX11()
{
    if (m_connection)
        xcb_disconnect(m_connection);
}

QString GlobalHotKeyX11::takenMessage()
{
    return tr("Taken by another application.");
}

std::expected<void, QString> GlobalHotKeyX11::registerHotKey(const std::optional<BvHotKey> &hotKey)
{
    if (!m_connection)
        return registered(std::unexpected(tr("There is no X11 display to grab the shortcut on.")));
    if (hotKey == m_hotKey && (m_grab || !hotKey))
        return registered({});
    if (m_grab)
        ungrab(*m_grab);
    m_grab.reset();
    m_hotKey.reset();
    if (!hotKey) {
        xcb_flush(m_connection);
        return registered({});
    }
    const auto wanted = grabFor(*hotKey);
    if (!wanted)
        return registered(std::unexpected(wanted.error()));
    if (const auto grabbed = grab(*wanted); !grabbed)
        return registered(grabbed);
    m_grab = *wanted;
    m_hotKey = hotKey;
    qCInfo(lcHotKey).noquote() << "Grabbed" << hotKey->toString() << "on X11";
    return registered({});
}

std::expected<GlobalHotKeyX11::Grab, QString> GlobalHotKeyX11::grabFor(const BvHotKey &hotKey) const
{
    const std::optional<quint32> keysym = KeySymTable::keysym(hotKey.keyCode);
    const QString unknown = tr("%1 has no key on this keyboard.").arg(hotKey.toString());
    if (!keysym)
        return std::unexpected(unknown);
    // The keycode whose keysyms, at any level, hold the wanted one.
    const xcb_setup_t *setup = xcb_get_setup(m_connection);
    const int count = setup->max_keycode - setup->min_keycode + 1;
    xcb_get_keyboard_mapping_reply_t *mapping = xcb_get_keyboard_mapping_reply(
        m_connection, xcb_get_keyboard_mapping(m_connection, setup->min_keycode, quint8(count)), nullptr);
    if (!mapping)
        return std::unexpected(unknown);
    const xcb_keysym_t *keysyms = xcb_get_keyboard_mapping_keysyms(mapping);
    const int perKeycode = mapping->keysyms_per_keycode;
    std::optional<quint8> keycode;
    for (int level = 0; level < perKeycode && !keycode; ++level) {
        for (int index = 0; index < count; ++index) {
            if (keysyms[index * perKeycode + level] == *keysym) {
                keycode = quint8(setup->min_keycode + index);
                break;
            }
        }
    }
    std::free(mapping);
    if (!keycode)
        return std::unexpected(unknown);

    quint16 modifiers = 0;
    if (hotKey.modifierFlags & BvHotKey::ShiftFlag)
        modifiers |= XCB_MOD_MASK_SHIFT;
    if (hotKey.modifierFlags & BvHotKey::ControlFlag)
        modifiers |= XCB_MOD_MASK_CONTROL;
    if (hotKey.modifierFlags & BvHotKey::AltFlag)
        modifiers |= XCB_MOD_MASK_1;
    if (hotKey.modifierFlags & BvHotKey::SuperFlag)
        modifiers |= XCB_MOD_MASK_4;
    return Grab { *keycode, modifiers };
}

std::expected<void, QString> GlobalHotKeyX11::grab(const Grab &grab)
{
    // Each grab is checked: another client's grab of the same combination fails with BadAccess.
    std::array<xcb_void_cookie_t, LockVariants.size()> cookies {};
    for (std::size_t i = 0; i < LockVariants.size(); ++i)
        cookies[i] = xcb_grab_key_checked(m_connection, 1, m_root, grab.modifiers | LockVariants[i], grab.keycode,
            XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    bool taken = false;
    bool failed = false;
    for (const xcb_void_cookie_t cookie : cookies) {
        if (xcb_generic_error_t *error = xcb_request_check(m_connection, cookie)) {
            (error->error_code == BadAccess ? taken : failed) = true;
            std::free(error);
        }
    }
    if (taken || failed) {
        ungrab(grab);
        xcb_flush(m_connection);
        return std::unexpected(taken ? takenMessage() : tr("The X server refused the shortcut."));
    }
    // Replies read while checking may have queued events the socket will not announce again.
    readEvents();
    return {};
}

void GlobalHotKeyX11::ungrab(const Grab &grab)
{
    for (const quint16 variant : LockVariants)
        xcb_ungrab_key(m_connection, grab.keycode, m_root, grab.modifiers | variant);
    // A round trip: once it returns the server has let go, so another client (or our next grab on
    // another connection) is not refused a combination we no longer hold.
    std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    readEvents();
}

void GlobalHotKeyX11::readEvents()
{
    int presses = 0;
    while (xcb_generic_event_t *event = xcb_poll_for_event(m_connection)) {
        const quint8 type = event->response_type & 0x7f;
        if ((type == XCB_KEY_PRESS || type == XCB_KEY_RELEASE) && m_grab) {
            // Press and release events share their layout.
            const auto *key = reinterpret_cast<const xcb_key_press_event_t *>(event);
            if (key->detail == m_grab->keycode && (key->state & ~LockMask & 0xff) == m_grab->modifiers) {
                // A key held down repeats as a release and a press of the same instant: one press only.
                if (type == XCB_KEY_RELEASE)
                    m_lastRelease = key->time;
                else if (!m_lastRelease || key->time != *m_lastRelease)
                    ++presses;
            }
        }
        std::free(event);
    }
    if (xcb_connection_has_error(m_connection)) {
        qCWarning(lcHotKey) << "The X11 connection of the shortcut broke";
        m_notifier->setEnabled(false);
    }
    // Each press counts: two quick presses show the window and put it away again.
    for (int i = 0; i < presses; ++i)
        Q_EMIT activated();
}
