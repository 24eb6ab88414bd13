#pragma once

#include <QSqlError>
#include <QString>

#include "base/bverror.h"

class QSqlDatabase;
class QSqlQuery;

// The errors of opening and saving the store, with their designed domains, codes and texts.
namespace StoreErrors {

inline constexpr int FolderIsFileCode = 101;
inline constexpr int InitializationCode = 9999;
inline constexpr int NewerVersionCode = 134100;
inline constexpr int SaveCode = 134030;
inline constexpr int FolderCode = 512;
inline constexpr int ForeignFileCode = 259;
inline constexpr auto SqliteDomain = "NSSQLiteErrorDomain";

// The db folder exists but is a file.
BvError folderIsFile(const QString &path);
// The db folder could not be made or read.
BvError folderUnusable(const QString &path, const QString &reason);
// Asked for a context when the store could not be opened.
BvError initializationFailed();
// The file has schema `version`, which this program (whose stores have schema `known`) cannot open: a newer
// one, or one older than any it can upgrade.
BvError incompatibleVersion(const QString &path, int version, int known);
// The file is an SQLite database of another program: it has tables but no version of ours.
BvError foreignFile(const QString &path);
// The store at `path` cannot be written because the file or its folder cannot.
BvError readOnly(const QString &path);

// An SQLite failure on the store file at `path`, in the "NSSQLiteErrorDomain" with SQLite's primary result
// code. The description names the file and SQLite's own reason ("database or disk is full") and, where the
// user can remove the cause, says what to do.
BvError sqlite(int code, const QString &reason, const QString &path);
// The failure of the last statement of `query`, on the file its connection has open.
BvError fromSql(const QSqlQuery &query);
// A failure to open the connection to the file at `path`.
BvError fromSql(const QSqlError &error, const QString &path);
// Whether the error says the store cannot take a write at all (read-only, full, unusable), rather than
// refusing one change.
bool isStoreUnavailable(const BvError &error);

} // namespace StoreErrors
