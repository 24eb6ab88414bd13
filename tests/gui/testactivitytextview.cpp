#include <QtTest>

#include <QAbstractItemView>
#include <QClipboard>
#include <QMimeData>
#include <QScrollBar>

#include "fakes/fakeclock.h"
#include "gui/app/activitytextview.h"
#include "model/activitymanager.h"
#include "model/store.h"
#include "support/isolatedhome.h"

using namespace Qt::StringLiterals;

class TestActivityTextView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void typingAMarkedWordOffersStoredNames_data();
    void typingAMarkedWordOffersStoredNames();
    void keysThatTypeNoNameDoNotOpenTheList_data();
    void keysThatTypeNoNameDoNotOpenTheList();
    void choosingANameReplacesTheWordOnly_data();
    void choosingANameReplacesTheWordOnly();
    void returnStartsOnlyWhenTheListIsClosed();
    void returnAndShiftReturn_data();
    void returnAndShiftReturn();
    void pasteInsertsPlainText_data();
    void pasteInsertsPlainText();
    void singleLineIsOneLineHigh();

private:
    bool popupShown() const { return m_view->completionPopup()->isVisible(); }

    std::unique_ptr<IsolatedHome> m_home;
    FakeClock m_clock { QDateTime(QDate(2024, 3, 12), QTime(10, 0), Qt::UTC) };
    std::unique_ptr<Store> m_store;
    std::unique_ptr<ActivityManager> m_manager;
    std::unique_ptr<ActivityTextView> m_view;
};

void TestActivityTextView::initTestCase()
{
    m_home = std::make_unique<IsolatedHome>();
    StoreOptions options;
    options.applicationFilesDirectory = m_home->applicationFilesDirectory();
    options.clock = &m_clock;
    m_store = std::move(*Store::open(options));
    m_manager = std::make_unique<ActivityManager>(*m_store);
    const QStringList lines { u"@Acme #design call"_s, u"@Acmeco #deploy"_s, u"@Globex #Dex #de"_s };
    QDateTime from = m_clock.now().addDays(-1);
    for (const QString &line : lines) {
        QString error;
        QVERIFY2(m_manager->saveActivity(line, from, from.addSecs(600), &error), qPrintable(error));
        from = from.addSecs(3600);
    }
}

void TestActivityTextView::cleanupTestCase()
{
    m_manager.reset();
    m_store.reset();
    m_home.reset();
}

void TestActivityTextView::init()
{
    m_view = std::make_unique<ActivityTextView>(*m_manager);
    m_view->setSingleLine(true);
    m_view->resize(400, m_view->height());
    m_view->show();
    m_view->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_view.get()));
    m_view->setFocus();
}

void TestActivityTextView::cleanup()
{
    m_view.reset();
}

void TestActivityTextView::typingAMarkedWordOffersStoredNames_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QStringList>("candidates");
    QTest::addColumn<int>("preselected");

    QTest::newRow("project, typed case kept") << u"@a"_s << QStringList { u"acme"_s, u"acmeco"_s } << -1;
    QTest::newRow("after other words") << u"call @ACM"_s << QStringList { u"ACMe"_s, u"ACMeco"_s } << -1;
    QTest::newRow("exact project first") << u"@Acme"_s << QStringList { u"Acme"_s, u"Acmeco"_s } << 0;
    QTest::newRow("task") << u"x #dep"_s << QStringList { u"deploy"_s } << -1;
    // Tasks sort by their stored names case-sensitively: "Dex" before "de".
    QTest::newRow("exact task not first")
        << u"#de"_s << QStringList { u"dex"_s, u"de"_s, u"deploy"_s, u"design"_s } << 1;
    QTest::newRow("no stored name") << u"@zz"_s << QStringList {} << -1;
    QTest::newRow("marker inside a word") << u"me@a"_s << QStringList {} << -1;
    QTest::newRow("line starting with a blank") << u" @ac"_s << QStringList {} << -1;
    QTest::newRow("word ended by a blank") << u"@acme "_s << QStringList {} << -1;
}

void TestActivityTextView::typingAMarkedWordOffersStoredNames()
{
    QFETCH(QString, typed);
    QFETCH(QStringList, candidates);
    QFETCH(int, preselected);

    QTest::keyClicks(m_view.get(), typed);
    QCOMPARE(m_view->text(), typed);
    QCOMPARE(popupShown(), !candidates.isEmpty());
    if (candidates.isEmpty())
        return;
    QCOMPARE(m_view->completionCandidates(), candidates);
    QCOMPARE(m_view->completionPopup()->currentIndex().row(), preselected);
    // The list opens under the word's marker, not under the caret.
    QTextCursor marker = m_view->textCursor();
    marker.setPosition(int(typed.lastIndexOf(typed.contains(u'@') ? u'@' : u'#')));
    const int markerX = m_view->mapToGlobal(m_view->cursorRect(marker).topLeft()).x();
    const int popupX = m_view->completionPopup()->mapToGlobal(QPoint(0, 0)).x();
    QVERIFY2(qAbs(popupX - markerX) <= m_view->frameWidth() + 2, qPrintable(u"%1 vs %2"_s.arg(popupX).arg(markerX)));
}

void TestActivityTextView::keysThatTypeNoNameDoNotOpenTheList_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("modifiers");

    QTest::newRow("Escape") << int(Qt::Key_Escape) << int(Qt::NoModifier);
    QTest::newRow("Left") << int(Qt::Key_Left) << int(Qt::NoModifier);
    QTest::newRow("Right") << int(Qt::Key_Right) << int(Qt::NoModifier);
    QTest::newRow("Up") << int(Qt::Key_Up) << int(Qt::NoModifier);
    QTest::newRow("Down") << int(Qt::Key_Down) << int(Qt::NoModifier);
    QTest::newRow("Delete") << int(Qt::Key_Delete) << int(Qt::NoModifier);
    QTest::newRow("Backspace") << int(Qt::Key_Backspace) << int(Qt::NoModifier);
    QTest::newRow("Shift") << int(Qt::Key_Shift) << int(Qt::NoModifier);
    QTest::newRow("Ctrl+C") << int(Qt::Key_C) << int(Qt::ControlModifier);
    QTest::newRow("Tab") << int(Qt::Key_Tab) << int(Qt::NoModifier);
}

void TestActivityTextView::keysThatTypeNoNameDoNotOpenTheList()
{
    QFETCH(int, key);
    QFETCH(int, modifiers);
    m_view->setText(u"@acm"_s);
    QVERIFY(!popupShown());
    QTest::keyClick(m_view.get(), Qt::Key(key), Qt::KeyboardModifiers(modifiers));
    QVERIFY(!popupShown());
    // The same caret position opens the list as soon as a character is typed.
    m_view->setText(u"@acm"_s);
    QTest::keyClick(m_view.get(), Qt::Key_E);
    QVERIFY(popupShown());
}

void TestActivityTextView::choosingANameReplacesTheWordOnly_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("after");
    QTest::addColumn<int>("row");
    QTest::addColumn<QString>("expected");

    QTest::newRow("at the end") << u"call "_s << u"@ac"_s << QString() << 1 << u"call @acmeco"_s;
    QTest::newRow("before other words") << u"call "_s << u"#des"_s << u" now"_s << 0 << u"call #design now"_s;
    QTest::newRow("typed case kept") << QString() << u"@ACM"_s << u" x"_s << 0 << u"@ACMe x"_s;
}

void TestActivityTextView::choosingANameReplacesTheWordOnly()
{
    QFETCH(QString, before);
    QFETCH(QString, typed);
    QFETCH(QString, after);
    QFETCH(int, row);
    QFETCH(QString, expected);

    m_view->setText(before + after);
    QTextCursor cursor = m_view->textCursor();
    cursor.setPosition(int(before.size()));
    m_view->setTextCursor(cursor);
    QTest::keyClicks(m_view.get(), typed);
    QVERIFY(popupShown());

    QSignalSpy edits(m_view.get(), &ActivityTextView::textEdited);
    QSignalSpy returns(m_view.get(), &ActivityTextView::returnPressed);
    QAbstractItemView *popup = m_view->completionPopup();
    for (int i = 0; i <= row; ++i)
        QTest::keyClick(popup, Qt::Key_Down);
    QCOMPARE(popup->currentIndex().row(), row);
    QTest::keyClick(popup, Qt::Key_Return);

    QCOMPARE(m_view->text(), expected);
    QVERIFY(!popupShown());
    QCOMPARE(returns.count(), 0);
    QVERIFY(!edits.isEmpty());
    QCOMPARE(edits.last().first().toString(), expected);
    QCOMPARE(m_view->textCursor().position(), int(expected.size() - after.size()));
}

void TestActivityTextView::returnStartsOnlyWhenTheListIsClosed()
{
    QSignalSpy returns(m_view.get(), &ActivityTextView::returnPressed);
    // Nothing chosen in the list: Return closes it and leaves the text as typed; so does Escape.
    for (Qt::Key key : { Qt::Key_Return, Qt::Key_Escape }) {
        m_view->setText(u"@zz #"_s);
        QTest::keyClick(m_view.get(), Qt::Key_D);
        QVERIFY(popupShown());
        QTest::keyClick(m_view->completionPopup(), key);
        QVERIFY(!popupShown());
        QCOMPARE(returns.count(), 0);
        QCOMPARE(m_view->text(), u"@zz #d"_s);
    }
    QTest::keyClick(m_view.get(), Qt::Key_Enter, Qt::KeypadModifier);
    QCOMPARE(returns.count(), 1);
}

void TestActivityTextView::returnAndShiftReturn_data()
{
    QTest::addColumn<bool>("singleLine");
    QTest::addColumn<int>("modifiers");
    QTest::addColumn<int>("returns");
    QTest::addColumn<QString>("text");

    QTest::newRow("one line, Return") << true << int(Qt::NoModifier) << 1 << u"ab"_s;
    QTest::newRow("one line, Shift+Return") << true << int(Qt::ShiftModifier) << 0 << u"ab"_s;
    QTest::newRow("lines, Return") << false << int(Qt::NoModifier) << 1 << u"ab"_s;
    QTest::newRow("lines, Shift+Return") << false << int(Qt::ShiftModifier) << 0 << u"a\nb"_s;
}

void TestActivityTextView::returnAndShiftReturn()
{
    QFETCH(bool, singleLine);
    QFETCH(int, modifiers);
    QFETCH(int, returns);
    QFETCH(QString, text);

    m_view->setSingleLine(singleLine);
    QSignalSpy spy(m_view.get(), &ActivityTextView::returnPressed);
    QTest::keyClick(m_view.get(), Qt::Key_A);
    QTest::keyClick(m_view.get(), Qt::Key_Return, Qt::KeyboardModifiers(modifiers));
    QTest::keyClick(m_view.get(), Qt::Key_B);
    QCOMPARE(spy.count(), returns);
    QCOMPARE(m_view->text(), text);
}

void TestActivityTextView::pasteInsertsPlainText_data()
{
    QTest::addColumn<bool>("singleLine");
    QTest::addColumn<QString>("html");
    QTest::addColumn<QString>("plain");
    QTest::addColumn<QString>("expected");

    QTest::newRow("rich text") << true << u"<b>@Acme</b> <i>#call</i>"_s << u"@Acme #call"_s << u"x @Acme #call"_s;
    QTest::newRow("line breaks in one line")
        << true << u"<p>@Acme</p><p>#call</p>"_s << u"@Acme\n#call"_s << u"x @Acme #call"_s;
    QTest::newRow("line breaks kept in lines")
        << false << u"<p>@Acme</p><p>#call</p>"_s << u"@Acme\n#call"_s << u"x @Acme\n#call"_s;
}

void TestActivityTextView::pasteInsertsPlainText()
{
    QFETCH(bool, singleLine);
    QFETCH(QString, html);
    QFETCH(QString, plain);
    QFETCH(QString, expected);

    m_view->setSingleLine(singleLine);
    QSignalSpy edits(m_view.get(), &ActivityTextView::textEdited);
    m_view->setText(u"x "_s);
    QCOMPARE(edits.count(), 0);
    QCOMPARE(m_view->textCursor().position(), 2);
    auto *mime = new QMimeData;
    mime->setHtml(html);
    mime->setText(plain);
    QGuiApplication::clipboard()->setMimeData(mime);
    m_view->paste();

    QCOMPARE(m_view->text(), expected);
    QCOMPARE(edits.last().first().toString(), expected);
    const QString stored = m_view->document()->toHtml();
    QVERIFY2(!stored.contains(u"font-weight:700"_s) && !stored.contains(u"font-style:italic"_s), qPrintable(stored));
}

void TestActivityTextView::singleLineIsOneLineHigh()
{
    m_view->setDefaultFont();
    const int oneLine = m_view->height();
    QVERIFY(oneLine >= m_view->fontMetrics().lineSpacing());
    QVERIFY(oneLine < 2 * m_view->fontMetrics().lineSpacing());
    m_view->setText(QString(300, u'w'));
    QVERIFY(!m_view->horizontalScrollBar()->isVisible());
    QCOMPARE(m_view->height(), oneLine);

    m_view->setSingleLine(false);
    m_view->resize(400, 200);
    QCOMPARE(m_view->height(), 200);
}

QTEST_MAIN(TestActivityTextView)
#include "testactivitytextview.moc"
