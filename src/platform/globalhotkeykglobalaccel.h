#pragma once

#include <QDBusConnection>
#include <QStringList>

#include "platform/globalhotkey.h"

// KDE's global shortcut daemon (org.kde.kglobalaccel), spoken to over D-Bus since its library is Qt 5:
// the component "brimvale" with one action whose key is the recorded combination. The daemon answers
// with the key it actually gave the action; none means another component holds the combination.
class GlobalHotKeyKGlobalAccel : public GlobalHotKey
{
    Q_OBJECT
public:
    static constexpr auto Component = "brimvale";
    static constexpr auto Action = "show-main-window";

    explicit GlobalHotKeyKGlobalAccel(const QDBusConnection &bus, QObject *parent = nullptr);

    bool isAvailable() const override { return m_available; }
    std::expected<void, QString> registerHotKey(const std::optional<BvHotKey> &hotKey) override;

    // [component, action, component's title, action's title], as the daemon names an action.
    static QStringList actionId();

private Q_SLOTS:
    // QtDBus hands bus signals only to slots named by their signature.
    void onPressed(const QString &component, const QString &action, qlonglong timestamp);

private:
    std::expected<QList<int>, QString> setShortcut(const QList<int> &keys);

    QDBusConnection m_bus;
    bool m_available = false;
    bool m_registeredAction = false;
    std::optional<BvHotKey> m_hotKey;
};
