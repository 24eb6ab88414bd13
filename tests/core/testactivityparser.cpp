#include <QStringList>
#include <QTest>

#include "model/activityparser.h"

class TestActivityParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void componentsFromTextFindsProjectAndTasks_data();
    void componentsFromTextFindsProjectAndTasks();
    void onlyWhiteSpaceAndPunctuationLetAMarkerCountOrEndAName();
    void scanWordStopsAtWordEndAndStaysPutWithoutWord_data();
    void scanWordStopsAtWordEndAndStaysPutWithoutWord();
    void componentsTellAbsentProjectFromEmptyProject();
    void findCurrentProjectOrTaskNeedsCaretAtEndOfMarkedWord_data();
    void findCurrentProjectOrTaskNeedsCaretAtEndOfMarkedWord();
};

void TestActivityParser::componentsFromTextFindsProjectAndTasks_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("project");
    QTest::addColumn<QStringList>("tasks");

    const QString none;
    const QStringList noTasks;

    QTest::newRow("absent text") << QString() << none << noTasks;
    QTest::newRow("empty line") << QStringLiteral("") << none << noTasks;
    QTest::newRow("line of two units names nothing") << QStringLiteral("@a") << none << noTasks;
    QTest::newRow("three units name a project") << QStringLiteral("@ab") << QStringLiteral("ab") << noTasks;
    QTest::newRow("marker in second-last place ignored") << QStringLiteral("x @a") << none << noTasks;
    QTest::newRow("two-unit name ends the line") << QStringLiteral("x @ab") << QStringLiteral("ab") << noTasks;
    QTest::newRow("first spelling of a task wins")
        << QStringLiteral("@Acme #design #Design #review mock-ups") << QStringLiteral("Acme")
        << QStringList { QStringLiteral("design"), QStringLiteral("review") };
    QTest::newRow("only the first project counts") << QStringLiteral("@a @b") << QStringLiteral("a") << noTasks;
    QTest::newRow("blank after marker yields no word") << QStringLiteral("@ @bc") << QStringLiteral("bc") << noTasks;
    QTest::newRow("no word then marker in second-last place") << QStringLiteral("@ @b") << none << noTasks;
    QTest::newRow("marker inside a word") << QStringLiteral("mail me@home now") << none << noTasks;
    QTest::newRow("bracket may not precede a marker") << QStringLiteral("(x)@home") << none << noTasks;
    QTest::newRow("dotted project, colon ends it")
        << QStringLiteral("@acme.com: call") << QStringLiteral("acme.com") << noTasks;
    QTest::newRow("comma and full stop end names")
        << QStringLiteral("@acme, #call.") << QStringLiteral("acme") << QStringList { QStringLiteral("call") };
    QTest::newRow("task marker inside a task")
        << QStringLiteral("#a#b") << none << QStringList { QStringLiteral("a#b") };
    QTest::newRow("full stops trim to the empty project")
        << QStringLiteral("@... rest") << QStringLiteral("") << noTasks;

    QTest::newRow("empty project is a project") << QStringLiteral("@... @rest") << QStringLiteral("") << noTasks;
    QTest::newRow("empty task is a task, once")
        << QStringLiteral("#. #.. #xy") << none << QStringList { QStringLiteral(""), QStringLiteral("xy") };
    QTest::newRow("leading full stop trimmed") << QStringLiteral("@.net") << QStringLiteral("net") << noTasks;
    QTest::newRow("full stop before marker") << QStringLiteral("x.@home") << QStringLiteral("home") << noTasks;
    QTest::newRow("blanks before the first marker") << QStringLiteral("   @ab") << QStringLiteral("ab") << noTasks;

    QTest::newRow("project at the very end") << QStringLiteral("work @") << none << noTasks;
    QTest::newRow("task at the very end") << QStringLiteral("work #") << none << noTasks;
    QTest::newRow("one-unit task at the end") << QStringLiteral("work #a") << none << noTasks;
    QTest::newRow("two-unit task at the end")
        << QStringLiteral("work #ab") << none << QStringList { QStringLiteral("ab") };

    QTest::newRow("semicolon right after marker") << QStringLiteral("@;x call") << none << noTasks;
    QTest::newRow("comma after marker, next marker counts")
        << QStringLiteral("@, @ab") << QStringLiteral("ab") << noTasks;
    QTest::newRow("semicolon between tasks")
        << QStringLiteral("#a;#bc") << none << QStringList { QStringLiteral("a"), QStringLiteral("bc") };
    QTest::newRow("full stop does not end a task")
        << QStringLiteral("#a.#b") << none << QStringList { QStringLiteral("a.#b") };
    QTest::newRow("marker right after marker") << QStringLiteral("@@ab") << QStringLiteral("@ab") << noTasks;
    QTest::newRow("task marker doubled") << QStringLiteral("##ab") << none << QStringList { QStringLiteral("#ab") };

    QTest::newRow("tab before marker") << QStringLiteral("x\t@ab") << QStringLiteral("ab") << noTasks;
    QTest::newRow("line feed before task") << QStringLiteral("x\n#ab") << none << QStringList { QStringLiteral("ab") };
    QTest::newRow("line separator before marker") << QStringLiteral("x\u2028@ab") << QStringLiteral("ab") << noTasks;
    QTest::newRow("tab right after marker") << QStringLiteral("@\tab") << none << noTasks;
    QTest::newRow("line separator ends a name")
        << QStringLiteral("@ab\u2028#cd") << QStringLiteral("ab") << QStringList { QStringLiteral("cd") };
    QTest::newRow("carriage return and line feed")
        << QStringLiteral("@ab\r\n#cd") << QStringLiteral("ab") << QStringList { QStringLiteral("cd") };

    QTest::newRow("second @ inside the project word") << QStringLiteral("@a@b c") << QStringLiteral("a@b") << noTasks;
    QTest::newRow("marker in a word, then a project")
        << QStringLiteral("me@home @work") << QStringLiteral("work") << noTasks;
    QTest::newRow("@ inside a task word")
        << QStringLiteral("@a #b@c") << QStringLiteral("a") << QStringList { QStringLiteral("b@c") };
    QTest::newRow("# inside a later project word") << QStringLiteral("@a @b#c") << QStringLiteral("a") << noTasks;
    QTest::newRow("# after full stop inside a later project word")
        << QStringLiteral("@a @b.#cd") << QStringLiteral("a") << QStringList { QStringLiteral("cd") };

    QTest::newRow("emoji name of three units") << QStringLiteral("@😀") << QStringLiteral("😀") << noTasks;
    QTest::newRow("emoji name at the end") << QStringLiteral("x @😀") << QStringLiteral("😀") << noTasks;
    QTest::newRow("single accented letter at the end") << QStringLiteral("x @é") << none << noTasks;
    QTest::newRow("combining accent makes two units")
        << QStringLiteral("x @e\u0301") << QStringLiteral("e\u0301") << noTasks;
    QTest::newRow("emoji may not precede a marker") << QStringLiteral("😀@ab") << none << noTasks;
    QTest::newRow("emoji then blank before marker") << QStringLiteral("😀 @ab") << QStringLiteral("ab") << noTasks;
    QTest::newRow("accented task duplicates ignore case")
        << QStringLiteral("#Über #über #ÜBER") << none << QStringList { QStringLiteral("Über") };
    QTest::newRow("emoji task duplicate")
        << QStringLiteral("#🚀 #🚀 #🚀x") << none << QStringList { QStringLiteral("🚀"), QStringLiteral("🚀x") };

    const QString prose = QStringLiteral("lorem ipsum dolor ").repeated(5000);
    QTest::newRow("long free text, names at its end")
        << (prose + QStringLiteral("@acme #review")) << QStringLiteral("acme")
        << QStringList { QStringLiteral("review") };
    QTest::newRow("long free text, marker in second-last place") << (prose + QStringLiteral("@a")) << none << noTasks;
    QString manyTasks = QStringLiteral("@acme");
    QStringList manyTaskNames;
    for (int i = 0; i < 2000; ++i) {
        manyTasks += QStringLiteral(" #t") + QString::number(i) + QStringLiteral(" #T") + QString::number(i);
        manyTaskNames << QStringLiteral("t") + QString::number(i);
    }
    QTest::newRow("thousands of tasks, each once") << manyTasks << QStringLiteral("acme") << manyTaskNames;
}

void TestActivityParser::componentsFromTextFindsProjectAndTasks()
{
    QFETCH(QString, text);
    QFETCH(QString, project);
    QFETCH(QStringList, tasks);

    const ActivityComponents components = ActivityParser::defaultParser().componentsFromText(text);

    QCOMPARE(components.text(), text);
    QCOMPARE(components.text().isNull(), text.isNull());
    QCOMPARE(components.project(), project);
    QCOMPARE(components.project().isNull(), project.isNull());
    QCOMPARE(components.tasks(), tasks);
    for (const QString &task : components.tasks())
        QVERIFY(!task.isNull());
}

// Every UTF-16 unit is tried once before a marker and once after a name, against Qt's Unicode data: a unit missing
// from (or wrongly added to) the white-space set would let "me@home"-like words name projects or split names.
void TestActivityParser::onlyWhiteSpaceAndPunctuationLetAMarkerCountOrEndAName()
{
    const ActivityParser &parser = ActivityParser::defaultParser();
    const QString mayPrecedeMarker = QStringLiteral(";:,.?!");
    const QString endsName = QStringLiteral(";:,?!");
    for (char32_t code = 0; code <= 0xFFFF; ++code) {
        const QChar unit(static_cast<char16_t>(code));
        const bool isSpace = QChar::isSpace(code);

        const QString before = QStringLiteral("x") + unit + QStringLiteral("@ab");
        const bool counts = isSpace || mayPrecedeMarker.contains(unit);
        if (parser.componentsFromText(before).project().isNull() == counts)
            QFAIL(qPrintable(QStringLiteral("U+%1 before a marker").arg(uint(code), 4, 16, QLatin1Char('0'))));

        const QString after = QStringLiteral("@ab") + unit + QStringLiteral("cd");
        const bool ends = isSpace || endsName.contains(unit);
        if ((parser.componentsFromText(after).project() == QStringLiteral("ab")) != ends)
            QFAIL(qPrintable(QStringLiteral("U+%1 after a name").arg(uint(code), 4, 16, QLatin1Char('0'))));
    }
}

void TestActivityParser::scanWordStopsAtWordEndAndStaysPutWithoutWord_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<qsizetype>("start");
    QTest::addColumn<QString>("word");
    QTest::addColumn<qsizetype>("positionAfter");

    QTest::newRow("word up to a blank") << QStringLiteral("@ab cd") << qsizetype(1) << QStringLiteral("ab")
                                        << qsizetype(3);
    QTest::newRow("blank: no word, no skip") << QStringLiteral("@ ab") << qsizetype(1) << QString() << qsizetype(1);
    QTest::newRow("line break: no word") << QStringLiteral("#\nab") << qsizetype(1) << QString() << qsizetype(1);
    QTest::newRow("comma: no word") << QStringLiteral("#,ab") << qsizetype(1) << QString() << qsizetype(1);
    QTest::newRow("at the end: no word") << QStringLiteral("@") << qsizetype(1) << QString() << qsizetype(1);
    QTest::newRow("only full stops: empty word")
        << QStringLiteral("@...;x") << qsizetype(1) << QStringLiteral("") << qsizetype(4);
    QTest::newRow("trimmed, position past the full stop")
        << QStringLiteral("#review. next") << qsizetype(1) << QStringLiteral("review") << qsizetype(8);
    QTest::newRow("word to the end of the text")
        << QStringLiteral("#a.b") << qsizetype(1) << QStringLiteral("a.b") << qsizetype(4);
}

void TestActivityParser::scanWordStopsAtWordEndAndStaysPutWithoutWord()
{
    QFETCH(QString, text);
    QFETCH(qsizetype, start);
    QFETCH(QString, word);
    QFETCH(qsizetype, positionAfter);

    ActivityParser::Scanner scanner(text, start);
    const QString scanned = ActivityParser::defaultParser().scanWord(scanner);

    QCOMPARE(scanned, word);
    QCOMPARE(scanned.isNull(), word.isNull());
    QCOMPARE(scanner.position(), positionAfter);
}

void TestActivityParser::componentsTellAbsentProjectFromEmptyProject()
{
    const ActivityComponents withoutProject
        = ActivityComponents::componentsWithText(QStringLiteral("rest"), QString(), QStringList());
    const ActivityComponents emptyProject
        = ActivityComponents::componentsWithText(QStringLiteral("rest"), QStringLiteral(""), QStringList());

    QVERIFY(withoutProject != emptyProject);
    QVERIFY(emptyProject
        == ActivityComponents::componentsWithText(QStringLiteral("rest"), QStringLiteral(""), QStringList()));
    QVERIFY(ActivityComponents() != ActivityComponents::componentsWithText(QStringLiteral(""), QString(), {}));
}

void TestActivityParser::findCurrentProjectOrTaskNeedsCaretAtEndOfMarkedWord_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<qsizetype>("caret");
    QTest::addColumn<QString>("word");

    const QString none;
    QTest::newRow("caret at the end of a project")
        << QStringLiteral("work @ac") << qsizetype(8) << QStringLiteral("@ac");
    QTest::newRow("caret inside the word") << QStringLiteral("@acme") << qsizetype(2) << none;
    QTest::newRow("line begins with a blank") << QStringLiteral(" @ac") << qsizetype(4) << none;
    QTest::newRow("caret at 0") << QStringLiteral("@ac") << qsizetype(0) << none;
    QTest::newRow("word at the start of the line") << QStringLiteral("@ac") << qsizetype(3) << QStringLiteral("@ac");
    QTest::newRow("two-unit text") << QStringLiteral("@a") << qsizetype(2) << QStringLiteral("@a");
    QTest::newRow("lone marker is the whole text") << QStringLiteral("@") << qsizetype(1) << none;
    QTest::newRow("lone marker at the end") << QStringLiteral("work @") << qsizetype(6) << none;
    QTest::newRow("lone marker before a blank") << QStringLiteral("x @ y") << qsizetype(3) << QStringLiteral("@");
    QTest::newRow("task word before more text")
        << QStringLiteral("work #ta more") << qsizetype(8) << QStringLiteral("#ta");
    QTest::newRow("caret past the word") << QStringLiteral("@ac x") << qsizetype(5) << none;
    QTest::newRow("text ends in a separator") << QStringLiteral("@ac ") << qsizetype(4) << none;
    QTest::newRow("caret before the final separator")
        << QStringLiteral("@ac ") << qsizetype(3) << QStringLiteral("@ac");
    QTest::newRow("caret in the middle of a later word") << QStringLiteral("x @ac y") << qsizetype(4) << none;
    QTest::newRow("full stop separates") << QStringLiteral("@acme.co") << qsizetype(8) << none;
    QTest::newRow("caret before the full stop")
        << QStringLiteral("@acme.co") << qsizetype(5) << QStringLiteral("@acme");
    QTest::newRow("word without marker") << QStringLiteral("work ac") << qsizetype(7) << none;
    QTest::newRow("marker inside a word") << QStringLiteral("me@ho") << qsizetype(5) << none;
    QTest::newRow("tab separates") << QStringLiteral("a\t#ta") << qsizetype(5) << QStringLiteral("#ta");
    QTest::newRow("line separator separates") << QStringLiteral("a\u2028@b") << qsizetype(4) << QStringLiteral("@b");
    QTest::newRow("emoji word") << QStringLiteral("x @😀") << qsizetype(5) << QStringLiteral("@😀");
    QTest::newRow("second marker belongs to the word")
        << QStringLiteral("#a#b") << qsizetype(4) << QStringLiteral("#a#b");
    QTest::newRow("caret beyond the text") << QStringLiteral("@ac") << qsizetype(4) << none;
    QTest::newRow("negative caret") << QStringLiteral("@ac") << qsizetype(-1) << none;
}

void TestActivityParser::findCurrentProjectOrTaskNeedsCaretAtEndOfMarkedWord()
{
    QFETCH(QString, text);
    QFETCH(qsizetype, caret);
    QFETCH(QString, word);

    const QString found = ActivityParser::findCurrentProjectOrTask(text, caret);
    QCOMPARE(found, word);
    QCOMPARE(found.isNull(), word.isNull());
}

QTEST_GUILESS_MAIN(TestActivityParser)
#include "testactivityparser.moc"
