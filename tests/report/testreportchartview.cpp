#include <QtTest>

#include <QToolTip>

#include "gui/report/reportchartview.h"

using namespace Qt::StringLiterals;

// The chart pane offscreen, in Europe/Berlin and en_US (see chart.cmake).
class TestReportChartView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void paintsAnyData_data();
    void paintsAnyData();
    void toolTipNamesWhatIsUnderThePointer_data();
    void toolTipNamesWhatIsUnderThePointer();
};

namespace {

constexpr qint64 H = 3600;

ActivityRecord record(const QDateTime &from, qint64 seconds, const QString &project)
{
    ActivityRecord r;
    r.timeFrom = from.toMSecsSinceEpoch();
    r.timeTo = from.addSecs(seconds).toMSecsSinceEpoch();
    r.project = project;
    return r;
}

QDateTime at(int month, int day, int hour)
{
    return QDateTime(QDate(2026, month, day), QTime(hour, 0));
}

// Monday 23 to Sunday 29 November 2026: Acme 2 h and Beta 1 h on Tuesday, 30 minutes without project on
// Thursday.
ReportChartData week()
{
    const std::vector<ActivityRecord> listed {
        record(at(11, 24, 9), 2 * H, u"Acme"_s),
        record(at(11, 24, 14), H, u"Beta"_s),
        record(at(11, 26, 10), H / 2, QString()),
    };
    return ReportChartData(listed, at(11, 23, 0), at(11, 30, 0), Qt::Monday);
}

bool containsColor(const QImage &image, QColor color)
{
    const QRgb wanted = color.rgb();
    for (int y = 0; y < image.height(); ++y) {
        const auto *line = reinterpret_cast<const QRgb *>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            if ((line[x] & 0xffffff) == (wanted & 0xffffff))
                return true;
        }
    }
    return false;
}

} // namespace

void TestReportChartView::paintsAnyData_data()
{
    QTest::addColumn<ReportChartData>("data");

    QTest::newRow("nothing") << ReportChartData();
    QTest::newRow("an empty week") << ReportChartData({}, at(11, 23, 0), at(11, 30, 0));
    QTest::newRow("one day") << ReportChartData(
        { record(at(11, 24, 9), 3 * H, u"Acme"_s) }, std::nullopt, std::nullopt);
    std::vector<ActivityRecord> year;
    for (int day = 0; day < 365; ++day) {
        const QDateTime start = QDateTime(QDate(2025, 1, 1).addDays(day), QTime(8, 0));
        for (int i = 0; i < 4; ++i)
            year.push_back(record(start.addSecs(i * 2 * H), H + 60 * day, u"Project %1"_s.arg((day + i) % 15)));
    }
    QTest::newRow("a year of fifteen projects, folded") << ReportChartData(year, std::nullopt, std::nullopt);
}

void TestReportChartView::paintsAnyData()
{
    QFETCH(ReportChartData, data);

    ReportChartView view;
    view.setChartData(data);
    for (const QSize size : { QSize(900, 260), QSize(120, 60) }) {
        view.resize(size);
        QImage image(size, QImage::Format_RGB32);
        image.fill(Qt::white);
        view.render(&image);
        // Each series is drawn in its colour, in the bars and the legend, at the full size.
        if (size.width() > 300) {
            for (const auto &series : data.series())
                QVERIFY2(containsColor(image, ReportChartView::seriesColor(series, false)), qPrintable(series.name));
        }
    }
}

void TestReportChartView::toolTipNamesWhatIsUnderThePointer_data()
{
    QTest::addColumn<QString>("where"); // "segment B S", "above B", "legend R", "corner"
    QTest::addColumn<int>("format");
    QTest::addColumn<QString>("text"); // empty: no tooltip

    QTest::newRow("Acme on Tuesday") << u"segment 1 0"_s << 0 << u"Tuesday, November 24, 2026\nAcme: 02:00:00"_s;
    QTest::newRow("Beta in decimal hours") << u"segment 1 1"_s << 2 << u"Tuesday, November 24, 2026\nBeta: 1.0000"_s;
    QTest::newRow("no project on Thursday, minutes")
        << u"segment 3 2"_s << 1 << u"Thursday, November 26, 2026\nNo project: 30"_s;
    QTest::newRow("above the stack, the day's total")
        << u"above 1"_s << 0 << u"Tuesday, November 24, 2026\nTotal: 03:00:00"_s;
    QTest::newRow("legend row") << u"legend 0"_s << 0 << u"Acme: 02:00:00"_s;
    QTest::newRow("legend total") << u"legend 3"_s << 1 << u"Total: 210"_s;
    QTest::newRow("outside the bars") << u"corner"_s << 0 << QString();
}

void TestReportChartView::toolTipNamesWhatIsUnderThePointer()
{
    QFETCH(QString, where);
    QFETCH(int, format);
    QFETCH(QString, text);

    ReportChartView view;
    view.setChartData(week());
    view.setDurationFormat(format);
    view.resize(900, 260);
    view.show();
    QVERIFY(QTest::qWaitForWindowExposed(&view));

    const QStringList parts = where.split(u' ');
    QPointF pos(1, 1);
    if (parts[0] == u"segment") {
        const QRectF segment = view.segmentRect(parts[1].toInt(), parts[2].toInt());
        QVERIFY(!segment.isEmpty());
        pos = segment.center();
    } else if (parts[0] == u"above") {
        const QRectF top = view.segmentRect(parts[1].toInt(), 1);
        pos = QPointF(top.center().x(), top.top() - 6);
    } else if (parts[0] == u"legend") {
        pos = view.legendRowRect(parts[1].toInt()).center();
    }
    QHelpEvent help(QEvent::ToolTip, pos.toPoint(), view.mapToGlobal(pos.toPoint()));
    QApplication::sendEvent(&view, &help);
    if (text.isEmpty()) {
        QVERIFY(!QToolTip::isVisible());
    } else {
        QTRY_VERIFY(QToolTip::isVisible());
        QCOMPARE(QToolTip::text(), text);
    }
    QToolTip::hideText();
}

QTEST_MAIN(TestReportChartView)
#include "testreportchartview.moc"
