#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include "platform/autostartxdg.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {

QString autostartFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + u"/autostart"_s;
}

// The key=value lines of the file's one group, checked to be "[Desktop Entry]".
QHash<QString, QString> readEntry(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
    if (lines.value(0) != u"[Desktop Entry]")
        return {};
    QHash<QString, QString> entry;
    for (const QString &line : lines.mid(1)) {
        const qsizetype equals = line.indexOf(u'=');
        if (equals > 0)
            entry.insert(line.left(equals), line.mid(equals + 1));
    }
    return entry;
}

} // namespace

class TestAutostartXdg : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void enablingWritesAndDisablingRemovesTheEntry();
    void blockedFolderIsReportedAndLeavesNoEntry();
    void execLineQuotesTheProgram_data();
    void execLineQuotesTheProgram();
    void sessionStartsTheProgramItNames_data();
    void sessionStartsTheProgramItNames();
};

void TestAutostartXdg::initTestCase()
{
    QStandardPaths::setTestModeEnabled(true);
}

void TestAutostartXdg::enablingWritesAndDisablingRemovesTheEntry()
{
    const IsolatedHome home;
    AutostartXdg autostart;
    QCOMPARE(autostart.filePath(), autostartFolder() + u"/brimvale.desktop"_s);
    QVERIFY(!autostart.isEnabled());

    const auto result = autostart.setEnabled(true);
    QVERIFY2(result, qPrintable(result ? QString() : result.error()));
    QVERIFY(autostart.isEnabled());

    const QHash<QString, QString> entry = readEntry(autostart.filePath());
    QCOMPARE(entry.value(u"Type"_s), u"Application"_s);
    QCOMPARE(entry.value(u"Name"_s), u"Brimvale"_s);
    QCOMPARE(entry.value(u"Exec"_s), u"brimvale launchFromHelper"_s);
    QCOMPARE(entry.value(u"Icon"_s), u"brimvale"_s);
    QCOMPARE(entry.value(u"X-GNOME-Autostart-enabled"_s), u"true"_s);
    QVERIFY(!entry.value(u"Comment"_s).isEmpty());
    QVERIFY2(!entry.contains(u"Hidden"_s), "Hidden=true would switch the entry off");

    QVERIFY(autostart.setEnabled(false));
    QVERIFY(!QFile::exists(autostart.filePath()));
    QVERIFY2(autostart.setEnabled(false), "removing what is not there succeeds");
}

void TestAutostartXdg::blockedFolderIsReportedAndLeavesNoEntry()
{
    const IsolatedHome home;
    QVERIFY(QDir().mkpath(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)));
    QFile blocker(autostartFolder());
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();

    AutostartXdg autostart;
    const auto result = autostart.setEnabled(true);
    QVERIFY(!result);
    QVERIFY(result.error().contains(autostartFolder()));
    QVERIFY(!autostart.isEnabled());
}

void TestAutostartXdg::execLineQuotesTheProgram_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("exec");

    QTest::newRow("name in PATH") << u"brimvale"_s << u"brimvale launchFromHelper"_s;
    QTest::newRow("space") << u"/opt/my apps/brimvale"_s << uR"("/opt/my apps/brimvale" launchFromHelper)"_s;
    QTest::newRow("dollar") << u"/opt/$x/brimvale"_s << uR"("/opt/\\$x/brimvale" launchFromHelper)"_s;
    QTest::newRow("double quote") << u"/opt/a\"b/brimvale"_s << uR"("/opt/a\\"b/brimvale" launchFromHelper)"_s;
    QTest::newRow("percent") << u"/opt/100%/brimvale"_s << u"/opt/100%%/brimvale launchFromHelper"_s;
}

void TestAutostartXdg::execLineQuotesTheProgram()
{
    QFETCH(QString, program);
    QFETCH(QString, exec);

    const IsolatedHome home;
    AutostartXdg autostart(program);
    QVERIFY(autostart.setEnabled(true));
    QCOMPARE(readEntry(autostart.filePath()).value(u"Exec"_s), exec);
}

void TestAutostartXdg::sessionStartsTheProgramItNames_data()
{
    QTest::addColumn<QString>("folderName");

    QTest::newRow("plain") << u"bin"_s;
    QTest::newRow("space") << u"my apps"_s;
    QTest::newRow("dollar and quote") << u"a$b\"c"_s;
    // No "%" row: the generator looks for the program before it turns "%%" back into "%", so such a path is
    // refused there although the line follows the Desktop Entry rules (checked by execLineQuotesTheProgram).
}

// systemd's autostart generator is what GNOME and KDE Plasma use under systemd to run these entries. It
// makes a unit only when the program named by Exec exists, so a unit proves the line was read back right.
void TestAutostartXdg::sessionStartsTheProgramItNames()
{
    QFETCH(QString, folderName);

    const QString generator = u"/usr/lib/systemd/user-generators/systemd-xdg-autostart-generator"_s;
    QVERIFY2(QFile::exists(generator), "systemd (Debian package systemd) provides the autostart generator");

    const IsolatedHome home;
    const QString programFolder = home.root() + u'/' + folderName;
    QVERIFY(QDir().mkpath(programFolder));
    const QString program = programFolder + u"/brimvale"_s;
    QVERIFY(QFile::copy(u"/bin/true"_s, program));

    AutostartXdg autostart(program);
    QVERIFY(autostart.setEnabled(true));

    const QString units = home.root() + u"/units"_s;
    QVERIFY(QDir().mkpath(units));
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"XDG_CONFIG_HOME"_s, QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation));
    environment.insert(u"XDG_CONFIG_DIRS"_s, home.root() + u"/no-system-entries"_s);
    process.setProcessEnvironment(environment);
    process.start(generator, { units, units, units });
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitCode(), 0);

    QFile unit(units + u"/app-brimvale@autostart.service"_s);
    QVERIFY2(unit.open(QIODevice::ReadOnly), process.readAllStandardError().constData());
    const QString text = QString::fromUtf8(unit.readAll());
    QVERIFY2(text.contains(u" launchFromHelper\n"_s), qPrintable(text));
}

QTEST_GUILESS_MAIN(TestAutostartXdg)
#include "testautostartxdg.moc"
