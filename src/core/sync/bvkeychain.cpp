#include "sync/bvkeychain.h"

#include <optional>

#include <QEventLoop>

#include "base/logging.h"
#include "sync/keychain.h"

namespace {

QString service()
{
    return QString::fromLatin1(BvKeychain::ServiceName);
}

void logError(const char *action, const QString &message)
{
    qCWarning(lcSync).noquote() << QStringLiteral("KeychainError - %1: %2").arg(QString::fromLatin1(action), message);
}

// The keyring answers through a callback that may come before the call returns or later from the event
// loop; either way the caller gets the answer as a value.
template<typename Result, typename Call> Result wait(Call call)
{
    std::optional<Result> result;
    QEventLoop loop;
    call([&](Result answer) {
        result = std::move(answer);
        loop.quit();
    });
    if (!result)
        loop.exec(QEventLoop::ExcludeUserInputEvents);
    return std::move(*result);
}

} // namespace

BvKeychain::BvKeychain(Keychain &keychain)
    : m_keychain(keychain)
{ }

bool BvKeychain::saveGenericPassword(const QString &password, const QString &forAccount)
{
    if (password.isEmpty()) {
        qCWarning(lcSync).noquote() << QStringLiteral("KeychainError - trying to store empty item");
        return false;
    }
    const Keychain::ReadResult existing
        = wait<Keychain::ReadResult>([&](auto done) { m_keychain.read(service(), forAccount, std::move(done)); });
    if (!existing) {
        logError("(save) failed to retrieve keychain item", existing.error());
        return false;
    }
    const bool update = !existing->isEmpty();
    const Keychain::WriteResult written = wait<Keychain::WriteResult>(
        [&](auto done) { m_keychain.write(service(), forAccount, password, std::move(done)); });
    if (!written) {
        logError(update ? "(save) failed to update keychain item" : "(save) failed to create keychain item",
            written.error());
        return false;
    }
    return true;
}

bool BvKeychain::deleteGenericPasswordForAccount(const QString &account)
{
    const Keychain::ReadResult existing
        = wait<Keychain::ReadResult>([&](auto done) { m_keychain.read(service(), account, std::move(done)); });
    if (!existing || existing->isEmpty()) {
        logError("(delete) failed to find keychain item",
            existing ? QStringLiteral("The item could not be found in the keyring.") : existing.error());
        return false;
    }
    const Keychain::WriteResult removed
        = wait<Keychain::WriteResult>([&](auto done) { m_keychain.remove(service(), account, std::move(done)); });
    if (!removed) {
        logError("(delete) failed to delete keychain item", removed.error());
        return false;
    }
    return true;
}

QString BvKeychain::getGenericAccountPassword(const QString &account)
{
    const Keychain::ReadResult secret
        = wait<Keychain::ReadResult>([&](auto done) { m_keychain.read(service(), account, std::move(done)); });
    if (!secret) {
        logError("(get) failed to retrieve keychain item", secret.error());
        return {};
    }
    return secret->isEmpty() ? QString() : *secret;
}
