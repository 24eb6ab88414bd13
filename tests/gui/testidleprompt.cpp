#include <QtTest>
#include <QtWidgets>

#include "fakes/fakeclock.h"
#include "gui/attention/idletimepromptwindowcontroller.h"
#include "settings/bvsettings.h"
#include "settings/userdefaults.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

namespace {
const QDateTime T0(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC);
}

class TestIdlePrompt : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void choicesInOrderWithTheRememberedDefault_data();
    void choicesInOrderWithTheRememberedDefault();
    void labelCountsWholeMinutes_data();
    void labelCountsWholeMinutes();
    void okRemembersCancelKeeps_data();
    void okRemembersCancelKeeps();

private:
    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock { T0 };
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
};

void TestIdlePrompt::init()
{
    m_clock.set(T0);
    m_home = std::make_unique<IsolatedHome>();
    m_defaults = std::make_unique<UserDefaults>(m_home->configHome() + u"/Brimvale.conf"_s);
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
}

void TestIdlePrompt::cleanup()
{
    m_settings.reset();
    m_defaults.reset();
    m_home.reset();
}

void TestIdlePrompt::choicesInOrderWithTheRememberedDefault_data()
{
    QTest::addColumn<int>("defaultIdleAction");
    QTest::addColumn<QString>("checked");
    QTest::newRow("stop") << 1 << u"idleAction1"_s;
    QTest::newRow("continue") << 2 << u"idleAction2"_s;
}

void TestIdlePrompt::choicesInOrderWithTheRememberedDefault()
{
    QFETCH(int, defaultIdleAction);
    QFETCH(QString, checked);
    m_settings->setDefaultIdleAction(defaultIdleAction);
    IdleTimePromptWindowController window(T0, *m_settings, m_clock);
    const QList<QRadioButton *> choices = window.findChildren<QRadioButton *>();
    QStringList titles;
    for (QRadioButton *choice : choices)
        titles << choice->text();
    QCOMPARE(titles, (QStringList { u"Subtract idle time and stop"_s, u"Subtract idle time and continue"_s }));
    QVERIFY(window.findChild<QRadioButton *>(checked)->isChecked());
    // A dialog with a title and a close button only, which cannot be resized.
    const Qt::WindowFlags flags = window.windowFlags();
    QCOMPARE(flags & Qt::WindowType_Mask, Qt::Dialog);
    QVERIFY(flags.testFlags(Qt::WindowTitleHint | Qt::WindowCloseButtonHint | Qt::WindowStaysOnTopHint));
    QVERIFY(!(flags & (Qt::WindowMinMaxButtonsHint | Qt::WindowContextHelpButtonHint)));
    window.show();
    QCOMPARE(window.minimumSize(), window.maximumSize());
    QCOMPARE(window.selectedIdleAction(), defaultIdleAction);
    QCOMPARE(
        window.selectedIdleActionTitle(), defaultIdleAction == 1 ? u"Subtract and stop"_s : u"Subtract and continue"_s);
}

void TestIdlePrompt::labelCountsWholeMinutes_data()
{
    QTest::addColumn<int>("secondsLater");
    QTest::addColumn<QString>("expected");
    // Opened 15 minutes after the idle start.
    QTest::newRow("at once") << 0 << u"You have been idle for 15 minutes"_s;
    QTest::newRow("59 s later") << 59 << u"You have been idle for 15 minutes"_s;
    QTest::newRow("a minute later") << 60 << u"You have been idle for 16 minutes"_s;
    QTest::newRow("an hour later") << 3600 << u"You have been idle for 75 minutes"_s;
}

void TestIdlePrompt::labelCountsWholeMinutes()
{
    QFETCH(int, secondsLater);
    QFETCH(QString, expected);
    m_clock.set(T0.addSecs(15 * 60));
    IdleTimePromptWindowController window(T0, *m_settings, m_clock);
    auto *label = window.findChild<QLabel *>(u"idleTimeLabel"_s);
    QCOMPARE(label->text(), u"You have been idle for 15 minutes"_s);
    m_clock.advance(qint64(secondsLater) * 1000);
    window.updateIdleTime();
    QCOMPARE(label->text(), expected);
}

void TestIdlePrompt::okRemembersCancelKeeps_data()
{
    QTest::addColumn<QString>("choose");
    QTest::addColumn<QString>("button");
    QTest::addColumn<int>("result");
    QTest::addColumn<int>("defaultAfter");
    // The remembered choice is "stop" (1) when the window opens.
    QTest::newRow("OK with continue") << u"idleAction2"_s << u"okButton"_s << 2 << 2;
    QTest::newRow("OK with stop") << u"idleAction1"_s << u"okButton"_s << 1 << 1;
    QTest::newRow("Cancel after choosing continue") << u"idleAction2"_s << u"cancelButton"_s << 0 << 1;
}

void TestIdlePrompt::okRemembersCancelKeeps()
{
    QFETCH(QString, choose);
    QFETCH(QString, button);
    QFETCH(int, result);
    QFETCH(int, defaultAfter);
    m_settings->setDefaultIdleAction(1);
    auto *window = new IdleTimePromptWindowController(T0, *m_settings, m_clock);
    QPointer<IdleTimePromptWindowController> guard(window);
    QSignalSpy finished(window, &QDialog::finished);
    window->sbOpen();
    QVERIFY(QTest::qWaitForWindowExposed(window));
    QVERIFY(window->isCounting());
    QTest::mouseClick(window->findChild<QRadioButton *>(choose), Qt::LeftButton);
    QTest::mouseClick(window->findChild<QPushButton *>(button), Qt::LeftButton);
    QCOMPARE(finished.size(), 1);
    QCOMPARE(finished.at(0).at(0).toInt(), result);
    QCOMPARE(m_settings->defaultIdleAction(), defaultAfter);
    QTRY_VERIFY(!guard);
}

QTEST_MAIN(TestIdlePrompt)
#include "testidleprompt.moc"
