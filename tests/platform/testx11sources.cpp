#include <QProcess>
#include <QtTest>

#include "platform/idlesourcex11.h"
#include "platform/platformservices.h"
#include "platform/sessioneventsdpms.h"
#include "support/dbusmock.h"

using namespace Qt::StringLiterals;

// The X11 sources against the test's Xvfb, which has MIT-SCREEN-SAVER and XTEST but no DPMS.
class TestX11Sources : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void idleTimeRestartsWithInput();
    void refusedUnderWayland();
    void missingDpmsIsSaid();
    void extensionBeforeTheScreenSaverService();
};

void TestX11Sources::idleTimeRestartsWithInput()
{
    IdleSourceX11 source(QString(), false);
    QVERIFY2(source.isAvailable(), qPrintable(source.unavailableReason()));
    QTest::qWait(1200);
    const QDateTime beforeInput = QDateTime::currentDateTimeUtc();
    std::optional<QDateTime> since = source.idleSince(beforeInput);
    QVERIFY(since);
    QVERIFY(*since < beforeInput);
    QCOMPARE(QProcess::execute(u"xdotool"_s, { u"mousemove"_s, u"10"_s, u"20"_s }), 0);
    since = source.idleSince(QDateTime::currentDateTimeUtc());
    QVERIFY(!since || *since >= beforeInput.addMSecs(-100));
}

void TestX11Sources::refusedUnderWayland()
{
    const IdleSourceX11 source(QString(), true);
    QVERIFY(!source.isAvailable());
    QVERIFY(source.unavailableReason().contains(u"Wayland"_s));
}

void TestX11Sources::missingDpmsIsSaid()
{
    SessionEventsDpms dpms(QString(), false);
    QVERIFY(!dpms.isAvailable());
    QCOMPARE(dpms.unavailableReason(), u"The X server lacks the DPMS extension."_s);
}

void TestX11Sources::extensionBeforeTheScreenSaverService()
{
    // Plasma on X11 offers both; the extension counts every input of the display without a round trip
    // through the desktop's service.
    auto screenSaver
        = DBusMock::bare(u"org.freedesktop.ScreenSaver"_s, u"/ScreenSaver"_s, u"org.freedesktop.ScreenSaver"_s);
    QVERIFY(screenSaver);
    screenSaver->mock(u"AddMethod"_s, { QString(), u"GetSessionIdleTime"_s, QString(), u"u"_s, u"ret = 1000"_s });
    qputenv("XDG_SESSION_TYPE", "x11");
    const PlatformServices services = PlatformServices::forSession();
    qunsetenv("XDG_SESSION_TYPE");
    QVERIFY2(services.idleSource->isAvailable(), qPrintable(services.idleSource->unavailableReason()));
    QCOMPARE(services.idleSource->name(), u"X11 screen saver extension"_s);
}

QTEST_GUILESS_MAIN(TestX11Sources)
#include "testx11sources.moc"
