#pragma once

#include <QDateTime>
#include <QMutex>
#include <QObject>
#include <QString>

class UserDefaults;

// The Dropbox account's entries of the settings file: the connected account's name and id, the change
// cursor ("dropbox_hash") and the last sync date. The keys and formats are those BvSettings reads, so the
// preferences show what the command line and the sync runs write. Never a token: tokens live in the
// keyring (BvKeychain).
//
// Threads: make it on the thread that owns `defaults` (the main thread). It may be read and written from
// any thread: other threads read the values as this object last knew them, and their writes reach the file
// through the owning thread's event loop, in the order they were made.
class BVDropboxSettings : public QObject
{
    Q_OBJECT
public:
    // `defaults` is not owned and must outlive this object.
    explicit BVDropboxSettings(UserDefaults &defaults, QObject *parent = nullptr);

    QString dropboxHash() const;
    // A null cursor removes it.
    void setDropboxHash(const QString &cursor);
    QString dropboxAccountName() const;
    QString dropboxAccountID() const;
    // Null strings remove the keys.
    void setDropboxConnectedAccountName(const QString &name, const QString &andAccountID);
    QDateTime dropboxSyncDate() const;
    // The end of the last successful Dropbox run.
    void setDropboxSyncDate(const QDateTime &date);
    // Removes the account, the cursor and the sync date.
    void clearAccount();

private:
    struct Values
    {
        QString hash;
        QString accountName;
        QString accountId;
        QDateTime syncDate;
    };
    Values values() const;
    void write(std::function<void()> change);
    void reload();

    UserDefaults &m_defaults;
    mutable QMutex m_mutex;
    Values m_values;
    // Writes made on other threads that have not reached the file yet.
    int m_pendingWrites = 0;
};
