#pragma once

#include <QHash>
#include <QString>

#include "sync/keychain.h"

// The user's keyring in memory, answering at once. Tests can make reads, writes or removals fail with a
// message, as a locked or absent keyring does.
class FakeKeychain : public Keychain
{
    Q_OBJECT
public:
    using Keychain::Keychain;

    void read(const QString &service, const QString &account, std::function<void(ReadResult)> done) override;
    void write(const QString &service, const QString &account, const QString &secret,
        std::function<void(WriteResult)> done) override;
    void remove(const QString &service, const QString &account, std::function<void(WriteResult)> done) override;

    // Secrets by account, of the Dropbox service only.
    QHash<QString, QString> secrets() const;
    void set(const QString &account, const QString &secret);
    QString value(const QString &account) const { return secrets().value(account); }

    QString failReads;
    QString failWrites;
    QString failRemovals;

private:
    QHash<QString, QString> m_items;
};
