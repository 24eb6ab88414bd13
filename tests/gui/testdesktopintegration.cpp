#include <QtTest>

#include <QIcon>
#include <QImageReader>
#include <QSvgRenderer>
#include <QTemporaryDir>

using namespace Qt::StringLiterals;

namespace {

QString sourceFile(const QString &path)
{
    return qEnvironmentVariable("BRIMVALE_SOURCE_DIR") + u'/' + path;
}

int run(const QString &program, const QStringList &arguments, QString *output = nullptr)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(60000))
        return -1;
    if (output)
        *output = QString::fromUtf8(process.readAll());
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

} // namespace

class TestDesktopIntegration : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void desktopEntryIsValid();
    void installPutsTheIconsWhereThemesLook_data();
    void installPutsTheIconsWhereThemesLook();
    void iconThemeFindsTheInstalledIcon();
    void linkHandlerIsRegisteredAfterInstall();

private:
    QTemporaryDir m_prefix;
};

void TestDesktopIntegration::initTestCase()
{
    QVERIFY(m_prefix.isValid());
    QString output;
    const int code = run(QStringLiteral(BRIMVALE_CMAKE_COMMAND),
        { u"--install"_s, QStringLiteral(BRIMVALE_BINARY_DIR), u"--component"_s, u"desktop"_s, u"--prefix"_s,
            m_prefix.path() },
        &output);
    QVERIFY2(code == 0, qPrintable(output));
}

void TestDesktopIntegration::desktopEntryIsValid()
{
    if (QStandardPaths::findExecutable(u"desktop-file-validate"_s).isEmpty())
        QSKIP("desktop-file-validate is not installed (package desktop-file-utils)");
    for (const QString &path : { sourceFile(u"src/gui/resources/brimvale.desktop"_s),
             m_prefix.filePath(u"share/applications/brimvale.desktop"_s) }) {
        QString output;
        const int code = run(u"desktop-file-validate"_s, { path }, &output);
        // The tool exits 0 on hints too; any line it prints is a finding.
        QVERIFY2(code == 0 && output.trimmed().isEmpty(), qPrintable(path + u": "_s + output));
    }
}

void TestDesktopIntegration::installPutsTheIconsWhereThemesLook_data()
{
    QTest::addColumn<int>("size");
    for (int size : { 16, 22, 24, 32, 48, 64, 128, 256 })
        QTest::addRow("%dpx", size) << size;
}

void TestDesktopIntegration::installPutsTheIconsWhereThemesLook()
{
    QFETCH(int, size);
    const QString path = m_prefix.filePath(u"share/icons/hicolor/%1x%1/apps/brimvale.png"_s.arg(size));
    QImageReader reader(path);
    QCOMPARE(reader.format(), QByteArray("png"));
    QCOMPARE(reader.size(), QSize(size, size));
    const QImage image = reader.read();
    // Drawn, with a transparent corner: not an empty or square placeholder.
    QVERIFY(image.hasAlphaChannel());
    QCOMPARE(qAlpha(image.pixel(0, 0)), 0);
    QCOMPARE(qAlpha(image.pixel(size / 2, size / 2)), 255);
}

void TestDesktopIntegration::iconThemeFindsTheInstalledIcon()
{
    QSvgRenderer scalable(m_prefix.filePath(u"share/icons/hicolor/scalable/apps/brimvale.svg"_s));
    QVERIFY(scalable.isValid());
    // The theme's index comes with the desktop (package hicolor-icon-theme); the app installs only its icon.
    const QString systemIcons = u"/usr/share/icons"_s;
    if (!QFile::exists(systemIcons + u"/hicolor/index.theme"_s))
        QSKIP("the hicolor icon theme is not installed");
    QIcon::setThemeSearchPaths({ m_prefix.filePath(u"share/icons"_s), systemIcons });
    QIcon::setThemeName(u"hicolor"_s);
    const QIcon icon = QIcon::fromTheme(u"brimvale"_s);
    QVERIFY(!icon.isNull());
    QCOMPARE(icon.pixmap(48).size(), QSize(48, 48));
}

void TestDesktopIntegration::linkHandlerIsRegisteredAfterInstall()
{
    if (QStandardPaths::findExecutable(u"update-desktop-database"_s).isEmpty())
        QSKIP("update-desktop-database is not installed (package desktop-file-utils)");
    const QString applications = m_prefix.filePath(u"share/applications"_s);
    QString output;
    QVERIFY2(run(u"update-desktop-database"_s, { applications }, &output) == 0, qPrintable(output));
    QFile cache(applications + u"/mimeinfo.cache"_s);
    QVERIFY(cache.open(QIODevice::ReadOnly));
    QVERIFY(QString::fromUtf8(cache.readAll()).contains(u"x-scheme-handler/brimvaleapp=brimvale.desktop;"_s));
}

QTEST_MAIN(TestDesktopIntegration)
#include "testdesktopintegration.moc"
