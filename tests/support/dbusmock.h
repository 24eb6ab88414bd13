#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QList>
#include <QProcess>
#include <QStringList>
#include <QVariantList>

// One python3-dbusmock service on the session or the system bus, for as long as this object lives: a
// template ("logind", "gnome_screensaver") or a bare object to which the test adds methods and properties.
class DBusMock
{
public:
    enum class Bus { Session, System };

    // Starts the template on `bus` and waits until its name is owned.
    static std::unique_ptr<DBusMock> fromTemplate(const QString &templateName, const QString &busName, Bus bus);
    // Starts a bare object `path` with `interface` under `busName`.
    static std::unique_ptr<DBusMock> bare(
        const QString &busName, const QString &path, const QString &interface, Bus bus = Bus::Session);
    ~DBusMock();

    QDBusConnection connection() const;
    QString busName() const { return m_busName; }

    // Calls `method` of org.freedesktop.DBus.Mock on `path` (empty: the main object) and waits for the reply.
    QDBusMessage mock(const QString &method, const QVariantList &args, const QString &path = QString()) const;
    // Calls a method of the mocked service itself.
    QDBusMessage call(
        const QString &path, const QString &interface, const QString &method, const QVariantList &args = {}) const;
    // The arguments of every call of `method` the mock received, oldest first (GetMethodCalls).
    QList<QVariantList> methodCalls(const QString &method, const QString &path = QString()) const;
    // Decodes a GetMethodCalls reply: variants unwrapped, a{sv} as QVariantMap.
    static QList<QVariantList> decodeMethodCalls(const QDBusMessage &reply);
    // Emits a signal from the mocked object: signature as D-Bus spells it, arguments as variants.
    void emitSignal(const QString &interface, const QString &name, const QString &signature, const QVariantList &args,
        const QString &path = QString()) const;

private:
    DBusMock(QString busName, QString mainPath, Bus bus);
    bool start(const QStringList &arguments);

    QString m_busName;
    QString m_mainPath;
    Bus m_bus;
    QProcess m_process;
};
