#include <QtTest>

#include <QHeaderView>
#include <QStandardItemModel>
#include <QTableView>

#include "gui/app/bvtaggedtextfieldcell.h"

using namespace Qt::StringLiterals;

namespace {

struct Run
{
    int left;
    int width;
};

// Column runs of the tag colour within one table row: one run per tag drawn.
QList<Run> tagRuns(const QImage &image, const QRect &row)
{
    QList<Run> runs;
    int start = -1;
    for (int x = row.left(); x <= row.right() + 1; ++x) {
        bool tagged = false;
        for (int y = row.top(); x <= row.right() && y <= row.bottom() && !tagged; ++y)
            tagged = image.pixel(x, y) == BvTaggedTextFieldCell::tagColor().rgb();
        if (tagged && start < 0)
            start = x;
        if (!tagged && start >= 0) {
            runs.append({ start, x - start });
            start = -1;
        }
    }
    return runs;
}

} // namespace

class TestBvTaggedTextFieldCell : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void tagWidthsAddPaddingAndGap_data();
    void tagWidthsAddPaddingAndGap();
    void tagsAreDrawnAfterTheText_data();
    void tagsAreDrawnAfterTheText();
};

void TestBvTaggedTextFieldCell::tagWidthsAddPaddingAndGap_data()
{
    QTest::addColumn<QStringList>("tags");
    QTest::newRow("none") << QStringList {};
    QTest::newRow("one") << QStringList { u"review"_s };
    QTest::newRow("three") << QStringList { u"a"_s, u"design"_s, u"Überprüfung"_s };
    QTest::newRow("empty name") << QStringList { u""_s, u"x"_s };
}

void TestBvTaggedTextFieldCell::tagWidthsAddPaddingAndGap()
{
    QFETCH(QStringList, tags);
    BvTaggedTextFieldCell cell;
    // A width computed for other tags must not survive the change.
    cell.setActivityTags({ u"earlier"_s });
    QVERIFY(cell.totalTagsWidth() > 0);
    cell.setActivityTags(tags);
    QCOMPARE(cell.activityTags(), tags);
    const QFontMetricsF metrics(cell.tagFont());
    QVERIFY(cell.tagFont().pointSizeF() < QApplication::font().pointSizeF());

    const QList<qreal> widths = cell.activityTagsWidth();
    QCOMPARE(widths.size(), tags.size());
    qreal total = 0;
    for (int i = 0; i < tags.size(); ++i) {
        QCOMPARE(cell.widthForTag(tags[i]), metrics.horizontalAdvance(tags[i]));
        QCOMPARE(widths[i], metrics.horizontalAdvance(tags[i]) + 4);
        total += widths[i] + 3;
    }
    QCOMPARE(cell.totalTagsWidth(), total);
}

void TestBvTaggedTextFieldCell::tagsAreDrawnAfterTheText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("tags");
    QTest::newRow("no tags") << u"@Acme call"_s << QStringList {};
    QTest::newRow("one tag") << u"@Acme #call"_s << QStringList { u"call"_s };
    QTest::newRow("two tags") << u"@Acme #design #review"_s << QStringList { u"design"_s, u"review"_s };
    QTest::newRow("tags only") << QString() << QStringList { u"x"_s, u"wide task name"_s };
}

void TestBvTaggedTextFieldCell::tagsAreDrawnAfterTheText()
{
    QFETCH(QString, text);
    QFETCH(QStringList, tags);

    QStandardItemModel model(3, 1);
    auto *item = new QStandardItem(text);
    item->setData(tags, BvTaggedTextFieldCell::TagsRole);
    model.setItem(0, 0, item);
    model.setItem(1, 0, new QStandardItem(u"other row"_s));
    model.setItem(2, 0, new QStandardItem(text));
    QTableView table;
    auto *delegate = new BvTaggedTextFieldCell(&table);
    table.setItemDelegate(delegate);
    table.setModel(&model);
    table.setShowGrid(false);
    table.horizontalHeader()->hide();
    table.verticalHeader()->hide();
    table.setColumnWidth(0, 600);
    table.resize(620, 120);
    table.show();
    QVERIFY(QTest::qWaitForWindowExposed(&table));

    QStyleOptionViewItem option;
    option.initFrom(&table);
    delegate->setActivityTags(tags);
    const int extra = tags.isEmpty() ? 0 : qCeil(6 + delegate->totalTagsWidth());
    QCOMPARE(delegate->sizeHint(option, model.index(0, 0)).width(),
        delegate->sizeHint(option, model.index(2, 0)).width() + extra);

    const QImage image = table.viewport()->grab().toImage().convertToFormat(QImage::Format_RGB32);
    const QRect row = table.visualRect(model.index(0, 0));
    const QList<Run> runs = tagRuns(image, row);
    QCOMPARE(runs.size(), tags.size());
    QVERIFY(tagRuns(image, table.visualRect(model.index(1, 0))).isEmpty());

    const int textEnd = row.left() + (text.isEmpty() ? 0 : table.fontMetrics().horizontalAdvance(text));
    for (int i = 0; i < runs.size(); ++i) {
        QVERIFY2(runs[i].left >= textEnd,
            qPrintable(u"tag %1 at %2, text ends at %3"_s.arg(i).arg(runs[i].left).arg(textEnd)));
        const int expected = qRound(delegate->widthForTag(tags[i]) + 4);
        // Antialiased rounded corners may leave the outermost column a shade off the fill.
        QVERIFY2(qAbs(runs[i].width - expected) <= 1, qPrintable(u"%1 vs %2"_s.arg(runs[i].width).arg(expected)));
        if (i > 0) {
            const int gap = runs[i].left - (runs[i - 1].left + runs[i - 1].width);
            QVERIFY2(gap >= 3 && gap <= 5, qPrintable(QString::number(gap)));
        }
    }
}

QTEST_MAIN(TestBvTaggedTextFieldCell)
#include "testbvtaggedtextfieldcell.moc"
