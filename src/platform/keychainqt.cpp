#include "platform/keychainqt.h"

#include <qt6keychain/keychain.h>

void KeychainQt::read(const QString &service, const QString &account, std::function<void(ReadResult)> done)
{
    // No parent: the job belongs to the calling thread, and deletes itself once it has answered.
    auto *job = new QKeychain::ReadPasswordJob(service);
    job->setAutoDelete(true);
    job->setKey(account);
    QObject::connect(job, &QKeychain::Job::finished, job, [job, done = std::move(done)] {
        if (job->error() == QKeychain::EntryNotFound)
            done(QString());
        else if (job->error() != QKeychain::NoError)
            done(std::unexpected(job->errorString()));
        else
            done(job->textData());
    });
    job->start();
}

void KeychainQt::write(
    const QString &service, const QString &account, const QString &secret, std::function<void(WriteResult)> done)
{
    auto *job = new QKeychain::WritePasswordJob(service);
    job->setAutoDelete(true);
    job->setKey(account);
    job->setTextData(secret);
    QObject::connect(job, &QKeychain::Job::finished, job, [job, done = std::move(done)] {
        if (job->error() != QKeychain::NoError)
            done(std::unexpected(job->errorString()));
        else
            done({});
    });
    job->start();
}

void KeychainQt::remove(const QString &service, const QString &account, std::function<void(WriteResult)> done)
{
    auto *job = new QKeychain::DeletePasswordJob(service);
    job->setAutoDelete(true);
    job->setKey(account);
    QObject::connect(job, &QKeychain::Job::finished, job, [job, done = std::move(done)] {
        if (job->error() != QKeychain::NoError && job->error() != QKeychain::EntryNotFound)
            done(std::unexpected(job->errorString()));
        else
            done({});
    });
    job->start();
}
