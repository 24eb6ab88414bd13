// Runs in Europe/Berlin (see CMakeLists.txt). The sync folder is a temporary folder on the local disk, as
// a folder that Syncthing or the Nextcloud client mirrors is; the "other machine" is the test writing into
// it directly.
#include <QtTest>

#include <QCryptographicHash>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSysInfo>
#include <QThread>

#include <cstdio>
#include <fcntl.h>
#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/isolatedhome.h"
#include "sync/bvfolderrevisions.h"
#include "sync/bvfoldersyncbackend.h"
#include "sync/bvsyncconflictcopy.h"
#include "sync/bvtmpsyncfile.h"

using namespace Qt::StringLiterals;

namespace {

const QTimeZone kZone("Europe/Berlin");

// A record of a month file: uid, modified_at and text; the other fields do not take part in merging.
struct Rec
{
    QString uid;
    QString modifiedAt;
    QString text;
};

QByteArray monthJson(const QList<Rec> &records)
{
    QJsonArray array;
    for (const Rec &r : records) {
        array.append(QJsonObject { { u"uid"_s, r.uid }, { u"time_from"_s, u"2024-03-05T09:00:00"_s },
            { u"time_to"_s, u"2024-03-05T10:00:00"_s }, { u"created_at"_s, u"2024-03-05T09:00:00"_s },
            { u"modified_at"_s, r.modifiedAt }, { u"is_invoiced"_s, 0 }, { u"text"_s, r.text } });
    }
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

// Deletion entries as "uid@deleted_at".
QByteArray deletionJson(const QStringList &entries)
{
    QJsonArray array;
    for (const QString &entry : entries) {
        const QStringList parts = entry.split(u'@');
        array.append(QJsonObject { { u"uid"_s, parts.at(0) }, { u"deleted_at"_s, parts.at(1) } });
    }
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

// "uid=text" of each month record, in file order.
QStringList monthSummary(const QByteArray &content)
{
    QStringList lines;
    for (const QJsonValue &value : QJsonDocument::fromJson(content).array()) {
        const QJsonObject object = value.toObject();
        lines.append(object.value(u"uid"_s).toString() + u'=' + object.value(u"text"_s).toString());
    }
    return lines;
}

QStringList deletionSummary(const QByteArray &content)
{
    QStringList lines;
    for (const QJsonValue &value : QJsonDocument::fromJson(content).array()) {
        const QJsonObject object = value.toObject();
        lines.append(object.value(u"uid"_s).toString() + u'@' + object.value(u"deleted_at"_s).toString());
    }
    return lines;
}

QString revisionOf(const QByteArray &content)
{
    return QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Sha256).toHex().left(32));
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The modification time to the nanosecond.
std::optional<timespec> modificationTime(const QString &path)
{
    struct stat info = {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return std::nullopt;
    return info.st_mtim;
}

bool setModificationTime(const QString &path, const timespec &time)
{
    const timespec times[2] = { { 0, UTIME_OMIT }, time };
    return ::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0) == 0;
}

// How the other machine's sync tool puts a file of the same size in place and gives it back the old
// modification time.
enum class Rewrite { InPlace, ThroughRename, RemovedAndCreated };

bool rewriteKeepingSizeAndTime(const QString &path, const QByteArray &content, Rewrite how)
{
    const std::optional<timespec> time = modificationTime(path);
    if (!time || QFileInfo(path).size() != content.size())
        return false;
    QString target = path;
    if (how == Rewrite::ThroughRename)
        target = path + u".part"_s;
    else if (how == Rewrite::RemovedAndCreated && !QFile::remove(path))
        return false;
    if (!writeFile(target, content) || !setModificationTime(target, *time))
        return false;
    if (how == Rewrite::ThroughRename
        && std::rename(QFile::encodeName(target).constData(), QFile::encodeName(path).constData()) != 0)
        return false;
    const std::optional<timespec> now = modificationTime(path);
    return now && now->tv_sec == time->tv_sec && now->tv_nsec == time->tv_nsec && readFile(path) == content;
}

// Root reads and writes whatever the permissions say; for as long as this lives the thread loses that
// power, so that a mode takes effect as it would for the user.
class WithoutPermissionOverride
{
public:
    WithoutPermissionOverride()
    {
        if (::geteuid() != 0)
            return;
        if (::syscall(SYS_capget, &m_header, m_saved) != 0)
            return;
        __user_cap_data_struct reduced[2] = { m_saved[0], m_saved[1] };
        reduced[0].effective &= ~(CAP_TO_MASK(CAP_DAC_OVERRIDE) | CAP_TO_MASK(CAP_DAC_READ_SEARCH));
        m_active = ::syscall(SYS_capset, &m_header, reduced) == 0;
    }
    ~WithoutPermissionOverride()
    {
        if (m_active)
            ::syscall(SYS_capset, &m_header, m_saved);
    }
    bool isEffective() const { return ::geteuid() != 0 || m_active; }

private:
    __user_cap_header_struct m_header { _LINUX_CAPABILITY_VERSION_3, 0 };
    __user_cap_data_struct m_saved[2] {};
    bool m_active = false;
};

// A process of this machine that has ended.
pid_t endedProcess()
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(0);
    ::waitpid(child, nullptr, 0);
    return child;
}

QString hostTag()
{
    QString host = QSysInfo::machineHostName();
    host.replace(QRegularExpression(u"[^A-Za-z0-9-]"_s), u"_"_s);
    return host.isEmpty() ? u"host"_s : host;
}

QString uploadLeftover(const QString &name, const QString &host, qint64 pid)
{
    return u"."_s + name + u".brimvale-"_s + host + u'-' + QString::number(pid) + u".tmp"_s;
}

struct Listing
{
    bool called = false;
    bool didFullFetch = false;
    QStringList lines; // "<file name> <revision>", sorted
};

} // namespace

class TestFolderSyncBackend : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void conflictCopyNames_data();
    void conflictCopyNames();
    void mergeMonthRecords_data();
    void mergeMonthRecords();
    void mergeDeletionEntries_data();
    void mergeDeletionEntries();
    void mergeRefusesContentThatDoesNotRead_data();
    void mergeRefusesContentThatDoesNotRead();

    void rewrittenFileGetsNewRevision_data();
    void rewrittenFileGetsNewRevision();
    void revisionIndexServesOnlyItsFolder_data();
    void revisionIndexServesOnlyItsFolder();
    void unreadableFileIsAnError();

    void initializeChecksTheFolder_data();
    void initializeChecksTheFolder();
    void agreeTimeZoneKeepsTheFirstRecorded_data();
    void agreeTimeZoneKeepsTheFirstRecorded();
    void fetchListsTheSyncFilesOnly();
    void fetchRemovesOnlyAbandonedUploadsOfThisMachine();
    void fetchMergesConflictCopies();
    void fetchLeavesACopyThatDoesNotMerge_data();
    void fetchLeavesACopyThatDoesNotMerge();
    void downloadChecksTheRevision_data();
    void downloadChecksTheRevision();
    void uploadChecksTheRevision_data();
    void uploadChecksTheRevision();
    void uploadIntoReadOnlyFolderFails();
    void deleteFile_data();
    void deleteFile();

private:
    std::unique_ptr<BVFolderSyncBackend> makeBackend(const QString &folder);
    Listing list(BVFolderSyncBackend &backend);
    QStringList folderEntries() const;
    QString remote(const QString &name) const { return m_folder->filePath(name); }

    // Files written once for the whole run and then left alone long enough that their revisions are
    // remembered: the rows that need a remembered revision each take their own.
    QTemporaryDir m_settled;
    std::unique_ptr<IsolatedHome> m_home;
    std::unique_ptr<QTemporaryDir> m_folder;
    QStringList m_errors;
    QStringList m_log;
};

void TestFolderSyncBackend::initTestCase()
{
    QVERIFY(m_settled.isValid());
    const QStringList names { u"in place"_s, u"through a rename"_s, u"removed and created again"_s, u"this folder"_s,
        u"another folder"_s };
    for (const QString &name : names) {
        QVERIFY(QDir(m_settled.path()).mkdir(name));
        QVERIFY(writeFile(m_settled.filePath(name + u"/2024-03.json"_s),
            monthJson({ { u"a"_s, u"2024-03-05T10:00:00"_s, u"one"_s } })));
    }
    // A file changed in the same clock tick as it was read keeps all its times, so a revision is only
    // remembered for a file that has been still for a while.
    QThread::msleep(2100);
}

void TestFolderSyncBackend::init()
{
    m_home = std::make_unique<IsolatedHome>();
    m_folder = std::make_unique<QTemporaryDir>();
    QVERIFY(m_folder->isValid());
    m_errors.clear();
    m_log.clear();
}

void TestFolderSyncBackend::cleanup()
{
    m_folder.reset();
    m_home.reset();
}

std::unique_ptr<BVFolderSyncBackend> TestFolderSyncBackend::makeBackend(const QString &folder)
{
    auto backend = std::make_unique<BVFolderSyncBackend>(folder);
    backend->setErrorHandler([this](const QString &message) { m_errors.append(message); });
    backend->setActivityLogHandler([this](const QString &line) { m_log.append(line); });
    return backend;
}

Listing TestFolderSyncBackend::list(BVFolderSyncBackend &backend)
{
    Listing listing;
    backend.fetchChangesWithLocalCache({}, [&](const QList<BVTmpSyncFile> &changes, bool didFullFetch) {
        listing.called = true;
        listing.didFullFetch = didFullFetch;
        for (const BVTmpSyncFile &file : changes) {
            listing.lines.append(file.fileName() + u' ' + file.revisionValue().value_or(u"-"_s)
                + (file.syncMethod() == BVFolderSyncBackend::SyncMethod ? u""_s : u" wrong method"_s)
                + (file.wasDeleted() ? u" deleted"_s : u""_s));
        }
        listing.lines.sort();
    });
    return listing;
}

QStringList TestFolderSyncBackend::folderEntries() const
{
    return QDir(m_folder->path())
        .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

void TestFolderSyncBackend::conflictCopyNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("original"); // empty: not a conflict copy

    QTest::newRow("Syncthing") << u"2024-03.sync-conflict-20240305-101010-ABCDEFG.json"_s << u"2024-03.json"_s;
    QTest::newRow("Dropbox") << u"2024-03 (Jane's conflicted copy 2024-03-05).json"_s << u"2024-03.json"_s;
    QTest::newRow("Nextcloud") << u"2024-03 (conflicted copy 2024-03-05 101010).json"_s << u"2024-03.json"_s;
    QTest::newRow("ownCloud") << u"2024-03_conflict-20240305-101010.json"_s << u"2024-03.json"_s;
    QTest::newRow("Seafile") << u"2024-03 (SFConflict jane@example.com 2024-03-05-10-10-10).json"_s
                             << u"2024-03.json"_s;
    QTest::newRow("Dropbox in German") << u"2024-03 (in Konflikt stehende Kopie von Jane 2024-03-05).json"_s
                                       << u"2024-03.json"_s;
    QTest::newRow("Dropbox in French") << u"2024-03 (copie en conflit de Jane 2024-03-05).json"_s << u"2024-03.json"_s;
    QTest::newRow("copy of the deletion file")
        << u"deleted.sync-conflict-20240305-101010-ABCDEFG.json"_s << u"deleted.json"_s;
    QTest::newRow("Dropbox copy of the deletion file")
        << u"deleted (Jane's conflicted copy 2024-03-05).json"_s << u"deleted.json"_s;
    QTest::newRow("month 13 is a month file too")
        << u"2024-13.sync-conflict-20240305-101010-ABCDEFG.json"_s << u"2024-13.json"_s;

    QTest::newRow("month file") << u"2024-03.json"_s << QString();
    QTest::newRow("deletion file") << u"deleted.json"_s << QString();
    QTest::newRow("capitalised deletion file") << u"Deleted.sync-conflict-x.json"_s << QString();
    QTest::newRow("one-digit month") << u"2024-3.sync-conflict-x.json"_s << QString();
    QTest::newRow("some other file") << u"notes (conflicted copy).txt"_s << QString();
    QTest::newRow("a copy that is no conflict") << u"2024-03 (1).json"_s << QString();
    // "2024-03.JSON" is no sync file, so neither is a copy of it.
    QTest::newRow("upper-case extension") << u"2024-03.sync-conflict-20240305-101010-ABCDEFG.JSON"_s << QString();
    QTest::newRow("upload leftover") << u".2024-03.json.brimvale-host-123.tmp"_s << QString();
    QTest::newRow("text before the month") << u"x2024-03.sync-conflict-x.json"_s << QString();
}

void TestFolderSyncBackend::conflictCopyNames()
{
    QFETCH(QString, name);
    QFETCH(QString, original);

    QCOMPARE(BVSyncConflictCopy::originalFileName(name).value_or(QString()), original);
}

void TestFolderSyncBackend::mergeMonthRecords_data()
{
    QTest::addColumn<QByteArray>("original");
    QTest::addColumn<QByteArray>("copy");
    QTest::addColumn<QStringList>("expected");

    const QString ten = u"2024-03-05T10:00:00"_s;
    QTest::newRow("later second in the copy wins")
        << monthJson({ { u"a"_s, ten, u"ours"_s } }) << monthJson({ { u"a"_s, u"2024-03-05T10:00:01"_s, u"theirs"_s } })
        << QStringList { u"a=theirs"_s };
    // Every machine merging the copy, whichever side the tool named the copy, must reach one version.
    QTest::newRow("same second: the greater encoding wins")
        << monthJson({ { u"a"_s, ten, u"ours"_s } }) << monthJson({ { u"a"_s, ten, u"theirs"_s } })
        << QStringList { u"a=theirs"_s };
    QTest::newRow("same second: the smaller encoding loses")
        << monthJson({ { u"a"_s, ten, u"theirs"_s } }) << monthJson({ { u"a"_s, ten, u"ours"_s } })
        << QStringList { u"a=theirs"_s };
    QTest::newRow("earlier copy loses") << monthJson({ { u"a"_s, ten, u"ours"_s } })
                                        << monthJson({ { u"a"_s, u"2024-03-05T09:59:59"_s, u"theirs"_s } })
                                        << QStringList { u"a=ours"_s };
    // As text "9:30" sorts after "10:00".
    QTest::newRow("dates compare as times, not as text")
        << monthJson({ { u"a"_s, ten, u"ours"_s } }) << monthJson({ { u"a"_s, u"2024-03-05T9:30:00"_s, u"theirs"_s } })
        << QStringList { u"a=ours"_s };
    QTest::newRow("new uids follow in the copy's order")
        << monthJson({ { u"b"_s, ten, u"b"_s }, { u"a"_s, ten, u"a"_s } })
        << monthJson({ { u"d"_s, ten, u"d"_s }, { u"a"_s, ten, u"a2"_s }, { u"c"_s, ten, u"c"_s } })
        << QStringList { u"b=b"_s, u"a=a2"_s, u"d=d"_s, u"c=c"_s };
    QTest::newRow("unreadable date in the original loses")
        << monthJson({ { u"a"_s, u"yesterday"_s, u"ours"_s } }) << monthJson({ { u"a"_s, ten, u"theirs"_s } })
        << QStringList { u"a=theirs"_s };
    QTest::newRow("empty original is a file that is gone")
        << QByteArray() << monthJson({ { u"a"_s, ten, u"theirs"_s }, { u"b"_s, ten, u"b"_s } })
        << QStringList { u"a=theirs"_s, u"b=b"_s };
    QTest::newRow("empty copy changes nothing")
        << monthJson({ { u"a"_s, ten, u"ours"_s } }) << QByteArray("[]") << QStringList { u"a=ours"_s };
}

void TestFolderSyncBackend::mergeMonthRecords()
{
    QFETCH(QByteArray, original);
    QFETCH(QByteArray, copy);
    QFETCH(QStringList, expected);

    const std::expected<QByteArray, QString> merged
        = BVSyncConflictCopy::merge(u"2024-03.json"_s, original, copy, kZone);
    QVERIFY2(merged, qPrintable(merged ? QString() : merged.error()));
    QCOMPARE(monthSummary(*merged), expected);
}

void TestFolderSyncBackend::mergeDeletionEntries_data()
{
    QTest::addColumn<QByteArray>("original");
    QTest::addColumn<QByteArray>("copy");
    QTest::addColumn<QStringList>("expected");

    const QString a = u"a@2024-03-05T10:00:00"_s;
    const QString b = u"b@2024-03-05T11:00:00"_s;
    const QString c = u"c@2024-03-05T12:00:00"_s;
    QTest::newRow("entries united without duplicates")
        << deletionJson({ a, b }) << deletionJson({ b, c, a }) << QStringList { a, b, c };
    QTest::newRow("a repeat inside the copy is added once")
        << deletionJson({ a }) << deletionJson({ c, c }) << QStringList { a, c };
    // Both machines deleted it, at different times; reading the file settles which one counts.
    const QString aLater = u"a@2024-03-06T08:00:00"_s;
    QTest::newRow("same uid deleted at another time is kept")
        << deletionJson({ a }) << deletionJson({ aLater }) << QStringList { a, aLater };
    QTest::newRow("empty original is a file that is gone")
        << QByteArray() << deletionJson({ b, a }) << QStringList { b, a };
}

void TestFolderSyncBackend::mergeDeletionEntries()
{
    QFETCH(QByteArray, original);
    QFETCH(QByteArray, copy);
    QFETCH(QStringList, expected);

    const std::expected<QByteArray, QString> merged
        = BVSyncConflictCopy::merge(u"deleted.json"_s, original, copy, kZone);
    QVERIFY2(merged, qPrintable(merged ? QString() : merged.error()));
    QCOMPARE(deletionSummary(*merged), expected);
}

void TestFolderSyncBackend::mergeRefusesContentThatDoesNotRead_data()
{
    QTest::addColumn<QByteArray>("original");
    QTest::addColumn<QByteArray>("copy");

    const QByteArray good = monthJson({ { u"a"_s, u"2024-03-05T10:00:00"_s, u"a"_s } });
    QTest::newRow("copy is not JSON") << good << QByteArray("[{\"uid\": \"b\"");
    QTest::newRow("copy is an object") << good << QByteArray("{\"uid\": \"b\"}");
    QTest::newRow("copy record without uid") << good << QByteArray("[{\"text\": \"b\"}]");
    QTest::newRow("copy uid is a number") << good << QByteArray("[{\"uid\": 7}]");
    QTest::newRow("copy element is no object") << good << QByteArray("[\"b\"]");
    // Merged, such records would stop every machine at "Invalid data for activity(1)!".
    QTest::newRow("copy records with uid and text only") << good << QByteArray("[{\"uid\":\"b\",\"text\":\"x\"}]");
    QTest::newRow("unreadable date in the copy")
        << good << monthJson({ { u"a"_s, u"2024-03-05 11:00:00"_s, u"theirs"_s } });
    QTest::newRow("impossible date in the copy")
        << good << monthJson({ { u"a"_s, u"2024-02-30T11:00:00"_s, u"theirs"_s } });
    QTest::newRow("original is not JSON") << QByteArray("not json") << good;
    QTest::newRow("original record without uid") << QByteArray("[{}]") << good;
}

void TestFolderSyncBackend::mergeRefusesContentThatDoesNotRead()
{
    QFETCH(QByteArray, original);
    QFETCH(QByteArray, copy);

    for (const QString &file : { u"2024-03.json"_s, u"deleted.json"_s }) {
        const std::expected<QByteArray, QString> merged = BVSyncConflictCopy::merge(file, original, copy, kZone);
        QVERIFY2(!merged, qPrintable(file));
        QVERIFY(!merged.error().isEmpty());
    }
}

void TestFolderSyncBackend::rewrittenFileGetsNewRevision_data()
{
    QTest::addColumn<Rewrite>("how");
    QTest::addColumn<bool>("settled"); // the old revision was remembered long after the file was written

    QTest::newRow("in place") << Rewrite::InPlace << true;
    QTest::newRow("through a rename") << Rewrite::ThroughRename << true;
    QTest::newRow("removed and created again") << Rewrite::RemovedAndCreated << true;
    QTest::newRow("in place right after it was read") << Rewrite::InPlace << false;
    QTest::newRow("removed and created right after it was read") << Rewrite::RemovedAndCreated << false;
}

void TestFolderSyncBackend::rewrittenFileGetsNewRevision()
{
    QFETCH(Rewrite, how);
    QFETCH(bool, settled);

    const QString folder
        = settled ? m_settled.filePath(QString::fromLatin1(QTest::currentDataTag())) : m_folder->path();
    const QString path = folder + u"/2024-03.json"_s;
    const QByteArray before = monthJson({ { u"a"_s, u"2024-03-05T10:00:00"_s, u"one"_s } });
    const QByteArray after = monthJson({ { u"a"_s, u"2024-03-05T10:00:00"_s, u"two"_s } });
    if (!settled)
        QVERIFY(writeFile(path, before));
    QCOMPARE(readFile(path), before);
    const QString index = m_home->cacheHome() + u"/index.json"_s;

    BVFolderRevisions revisions(folder, index);
    QCOMPARE(revisions.revision(u"2024-03.json"_s).revision, revisionOf(before));
    revisions.save();
    QVERIFY(rewriteKeepingSizeAndTime(path, after, how));
    QCOMPARE(revisions.revision(u"2024-03.json"_s).revision, revisionOf(after));
    // The same for the next run, which knows the old revision from the index only.
    QCOMPARE(BVFolderRevisions(folder, index).revision(u"2024-03.json"_s).revision, revisionOf(after));
}

void TestFolderSyncBackend::revisionIndexServesOnlyItsFolder_data()
{
    QTest::addColumn<bool>("settled");
    QTest::addColumn<bool>("sameFolder");
    QTest::addColumn<bool>("fromIndex");

    QTest::newRow("this folder") << true << true << true;
    QTest::newRow("another folder") << true << false << false;
    QTest::newRow("file changed just before it was read") << false << true << false;
}

void TestFolderSyncBackend::revisionIndexServesOnlyItsFolder()
{
    QFETCH(bool, settled);
    QFETCH(bool, sameFolder);
    QFETCH(bool, fromIndex);

    // A remembered revision shows only where hashing would give another one, so the index is made to
    // remember one that the content does not have.
    const QString folder
        = settled ? m_settled.filePath(QString::fromLatin1(QTest::currentDataTag())) : m_folder->path();
    if (!settled)
        QVERIFY(writeFile(folder + u"/2024-03.json"_s, monthJson({ { u"a"_s, u"2024-03-05T10:00:00"_s, u"one"_s } })));
    const QByteArray content = readFile(folder + u"/2024-03.json"_s);
    const QString real = revisionOf(content);
    const QString planted = QString(32, u'f');
    const QString index = m_home->cacheHome() + u"/index.json"_s;
    {
        BVFolderRevisions revisions(folder, index);
        QCOMPARE(revisions.revision(u"2024-03.json"_s).revision, real);
        revisions.save();
    }
    QByteArray saved = readFile(index);
    QCOMPARE(saved.contains(real.toLatin1()), settled);
    QVERIFY(writeFile(index, saved.replace(real.toLatin1(), planted.toLatin1())));

    // The other folder shows the very same file, so that nothing but the folder tells the two apart.
    const QString readBy = sameFolder ? folder : m_folder->filePath(u"other"_s);
    if (!sameFolder)
        QVERIFY(QFile::link(folder, readBy));
    BVFolderRevisions revisions(readBy, index);
    QCOMPARE(revisions.revision(u"2024-03.json"_s).revision, fromIndex ? planted : real);
}

void TestFolderSyncBackend::unreadableFileIsAnError()
{
    const QString path = remote(u"2024-03.json"_s);
    QVERIFY(writeFile(path, monthJson({ { u"a"_s, u"2024-03-05T10:00:00"_s, u"a"_s } })));
    QVERIFY(QFile::setPermissions(path, QFileDevice::Permissions()));
    WithoutPermissionOverride asUser;
    QVERIFY(asUser.isEffective());

    BVFolderRevisions revisions(m_folder->path(), m_home->cacheHome() + u"/index.json"_s);
    const BVFolderRevisions::Result result = revisions.revision(u"2024-03.json"_s);
    QVERIFY(result.revision.isNull());
    QVERIFY(!result.error.isEmpty());
    QVERIFY(revisions.revision(u"2024-04.json"_s).error.isEmpty()); // absent is no error

    // The listing stops there: a file it cannot read must not look like one that is gone.
    auto backend = makeBackend(m_folder->path());
    const Listing listing = list(*backend);
    QVERIFY(!listing.called);
    QCOMPARE(m_errors.size(), 1);
    QVERIFY2(m_errors.first().startsWith(u"Failed to read 2024-03.json in the sync folder."_s),
        qPrintable(m_errors.first()));
}

void TestFolderSyncBackend::initializeChecksTheFolder_data()
{
    QTest::addColumn<QString>("folder"); // relative to the test folder; "<none>" for no folder set
    QTest::addColumn<QString>("error"); // the start of the message; empty for success

    QTest::newRow("folder") << u"sync"_s << QString();
    QTest::newRow("no folder set") << u"<none>"_s << u"No sync folder is set."_s;
    QTest::newRow("share not mounted") << u"missing"_s << u"The sync folder \""_s;
    QTest::newRow("a file") << u"file"_s << u"The sync folder \""_s;
}

void TestFolderSyncBackend::initializeChecksTheFolder()
{
    QFETCH(QString, folder);
    QFETCH(QString, error);

    QVERIFY(QDir(m_folder->path()).mkdir(u"sync"_s));
    QVERIFY(writeFile(remote(u"file"_s), "[]"));
    auto backend = makeBackend(folder == u"<none>"_s ? QString() : remote(folder));
    bool completed = false;
    backend->initializeBackend([&] { completed = true; });

    QCOMPARE(completed, error.isEmpty());
    if (error.isEmpty()) {
        QVERIFY(m_errors.isEmpty());
        return;
    }
    QCOMPARE(m_errors.size(), 1);
    QVERIFY2(m_errors.first().startsWith(error), qPrintable(m_errors.first()));
    if (folder != u"<none>"_s)
        QVERIFY2(m_errors.first().contains(remote(folder)), qPrintable(m_errors.first()));
    // A share that is not mounted stays absent: nothing is made in its place.
    QVERIFY(folder != u"missing"_s || !QFileInfo::exists(remote(folder)));
}

void TestFolderSyncBackend::agreeTimeZoneKeepsTheFirstRecorded_data()
{
    QTest::addColumn<QByteArray>("present"); // the zone file already in the folder; empty: none
    QTest::addColumn<QByteArray>("agreed"); // empty: refused
    QTest::addColumn<QString>("error");

    QTest::newRow("first machine records its zone") << QByteArray() << QByteArray("America/Santiago") << QString();
    QTest::newRow("a recorded zone wins")
        << QByteArray(R"({"timeZone":"Asia/Kolkata"})") << QByteArray("Asia/Kolkata") << QString();
    QTest::newRow("a link name of the zone database")
        << QByteArray(R"({"timeZone":"US/Pacific"})") << QByteArray("US/Pacific") << QString();
    // QTimeZone would take it for a POSIX rule of UTC.
    QTest::newRow("a name that is no zone")
        << QByteArray(R"({"timeZone":"Berlin"})") << QByteArray()
        << u"The sync folder's timezone.json cannot be used: the time zone \"Berlin\""_s;
    QTest::newRow("unknown zone")
        << QByteArray(R"({"timeZone":"Mars/Olympus_Mons"})") << QByteArray()
        << u"The sync folder's timezone.json cannot be used: the time zone \"Mars/Olympus_Mons\" is not known on this machine. Please fix or remove it"_s;
    QTest::newRow("not JSON") << QByteArray("Europe/Berlin") << QByteArray()
                              << u"The sync folder's timezone.json cannot be used: it is not valid JSON"_s;
    QTest::newRow("no zone in it") << QByteArray(R"({"zone":"Europe/Berlin"})") << QByteArray()
                                   << u"The sync folder's timezone.json cannot be used: it does not name a time zone"_s;
}

void TestFolderSyncBackend::agreeTimeZoneKeepsTheFirstRecorded()
{
    QFETCH(QByteArray, present);
    QFETCH(QByteArray, agreed);
    QFETCH(QString, error);
    const QString path = remote(u"timezone.json"_s);
    if (!present.isEmpty())
        QVERIFY(writeFile(path, present));

    auto backend = makeBackend(m_folder->path());
    QByteArray handed;
    backend->agreeTimeZone("America/Santiago", [&](const QByteArray &zoneId) { handed = zoneId; });
    QCOMPARE(handed, agreed);
    if (error.isEmpty()) {
        QVERIFY(m_errors.isEmpty());
        QCOMPARE(backend->timeZone().id(), agreed);
    } else {
        QCOMPARE(m_errors.size(), 1);
        QVERIFY2(m_errors.first().startsWith(error), qPrintable(m_errors.first()));
    }
    // Only a folder without one gets the file; a recorded one, good or bad, is never replaced.
    QCOMPARE(readFile(path), present.isEmpty() ? QByteArray(R"({"timeZone":"America/Santiago"})") : present);
    QCOMPARE(folderEntries(), QStringList { u"timezone.json"_s });
}

void TestFolderSyncBackend::fetchListsTheSyncFilesOnly()
{
    const QByteArray march = monthJson({ { u"a"_s, u"2024-03-05T10:00:00"_s, u"a"_s } });
    const QByteArray april = monthJson({ { u"b"_s, u"2024-04-05T10:00:00"_s, u"b"_s } });
    const QByteArray deleted = deletionJson({ u"c@2024-03-05T10:00:00"_s });
    QVERIFY(writeFile(remote(u"2024-03.json"_s), march));
    QVERIFY(writeFile(remote(u"2024-04.json"_s), april));
    QVERIFY(writeFile(remote(u"deleted.json"_s), deleted));
    for (const QString &stray : { u"notes.txt"_s, u"2024-3.json"_s, u"2024-03.JSON"_s, u"2024-03.json.bak"_s,
             u".2024-06.json"_s, u"Deleted.json"_s })
        QVERIFY(writeFile(remote(stray), march));
    QVERIFY(QDir(m_folder->path()).mkdir(u"2024-05.json"_s));

    auto backend = makeBackend(m_folder->path());
    Listing listing = list(*backend);
    QVERIFY(listing.called);
    QVERIFY(listing.didFullFetch);
    QVERIFY(m_errors.isEmpty());
    const QStringList expected { u"2024-03.json "_s + revisionOf(march), u"2024-04.json "_s + revisionOf(april),
        u"deleted.json "_s + revisionOf(deleted) };
    QCOMPARE(listing.lines, expected);

    // Every listing is whole: an unchanged folder lists the same again, a changed file with its new
    // revision, a removed one not at all.
    listing = list(*backend);
    QCOMPARE(listing.lines, expected);
    const QByteArray april2
        = monthJson({ { u"b"_s, u"2024-04-05T10:00:00"_s, u"b"_s }, { u"d"_s, u"2024-04-06T10:00:00"_s, u"d"_s } });
    QVERIFY(writeFile(remote(u"2024-04.json"_s), april2));
    QVERIFY(QFile::remove(remote(u"deleted.json"_s)));
    listing = list(*backend);
    QVERIFY(listing.didFullFetch);
    QCOMPARE(listing.lines,
        (QStringList { u"2024-03.json "_s + revisionOf(march), u"2024-04.json "_s + revisionOf(april2) }));
    QVERIFY(m_errors.isEmpty());
}

void TestFolderSyncBackend::fetchRemovesOnlyAbandonedUploadsOfThisMachine()
{
    const pid_t ended = endedProcess();
    QVERIFY(ended > 0);
    const QString abandoned = uploadLeftover(u"2024-03.json"_s, hostTag(), ended);
    const QString running = uploadLeftover(u"2024-04.json"_s, hostTag(), ::getppid());
    const QString otherMachine = uploadLeftover(u"2024-03.json"_s, u"elsewhere-"_s + hostTag(), ended);
    const QString otherTool = u".2024-03.json.syncthing-1.tmp"_s;
    for (const QString &name : { abandoned, running, otherMachine, otherTool })
        QVERIFY(writeFile(remote(name), "[{\"uid\":"));
    QVERIFY(writeFile(remote(u"2024-03.json"_s), "[]"));

    auto backend = makeBackend(m_folder->path());
    const Listing listing = list(*backend);
    QVERIFY(m_errors.isEmpty());
    QCOMPARE(listing.lines, QStringList { u"2024-03.json "_s + revisionOf("[]") });
    QStringList expected { u"2024-03.json"_s, running, otherMachine, otherTool };
    expected.sort();
    QCOMPARE(folderEntries(), expected);
}

void TestFolderSyncBackend::fetchMergesConflictCopies()
{
    const QString ten = u"2024-03-05T10:00:00"_s;
    const QString eleven = u"2024-03-05T11:00:00"_s;
    QVERIFY(writeFile(remote(u"2024-03.json"_s), monthJson({ { u"a"_s, ten, u"a1"_s }, { u"b"_s, ten, u"b1"_s } })));
    QVERIFY(writeFile(remote(u"2024-03.sync-conflict-20240305-101010-ABCDEFG.json"_s),
        monthJson({ { u"b"_s, eleven, u"b2"_s }, { u"c"_s, eleven, u"c1"_s } })));
    QVERIFY(writeFile(remote(u"2024-03 (Jane's conflicted copy 2024-03-05).json"_s),
        monthJson({ { u"a"_s, ten, u"a-old"_s }, { u"d"_s, ten, u"d1"_s } })));
    QVERIFY(writeFile(remote(u"deleted.json"_s), deletionJson({ u"x@2024-03-05T10:00:00"_s })));
    QVERIFY(writeFile(remote(u"deleted (Jane's conflicted copy 2024-03-05).json"_s),
        deletionJson({ u"y@2024-03-05T12:00:00"_s, u"x@2024-03-05T10:00:00"_s })));
    // The original was removed on one machine while the other still changed it.
    QVERIFY(writeFile(
        remote(u"2024-05 (conflicted copy 2024-05-02 101010).json"_s), monthJson({ { u"e"_s, ten, u"e1"_s } })));
    // A copy with nothing new goes as well.
    QVERIFY(writeFile(remote(u"2024-04.json"_s), monthJson({ { u"f"_s, eleven, u"f2"_s } })));
    QVERIFY(writeFile(remote(u"2024-04_conflict-20240405-101010.json"_s), monthJson({ { u"f"_s, ten, u"f1"_s } })));
    const QByteArray april = readFile(remote(u"2024-04.json"_s));

    auto backend = makeBackend(m_folder->path());
    const Listing listing = list(*backend);
    QVERIFY(m_errors.isEmpty());

    QCOMPARE(
        folderEntries(), (QStringList { u"2024-03.json"_s, u"2024-04.json"_s, u"2024-05.json"_s, u"deleted.json"_s }));
    const QByteArray march = readFile(remote(u"2024-03.json"_s));
    const QByteArray may = readFile(remote(u"2024-05.json"_s));
    const QByteArray deleted = readFile(remote(u"deleted.json"_s));
    QStringList marchRecords = monthSummary(march);
    marchRecords.sort(); // the copies merge one after the other, in either order
    QCOMPARE(marchRecords, (QStringList { u"a=a1"_s, u"b=b2"_s, u"c=c1"_s, u"d=d1"_s }));
    QCOMPARE(monthSummary(may), QStringList { u"e=e1"_s });
    QCOMPARE(deletionSummary(deleted), (QStringList { u"x@2024-03-05T10:00:00"_s, u"y@2024-03-05T12:00:00"_s }));
    QCOMPARE(readFile(remote(u"2024-04.json"_s)), april);
    // The listing names the merged files at the revisions they have now.
    QCOMPARE(listing.lines,
        (QStringList { u"2024-03.json "_s + revisionOf(march), u"2024-04.json "_s + revisionOf(april),
            u"2024-05.json "_s + revisionOf(may), u"deleted.json "_s + revisionOf(deleted) }));
    QVERIFY(
        m_log.contains(u"Merged conflict copy 2024-03.sync-conflict-20240305-101010-ABCDEFG.json into 2024-03.json"_s));
}

void TestFolderSyncBackend::fetchLeavesACopyThatDoesNotMerge_data()
{
    QTest::addColumn<QByteArray>("original"); // empty: no original
    QTest::addColumn<QByteArray>("copy");
    QTest::addColumn<QString>("unreadable"); // the file that cannot be opened, if any

    const QByteArray good = monthJson({ { u"a"_s, u"2024-03-05T10:00:00"_s, u"a"_s } });
    const QByteArray newer = monthJson({ { u"a"_s, u"2024-03-05T11:00:00"_s, u"a2"_s } });
    QTest::newRow("copy is not JSON") << good << QByteArray("[{\"uid\":") << QString();
    // Merged, its records would stop every machine at "Invalid data for activity(1)!".
    QTest::newRow("copy with uid and text only")
        << good << QByteArray(R"([{"uid":"a","text":"a2"},{"uid":"b","text":"b"}])") << QString();
    QTest::newRow("copy with no original is not JSON") << QByteArray() << QByteArray("<html>") << QString();
    QTest::newRow("original is not JSON") << QByteArray("[{\"uid\":") << newer << QString();
    QTest::newRow("copy cannot be read") << good << newer << u"copy"_s;
    QTest::newRow("original cannot be read") << good << newer << u"original"_s;
}

void TestFolderSyncBackend::fetchLeavesACopyThatDoesNotMerge()
{
    QFETCH(QByteArray, original);
    QFETCH(QByteArray, copy);
    QFETCH(QString, unreadable);

    const QString copyName = u"2024-03.sync-conflict-20240305-101010-ABCDEFG.json"_s;
    const QString copyPath = remote(copyName);
    const QString originalPath = remote(u"2024-03.json"_s);
    if (!original.isEmpty())
        QVERIFY(writeFile(originalPath, original));
    QVERIFY(writeFile(copyPath, copy));
    const QString locked = unreadable == u"copy"_s ? copyPath : unreadable == u"original"_s ? originalPath : QString();
    if (!locked.isEmpty())
        QVERIFY(QFile::setPermissions(locked, QFileDevice::Permissions()));

    auto backend = makeBackend(m_folder->path());
    {
        WithoutPermissionOverride asUser;
        QVERIFY(asUser.isEffective());
        list(*backend);
    }
    if (!locked.isEmpty())
        QVERIFY(QFile::setPermissions(locked, QFileDevice::ReadOwner | QFileDevice::WriteOwner));

    QCOMPARE(readFile(copyPath), copy);
    QCOMPARE(QFileInfo::exists(originalPath), !original.isEmpty());
    QCOMPARE(readFile(originalPath), original);
    const QStringList left = m_log.filter(u"Conflict copy "_s + copyName + u" left in place"_s);
    QCOMPARE(left.size(), 1);
    // An unreadable original stops the listing; a bad copy does not.
    if (unreadable == u"original"_s) {
        QCOMPARE(m_errors.size(), 1);
    } else {
        QVERIFY(m_errors.isEmpty());
    }
}

void TestFolderSyncBackend::downloadChecksTheRevision_data()
{
    QTest::addColumn<bool>("present");
    QTest::addColumn<QString>("expectedRevision"); // "listed", "other" or empty for none
    QTest::addColumn<int>("callback"); // -1 none, 0 false, 1 true
    QTest::addColumn<QString>("error");

    QTest::newRow("present, no revision expected") << true << QString() << 1 << QString();
    QTest::newRow("present at the listed revision") << true << u"listed"_s << 1 << QString();
    QTest::newRow("changed since the listing")
        << true << u"other"_s << -1 << u"Invalid revision for 2024-03.json file."_s;
    QTest::newRow("missing, no revision expected") << false << QString() << 0 << QString();
    QTest::newRow("missing, a revision expected")
        << false << u"listed"_s << -1 << u"Failed to retrieve 2024-03.json file."_s;
}

void TestFolderSyncBackend::downloadChecksTheRevision()
{
    QFETCH(bool, present);
    QFETCH(QString, expectedRevision);
    QFETCH(int, callback);
    QFETCH(QString, error);

    const QByteArray content = monthJson({ { u"a"_s, u"2024-03-05T10:00:00"_s, u"a"_s } });
    if (present)
        QVERIFY(writeFile(remote(u"2024-03.json"_s), content));
    QTemporaryDir cache;
    QVERIFY(cache.isValid());
    const QString target = cache.filePath(u"2024-03.json"_s);
    const QByteArray cached = "cached before";
    QVERIFY(writeFile(target, cached));

    std::optional<QString> expected;
    if (expectedRevision == u"listed"_s)
        expected = revisionOf(content);
    else if (expectedRevision == u"other"_s)
        expected = revisionOf("[]");
    auto backend = makeBackend(m_folder->path());
    int called = -1;
    backend->downloadFileWithName(u"2024-03.json"_s, expected, target, [&](bool success) { called = success ? 1 : 0; });

    QCOMPARE(called, callback);
    QCOMPARE(readFile(target), callback == 1 ? content : cached);
    if (error.isEmpty()) {
        QVERIFY(m_errors.isEmpty());
    } else {
        QCOMPARE(m_errors.size(), 1);
        QVERIFY2(m_errors.first().startsWith(error), qPrintable(m_errors.first()));
    }
}

void TestFolderSyncBackend::uploadChecksTheRevision_data()
{
    QTest::addColumn<QString>("remoteBefore"); // state of the folder's file: absent, listed, changed,
                                               // rewritten (same size and time), removed, appeared
    QTest::addColumn<bool>("withRevision"); // the upload expects the listed revision
    QTest::addColumn<bool>("accepted");

    QTest::newRow("new file") << u"absent"_s << false << true;
    QTest::newRow("unchanged since the listing") << u"listed"_s << true << true;
    QTest::newRow("appeared since the listing") << u"appeared"_s << false << false;
    QTest::newRow("changed since the listing") << u"changed"_s << true << false;
    QTest::newRow("rewritten with the same size and time") << u"rewritten"_s << true << false;
    QTest::newRow("removed since the listing") << u"removed"_s << true << false;
}

void TestFolderSyncBackend::uploadChecksTheRevision()
{
    QFETCH(QString, remoteBefore);
    QFETCH(bool, withRevision);
    QFETCH(bool, accepted);

    const QString name = u"2024-03.json"_s;
    const QByteArray listedContent = monthJson({ { u"a"_s, u"2024-03-05T10:00:00"_s, u"one"_s } });
    QByteArray remoteContent;
    auto backend = makeBackend(m_folder->path());
    std::optional<BVTmpSyncFile> listed;
    if (remoteBefore != u"absent"_s && remoteBefore != u"appeared"_s) {
        QVERIFY(writeFile(remote(name), listedContent));
        const Listing listing = list(*backend);
        QCOMPARE(listing.lines, QStringList { name + u' ' + revisionOf(listedContent) });
        listed = BVTmpSyncFile(2024, 3, BVFolderSyncBackend::SyncMethod, revisionOf(listedContent));
        remoteContent = listedContent;
    }
    if (remoteBefore == u"appeared"_s) {
        remoteContent = "[]";
        QVERIFY(writeFile(remote(name), remoteContent));
    } else if (remoteBefore == u"changed"_s) {
        remoteContent = monthJson(
            { { u"a"_s, u"2024-03-05T10:00:00"_s, u"one"_s }, { u"b"_s, u"2024-03-05T10:00:00"_s, u"b"_s } });
        QVERIFY(writeFile(remote(name), remoteContent));
    } else if (remoteBefore == u"rewritten"_s) {
        remoteContent = monthJson({ { u"a"_s, u"2024-03-05T10:00:00"_s, u"two"_s } });
        QVERIFY(rewriteKeepingSizeAndTime(remote(name), remoteContent, Rewrite::InPlace));
    } else if (remoteBefore == u"removed"_s) {
        QVERIFY(QFile::remove(remote(name)));
        remoteContent.clear();
    }

    QTemporaryDir local;
    QVERIFY(local.isValid());
    const QByteArray upload = monthJson({ { u"a"_s, u"2024-03-05T12:00:00"_s, u"merged"_s } });
    QVERIFY(writeFile(local.filePath(name), upload));
    std::optional<QString> returned;
    backend->uploadFile(local.filePath(name), withRevision ? listed : std::nullopt,
        [&](const QString &revision) { returned = revision; });

    QCOMPARE(returned.has_value(), accepted);
    QCOMPARE(folderEntries(), remoteContent.isEmpty() && !accepted ? QStringList() : QStringList { name });
    if (accepted) {
        QVERIFY(m_errors.isEmpty());
        QCOMPARE(readFile(remote(name)), upload);
        QCOMPARE(list(*backend).lines, QStringList { name + u' ' + *returned });
        QCOMPARE(*returned, revisionOf(upload));
    } else {
        QCOMPARE(m_errors.size(), 1);
        QVERIFY2(m_errors.first().contains(u"has been changed in the sync folder since it was merged"_s),
            qPrintable(m_errors.first()));
        QCOMPARE(readFile(remote(name)), remoteContent);
    }
}

void TestFolderSyncBackend::uploadIntoReadOnlyFolderFails()
{
    const QString name = u"2024-03.json"_s;
    const QByteArray remoteContent = monthJson({ { u"a"_s, u"2024-03-05T10:00:00"_s, u"one"_s } });
    QVERIFY(writeFile(remote(name), remoteContent));
    auto backend = makeBackend(m_folder->path());
    const Listing listing = list(*backend);
    QCOMPARE(listing.lines.size(), 1);

    const bool asRoot = ::geteuid() == 0;
    if (asRoot) {
        if (QProcess::execute(u"chattr"_s, { u"+i"_s, m_folder->path() }) != 0)
            QSKIP("the file system of the temporary folder cannot make a folder immutable");
    } else {
        QVERIFY(QFile::setPermissions(m_folder->path(), QFileDevice::ReadOwner | QFileDevice::ExeOwner));
    }
    auto restore = qScopeGuard([&] {
        if (asRoot)
            QProcess::execute(u"chattr"_s, { u"-i"_s, m_folder->path() });
        else
            QFile::setPermissions(
                m_folder->path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    });

    QTemporaryDir local;
    QVERIFY(local.isValid());
    QVERIFY(writeFile(local.filePath(name), "[]"));
    bool uploaded = false;
    backend->uploadFile(local.filePath(name),
        BVTmpSyncFile(2024, 3, BVFolderSyncBackend::SyncMethod, revisionOf(remoteContent)),
        [&](const QString &) { uploaded = true; });

    QVERIFY(!uploaded);
    QCOMPARE(m_errors.size(), 1);
    QVERIFY2(m_errors.first().startsWith(u"Failed to write 2024-03.json to the sync folder."_s),
        qPrintable(m_errors.first()));
    QCOMPARE(folderEntries(), QStringList { name });
    QCOMPARE(readFile(remote(name)), remoteContent);
}

void TestFolderSyncBackend::deleteFile_data()
{
    QTest::addColumn<bool>("present");

    QTest::newRow("present") << true;
    QTest::newRow("already gone") << false;
}

void TestFolderSyncBackend::deleteFile()
{
    QFETCH(bool, present);

    QVERIFY(writeFile(remote(u"2024-04.json"_s), "[]"));
    if (present)
        QVERIFY(writeFile(remote(u"2024-03.json"_s), "[]"));
    auto backend = makeBackend(m_folder->path());
    QCOMPARE(list(*backend).lines.size(), present ? 2 : 1);

    bool completed = false;
    backend->deleteFile(
        BVTmpSyncFile(2024, 3, BVFolderSyncBackend::SyncMethod, revisionOf("[]")), [&] { completed = true; });

    QVERIFY(completed);
    QVERIFY(m_errors.isEmpty());
    QCOMPARE(folderEntries(), QStringList { u"2024-04.json"_s });
    QCOMPARE(list(*backend).lines, QStringList { u"2024-04.json "_s + revisionOf("[]") });
}

QTEST_GUILESS_MAIN(TestFolderSyncBackend)
#include "testfoldersyncbackend.moc"
