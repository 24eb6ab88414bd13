#pragma once

#include <QDBusConnection>

#include "platform/globalhotkey.h"

class QDBusMessage;

// The desktop portal's GlobalShortcuts interface (Plasma on Wayland): a session in which the app binds
// one shortcut, "show-main-window", offering the recorded combination as the preferred trigger. The
// desktop may ask the user and has the last word, so a refusal arrives later, through registrationChanged.
class GlobalHotKeyPortal : public GlobalHotKey
{
    Q_OBJECT
public:
    static constexpr auto ShortcutId = "show-main-window";

    // Asks `bus` once whether the portal offers global shortcuts.
    explicit GlobalHotKeyPortal(const QDBusConnection &bus, QObject *parent = nullptr);
    ~GlobalHotKeyPortal() override;

    bool isAvailable() const override { return m_available; }
    std::expected<void, QString> registerHotKey(const std::optional<BvHotKey> &hotKey) override;

    // The session the shortcut is bound in; empty while none is.
    QString sessionHandle() const { return m_session; }

private Q_SLOTS:
    // QtDBus hands bus signals only to slots named by their signature.
    void onResponse(const QDBusMessage &message);
    void onActivated(const QDBusMessage &message);

private:
    enum class Step { Idle, CreatingSession, Binding };

    // Subscribes to the answer of a request before it is made, so that no answer can be missed.
    QString expectResponse();
    void watchRequest(const QString &path);
    void forgetRequest();
    void createSession();
    void bindShortcut();
    void closeSession();
    void fail(const QString &reason);

    QDBusConnection m_bus;
    bool m_available = false;
    std::optional<BvHotKey> m_hotKey;
    QString m_session;
    QString m_request;
    Step m_step = Step::Idle;
    int m_tokens = 0;
};
