#pragma once

#include <vector>

#include <QColor>
#include <QRectF>
#include <QWidget>

#include "report/reportchartdata.h"

// The report's chart pane: the listed range's time per bar stacked by project, with a legend of the
// projects' totals beside the bars. Hovering a bar segment, a bar or a legend row shows its day (or span),
// project and duration as a tooltip. Drawn with QPainter; the work per paint is one pass over at most
// MaxBuckets bars of MaxSeries segments, whatever the number of records behind them.
class ReportChartView : public QWidget
{
    Q_OBJECT

public:
    explicit ReportChartView(QWidget *parent = nullptr);

    void setChartData(ReportChartData chartData);
    const ReportChartData &chartData() const { return m_data; }
    // The report's duration format for the legend and tooltips: 0 formatted, 1 minutes, 2 decimal hours.
    void setDurationFormat(int reportDurationFormat);

    // Where the part of `series` in bar `bucket` is drawn, in widget coordinates; empty when that part
    // holds no time or the indexes are out of range.
    QRectF segmentRect(int bucket, int series) const;
    // The legend row of `series`; index series().size() is the total row.
    QRectF legendRowRect(int series) const;
    // The tooltip text for a point of the widget; empty where nothing is described.
    QString toolTipAt(const QPointF &pos) const;

    // The colour of a series in a light or dark palette.
    static QColor seriesColor(const ReportChartData::Series &series, bool dark);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    struct Segment
    {
        QRectF rect;
        int bucket;
        int series;
    };

    void relayout();
    QString seriesTitle(int series) const;
    QString bucketTitle(int bucket) const;
    QString duration(qint64 seconds) const;
    QString primaryLabel(int bucket) const;
    QString groupLabel(int bucket) const;
    int bucketAt(const QPointF &pos) const;
    bool isDark() const;

    ReportChartData m_data;
    int m_durationFormat = 0;

    // Geometry of the last layout.
    QRectF m_plot;
    QRectF m_legend;
    qint64 m_axisTopSeconds = 0;
    qint64 m_tickSeconds = 0;
    double m_slotWidth = 0;
    int m_labelEvery = 1;
    bool m_shortGroupLabels = false;
    std::vector<Segment> m_segments;
    std::vector<QRectF> m_legendRows;
    int m_hoverBucket = -1;
    int m_hoverSeries = -1;
};
