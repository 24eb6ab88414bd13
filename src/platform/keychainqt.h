#pragma once

#include "sync/keychain.h"

// The user's keyring through QtKeychain: the Secret Service (GNOME Keyring, KeePassXC) or KWallet,
// whichever the session offers. Each call is one job made on the calling thread, which must run an event
// loop; the answer comes from that loop.
class KeychainQt : public Keychain
{
    Q_OBJECT
public:
    using Keychain::Keychain;

    void read(const QString &service, const QString &account, std::function<void(ReadResult)> done) override;
    void write(const QString &service, const QString &account, const QString &secret,
        std::function<void(WriteResult)> done) override;
    void remove(const QString &service, const QString &account, std::function<void(WriteResult)> done) override;
};
