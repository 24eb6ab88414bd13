#pragma once

#include <expected>
#include <functional>

#include <QObject>
#include <QString>

// Secrets of the user's keyring (Secret Service or KWallet), addressed by service and account. Calls
// answer through their callback on the calling thread, possibly before they return; a thread that calls
// must run an event loop. The object itself belongs to the main thread.
class Keychain : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    using ReadResult = std::expected<QString, QString>;
    using WriteResult = std::expected<void, QString>;

    // The secret, an empty text when there is none, or why the keyring could not be read.
    virtual void read(const QString &service, const QString &account, std::function<void(ReadResult)> done) = 0;
    virtual void write(
        const QString &service, const QString &account, const QString &secret, std::function<void(WriteResult)> done)
        = 0;
    // Removing what is not there succeeds.
    virtual void remove(const QString &service, const QString &account, std::function<void(WriteResult)> done) = 0;
};
