#include <QtTest>

#include <QDateTimeEdit>
#include <QLabel>
#include <QPushButton>

#include "app/trackingcontroller.h"
#include "fakes/fakeclock.h"
#include "gui/app/editactivitystarttimewindowcontroller.h"
#include "model/activity.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "model/storecontext.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

class TestEditActivityStartTimeWindowController : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void boundsFollowTheStart_data();
    void boundsFollowTheStart();
    void setMovesTheStoredStart();
    void cancelKeepsTheStart();
    void nothingRunningOffersNoSet();
    void stoppedWhileOpenClosesWithoutSetting();

private:
    // Starts tracking `secondsAgo` before the clock's now.
    void startAgo(qint64 secondsAgo);
    QDateTime storedStart();

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock { QDateTime(QDate(2024, 3, 12), QTime(10, 0, 30), Qt::UTC) };
    std::unique_ptr<Store> m_store;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
    std::unique_ptr<ActivityManager> m_manager;
    std::unique_ptr<TrackingController> m_tracking;
    QWidget m_window;
};

void TestEditActivityStartTimeWindowController::init()
{
    m_clock.set(QDateTime(QDate(2024, 3, 12), QTime(10, 0, 30), Qt::UTC));
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    m_store = std::move(*Store::open(options));
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale/Brimvale.conf"_s);
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
    m_manager = std::make_unique<ActivityManager>(*m_store);
    m_tracking = std::make_unique<TrackingController>(*m_manager, *m_settings, m_clock);
    m_window.resize(400, 300);
    m_window.show();
}

void TestEditActivityStartTimeWindowController::cleanup()
{
    m_tracking.reset();
    m_manager.reset();
    m_settings.reset();
    m_defaults.reset();
    m_store.reset();
    m_home.reset();
}

void TestEditActivityStartTimeWindowController::startAgo(qint64 secondsAgo)
{
    const QDateTime now = m_clock.now();
    m_clock.set(now.addSecs(-secondsAgo));
    m_tracking->setActivityTextFromUser(u"@Acme #design"_s);
    QVERIFY(m_tracking->doStartTrackAndShowWindow(false));
    m_clock.set(now);
}

QDateTime TestEditActivityStartTimeWindowController::storedStart()
{
    auto context = m_store->newContext();
    auto found = context->activityWithUid(m_manager->currentActivity()->uid());
    return found && *found ? (*found)->timeFrom() : QDateTime();
}

void TestEditActivityStartTimeWindowController::boundsFollowTheStart_data()
{
    QTest::addColumn<qint64>("startedAgo");
    QTest::addColumn<qint64>("minimumAgo");

    QTest::newRow("three days ago: from the start") << qint64(3 * 86400 + 17) << qint64(3 * 86400 + 17);
    QTest::newRow("two hours ago: from a day ago") << qint64(7200 + 17) << qint64(86400);
    QTest::newRow("just now: from a day ago") << qint64(1) << qint64(86400);
    QTest::newRow("a day and a second ago: from the start") << qint64(86401) << qint64(86401);
}

void TestEditActivityStartTimeWindowController::boundsFollowTheStart()
{
    QFETCH(qint64, startedAgo);
    QFETCH(qint64, minimumAgo);
    startAgo(startedAgo);
    const QDateTime now = m_clock.now();

    EditActivityStartTimeWindowController sheet(*m_tracking, &m_window);
    QCOMPARE(sheet.minimumDateTime(), now.addSecs(-minimumAgo).toLocalTime());
    QCOMPARE(sheet.maximumDateTime(), now.toLocalTime());
    QCOMPARE(sheet.pickedDateTime(), now.addSecs(-startedAgo).toLocalTime());
    const QString minDate = QLocale::system().toString(now.addSecs(-minimumAgo).toLocalTime(), QLocale::ShortFormat);
    QCOMPARE(sheet.findChild<QLabel *>(u"minDateLabel"_s)->text(), u"min date: "_s + minDate);
    // The picker shows the start to the second, in the user's 12-hour clock, with a year that reads back.
    const auto *picker = sheet.findChild<QDateTimeEdit *>(u"startTimePicker"_s);
    QCOMPARE(picker->displayFormat(), u"M/d/yyyy h:mm:ss AP"_s);
    QCOMPARE(
        picker->text(), QLocale::system().toString(now.addSecs(-startedAgo).toLocalTime(), u"M/d/yyyy h:mm:ss AP"_s));
}

void TestEditActivityStartTimeWindowController::setMovesTheStoredStart()
{
    startAgo(7200);
    const QDateTime picked = m_clock.now().addSecs(-5 * 3600 - 42);

    EditActivityStartTimeWindowController sheet(*m_tracking, &m_window);
    QSignalSpy finished(&sheet, &QDialog::finished);
    sheet.open();
    QVERIFY(sheet.isVisible());
    QCOMPARE(sheet.windowModality(), Qt::WindowModal);
    sheet.setPickedDateTime(picked);
    QTest::mouseClick(sheet.findChild<QPushButton *>(u"setButton"_s), Qt::LeftButton);

    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.first().first().toInt(), 1);
    QVERIFY(!sheet.isVisible());
    QCOMPARE(m_manager->currentActivity()->timeFrom(), picked);
    QCOMPARE(storedStart(), picked);
    // Touched on set: the stored end is now.
    QCOMPARE(m_manager->currentActivity()->timeTo(), m_clock.now());
    QCOMPARE(m_tracking->trackedSeconds(), 5 * 3600 + 42);
}

void TestEditActivityStartTimeWindowController::cancelKeepsTheStart()
{
    startAgo(7200);
    const QDateTime start = m_manager->currentActivity()->timeFrom();
    EditActivityStartTimeWindowController sheet(*m_tracking, &m_window);
    QSignalSpy finished(&sheet, &QDialog::finished);
    sheet.open();
    sheet.setPickedDateTime(m_clock.now().addSecs(-3600 * 20));
    QTest::mouseClick(sheet.findChild<QPushButton *>(u"cancelButton"_s), Qt::LeftButton);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.first().first().toInt(), 0);
    QCOMPARE(m_manager->currentActivity()->timeFrom(), start);
    QCOMPARE(storedStart(), start);
}

void TestEditActivityStartTimeWindowController::nothingRunningOffersNoSet()
{
    EditActivityStartTimeWindowController sheet(*m_tracking, &m_window);
    QVERIFY(!sheet.findChild<QPushButton *>(u"setButton"_s)->isEnabled());
    QVERIFY(sheet.findChild<QPushButton *>(u"cancelButton"_s)->isEnabled());
}

void TestEditActivityStartTimeWindowController::stoppedWhileOpenClosesWithoutSetting()
{
    startAgo(7200);
    EditActivityStartTimeWindowController sheet(*m_tracking, &m_window);
    QSignalSpy finished(&sheet, &QDialog::finished);
    sheet.open();
    m_tracking->stopTrack();
    sheet.onSet();
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.first().first().toInt(), 0);
}

QTEST_MAIN(TestEditActivityStartTimeWindowController)
#include "testeditactivitystarttimewindowcontroller.moc"
