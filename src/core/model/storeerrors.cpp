#include "model/storeerrors.h"

namespace StoreErrors {

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

BvError incompatibleVersion(const QString &path, int version)
{
    return BvError(QString::fromLatin1(BvErrorDomain::Cocoa), NewerVersionCode,
        QStringLiteral("The store “%1” has version %2, which this version of Brimvale cannot open.")
            .arg(path)
            .arg(version));
}

BvError fromSql(const QSqlError &error)
{
    bool numeric = false;
    const int code = error.nativeErrorCode().toInt(&numeric);
    QString text = error.databaseText();
    if (text.isEmpty())
        text = error.text();
    return BvError(QStringLiteral("NSSQLiteErrorDomain"), numeric ? code : SaveCode, text, error.driverText());
}

} // namespace StoreErrors
