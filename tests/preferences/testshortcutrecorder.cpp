#include <QtTest>

#include <QAction>
#include <QClipboard>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QToolButton>

#include "fakes/fakeglobalhotkey.h"
#include "gui/shortcut/bvshortcutrecorder.h"
#include "settings/bvsettings.h"
#include "settings/bvshortcutrecorderrules.h"
#include "settings/userdefaults.h"

using namespace Qt::StringLiterals;

namespace {

using Kind = BvShortcutRecorderRules::Outcome::Kind;
using HotKey = std::optional<BvHotKey>;

constexpr quint32 Ctrl = BvHotKey::ControlFlag;
constexpr quint32 Alt = BvHotKey::AltFlag;
constexpr quint32 Shift = BvHotKey::ShiftFlag;
constexpr quint32 Super = BvHotKey::SuperFlag;

BvHotKey hotKey(QKeyCombination combination)
{
    return *BvHotKey::fromKeyPress(combination.key(), combination.keyboardModifiers().toInt());
}

} // namespace

Q_DECLARE_METATYPE(BvHotKey)
Q_DECLARE_METATYPE(HotKey)
Q_DECLARE_METATYPE(Kind)

// The recorder's rules, the stored numbers, and the control driven by key presses offscreen.
class TestShortcutRecorder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void rulesJudgeEachPress_data();
    void rulesJudgeEachPress();
    void namesAsDesktopsWriteThem_data();
    void namesAsDesktopsWriteThem();
    void storedNumbersSurviveARestart_data();
    void storedNumbersSurviveARestart();
    void recorderStoresOnlyWhatItMay_data();
    void recorderStoresOnlyWhatItMay();
    void desktopServiceKeepsItsBindingWhileRecording_data();
    void desktopServiceKeepsItsBindingWhileRecording();
    void lateRefusalShowsUnderTheKey();
    void withoutGrabsItOffersTheShowCommand();

private:
    void makeRecorder();

    QTemporaryDir m_dir;
    std::unique_ptr<UserDefaults> m_defaults;
    std::unique_ptr<BvSettings> m_settings;
    FakeGlobalHotKey m_hotKey;
    std::unique_ptr<QWidget> m_window;
    BvShortcutRecorder *m_recorder = nullptr;
    QList<QPair<QKeySequence, QString>> m_reserved;
    QAction *m_quit = nullptr;
};

void TestShortcutRecorder::init()
{
    QFile::remove(m_dir.filePath(u"Brimvale.conf"_s));
    m_defaults = std::make_unique<UserDefaults>(m_dir.filePath(u"Brimvale.conf"_s));
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
    m_hotKey.available = true;
    m_hotKey.taken.clear();
    m_hotKey.grabbed.reset();
    m_hotKey.failLater(QString());
}

void TestShortcutRecorder::cleanup()
{
    m_window.reset();
    m_settings.reset();
    m_defaults.reset();
}

void TestShortcutRecorder::makeRecorder()
{
    m_window = std::make_unique<QWidget>();
    m_recorder = new BvShortcutRecorder(*m_settings, m_hotKey, m_window.get());
    // A menu command of the window: its key must reach the recorder, not the command, while recording.
    m_quit = new QAction(u"&Quit"_s, m_window.get());
    m_quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    m_window->addAction(m_quit);
    m_reserved = { { QKeySequence(Qt::CTRL | Qt::Key_Q), u"&Quit"_s },
        { QKeySequence(Qt::CTRL | Qt::Key_Comma), u"Preferences\u2026"_s },
        { QKeySequence(u"Ctrl+K, Ctrl+L"_s), u"Two chords"_s } };
    m_recorder->setReservedShortcuts([this] { return m_reserved; });
    m_window->show();
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
}

void TestShortcutRecorder::rulesJudgeEachPress_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<quint32>("modifiers");
    QTest::addColumn<Kind>("kind");
    QTest::addColumn<QString>("text"); // the combination taken, the refusal, or the pending modifiers

    const int letterT = Qt::Key_T;
    QTest::newRow("ctrl+alt+t") << letterT << (Ctrl | Alt) << Kind::Accepted << u"Ctrl+Alt+T"_s;
    QTest::newRow("keypad flag dropped") << int(Qt::Key_5) << (Ctrl | Alt | quint32(Qt::KeypadModifier))
                                         << Kind::Accepted << u"Ctrl+Alt+5"_s;
    QTest::newRow("lower-case letter") << int('t') << Super << Kind::Accepted << u"Super+T"_s;
    QTest::newRow("shift with function key") << int(Qt::Key_F5) << Shift << Kind::Accepted << u"Shift+F5"_s;
    QTest::newRow("ctrl+alt+f13 is no terminal")
        << int(Qt::Key_F13) << (Ctrl | Alt) << Kind::Accepted << u"Ctrl+Alt+F13"_s;
    QTest::newRow("ctrl+backspace") << int(Qt::Key_Backspace) << Ctrl << Kind::Accepted << u"Ctrl+Backspace"_s;

    QTest::newRow("bare letter") << letterT << 0u << Kind::Refused
                                 << u"Add Ctrl, Alt or Super to T: without one, the key would no longer type in other "
                                    "applications."_s;
    QTest::newRow("shift+letter") << letterT << Shift << Kind::Refused
                                  << u"Add Ctrl, Alt or Super to Shift+T: without one, the key would no longer type "
                                     "in other applications."_s;
    QTest::newRow("shift+tab arrives as backtab")
        << int(Qt::Key_Backtab) << Shift << Kind::Refused
        << u"Add Ctrl, Alt or Super to Shift+Tab: without one, the key would no longer type in other applications."_s;
    QTest::newRow("bare function key")
        << int(Qt::Key_F5) << 0u << Kind::Refused
        << u"Add Shift, Ctrl, Alt or Super to F5: a function key alone is used by other applications."_s;
    QTest::newRow("menu item") << int(Qt::Key_Q) << Ctrl << Kind::Refused
                               << u"Ctrl+Q is the shortcut of the menu item \u201cQuit\u201d."_s;
    QTest::newRow("menu item with ellipsis")
        << int(Qt::Key_Comma) << Ctrl << Kind::Refused
        << u"Ctrl+, is the shortcut of the menu item \u201cPreferences\u2026\u201d."_s;
    QTest::newRow("alt+tab") << int(Qt::Key_Tab) << Alt << Kind::Refused << u"Alt+Tab belongs to the desktop."_s;
    QTest::newRow("alt+f4") << int(Qt::Key_F4) << Alt << Kind::Refused << u"Alt+F4 belongs to the desktop."_s;
    QTest::newRow("virtual terminal") << int(Qt::Key_F2) << (Ctrl | Alt) << Kind::Refused
                                      << u"Ctrl+Alt+F2 belongs to the desktop."_s;
    QTest::newRow("ctrl+alt+backspace") << int(Qt::Key_Backspace) << (Ctrl | Alt) << Kind::Refused
                                        << u"Ctrl+Alt+Backspace belongs to the desktop."_s;

    QTest::newRow("modifiers held") << int(Qt::Key_Alt) << (Ctrl | Alt) << Kind::KeepRecording << u"Ctrl+Alt+"_s;
    QTest::newRow("super key itself") << int(Qt::Key_Super_L) << Super << Kind::KeepRecording << u"Super+"_s;
    QTest::newRow("escape") << int(Qt::Key_Escape) << 0u << Kind::Cancel << QString();
    QTest::newRow("backspace") << int(Qt::Key_Backspace) << 0u << Kind::Clear << QString();
    QTest::newRow("delete") << int(Qt::Key_Delete) << 0u << Kind::Clear << QString();
}

void TestShortcutRecorder::rulesJudgeEachPress()
{
    QFETCH(int, key);
    QFETCH(quint32, modifiers);
    QFETCH(Kind, kind);
    QFETCH(QString, text);

    BvShortcutRecorderRules rules;
    rules.setReserved(
        { { BvHotKey { Qt::Key_Q, Ctrl }, u"Quit"_s }, { BvHotKey { Qt::Key_Comma, Ctrl }, u"Preferences\u2026"_s } });
    const BvShortcutRecorderRules::Outcome outcome = rules.keyPressed(key, modifiers);
    QCOMPARE(outcome.kind, kind);
    QCOMPARE(outcome.hotKey.has_value(), kind == Kind::Accepted);
    switch (kind) {
    case Kind::Accepted:
        QCOMPARE(outcome.hotKey->toString(), text);
        QCOMPARE(outcome.hotKey->modifierFlags & ~BvHotKey::ModifierMask, 0u);
        break;
    case Kind::Refused:
        QCOMPARE(outcome.message, text);
        break;
    default:
        QCOMPARE(outcome.pending, text);
        break;
    }
}

void TestShortcutRecorder::namesAsDesktopsWriteThem_data()
{
    QTest::addColumn<BvHotKey>("key");
    QTest::addColumn<QString>("text");

    QTest::newRow("all four modifiers in order")
        << BvHotKey { Qt::Key_PageDown, Shift | Alt | Ctrl | Super } << u"Super+Ctrl+Alt+Shift+PgDown"_s;
    QTest::newRow("space") << BvHotKey { Qt::Key_Space, Super } << u"Super+Space"_s;
    QTest::newRow("plus key") << BvHotKey { Qt::Key_Plus, Ctrl } << u"Ctrl++"_s;
    QTest::newRow("latin-1 letter") << BvHotKey { Qt::Key_Eacute, Alt } << u"Alt+\u00c9"_s;
    QTest::newRow("f35") << BvHotKey { Qt::Key_F35, Ctrl } << u"Ctrl+F35"_s;
    QTest::newRow("unnamed key") << BvHotKey { Qt::Key_MediaPlay, 0 } << u"Key 0x1000080"_s;
}

void TestShortcutRecorder::namesAsDesktopsWriteThem()
{
    QFETCH(BvHotKey, key);
    QFETCH(QString, text);
    QCOMPARE(key.toString(), text);
}

void TestShortcutRecorder::storedNumbersSurviveARestart_data()
{
    QTest::addColumn<QKeyCombination>("pressed");
    QTest::addColumn<qint64>("code");
    QTest::addColumn<qint64>("flags");

    // The numbers docs/shortcut.md promises: the Qt::Key value and Qt's modifier bits.
    QTest::newRow("ctrl+alt+t") << QKeyCombination(Qt::CTRL | Qt::ALT | Qt::Key_T) << qint64(0x54)
                                << qint64(0x0c000000);
}

void TestShortcutRecorder::storedNumbersSurviveARestart()
{
    QFETCH(QKeyCombination, pressed);
    QFETCH(qint64, code);
    QFETCH(qint64, flags);

    m_settings->setGlobalHotKey(hotKey(pressed));
    m_settings.reset();
    m_defaults.reset();
    const QSettings file(m_dir.filePath(u"Brimvale.conf"_s), QSettings::IniFormat);
    QCOMPARE(file.value(u"globalHotKeyCode"_s).toLongLong(), code);
    QCOMPARE(file.value(u"globalHotKeyFlags"_s).toLongLong(), flags);

    m_defaults = std::make_unique<UserDefaults>(m_dir.filePath(u"Brimvale.conf"_s));
    m_settings = std::make_unique<BvSettings>(m_defaults.get());
    QCOMPARE(m_settings->globalHotKey(), HotKey(hotKey(pressed)));
}

void TestShortcutRecorder::recorderStoresOnlyWhatItMay_data()
{
    QTest::addColumn<HotKey>("before");
    QTest::addColumn<QList<QKeyCombination>>("presses");
    QTest::addColumn<HotKey>("after");
    QTest::addColumn<bool>("recording");
    QTest::addColumn<QString>("message");

    const HotKey none;
    const BvHotKey ctrlAltK { Qt::Key_K, Ctrl | Alt };
    const BvHotKey ctrlAltT { Qt::Key_T, Ctrl | Alt };
    const QKeyCombination pressCtrlAltT(Qt::CTRL | Qt::ALT | Qt::Key_T);

    QTest::newRow("combination stored") << none << QList { pressCtrlAltT } << HotKey(ctrlAltT) << false << QString();
    QTest::newRow("modifier first, then the key")
        << none << QList { QKeyCombination(Qt::CTRL | Qt::Key_Control), pressCtrlAltT } << HotKey(ctrlAltT) << false
        << QString();
    QTest::newRow("the same key again keeps it")
        << HotKey(ctrlAltK) << QList { QKeyCombination(Qt::CTRL | Qt::ALT | Qt::Key_K) } << HotKey(ctrlAltK) << false
        << QString();
    QTest::newRow("menu shortcut refused")
        << HotKey(ctrlAltK) << QList { QKeyCombination(Qt::CTRL | Qt::Key_Q) } << HotKey(ctrlAltK) << true
        << u"Ctrl+Q is the shortcut of the menu item \u201cQuit\u201d."_s;
    QTest::newRow("two-chord menu shortcut is no collision")
        << none << QList { QKeyCombination(Qt::CTRL | Qt::Key_K) } << HotKey(BvHotKey { Qt::Key_K, Ctrl }) << false
        << QString();
    QTest::newRow("bare key refused, then a good one")
        << none << QList { QKeyCombination(Qt::Key_T), pressCtrlAltT } << HotKey(ctrlAltT) << false << QString();
    QTest::newRow("bare key refused")
        << HotKey(ctrlAltK) << QList { QKeyCombination(Qt::Key_T) } << HotKey(ctrlAltK) << true
        << u"Add Ctrl, Alt or Super to T: without one, the key would no longer type in other applications."_s;
    QTest::newRow("taken by another program")
        << HotKey(ctrlAltK) << QList { QKeyCombination(Qt::CTRL | Qt::ALT | Qt::Key_X) } << HotKey(ctrlAltK) << true
        << u"Ctrl+Alt+X: Taken by another application."_s;
    QTest::newRow("escape keeps the stored one")
        << HotKey(ctrlAltK) << QList { QKeyCombination(Qt::Key_Escape) } << HotKey(ctrlAltK) << false << QString();
    QTest::newRow("escape after a refusal")
        << HotKey(ctrlAltK)
        << QList { QKeyCombination(Qt::CTRL | Qt::ALT | Qt::Key_X), QKeyCombination(Qt::Key_Escape) }
        << HotKey(ctrlAltK) << false << QString();
    QTest::newRow("backspace clears") << HotKey(ctrlAltK) << QList { QKeyCombination(Qt::Key_Backspace) } << none
                                      << false << QString();
}

void TestShortcutRecorder::recorderStoresOnlyWhatItMay()
{
    QFETCH(HotKey, before);
    QFETCH(QList<QKeyCombination>, presses);
    QFETCH(HotKey, after);
    QFETCH(bool, recording);
    QFETCH(QString, message);

    m_settings->setGlobalHotKey(before);
    static_cast<void>(m_hotKey.registerHotKey(before));
    m_hotKey.taken = { BvHotKey { Qt::Key_X, Ctrl | Alt } };
    makeRecorder();
    QSignalSpy quit(m_quit, &QAction::triggered);
    auto *field = m_recorder->findChild<QPushButton *>(u"shortcutField"_s);
    auto *label = m_recorder->findChild<QLabel *>(u"shortcutMessage"_s);

    QTest::mouseClick(field, Qt::LeftButton);
    QVERIFY(m_recorder->isRecording());
    QCOMPARE(field->text(), u"Type shortcut"_s);
    // Typing the key grabbed now must reach the control, not the grab.
    QCOMPARE(m_hotKey.grabbed, HotKey());
    for (const QKeyCombination press : presses)
        QTest::keyClick(field, press.key(), press.keyboardModifiers());

    QCOMPARE(m_settings->globalHotKey(), after);
    QCOMPARE(m_recorder->isRecording(), recording);
    QCOMPARE(label->text(), message);
    QCOMPARE(label->isVisibleTo(m_recorder), !message.isEmpty());
    QCOMPARE(quit.count(), 0);
    // The grab follows: released while recording, the stored key once recording ended.
    QCOMPARE(m_hotKey.grabbed, recording ? HotKey() : after);
    if (!recording)
        QCOMPARE(field->text(), after ? after->toString() : u"Click to record shortcut"_s);
}

void TestShortcutRecorder::desktopServiceKeepsItsBindingWhileRecording_data()
{
    QTest::addColumn<QKeyCombination>("press");
    QTest::addColumn<HotKey>("after");
    QTest::addColumn<QList<HotKey>>("requests");
    QTest::addColumn<QString>("message");
    const BvHotKey ctrlAltK { Qt::Key_K, Ctrl | Alt };
    const BvHotKey ctrlAltT { Qt::Key_T, Ctrl | Alt };
    QTest::newRow("escape") << QKeyCombination(Qt::Key_Escape) << HotKey(ctrlAltK) << QList<HotKey> {} << QString();
    QTest::newRow("the same key again") << QKeyCombination(Qt::CTRL | Qt::ALT | Qt::Key_K) << HotKey(ctrlAltK)
                                        << QList<HotKey> {} << QString();
    QTest::newRow("a new key") << QKeyCombination(Qt::CTRL | Qt::ALT | Qt::Key_T) << HotKey(ctrlAltT)
                               << QList<HotKey> { ctrlAltT } << QString();
    QTest::newRow("a taken key, the stored one kept")
        << QKeyCombination(Qt::CTRL | Qt::ALT | Qt::Key_X) << HotKey(ctrlAltK)
        << QList<HotKey> { BvHotKey { Qt::Key_X, Ctrl | Alt }, ctrlAltK }
        << u"Ctrl+Alt+X: Taken by another application."_s;
    QTest::newRow("backspace") << QKeyCombination(Qt::Key_Backspace) << HotKey() << QList<HotKey> { HotKey() }
                               << QString();
    // The menus are read when recording starts: a key given to a menu item since counts.
    QTest::newRow("menu key added after the recorder was made")
        << QKeyCombination(Qt::CTRL | Qt::ALT | Qt::Key_R) << HotKey(ctrlAltK) << QList<HotKey> {}
        << u"Ctrl+Alt+R is the shortcut of the menu item \u201cReport\u201d."_s;
}

void TestShortcutRecorder::desktopServiceKeepsItsBindingWhileRecording()
{
    QFETCH(QKeyCombination, press);
    QFETCH(HotKey, after);
    QFETCH(QList<HotKey>, requests);
    QFETCH(QString, message);
    // A portal or KGlobalAccel binding: asking for it again, or releasing it, goes to the desktop each time.
    m_hotKey.hidesKeys = false;
    m_hotKey.taken = { BvHotKey { Qt::Key_X, Ctrl | Alt } };
    m_settings->setGlobalHotKey(BvHotKey { Qt::Key_K, Ctrl | Alt });
    static_cast<void>(m_hotKey.registerHotKey(m_settings->globalHotKey()));
    makeRecorder();
    m_reserved.append({ QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_R), u"&Report"_s });
    m_hotKey.requests.clear();

    auto *field = m_recorder->findChild<QPushButton *>(u"shortcutField"_s);
    QTest::mouseClick(field, Qt::LeftButton);
    QVERIFY(m_recorder->isRecording());
    QTest::keyClick(field, press.key(), press.keyboardModifiers());
    QCOMPARE(m_recorder->findChild<QLabel *>(u"shortcutMessage"_s)->text(), message);
    if (m_recorder->isRecording())
        QTest::keyClick(field, Qt::Key_Escape);
    QCOMPARE(m_settings->globalHotKey(), after);
    QCOMPARE(m_hotKey.requests, requests);
    QCOMPARE(m_hotKey.grabbed, after);
}

void TestShortcutRecorder::lateRefusalShowsUnderTheKey()
{
    m_settings->setGlobalHotKey(BvHotKey { Qt::Key_T, Ctrl | Alt });
    makeRecorder();
    auto *label = m_recorder->findChild<QLabel *>(u"shortcutMessage"_s);
    QVERIFY(label->text().isEmpty());

    // A desktop that answers later (the shortcuts portal) reports its refusal after the key was stored.
    m_hotKey.failLater(u"The desktop did not bind the shortcut."_s);
    QCOMPARE(label->text(), u"The desktop did not bind the shortcut."_s);
    QVERIFY(label->isVisibleTo(m_recorder));

    // Removing the key removes the complaint about it.
    QTest::mouseClick(m_recorder->findChild<QToolButton *>(u"shortcutClearButton"_s), Qt::LeftButton);
    QCOMPARE(m_settings->globalHotKey(), HotKey());
    QVERIFY(label->text().isEmpty());
    QVERIFY(!m_recorder->findChild<QToolButton *>(u"shortcutClearButton"_s)->isEnabled());
}

void TestShortcutRecorder::withoutGrabsItOffersTheShowCommand()
{
    m_hotKey.available = false;
    makeRecorder();
    auto *offer = m_recorder->findChild<QWidget *>(u"shortcutUnavailable"_s);
    QVERIFY(offer->isVisibleTo(m_recorder));
    QCOMPARE(m_recorder->findChild<QLineEdit *>(u"showCommandField"_s)->text(), u"brimvale show"_s);
    QTest::mouseClick(m_recorder->findChild<QPushButton *>(u"copyShowCommandButton"_s), Qt::LeftButton);
    QCOMPARE(QGuiApplication::clipboard()->text(), u"brimvale show"_s);

    // The key is still kept (the same settings may serve an X11 session), with no complaint beside the offer.
    auto *field = m_recorder->findChild<QPushButton *>(u"shortcutField"_s);
    QTest::mouseClick(field, Qt::LeftButton);
    QTest::keyClick(field, Qt::Key_T, Qt::ControlModifier | Qt::AltModifier);
    QCOMPARE(m_settings->globalHotKey(), HotKey(BvHotKey { Qt::Key_T, Ctrl | Alt }));
    QVERIFY(m_recorder->findChild<QLabel *>(u"shortcutMessage"_s)->text().isEmpty());

    m_hotKey.available = true;
    makeRecorder();
    QVERIFY(!m_recorder->findChild<QWidget *>(u"shortcutUnavailable"_s)->isVisibleTo(m_recorder));
}

QTEST_MAIN(TestShortcutRecorder)
#include "testshortcutrecorder.moc"
