#include <limits>

#include <QFile>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include "settings/userdefaults.h"

using namespace Qt::StringLiterals;

class TestUserDefaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void storedTextConvertsLikeAPropertyList_data();
    void storedTextConvertsLikeAPropertyList();
    void registeredDefaultsAnswerOnlyForMissingKeys();
    void scalarsReadTheSameBeforeAndAfterReload();
    void unreadableResourceRegistersNothing_data();
    void unreadableResourceRegistersNothing();
};

void TestUserDefaults::storedTextConvertsLikeAPropertyList_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("text");
    QTest::addColumn<qint64>("integer");
    QTest::addColumn<bool>("boolean");

    QTest::newRow("YES") << QByteArray("YES") << u"YES"_s << qint64(0) << true;
    QTest::newRow("yes") << QByteArray("yes") << u"yes"_s << qint64(0) << true;
    QTest::newRow("true") << QByteArray("true") << u"true"_s << qint64(0) << true;
    QTest::newRow("NO") << QByteArray("NO") << u"NO"_s << qint64(0) << false;
    QTest::newRow("1") << QByteArray("1") << u"1"_s << qint64(1) << true;
    QTest::newRow("0") << QByteArray("0") << u"0"_s << qint64(0) << false;
    QTest::newRow("leading zeros") << QByteArray("007") << u"007"_s << qint64(7) << true;
    QTest::newRow("digits then text") << QByteArray("12abc") << u"12abc"_s << qint64(12) << true;
    QTest::newRow("negative") << QByteArray("-7") << u"-7"_s << qint64(-7) << true;
    QTest::newRow("fraction below one") << QByteArray("0.5") << u"0.5"_s << qint64(0) << false;
    QTest::newRow("beyond 64 bits") << QByteArray("99999999999999999999") << u"99999999999999999999"_s
                                    << std::numeric_limits<qint64>::max() << true;
    QTest::newRow("empty") << QByteArray("") << u""_s << qint64(0) << false;
    // An unquoted comma makes a list in INI; the text is what the user wrote.
    QTest::newRow("unquoted comma") << QByteArray("212.000000, YES") << u"212.000000, YES"_s << qint64(212) << true;
}

void TestUserDefaults::storedTextConvertsLikeAPropertyList()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, text);
    QFETCH(qint64, integer);
    QFETCH(bool, boolean);

    QTemporaryDir dir;
    const QString path = dir.filePath(u"Brimvale.conf"_s);
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[General]\nvalue=" + line + '\n');
    file.close();

    const UserDefaults defaults(path);
    QCOMPARE(defaults.stringForKey(u"value"_s), text);
    QCOMPARE(defaults.integerForKey(u"value"_s), integer);
    QCOMPARE(defaults.boolForKey(u"value"_s), boolean);
}

void TestUserDefaults::registeredDefaultsAnswerOnlyForMissingKeys()
{
    QTemporaryDir dir;
    UserDefaults defaults(dir.filePath(u"Brimvale.conf"_s));
    defaults.registerDefaults({ { u"count"_s, 25 }, { u"flag"_s, true }, { u"name"_s, u"registered"_s } });
    defaults.setInteger(5, u"count"_s);

    QCOMPARE(defaults.integerForKey(u"count"_s), 5);
    QCOMPARE(defaults.stringForKey(u"name"_s), u"registered"_s);
    QCOMPARE(defaults.stringForKey(u"flag"_s), u"1"_s);
    QVERIFY(defaults.hasKey(u"count"_s));
    QVERIFY(!defaults.hasKey(u"name"_s));

    defaults.removeObject(u"count"_s);
    QCOMPARE(defaults.integerForKey(u"count"_s), 25);
    QVERIFY(defaults.synchronize());
    QVERIFY(!QSettings(defaults.filePath(), QSettings::IniFormat).contains(u"name"_s));
}

void TestUserDefaults::scalarsReadTheSameBeforeAndAfterReload()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(u"Brimvale.conf"_s);
    UserDefaults written(path);
    written.setBool(true, u"flag"_s);
    written.setInteger(-42, u"count"_s);
    written.setObject(2.5, u"ratio"_s);
    written.setObject(u"a, b"_s, u"text"_s);
    QVERIFY(written.synchronize());

    const UserDefaults reread(path);
    for (const QString &key : { u"flag"_s, u"count"_s, u"ratio"_s, u"text"_s }) {
        QCOMPARE(reread.objectForKey(key), written.objectForKey(key));
        QCOMPARE(reread.stringForKey(key), written.stringForKey(key));
    }
    QCOMPARE(reread.stringForKey(u"flag"_s), u"1"_s);
    QCOMPARE(reread.integerForKey(u"count"_s), -42);
    QCOMPARE(reread.stringForKey(u"text"_s), u"a, b"_s);
}

void TestUserDefaults::unreadableResourceRegistersNothing_data()
{
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("missing") << QByteArray();
    QTest::newRow("an array") << QByteArray("[1, 2]");
    QTest::newRow("broken") << QByteArray("{\"appearance\": ");
}

void TestUserDefaults::unreadableResourceRegistersNothing()
{
    QFETCH(QByteArray, content);

    QTemporaryDir dir;
    const QString json = dir.filePath(u"defaults.json"_s);
    if (!content.isNull()) {
        QFile file(json);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }
    UserDefaults defaults(dir.filePath(u"Brimvale.conf"_s));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"registered defaults"_s));
    QVERIFY(!defaults.registerDefaultsFromResource(json));
    QVERIFY(defaults.registeredDefaults().isEmpty());
}

QTEST_GUILESS_MAIN(TestUserDefaults)
#include "testuserdefaults.moc"
