#include <QtTest>

#include "platform/idlesourcewayland.h"

using namespace Qt::StringLiterals;

// The Wayland idle source against the headless compositor the test runs with (sway: org_kde_kwin_idle),
// whose seat has no input device, so the user is idle from the start.
class TestWaylandIdle : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void thresholdCrossingDatesTheIdleStart();
    void noCompositorIsSaid();
};

void TestWaylandIdle::thresholdCrossingDatesTheIdleStart()
{
    const QString display = qEnvironmentVariable("WAYLAND_DISPLAY");
    if (display.isEmpty())
        QSKIP("No Wayland compositor to test against.");
    IdleSourceWayland source(display);
    QVERIFY2(source.isAvailable(), qPrintable(source.unavailableReason()));
    QSignalSpy changed(&source, &IdleSource::idleSinceChanged);
    const QDateTime before = QDateTime::currentDateTimeUtc();
    source.setThresholdSeconds(1);
    QVERIFY(!source.idleSince(before));
    QTRY_VERIFY_WITH_TIMEOUT(!changed.isEmpty(), 10000);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const std::optional<QDateTime> since = source.idleSince(now);
    QVERIFY(since);
    // Dated one threshold before the compositor said so, which was after the request.
    QVERIFY(*since >= before.addSecs(-1));
    QVERIFY(*since <= now.addSecs(-1));
}

void TestWaylandIdle::noCompositorIsSaid()
{
    const IdleSourceWayland source(u"/nonexistent/wayland-0"_s);
    QVERIFY(!source.isAvailable());
    QCOMPARE(source.unavailableReason(), u"No Wayland compositor to ask for idle notifications."_s);
}

QTEST_GUILESS_MAIN(TestWaylandIdle)
#include "testwaylandidle.moc"
