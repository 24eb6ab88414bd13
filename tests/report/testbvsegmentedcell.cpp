#include <QtTest>

#include <QStyle>

#include "gui/report/bvsegmentedcell.h"

using namespace Qt::StringLiterals;

// The range control as the report builds it: back, day, week, month, all, forward.
class TestBvSegmentedCell : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void arrowsNeverStaySelected_data();
    void arrowsNeverStaySelected();
    void pressAndReleaseOnDifferentSegmentsIsNoClick();
    void keyboardReachesEverySegment();
    void shrinkingDropsASelectionThatBecameTheLast();
    void segmentsFollowTheirContent();

private:
    std::unique_ptr<BvSegmentedCell> m_cell;
};

void TestBvSegmentedCell::init()
{
    m_cell = std::make_unique<BvSegmentedCell>();
    m_cell->setSegmentCount(6);
    const QStringList texts { u""_s, u"Day"_s, u"Week"_s, u"Month"_s, u"All"_s, u""_s };
    for (int i = 0; i < texts.size(); ++i)
        m_cell->setSegmentText(i, texts[i]);
    m_cell->setSegmentIcon(0, m_cell->style()->standardIcon(QStyle::SP_ArrowBack));
    m_cell->setSegmentIcon(5, m_cell->style()->standardIcon(QStyle::SP_ArrowForward));
    m_cell->resize(m_cell->sizeHint());
    m_cell->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_cell.get()));
}

void TestBvSegmentedCell::cleanup()
{
    m_cell.reset();
}

void TestBvSegmentedCell::arrowsNeverStaySelected_data()
{
    QTest::addColumn<QList<int>>("clicks");
    QTest::addColumn<bool>("byMouse");
    QTest::addColumn<int>("selected");
    QTest::addColumn<QList<int>>("signalled");

    for (const bool mouse : { true, false }) {
        const char *how = mouse ? "click" : "set";
        QTest::addRow("%s: week marks week", how) << QList<int> { 2 } << mouse << 2 << QList<int> { 2 };
        QTest::addRow("%s: back keeps week marked", how) << QList<int> { 2, 0 } << mouse << 2 << QList<int> { 2, 0 };
        QTest::addRow("%s: forward keeps month marked", how)
            << QList<int> { 3, 5, 5 } << mouse << 3 << QList<int> { 3, 5, 5 };
        QTest::addRow("%s: arrow first leaves nothing marked", how)
            << QList<int> { 0 } << mouse << -1 << QList<int> { 0 };
        QTest::addRow("%s: all after day", how) << QList<int> { 1, 4 } << mouse << 4 << QList<int> { 1, 4 };
        QTest::addRow("%s: the marked one again still signals", how)
            << QList<int> { 1, 1 } << mouse << 1 << QList<int> { 1, 1 };
    }
    QTest::newRow("set: outside the segments does nothing")
        << QList<int> { 2, 6, -1 } << false << 2 << QList<int> { 2 };
}

void TestBvSegmentedCell::arrowsNeverStaySelected()
{
    QFETCH(QList<int>, clicks);
    QFETCH(bool, byMouse);
    QFETCH(int, selected);
    QFETCH(QList<int>, signalled);
    QSignalSpy spy(m_cell.get(), &BvSegmentedCell::segmentClicked);
    for (const int index : clicks) {
        if (byMouse)
            QTest::mouseClick(m_cell.get(), Qt::LeftButton, {}, m_cell->segmentRect(index).center());
        else
            m_cell->setSelectedSegment(index);
    }
    QCOMPARE(m_cell->selectedSegment(), selected);
    QList<int> told;
    for (const QList<QVariant> &call : spy)
        told.append(call.at(0).toInt());
    QCOMPARE(told, signalled);
}

void TestBvSegmentedCell::pressAndReleaseOnDifferentSegmentsIsNoClick()
{
    QSignalSpy spy(m_cell.get(), &BvSegmentedCell::segmentClicked);
    QTest::mousePress(m_cell.get(), Qt::LeftButton, {}, m_cell->segmentRect(1).center());
    QTest::mouseRelease(m_cell.get(), Qt::LeftButton, {}, m_cell->segmentRect(3).center());
    QCOMPARE(spy.count(), 0);
    QCOMPARE(m_cell->selectedSegment(), -1);
}

void TestBvSegmentedCell::keyboardReachesEverySegment()
{
    QSignalSpy spy(m_cell.get(), &BvSegmentedCell::segmentClicked);
    m_cell->setFocus();
    // Focus starts on the first segment and stops at both ends.
    QTest::keyClick(m_cell.get(), Qt::Key_Left);
    QTest::keyClick(m_cell.get(), Qt::Key_Space);
    for (int i = 0; i < 8; ++i)
        QTest::keyClick(m_cell.get(), Qt::Key_Right);
    QTest::keyClick(m_cell.get(), Qt::Key_Return);
    QTest::keyClick(m_cell.get(), Qt::Key_Left);
    QTest::keyClick(m_cell.get(), Qt::Key_Left);
    QTest::keyClick(m_cell.get(), Qt::Key_Space);
    QCOMPARE(spy.count(), 3);
    QCOMPARE(spy.at(0).at(0).toInt(), 0);
    QCOMPARE(spy.at(1).at(0).toInt(), 5);
    QCOMPARE(spy.at(2).at(0).toInt(), 3);
    QCOMPARE(m_cell->selectedSegment(), 3);
}

void TestBvSegmentedCell::shrinkingDropsASelectionThatBecameTheLast()
{
    m_cell->setSelectedSegment(4);
    m_cell->setSegmentCount(5);
    QCOMPARE(m_cell->selectedSegment(), -1);
    m_cell->setSelectedSegment(3);
    m_cell->setSegmentCount(6);
    QCOMPARE(m_cell->selectedSegment(), 3);
}

void TestBvSegmentedCell::segmentsFollowTheirContent()
{
    // Contiguous, covering the whole control, the labelled segments wider than the arrows, and every point
    // belonging to the segment whose rectangle holds it.
    int x = 0;
    for (int i = 0; i < m_cell->segmentCount(); ++i) {
        const QRect r = m_cell->segmentRect(i);
        QCOMPARE(r.left(), x);
        x = r.right() + 1;
        QCOMPARE(m_cell->segmentAt(r.topLeft()), i);
        QCOMPARE(m_cell->segmentAt(r.bottomRight()), i);
    }
    QCOMPARE(x, m_cell->width());
    QVERIFY(m_cell->segmentRect(3).width() > m_cell->segmentRect(0).width());
    QCOMPARE(m_cell->segmentAt(QPoint(m_cell->width(), 1)), -1);
}

QTEST_MAIN(TestBvSegmentedCell)
#include "testbvsegmentedcell.moc"
