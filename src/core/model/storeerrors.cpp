#include "model/storeerrors.h"

#include <sqlite3.h>

#include <QDir>
#include <QFileInfo>
#include <QSqlDriver>
#include <QSqlQuery>

namespace StoreErrors {

namespace {

QString folderOf(const QString &path)
{
    return QDir::toNativeSeparators(QFileInfo(path).absolutePath());
}

// What the user can do about a failure; empty where nothing helps but reading the reason, or where it
// would have to name a folder that is not known.
QString remedy(int code, const QString &path)
{
    if (path.isEmpty() && code != SQLITE_BUSY && code != SQLITE_LOCKED)
        return {};
    switch (code) {
    case SQLITE_FULL:
        return QStringLiteral("Free space on the disk that holds “%1”.").arg(folderOf(path));
    case SQLITE_READONLY:
    case SQLITE_PERM:
        return QStringLiteral("Make the folder “%1” and the files in it writable.").arg(folderOf(path));
    case SQLITE_CANTOPEN:
        return QStringLiteral("Make sure the folder “%1” and the files in it can be read and written.")
            .arg(folderOf(path));
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return QStringLiteral("Another program holds the store; try again.");
    default:
        return {};
    }
}

// The sqlite3 handle behind a QSQLITE driver; nullptr for any other driver.
sqlite3 *handleOf(const QSqlDriver *driver)
{
    const QVariant native = driver ? driver->handle() : QVariant();
    if (!native.isValid() || qstrcmp(native.typeName(), "sqlite3*") != 0)
        return nullptr;
    return *static_cast<sqlite3 *const *>(native.constData());
}

} // namespace

BvError folderIsFile(const QString &path)
{
    return BvError(QString::fromLatin1(BvErrorDomain::Store), FolderIsFileCode,
        QStringLiteral("Expected a folder to store application data, found a file (%1).").arg(path));
}

BvError folderUnusable(const QString &path, const QString &reason)
{
    return BvError(QString::fromLatin1(BvErrorDomain::Cocoa), FolderCode,
        QStringLiteral("The folder “%1” could not be created.").arg(path), reason);
}

BvError initializationFailed()
{
    return BvError(QString::fromLatin1(BvErrorDomain::Store), InitializationCode,
        QStringLiteral("Failed to initialize the store"),
        QStringLiteral("There was an error building up the data file."));
}

BvError incompatibleVersion(const QString &path, int version, int known)
{
    const QString text = version > known
        ? QStringLiteral("The store “%1” has version %2, newer than version %3, the newest this version of Brimvale "
                         "knows; it was left untouched. Open it with the Brimvale that wrote it.")
        : QStringLiteral("The store “%1” has version %2, which this version of Brimvale (store version %3) cannot "
                         "open.");
    return BvError(QString::fromLatin1(BvErrorDomain::Cocoa), NewerVersionCode, text.arg(path).arg(version).arg(known));
}

BvError foreignFile(const QString &path)
{
    return BvError(QString::fromLatin1(BvErrorDomain::Cocoa), ForeignFileCode,
        QStringLiteral("The file “%1” is a database of another program, not a Brimvale store; Brimvale leaves it "
                       "untouched. Move it elsewhere to start a new journal.")
            .arg(path));
}

BvError readOnly(const QString &path)
{
    return sqlite(SQLITE_READONLY, QString::fromUtf8(sqlite3_errstr(SQLITE_READONLY)), path);
}

BvError sqlite(int code, const QString &reason, const QString &path)
{
    const int primary = code & 0xff;
    QString text = path.isEmpty()
        ? QStringLiteral("Could not use the store: %1.").arg(reason)
        : QStringLiteral("Could not use the store “%1”: %2.").arg(QDir::toNativeSeparators(path), reason);
    if (const QString what = remedy(primary, path); !what.isEmpty())
        text += QLatin1Char(' ') + what;
    return BvError(QString::fromLatin1(SqliteDomain), primary, text);
}

BvError fromSql(const QSqlQuery &query)
{
    sqlite3 *handle = handleOf(query.driver());
    const char *file = handle ? sqlite3_db_filename(handle, "main") : nullptr;
    return fromSql(query.lastError(), file ? QString::fromUtf8(file) : QString());
}

BvError fromSql(const QSqlError &error, const QString &path)
{
    bool numeric = false;
    const int code = error.nativeErrorCode().toInt(&numeric);
    // The driver's own text ("Unable to fetch row") says only which call failed; SQLite's says why.
    QString reason = error.databaseText();
    if (reason.isEmpty() && numeric)
        reason = QString::fromUtf8(sqlite3_errstr(code));
    if (reason.isEmpty())
        reason = error.text();
    if (!numeric)
        return BvError(QString::fromLatin1(SqliteDomain), SaveCode,
            path.isEmpty()
                ? QStringLiteral("Could not use the store: %1.").arg(reason)
                : QStringLiteral("Could not use the store “%1”: %2.").arg(QDir::toNativeSeparators(path), reason));
    return sqlite(code, reason, path);
}

bool isStoreUnavailable(const BvError &error)
{
    if (error.domain() != QLatin1String(SqliteDomain))
        return false;
    switch (error.code()) {
    case SQLITE_READONLY:
    case SQLITE_FULL:
    case SQLITE_IOERR:
    case SQLITE_CANTOPEN:
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_PERM:
        return true;
    default:
        return false;
    }
}

} // namespace StoreErrors
