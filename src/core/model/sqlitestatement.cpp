#include "model/sqlitestatement.h"

#include <sqlite3.h>

#include <QSqlDriver>
#include <QVariant>

#include "model/storeerrors.h"

SqliteStatement::~SqliteStatement()
{
    if (m_statement)
        sqlite3_finalize(m_statement);
}

sqlite3 *SqliteStatement::handle(const QSqlDatabase &db)
{
    const QVariant native = db.driver() ? db.driver()->handle() : QVariant();
    if (!native.isValid() || qstrcmp(native.typeName(), "sqlite3*") != 0)
        return nullptr;
    return *static_cast<sqlite3 *const *>(native.constData());
}

std::expected<void, BvError> SqliteStatement::prepare(sqlite3 *db, const QString &sql)
{
    m_db = db;
    if (!db)
        return std::unexpected(BvError(QStringLiteral("NSSQLiteErrorDomain"), SQLITE_MISUSE,
            QStringLiteral("The store connection is not an SQLite connection.")));
    if (m_statement) {
        sqlite3_finalize(m_statement);
        m_statement = nullptr;
    }
    const QByteArray utf8 = sql.toUtf8();
    if (sqlite3_prepare_v2(db, utf8.constData(), int(utf8.size()), &m_statement, nullptr) != SQLITE_OK) {
        m_failed = true;
        return std::unexpected(error());
    }
    m_failed = false;
    return {};
}

qint64 SqliteStatement::lastInsertRowId(sqlite3 *db)
{
    return sqlite3_last_insert_rowid(db);
}

qint64 SqliteStatement::changes(sqlite3 *db)
{
    return sqlite3_changes64(db);
}

void SqliteStatement::bindInt64(int index, qint64 value)
{
    sqlite3_bind_int64(m_statement, index, value);
}

void SqliteStatement::bindText(int index, const QString &value)
{
    if (value.isNull()) {
        sqlite3_bind_null(m_statement, index);
        return;
    }
    sqlite3_bind_text16(m_statement, index, value.utf16(), int(value.size() * sizeof(char16_t)), SQLITE_TRANSIENT);
}

void SqliteStatement::bindNull(int index)
{
    sqlite3_bind_null(m_statement, index);
}

void SqliteStatement::bindInstant(int index, const QDateTime &value)
{
    if (value.isValid())
        sqlite3_bind_int64(m_statement, index, value.toMSecsSinceEpoch());
    else
        sqlite3_bind_null(m_statement, index);
}

bool SqliteStatement::next()
{
    const int result = sqlite3_step(m_statement);
    if (result == SQLITE_ROW)
        return true;
    if (result != SQLITE_DONE)
        m_failed = true;
    return false;
}

std::expected<void, BvError> SqliteStatement::execute()
{
    const int result = sqlite3_step(m_statement);
    if (result != SQLITE_DONE && result != SQLITE_ROW) {
        const BvError failure = error();
        sqlite3_reset(m_statement);
        m_failed = true;
        return std::unexpected(failure);
    }
    sqlite3_reset(m_statement);
    return {};
}

void SqliteStatement::reset()
{
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
}

bool SqliteStatement::isNull(int column) const
{
    return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
}

qint64 SqliteStatement::int64(int column) const
{
    return sqlite3_column_int64(m_statement, column);
}

QString SqliteStatement::text(int column) const
{
    // UTF-8 is how the file stores text; asking SQLite for UTF-16 would convert into a buffer of its own
    // first and then be copied again.
    const auto *data = reinterpret_cast<const char *>(sqlite3_column_text(m_statement, column));
    if (!data)
        return {};
    return QString::fromUtf8(data, sqlite3_column_bytes(m_statement, column));
}

QDateTime SqliteStatement::instant(int column) const
{
    if (isNull(column))
        return {};
    return QDateTime::fromMSecsSinceEpoch(sqlite3_column_int64(m_statement, column), Qt::UTC);
}

BvError SqliteStatement::error() const
{
    if (!m_db)
        return StoreErrors::sqlite(SQLITE_MISUSE, QStringLiteral("no connection"), QString());
    const char *file = sqlite3_db_filename(m_db, "main");
    return StoreErrors::sqlite(sqlite3_extended_errcode(m_db), QString::fromUtf8(sqlite3_errmsg(m_db)),
        file ? QString::fromUtf8(file) : QString());
}
