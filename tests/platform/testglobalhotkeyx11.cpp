#include <QProcess>
#include <QtTest>

#include "platform/globalhotkeyx11.h"

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 Ctrl = BvHotKey::ControlFlag;
constexpr quint32 Alt = BvHotKey::AltFlag;
constexpr quint32 Shift = BvHotKey::ShiftFlag;
constexpr quint32 Super = BvHotKey::SuperFlag;

void xdotool(const QStringList &keys)
{
    QCOMPARE(QProcess::execute(u"xdotool"_s, QStringList { u"key"_s } + keys), 0);
}

} // namespace

Q_DECLARE_METATYPE(BvHotKey)

// The key grab against the test's Xvfb, typed into with xdotool (XTEST), as a user presses keys.
class TestGlobalHotKeyX11 : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void firesOnItsCombinationOnly_data();
    void firesOnItsCombinationOnly();
    void anotherClientsGrabIsRefused();
    void notInAWaylandSession();
};

void TestGlobalHotKeyX11::firesOnItsCombinationOnly_data()
{
    QTest::addColumn<BvHotKey>("hotKey");
    QTest::addColumn<QStringList>("misses"); // xdotool key names that must not fire
    QTest::addColumn<QStringList>("hit");

    QTest::newRow("ctrl+alt+t") << BvHotKey { Qt::Key_T, Ctrl | Alt }
                                << QStringList { u"t"_s, u"ctrl+t"_s, u"ctrl+alt+shift+t"_s, u"ctrl+alt+y"_s }
                                << QStringList { u"ctrl+alt+t"_s };
    QTest::newRow("with caps lock on") << BvHotKey { Qt::Key_T, Ctrl | Alt } << QStringList { u"Caps_Lock"_s }
                                       << QStringList { u"ctrl+alt+t"_s, u"Caps_Lock"_s };
    QTest::newRow("with num lock on") << BvHotKey { Qt::Key_T, Ctrl | Alt } << QStringList { u"Num_Lock"_s }
                                      << QStringList { u"ctrl+alt+t"_s, u"Num_Lock"_s };
    QTest::newRow("super+shift+f9") << BvHotKey { Qt::Key_F9, Super | Shift } << QStringList { u"F9"_s, u"super+F9"_s }
                                    << QStringList { u"super+shift+F9"_s };
    QTest::newRow("ctrl+alt+space") << BvHotKey { Qt::Key_Space, Ctrl | Alt } << QStringList { u"space"_s }
                                    << QStringList { u"ctrl+alt+space"_s };
}

void TestGlobalHotKeyX11::firesOnItsCombinationOnly()
{
    QFETCH(BvHotKey, hotKey);
    QFETCH(QStringList, misses);
    QFETCH(QStringList, hit);

    GlobalHotKeyX11 grab(QString(), false);
    QVERIFY(grab.isAvailable());
    const auto registered = grab.registerHotKey(hotKey);
    QVERIFY2(registered, qPrintable(registered ? QString() : registered.error()));
    QVERIFY(grab.registrationError().isEmpty());
    QSignalSpy activated(&grab, &GlobalHotKey::activated);

    // The server keeps the order of the presses: a miss that fired would count before the hit does.
    xdotool(misses);
    xdotool(hit);
    QVERIFY(activated.wait(5000));
    QCOMPARE(activated.count(), 1);

    // Released, the combination reaches nobody here any more; grabbed again, it fires again.
    QVERIFY(grab.registerHotKey(std::nullopt));
    xdotool(hit);
    QVERIFY(grab.registerHotKey(hotKey));
    xdotool(hit);
    QVERIFY(activated.wait(5000));
    QCOMPARE(activated.count(), 2);
}

void TestGlobalHotKeyX11::anotherClientsGrabIsRefused()
{
    const BvHotKey ctrlAltT { Qt::Key_T, Ctrl | Alt };
    GlobalHotKeyX11 first(QString(), false);
    GlobalHotKeyX11 other(QString(), false);
    QVERIFY(first.registerHotKey(ctrlAltT));

    const auto refused = other.registerHotKey(ctrlAltT);
    QVERIFY(!refused);
    QCOMPARE(refused.error(), u"Taken by another application."_s);
    QCOMPARE(other.registrationError(), u"Taken by another application."_s);
    // The failed attempt left nothing behind: the first still fires, and a free combination still works.
    QSignalSpy firstActivated(&first, &GlobalHotKey::activated);
    xdotool({ u"ctrl+alt+t"_s });
    QVERIFY(firstActivated.wait(5000));
    QVERIFY(other.registerHotKey(BvHotKey { Qt::Key_Y, Ctrl | Alt }));
    QVERIFY(other.registrationError().isEmpty());

    // Once the first lets go, the other can have it.
    QVERIFY(first.registerHotKey(std::nullopt));
    QVERIFY(other.registerHotKey(ctrlAltT));
    QSignalSpy otherActivated(&other, &GlobalHotKey::activated);
    xdotool({ u"ctrl+alt+t"_s });
    QVERIFY(otherActivated.wait(5000));
}

void TestGlobalHotKeyX11::notInAWaylandSession()
{
    GlobalHotKeyX11 grab(QString(), true);
    QVERIFY(!grab.isAvailable());
    QVERIFY(!grab.registerHotKey(BvHotKey { Qt::Key_T, Ctrl | Alt }));
}

QTEST_GUILESS_MAIN(TestGlobalHotKeyX11)
#include "testglobalhotkeyx11.moc"
