#include "sync/bvtmpsyncfile.h"

#include "model/storecontext.h"
#include "sync/bvsyncfilename.h"

std::optional<QString> BVTmpSyncFile::revisionFamily(int syncMethod)
{
    switch (syncMethod) {
    case DropboxSyncMethod:
        return QStringLiteral("dropbox");
    case FolderSyncMethod:
        return QStringLiteral("folder");
    default:
        return std::nullopt;
    }
}

BVTmpSyncFile::BVTmpSyncFile(uint year, uint andMonth)
    : m_year(year)
    , m_month(andMonth)
{ }

BVTmpSyncFile::BVTmpSyncFile(uint year, uint month, int syncMethod, const std::optional<QString> &andRevisionValue)
    : m_year(year)
    , m_month(month)
    , m_syncMethod(syncMethod)
    , m_revisionValue(andRevisionValue)
{ }

BVTmpSyncFile BVTmpSyncFile::initAsDeletedIndexFile()
{
    BVTmpSyncFile file;
    file.m_isDeletedIndexFile = true;
    return file;
}

BVTmpSyncFile BVTmpSyncFile::initAsDeletedIndexFileWithSyncMethod(
    int syncMethod, const std::optional<QString> &andRevisionValue)
{
    BVTmpSyncFile file = initAsDeletedIndexFile();
    file.m_syncMethod = syncMethod;
    file.m_revisionValue = andRevisionValue;
    return file;
}

std::optional<BVTmpSyncFile> BVTmpSyncFile::fromFileName(const QString &fileName,
    const std::optional<QString> &pathPrefix, int syncMethod, const std::optional<QString> &andRevisionValue)
{
    const std::optional<BVSyncFileName::Match> match = BVSyncFileName::match(fileName, pathPrefix);
    if (!match)
        return std::nullopt;
    if (match->isDeletedIndexFile)
        return initAsDeletedIndexFileWithSyncMethod(syncMethod, andRevisionValue);
    return BVTmpSyncFile(match->year, match->month, syncMethod, andRevisionValue);
}

std::optional<BVTmpSyncFile> BVTmpSyncFile::deletedFileFromFileName(
    const QString &fileName, const std::optional<QString> &pathPrefix)
{
    std::optional<BVTmpSyncFile> file = fromFileName(fileName, pathPrefix, 0, std::nullopt);
    if (file)
        file->m_wasDeleted = true;
    return file;
}

std::optional<BVTmpSyncFile> BVTmpSyncFile::fromSyncFile(const SyncFilePtr &syncFile, int withSyncMethod)
{
    if (!syncFile)
        return std::nullopt;
    const QString revision = syncFile->revision();
    std::optional<QString> value;
    if (!revision.isNull()) {
        const qsizetype colon = revision.indexOf(QLatin1Char(':'));
        if (colon < 0) {
            value = revision;
        } else if (const std::optional<QString> family = revisionFamily(withSyncMethod);
                   family && QStringView(revision).left(colon) == *family) {
            // A revision of another backend's family names nothing this backend can compare with.
            value = revision.mid(colon + 1);
        }
    }
    std::optional<BVTmpSyncFile> file
        = fromFileName(BVSyncFileName::fileName(syncFile->name()), std::nullopt, withSyncMethod, value);
    if (file) {
        const QString hash = syncFile->activityHash();
        file->m_activityHash = hash.isNull() ? std::nullopt : std::optional<QString>(hash);
    }
    return file;
}

void BVTmpSyncFile::setSyncMethod(int syncMethod, const std::optional<QString> &andRevisionValue)
{
    m_syncMethod = syncMethod;
    m_revisionValue = andRevisionValue;
    m_iCloudChangeTag.reset();
}

QString BVTmpSyncFile::name() const
{
    if (m_isDeletedIndexFile)
        return QString::fromLatin1(BVSyncFileName::DeletedName);
    return BVSyncFileName::monthName(m_year, m_month);
}

QString BVTmpSyncFile::fileName() const
{
    return BVSyncFileName::fileName(name());
}

std::optional<QString> BVTmpSyncFile::revision() const
{
    if (!m_revisionValue)
        return std::nullopt;
    if (const std::optional<QString> family = revisionFamily(m_syncMethod))
        return QStringLiteral("%1:%2").arg(*family, *m_revisionValue);
    return *m_revisionValue;
}

std::expected<void, BvError> BVTmpSyncFile::store(StoreContext &context) const
{
    const QString rowName = name();
    std::expected<QList<SyncFilePtr>, BvError> rows = context.fetchSyncFiles(rowName);
    if (!rows)
        return std::unexpected(rows.error());
    SyncFilePtr row;
    if (rows->size() == 1) {
        row = rows->constFirst();
    } else {
        row = context.insertSyncFile();
        for (const SyncFilePtr &duplicate : std::as_const(*rows))
            context.deleteObject(duplicate);
    }
    row->setName(rowName);
    row->setRevision(revision().value_or(QString()));
    row->setActivityHash(m_activityHash.value_or(QString()));
    return {};
}

std::expected<void, BvError> BVTmpSyncFile::remove(StoreContext &context) const
{
    std::expected<QList<SyncFilePtr>, BvError> rows = context.fetchSyncFiles(name());
    if (!rows)
        return std::unexpected(rows.error());
    for (const SyncFilePtr &row : std::as_const(*rows))
        context.deleteObject(row);
    return {};
}
