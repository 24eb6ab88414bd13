#include "cli/uidprefix.h"

#include "model/sqlitestatement.h"
#include "model/store.h"

std::expected<QString, QString> UidPrefix::resolve(Store &store, const QString &text)
{
    const QString prefix = text.trimmed().toUpper();
    if (prefix.size() < MinimumLength)
        return std::unexpected(
            QStringLiteral("A UID needs at least %1 characters: “%2”.").arg(MinimumLength).arg(text.trimmed()));
    const auto uids = uidsStartingWith(store, prefix);
    if (!uids)
        return std::unexpected(uids.error().message());
    // A whole UID wins even where it begins another one.
    if (uids->isEmpty() || uids->contains(prefix))
        return uids->isEmpty() ? QString() : prefix;
    if (uids->size() > 1)
        return std::unexpected(QStringLiteral("“%1” is the start of %2 UIDs; give more characters.")
                                   .arg(text.trimmed())
                                   .arg(uids->size()));
    return uids->constFirst();
}

std::expected<QStringList, BvError> UidPrefix::uidsStartingWith(Store &store, const QString &prefix)
{
    std::expected<QSqlDatabase, BvError> db = store.database();
    if (!db)
        return std::unexpected(db.error());
    // A range on the unique uid index instead of LIKE, which would need its wildcards escaped and, for a
    // bound pattern, would scan the table. U+10FFFF sorts after every character a UID can continue with.
    SqliteStatement query;
    if (auto prepared = query.prepare(SqliteStatement::handle(*db),
            QStringLiteral("SELECT uid FROM activities WHERE uid >= ?1 AND uid < ?2 ORDER BY uid"));
        !prepared)
        return std::unexpected(prepared.error());
    query.bindText(1, prefix);
    query.bindText(2, prefix + QString::fromUcs4(U"\U0010FFFF", 1));
    QStringList uids;
    while (query.next())
        uids.append(query.text(0));
    if (query.failed())
        return std::unexpected(query.error());
    return uids;
}
