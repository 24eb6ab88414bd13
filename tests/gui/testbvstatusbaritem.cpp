#include <QtTest>

#include <QSystemTrayIcon>

#include "gui/app/bvstatusbaritem.h"

using namespace Qt::StringLiterals;

namespace {

bool isTextPixel(QRgb pixel)
{
    return qAlpha(pixel) > 200 && qRed(pixel) > 200 && qGreen(pixel) > 200 && qBlue(pixel) > 200;
}

bool isBadgePixel(QRgb pixel)
{
    return qAlpha(pixel) > 200 && qRed(pixel) < 60 && qGreen(pixel) < 60 && qBlue(pixel) < 60;
}

} // namespace

class TestBvStatusBarItem : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void titlePerType_data();
    void titlePerType();
    void toolTipCarriesTheStatus_data();
    void toolTipCarriesTheStatus();
    void iconIsDrawnAgainOnlyWhenTheTitleChanges();
    void timerIsDrawnLegiblyIntoTheIcon_data();
    void timerIsDrawnLegiblyIntoTheIcon();
    void noTimerDrawsThePlainIcon_data();
    void noTimerDrawsThePlainIcon();
    void showsOnlyWhereATrayExists_data();
    void showsOnlyWhereATrayExists();
    void leftClickActivates_data();
    void leftClickActivates();
};

void TestBvStatusBarItem::titlePerType_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("title");

    QTest::newRow("icon while tracking") << 0 << u"01:23"_s << QString();
    QTest::newRow("icon, nothing running") << 0 << QString() << QString();
    QTest::newRow("timer while tracking") << 1 << u"01:23"_s << u"01:23"_s;
    QTest::newRow("timer, nothing running") << 1 << QString() << u"--:--"_s;
    QTest::newRow("timer, empty text") << 1 << u""_s << u"--:--"_s;
    QTest::newRow("icon and timer while tracking") << 2 << u"12:05"_s << u"12:05"_s;
    QTest::newRow("icon and timer, nothing running") << 2 << QString() << u"--:--"_s;
    QTest::newRow("unknown type counts as icon") << 7 << u"01:23"_s << QString();
}

void TestBvStatusBarItem::titlePerType()
{
    QFETCH(int, type);
    QFETCH(QString, text);
    QFETCH(QString, title);

    // Type set before the text, and the text set before the type: the same title either way.
    BvStatusBarItem before([] { return true; });
    before.setStatusBarType(type);
    before.setStatusBarTitle(text);
    QCOMPARE(before.title(), title);

    BvStatusBarItem after([] { return true; });
    after.setStatusBarTitle(text);
    after.setStatusBarType(type);
    QCOMPARE(after.title(), title);
    QVERIFY(after.title().isEmpty() == (after.statusBarType() == 0));
}

void TestBvStatusBarItem::toolTipCarriesTheStatus_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("tracking");
    QTest::addColumn<QString>("toolTip");

    QTest::newRow("idle") << 1 << QString() << QString() << u"Brimvale"_s;
    QTest::newRow("timer") << 1 << u"01:23"_s << u"@Acme #call"_s << u"Brimvale\n01:23 @Acme #call"_s;
    // The icon shows no timer, so the tooltip is where the running activity can be read.
    QTest::newRow("icon only") << 0 << QString() << u"@Acme #call"_s << u"Brimvale\n@Acme #call"_s;
    QTest::newRow("icon only, timer given") << 0 << u"00:07"_s << u"x"_s << u"Brimvale\n00:07 x"_s;
}

void TestBvStatusBarItem::toolTipCarriesTheStatus()
{
    QFETCH(int, type);
    QFETCH(QString, text);
    QFETCH(QString, tracking);
    QFETCH(QString, toolTip);

    BvStatusBarItem item([] { return true; });
    item.setStatusBarType(type);
    item.setStatusBarTitle(text);
    item.setTrackingText(tracking);
    QCOMPARE(item.toolTip(), toolTip);
    QCOMPARE(item.findChild<QSystemTrayIcon *>()->toolTip(), toolTip);
}

void TestBvStatusBarItem::iconIsDrawnAgainOnlyWhenTheTitleChanges()
{
    BvStatusBarItem item([] { return true; });
    item.setStatusBarType(1);
    item.setStatusBarTitle(u"01:23"_s);
    const qint64 first = item.icon().cacheKey();
    QVERIFY(!item.icon().isNull());

    // The app hands the title over every second; within the minute nothing is drawn.
    for (int second = 0; second < 59; ++second)
        item.setStatusBarTitle(u"01:23"_s);
    item.setTrackingText(u"@Acme"_s);
    QCOMPARE(item.icon().cacheKey(), first);

    item.setStatusBarTitle(u"01:24"_s);
    const qint64 second = item.icon().cacheKey();
    QVERIFY(second != first);
    item.setStatusBarType(1);
    QCOMPARE(item.icon().cacheKey(), second);

    // The plain icon does not change with the time.
    item.setStatusBarType(0);
    const qint64 plain = item.icon().cacheKey();
    QVERIFY(plain != second);
    item.setStatusBarTitle(u"01:25"_s);
    QCOMPARE(item.icon().cacheKey(), plain);
    QCOMPARE(item.icon().pixmap(22).toImage(), BvStatusBarItem::renderIcon(0, QString(), 22));
}

void TestBvStatusBarItem::timerIsDrawnLegiblyIntoTheIcon_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("title");
    QTest::addColumn<int>("size");

    for (int size : { 16, 22, 24, 64 }) {
        const auto row = [size](const char *what) -> QTestData & { return QTest::addRow("%s %dpx", what, size); };
        row("timer") << 1 << u"01:23"_s << size;
        row("timer, ten hours") << 1 << u"10:59"_s << size;
        row("icon and timer") << 2 << u"01:23"_s << size;
        row("icon and timer, a hundred hours") << 2 << u"100:00"_s << size;
    }
}

void TestBvStatusBarItem::timerIsDrawnLegiblyIntoTheIcon()
{
    QFETCH(int, type);
    QFETCH(QString, title);
    QFETCH(int, size);

    const QImage image = BvStatusBarItem::renderIcon(type, title, size).convertToFormat(QImage::Format_ARGB32);
    QCOMPARE(image.size(), QSize(size, size));
    int text = 0;
    int badge = 0;
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
            const QRgb pixel = image.pixel(x, y);
            if (isTextPixel(pixel)) {
                ++text;
                // The text fits: no white pixel on the outermost columns.
                QVERIFY2(x > 0 && x < size - 1, qPrintable(u"white at %1,%2"_s.arg(x).arg(y)));
            }
            badge += isBadgePixel(pixel);
        }
    }
    // White on dark: readable whether the panel is light or dark.
    QVERIFY2(text >= size / 4, qPrintable(QString::number(text)));
    QVERIFY(badge > text);
    QVERIFY(image != BvStatusBarItem::renderIcon(0, QString(), size).convertToFormat(QImage::Format_ARGB32));
    QVERIFY(image != BvStatusBarItem::renderIcon(type, u"01:24"_s, size).convertToFormat(QImage::Format_ARGB32));
}

void TestBvStatusBarItem::noTimerDrawsThePlainIcon_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("title");
    QTest::newRow("timer, idle") << 1 << u"--:--"_s;
    QTest::newRow("icon and timer, idle") << 2 << u"--:--"_s;
    QTest::newRow("timer, no text") << 1 << QString();
    QTest::newRow("icon while tracking") << 0 << u"01:23"_s;
}

void TestBvStatusBarItem::noTimerDrawsThePlainIcon()
{
    QFETCH(int, type);
    QFETCH(QString, title);
    QCOMPARE(BvStatusBarItem::renderIcon(type, title, 22), BvStatusBarItem::renderIcon(0, QString(), 22));
}

void TestBvStatusBarItem::showsOnlyWhereATrayExists_data()
{
    QTest::addColumn<bool>("available");
    QTest::newRow("tray host") << true;
    QTest::newRow("no tray host") << false;
}

void TestBvStatusBarItem::showsOnlyWhereATrayExists()
{
    QFETCH(bool, available);
    BvStatusBarItem item([&available] { return available; });
    QCOMPARE(item.isAvailable(), available);
    QMenu menu;
    item.setMenu(&menu);
    QCOMPARE(item.menu(), &menu);
    QCOMPARE(item.findChild<QSystemTrayIcon *>()->contextMenu(), &menu);
    item.setVisible(true);
    QCOMPARE(item.isVisible(), available);
    item.setVisible(false);
    QVERIFY(!item.isVisible());
}

void TestBvStatusBarItem::leftClickActivates_data()
{
    QTest::addColumn<int>("reason");
    QTest::addColumn<int>("activations");
    QTest::newRow("left click") << int(QSystemTrayIcon::Trigger) << 1;
    QTest::newRow("menu request") << int(QSystemTrayIcon::Context) << 0;
    QTest::newRow("middle click") << int(QSystemTrayIcon::MiddleClick) << 0;
}

void TestBvStatusBarItem::leftClickActivates()
{
    QFETCH(int, reason);
    QFETCH(int, activations);
    BvStatusBarItem item([] { return true; });
    QSignalSpy spy(&item, &BvStatusBarItem::activated);
    Q_EMIT item.findChild<QSystemTrayIcon *>()->activated(QSystemTrayIcon::ActivationReason(reason));
    QCOMPARE(spy.count(), activations);
}

QTEST_MAIN(TestBvStatusBarItem)
#include "testbvstatusbaritem.moc"
