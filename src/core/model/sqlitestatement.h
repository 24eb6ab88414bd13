#pragma once

#include <expected>

#include <QDateTime>
#include <QSqlDatabase>
#include <QString>

#include "base/bverror.h"

struct sqlite3;
struct sqlite3_stmt;

// A prepared SQLite statement on the native handle of a Qt SQL connection. Used where the store moves
// many rows (bulk saves, large fetches): it binds and reads columns without a QVariant per value, and
// runs inside whatever transaction the connection has open.
class SqliteStatement
{
public:
    SqliteStatement() = default;
    ~SqliteStatement();
    SqliteStatement(const SqliteStatement &) = delete;
    SqliteStatement &operator=(const SqliteStatement &) = delete;

    // The native handle behind a QSQLITE connection; nullptr for any other driver.
    static sqlite3 *handle(const QSqlDatabase &db);

    std::expected<void, BvError> prepare(sqlite3 *db, const QString &sql);
    // The row id of the last insert on the connection.
    static qint64 lastInsertRowId(sqlite3 *db);
    // The rows changed by the connection's last INSERT, UPDATE or DELETE.
    static qint64 changes(sqlite3 *db);

    // Parameters count from 1, as in SQL.
    void bindInt64(int index, qint64 value);
    void bindText(int index, const QString &value); // a null QString binds NULL
    void bindNull(int index);
    void bindInstant(int index, const QDateTime &value); // UTC milliseconds; invalid binds NULL

    // Steps once: true with a row, false when done. A failure leaves error() set.
    bool next();
    // Runs a statement that returns no rows, then resets it for the next use.
    std::expected<void, BvError> execute();
    void reset();

    bool isNull(int column) const;
    qint64 int64(int column) const;
    QString text(int column) const;
    QDateTime instant(int column) const;

    bool failed() const { return m_failed; }
    BvError error() const;

private:
    sqlite3 *m_db = nullptr;
    sqlite3_stmt *m_statement = nullptr;
    bool m_failed = false;
};
