#include "fakes/fakekeychain.h"

#include "sync/bvkeychain.h"

namespace {
QString key(const QString &service, const QString &account)
{
    return service + QLatin1Char('\n') + account;
}
QString dropboxPrefix()
{
    return QString::fromLatin1(BvKeychain::ServiceName) + QLatin1Char('\n');
}
} // namespace

void FakeKeychain::read(const QString &service, const QString &account, std::function<void(ReadResult)> done)
{
    if (!failReads.isEmpty())
        done(std::unexpected(failReads));
    else
        done(m_items.value(key(service, account)));
}

void FakeKeychain::write(
    const QString &service, const QString &account, const QString &secret, std::function<void(WriteResult)> done)
{
    if (!failWrites.isEmpty()) {
        done(std::unexpected(failWrites));
        return;
    }
    m_items.insert(key(service, account), secret);
    done({});
}

void FakeKeychain::remove(const QString &service, const QString &account, std::function<void(WriteResult)> done)
{
    if (!failRemovals.isEmpty()) {
        done(std::unexpected(failRemovals));
        return;
    }
    m_items.remove(key(service, account));
    done({});
}

QHash<QString, QString> FakeKeychain::secrets() const
{
    QHash<QString, QString> result;
    for (auto it = m_items.cbegin(); it != m_items.cend(); ++it) {
        if (it.key().startsWith(dropboxPrefix()))
            result.insert(it.key().mid(dropboxPrefix().size()), it.value());
    }
    return result;
}

void FakeKeychain::set(const QString &account, const QString &secret)
{
    m_items.insert(dropboxPrefix() + account, secret);
}
