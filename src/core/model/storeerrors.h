#pragma once

#include <QSqlError>
#include <QString>

#include "base/bverror.h"

// The errors of opening and saving the store, with their designed domains, codes and texts.
namespace StoreErrors {

inline constexpr int FolderIsFileCode = 101;
inline constexpr int InitializationCode = 9999;
inline constexpr int NewerVersionCode = 134100;
inline constexpr int SaveCode = 134030;
inline constexpr int FolderCode = 512;

// The db folder exists but is a file.
BvError folderIsFile(const QString &path);
// The db folder could not be made or read.
BvError folderUnusable(const QString &path, const QString &reason);
// Asked for a context when the store could not be opened.
BvError initializationFailed();
// The file was written by a later version of Brimvale, or one that needs upgrading first.
BvError incompatibleVersion(const QString &path, int version);
// An SQLite failure, in the "NSSQLiteErrorDomain" with SQLite's own code.
BvError fromSql(const QSqlError &error);

} // namespace StoreErrors
