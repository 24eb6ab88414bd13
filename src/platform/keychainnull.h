#pragma once

#include "sync/keychain.h"

// No keyring can be reached: nothing is stored, and every call says so.
class KeychainNull : public Keychain
{
    Q_OBJECT
public:
    using Keychain::Keychain;

    void read(const QString &, const QString &, std::function<void(ReadResult)> done) override
    {
        done(std::unexpected(reason()));
    }
    void write(const QString &, const QString &, const QString &, std::function<void(WriteResult)> done) override
    {
        done(std::unexpected(reason()));
    }
    void remove(const QString &, const QString &, std::function<void(WriteResult)> done) override { done({}); }

private:
    static QString reason() { return QStringLiteral("No keyring (Secret Service or KWallet) is available."); }
};
