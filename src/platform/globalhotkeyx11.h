#pragma once

#include "platform/globalhotkey.h"

class QSocketNotifier;
struct xcb_connection_t;

// A passive key grab on the root window of an X11 session, on a connection of its own: the X server
// hands the combination to this client whichever window has the focus. The grab is made once for each
// state of Caps Lock and Num Lock, which X counts as modifiers. Only in an X11 session: under XWayland
// only X11 windows would let the key through.
class GlobalHotKeyX11 : public GlobalHotKey
{
    Q_OBJECT
public:
    // Connects to `display` (empty: $DISPLAY) unless `waylandSession`.
    GlobalHotKeyX11(const QString &display, bool waylandSession, QObject *parent = nullptr);
    ~GlobalHotKeyX11() override;

    bool isAvailable() const override { return m_connection != nullptr; }
    bool grabHidesKeysFromTheApp() const override { return true; }
    std::expected<void, QString> registerHotKey(const std::optional<BvHotKey> &hotKey) override;

    static QString takenMessage();

private:
    struct Grab
    {
        quint8 keycode = 0;
        quint16 modifiers = 0;
    };

    std::expected<Grab, QString> grabFor(const BvHotKey &hotKey) const;
    std::expected<void, QString> grab(const Grab &grab);
    void ungrab(const Grab &grab);
    void readEvents();

    xcb_connection_t *m_connection = nullptr;
    quint32 m_root = 0;
    QSocketNotifier *m_notifier = nullptr;
    std::optional<BvHotKey> m_hotKey;
    std::optional<Grab> m_grab;
    std::optional<quint32> m_lastRelease;
};
