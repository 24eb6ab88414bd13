#pragma once

#include <QString>

class Keychain;

// The Dropbox tokens as generic passwords of the service "com.brimvaleapp.dropbox-oauth" in the user's
// keyring, the account name being the key ("oauth2_token"). Each call waits for the keyring's answer
// (running the calling thread's events meanwhile), so call it where a short wait is fine: the main thread
// outside painting, or a thread that runs an event loop. Failures are logged ("KeychainError - ...") and
// answered as false or a null text; secrets never reach the log.
class BvKeychain
{
public:
    static constexpr auto ServiceName = "com.brimvaleapp.dropbox-oauth";

    // `keychain` is not owned and must outlive this object.
    explicit BvKeychain(Keychain &keychain);

    // Creates the item, or updates the one already stored. An empty value is refused and stores nothing.
    bool saveGenericPassword(const QString &password, const QString &forAccount);
    // Removes the item; false (and logged) when there is none or it could not be removed.
    bool deleteGenericPasswordForAccount(const QString &account);
    // The stored secret; a null text when there is none or the keyring could not be read (logged).
    QString getGenericAccountPassword(const QString &account);

private:
    Keychain &m_keychain;
};
