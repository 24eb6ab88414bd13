#pragma once

#include <expected>
#include <optional>

#include <QObject>
#include <QString>

#include "settings/bvhotkey.h"

// A system-wide key combination that brings the main window up. Main thread.
class GlobalHotKey : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // Grabs `hotKey` in place of the one grabbed before; none releases it. On failure (taken by another
    // program, or no way to grab keys in this session) the reason, and nothing is grabbed. Asking again
    // for the key already grabbed changes nothing. A backend that asks the desktop and hears back later
    // answers success at once and reports a refusal through registrationChanged.
    virtual std::expected<void, QString> registerHotKey(const std::optional<BvHotKey> &hotKey) = 0;

    // Whether this session lets the app grab a key at all. Where it does not, the user binds a key to
    // `brimvale show` in the desktop's own settings.
    virtual bool isAvailable() const { return true; }

    // Whether the grab takes its combination from the focused window too, so that a control recording a
    // new combination must release it first (an X11 key grab). A desktop's shortcut service leaves
    // recording alone, and releasing and binding again there would only ask the desktop twice.
    virtual bool grabHidesKeysFromTheApp() const { return false; }

    // Why the shortcut asked for last is not in force; empty when it is, or when none was asked for.
    QString registrationError() const { return m_registrationError; }

Q_SIGNALS:
    void activated();
    void registrationChanged();

protected:
    void setRegistrationError(const QString &error)
    {
        if (error == m_registrationError)
            return;
        m_registrationError = error;
        Q_EMIT registrationChanged();
    }

    // The result of a registration, remembered for registrationError.
    std::expected<void, QString> registered(std::expected<void, QString> result)
    {
        setRegistrationError(result ? QString() : result.error());
        return result;
    }

private:
    QString m_registrationError;
};
