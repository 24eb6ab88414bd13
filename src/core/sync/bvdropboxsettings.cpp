#include "sync/bvdropboxsettings.h"

#include <QThread>

#include "settings/userdefaults.h"

namespace {
const auto AccountNameKey = QStringLiteral("dropbox_account_name");
const auto AccountIdKey = QStringLiteral("dropbox_account_id");
const auto HashKey = QStringLiteral("dropbox_hash");
const auto SyncDateKey = QStringLiteral("dropbox_sync_date");

void writeString(UserDefaults &defaults, const QString &value, const QString &key)
{
    if (value.isNull())
        defaults.removeObject(key);
    else
        defaults.setObject(value, key);
}
} // namespace

BVDropboxSettings::BVDropboxSettings(UserDefaults &defaults, QObject *parent)
    : QObject(parent)
    , m_defaults(defaults)
{
    reload();
}

void BVDropboxSettings::reload()
{
    Values values;
    values.hash = m_defaults.stringForKey(HashKey);
    values.accountName = m_defaults.stringForKey(AccountNameKey);
    values.accountId = m_defaults.stringForKey(AccountIdKey);
    values.syncDate = QDateTime::fromString(m_defaults.stringForKey(SyncDateKey), Qt::ISODateWithMs);
    QMutexLocker locker(&m_mutex);
    // A change made on another thread that has not reached the file yet is newer than the file.
    if (m_pendingWrites == 0)
        m_values = values;
}

BVDropboxSettings::Values BVDropboxSettings::values() const
{
    // On the owning thread the file is the truth: another process (the command line, the app) may have
    // written it since.
    if (QThread::currentThread() == thread())
        const_cast<BVDropboxSettings *>(this)->reload();
    QMutexLocker locker(&m_mutex);
    return m_values;
}

void BVDropboxSettings::write(std::function<void()> change)
{
    if (QThread::currentThread() == thread()) {
        change();
        m_defaults.synchronize();
        return;
    }
    {
        QMutexLocker locker(&m_mutex);
        ++m_pendingWrites;
    }
    QMetaObject::invokeMethod(
        this,
        [this, change = std::move(change)] {
            change();
            m_defaults.synchronize();
            QMutexLocker locker(&m_mutex);
            --m_pendingWrites;
        },
        Qt::QueuedConnection);
}

QString BVDropboxSettings::dropboxHash() const
{
    return values().hash;
}

void BVDropboxSettings::setDropboxHash(const QString &cursor)
{
    {
        QMutexLocker locker(&m_mutex);
        m_values.hash = cursor;
    }
    write([this, cursor] { writeString(m_defaults, cursor, HashKey); });
}

QString BVDropboxSettings::dropboxAccountName() const
{
    return values().accountName;
}

QString BVDropboxSettings::dropboxAccountID() const
{
    return values().accountId;
}

void BVDropboxSettings::setDropboxConnectedAccountName(const QString &name, const QString &andAccountID)
{
    {
        QMutexLocker locker(&m_mutex);
        m_values.accountName = name;
        m_values.accountId = andAccountID;
    }
    write([this, name, andAccountID] {
        writeString(m_defaults, name, AccountNameKey);
        writeString(m_defaults, andAccountID, AccountIdKey);
    });
}

QDateTime BVDropboxSettings::dropboxSyncDate() const
{
    return values().syncDate;
}

void BVDropboxSettings::setDropboxSyncDate(const QDateTime &date)
{
    {
        QMutexLocker locker(&m_mutex);
        m_values.syncDate = date;
    }
    // As BvSettings writes it: ISO 8601 in UTC.
    const QString text = date.isValid() ? date.toUTC().toString(Qt::ISODateWithMs) : QString();
    write([this, text] { writeString(m_defaults, text, SyncDateKey); });
}

void BVDropboxSettings::clearAccount()
{
    {
        QMutexLocker locker(&m_mutex);
        m_values = Values();
    }
    write([this] {
        for (const QString &key : { AccountNameKey, AccountIdKey, HashKey, SyncDateKey })
            m_defaults.removeObject(key);
    });
}
