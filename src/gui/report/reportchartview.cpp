#include "gui/report/reportchartview.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <QEvent>
#include <QFontMetricsF>
#include <QHelpEvent>
#include <QLocale>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>

#include "export/bvdurationtransformer.h"

namespace {

using Unit = ReportChartData::Unit;
using Kind = ReportChartData::SeriesKind;

constexpr qint64 Hour = 3600;
constexpr double Margin = 12;
constexpr double LegendGap = 28;
constexpr double Swatch = 10;

// Mid-tone hues that keep their contrast on a white and on a near-black window, far enough apart to tell
// eight neighbours in a stack.
constexpr std::array<QRgb, ReportChartData::PaletteSize> ProjectColors {
    0x4e79a7, // blue
    0xf28e2b, // orange
    0x59a14f, // green
    0xe15759, // red
    0x76b7b2, // teal
    0xedc948, // yellow
    0xb07aa1, // mauve
    0xff9da7, // pink
    0x9c755f, // brown
    0xbcbd22, // olive
    0x7b68d9, // violet
    0x4fb0e8, // sky
};

// The first step of 15 min, 30 min, 1, 2 or 5 times a power of ten hours that needs at most five
// gridline intervals up to `maxSeconds`.
qint64 tickStep(qint64 maxSeconds)
{
    if (maxSeconds <= 5 * 900)
        return 900;
    if (maxSeconds <= 5 * 1800)
        return 1800;
    for (qint64 power = Hour;; power *= 10) {
        for (const qint64 factor : { 1, 2, 5 }) {
            if (maxSeconds <= 5 * factor * power)
                return factor * power;
        }
    }
}

} // namespace

ReportChartView::ReportChartView(QWidget *parent)
    : QWidget(parent)
{
    setMouseTracking(true);
    setAttribute(Qt::WA_OpaquePaintEvent, false);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    relayout();
}

void ReportChartView::setChartData(ReportChartData chartData)
{
    m_data = std::move(chartData);
    m_hoverBucket = -1;
    m_hoverSeries = -1;
    relayout();
    update();
}

void ReportChartView::setDurationFormat(int reportDurationFormat)
{
    m_durationFormat = reportDurationFormat;
    relayout();
    update();
}

QColor ReportChartView::seriesColor(const ReportChartData::Series &series, bool dark)
{
    switch (series.kind) {
    case Kind::NoProject:
        return dark ? QColor(0xa0a0a0) : QColor(0x8c8c8c);
    case Kind::Other:
        return dark ? QColor(0x6b6764) : QColor(0xc9c3bf);
    case Kind::Project:
        break;
    }
    const QColor base(ProjectColors[size_t(std::clamp(series.colorSlot, 0, ReportChartData::PaletteSize - 1))]);
    return dark ? base.lighter(112) : base;
}

QSize ReportChartView::sizeHint() const
{
    return { 900, 260 };
}

QSize ReportChartView::minimumSizeHint() const
{
    return { 320, 140 };
}

bool ReportChartView::isDark() const
{
    return palette().color(QPalette::Window).lightness() < 128;
}

QString ReportChartView::duration(qint64 seconds) const
{
    return BVDurationTransformer(m_durationFormat).transformedValue(seconds);
}

QString ReportChartView::seriesTitle(int series) const
{
    const auto &s = m_data.series().at(series);
    switch (s.kind) {
    case Kind::NoProject:
        return tr("No project");
    case Kind::Other:
        return tr("Other");
    case Kind::Project:
        break;
    }
    return s.name;
}

QString ReportChartView::bucketTitle(int bucket) const
{
    const auto &b = m_data.buckets().at(size_t(bucket));
    const QLocale locale;
    switch (m_data.unit()) {
    case Unit::Day:
        return locale.toString(b.first, QLocale::LongFormat);
    case Unit::Week:
        return tr("%1 – %2").arg(locale.toString(b.first, u"d MMM"), locale.toString(b.last, u"d MMM yyyy"));
    case Unit::Month:
        return locale.toString(b.first, u"MMMM yyyy");
    case Unit::Year:
        return QString::number(b.first.year());
    }
    return {};
}

QString ReportChartView::primaryLabel(int bucket) const
{
    const QDate first = m_data.buckets().at(size_t(bucket)).first;
    switch (m_data.unit()) {
    case Unit::Day:
    case Unit::Week:
        return QString::number(first.day());
    case Unit::Month:
        return QLocale().standaloneMonthName(first.month(), QLocale::ShortFormat);
    case Unit::Year:
        return QString::number(first.year());
    }
    return {};
}

// The wider period a run of bars belongs to, named under its first bar: the month of days and weeks,
// the year of months. Empty where the period goes on.
QString ReportChartView::groupLabel(int bucket) const
{
    const auto &buckets = m_data.buckets();
    const QDate first = buckets.at(size_t(bucket)).first;
    const QDate previous = bucket > 0 ? buckets.at(size_t(bucket - 1)).first : QDate();
    switch (m_data.unit()) {
    case Unit::Day:
    case Unit::Week:
        if (previous.isValid() && previous.month() == first.month() && previous.year() == first.year())
            return {};
        if (!m_shortGroupLabels)
            return QLocale().toString(first, u"MMMM yyyy");
        // Too narrow for full names: the year only where it starts or changes.
        return QLocale().toString(first, previous.isValid() && previous.year() == first.year() ? u"MMM" : u"MMM yyyy");
    case Unit::Month:
        if (previous.isValid() && previous.year() == first.year())
            return {};
        return QString::number(first.year());
    case Unit::Year:
        return {};
    }
    return {};
}

void ReportChartView::relayout()
{
    const QFontMetricsF fm(font());
    const QRectF area = QRectF(rect()).adjusted(Margin, Margin * 0.75, -Margin, -Margin * 0.5);
    const auto &series = m_data.series();

    // Legend: a row per series and the total, as wide as its longest row within limits.
    double nameWidth = fm.horizontalAdvance(tr("Total"));
    double durationWidth = fm.horizontalAdvance(duration(m_data.totalSeconds()));
    for (int i = 0; i < series.size(); ++i) {
        nameWidth = std::max(nameWidth, fm.horizontalAdvance(seriesTitle(i)));
        durationWidth = std::max(durationWidth, fm.horizontalAdvance(duration(series[i].seconds)));
    }
    const double legendWidth = std::clamp(
        Swatch + 8 + nameWidth + 16 + durationWidth, std::min(150.0, area.width() * 0.4), area.width() * 0.4);
    m_legend = QRectF(area.right() - legendWidth, area.top(), legendWidth, area.height());
    const int rows = int(series.size()) + 1;
    const double rowHeight = std::max(fm.height(), std::min(fm.height() + 7, (area.height() - 7) / rows));
    m_legendRows.clear();
    for (int i = 0; i < rows; ++i) {
        const double top = m_legend.top() + i * rowHeight + (i == rows - 1 ? 7 : 0);
        m_legendRows.emplace_back(m_legend.left(), top, m_legend.width(), rowHeight);
    }

    // Value axis: hours, with a round top.
    const qint64 peak = m_data.maxBucketSeconds() > 0 ? m_data.maxBucketSeconds() : 8 * Hour;
    m_tickSeconds = tickStep(peak);
    m_axisTopSeconds = (peak + m_tickSeconds - 1) / m_tickSeconds * m_tickSeconds;
    double axisLabelWidth = 0;
    for (qint64 t = 0; t <= m_axisTopSeconds; t += m_tickSeconds)
        axisLabelWidth = std::max(axisLabelWidth, fm.horizontalAdvance(QLocale().toString(double(t) / Hour) + u" h"));
    const int labelLines = m_data.unit() == Unit::Year ? 1 : 2;
    const double top = area.top() + fm.height() / 2;
    const double bottom = area.bottom() - labelLines * fm.height() - 4;
    const double left = area.left() + axisLabelWidth + 8;
    m_plot = QRectF(left, top, std::max(1.0, m_legend.left() - LegendGap - left), std::max(1.0, bottom - top));

    // Bars and their stacked parts.
    const auto &buckets = m_data.buckets();
    m_segments.clear();
    m_slotWidth = buckets.empty() ? 0 : m_plot.width() / double(buckets.size());
    const double barWidth = std::clamp(m_slotWidth * 0.7, 1.0, 44.0);
    for (size_t b = 0; b < buckets.size(); ++b) {
        const double x = m_plot.left() + m_slotWidth * double(b) + (m_slotWidth - barWidth) / 2;
        double y = m_plot.bottom();
        for (size_t s = 0; s < buckets[b].seconds.size(); ++s) {
            const qint64 seconds = buckets[b].seconds[s];
            if (seconds <= 0)
                continue;
            const double height = m_plot.height() * double(seconds) / double(m_axisTopSeconds);
            m_segments.push_back({ QRectF(x, y - height, barWidth, height), int(b), int(s) });
            y -= height;
        }
    }
    double labelWidth = 0;
    for (size_t b = 0; b < buckets.size(); ++b)
        labelWidth = std::max(labelWidth, fm.horizontalAdvance(primaryLabel(int(b))));
    // A month holds about four weekly bars; its full name must fit in them.
    m_shortGroupLabels = m_data.unit() == Unit::Week
        && 4 * m_slotWidth < fm.horizontalAdvance(QLocale().toString(QDate(2026, 9, 30), u"MMMM yyyy")) + 12;
    m_labelEvery = m_slotWidth > 0 ? std::max(1, int(std::ceil((labelWidth + 6) / m_slotWidth))) : 1;
}

QRectF ReportChartView::segmentRect(int bucket, int series) const
{
    for (const Segment &segment : m_segments) {
        if (segment.bucket == bucket && segment.series == series)
            return segment.rect;
    }
    return {};
}

QRectF ReportChartView::legendRowRect(int series) const
{
    return series >= 0 && size_t(series) < m_legendRows.size() ? m_legendRows[size_t(series)] : QRectF();
}

int ReportChartView::bucketAt(const QPointF &pos) const
{
    // The whole height counts, labels and the room above the bars included.
    if (m_slotWidth <= 0 || pos.x() < m_plot.left() || pos.x() >= m_plot.right() || pos.y() < 0 || pos.y() > height())
        return -1;
    const int bucket = int((pos.x() - m_plot.left()) / m_slotWidth);
    return bucket < int(m_data.buckets().size()) ? bucket : -1;
}

QString ReportChartView::toolTipAt(const QPointF &pos) const
{
    const auto &series = m_data.series();
    for (size_t row = 0; row < m_legendRows.size(); ++row) {
        if (!m_legendRows[row].contains(pos))
            continue;
        if (int(row) == series.size())
            return tr("Total: %1").arg(duration(m_data.totalSeconds()));
        QString text = tr("%1: %2").arg(seriesTitle(int(row)), duration(series[qsizetype(row)].seconds));
        const QStringList &folded = series[qsizetype(row)].folded;
        if (!folded.isEmpty()) {
            QStringList names;
            for (const QString &name : folded.mid(0, 12))
                names.append(name.isEmpty() ? tr("No project") : name);
            if (folded.size() > 12)
                names.append(tr("and %n more", nullptr, int(folded.size() - 12)));
            text += u'\n' + names.join(u", ");
        }
        return text;
    }
    const int bucket = bucketAt(pos);
    if (bucket < 0)
        return {};
    for (const Segment &segment : m_segments) {
        if (segment.bucket == bucket && segment.rect.contains(pos)) {
            const qint64 seconds = m_data.buckets()[size_t(bucket)].seconds[size_t(segment.series)];
            return bucketTitle(bucket) + u'\n' + tr("%1: %2").arg(seriesTitle(segment.series), duration(seconds));
        }
    }
    return bucketTitle(bucket) + u'\n' + tr("Total: %1").arg(duration(m_data.buckets()[size_t(bucket)].total));
}

bool ReportChartView::event(QEvent *event)
{
    if (event->type() == QEvent::ToolTip) {
        const auto *help = static_cast<QHelpEvent *>(event);
        const QString text = toolTipAt(help->pos());
        if (text.isEmpty()) {
            QToolTip::hideText();
            event->ignore();
        } else {
            QToolTip::showText(help->globalPos(), text, this);
        }
        return true;
    }
    return QWidget::event(event);
}

void ReportChartView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    relayout();
}

void ReportChartView::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::LocaleChange) {
        relayout();
        update();
    }
}

void ReportChartView::mouseMoveEvent(QMouseEvent *event)
{
    const QPointF pos = event->position();
    int bucket = bucketAt(pos);
    int series = -1;
    for (const Segment &segment : m_segments) {
        if (segment.bucket == bucket && segment.rect.contains(pos))
            series = segment.series;
    }
    for (size_t row = 0; row + 1 < m_legendRows.size(); ++row) {
        if (m_legendRows[row].contains(pos))
            series = int(row);
    }
    if (bucket != m_hoverBucket || series != m_hoverSeries) {
        m_hoverBucket = bucket;
        m_hoverSeries = series;
        update();
    }
    QWidget::mouseMoveEvent(event);
}

void ReportChartView::leaveEvent(QEvent *event)
{
    m_hoverBucket = -1;
    m_hoverSeries = -1;
    update();
    QWidget::leaveEvent(event);
}

void ReportChartView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QFontMetricsF fm(font());
    const bool dark = isDark();
    const QColor text = palette().color(QPalette::WindowText);
    QColor faint = text;
    faint.setAlphaF(0.6f);
    QColor grid = text;
    grid.setAlphaF(0.12f);
    QColor band = text;
    band.setAlphaF(dark ? 0.05f : 0.035f);
    QColor hover = palette().color(QPalette::Highlight);
    hover.setAlphaF(0.18f);
    const auto &buckets = m_data.buckets();
    const auto &series = m_data.series();

    // Days off in light bands, the hovered bar in the highlight colour.
    if (m_data.unit() == Unit::Day) {
        const QList<Qt::DayOfWeek> workdays = QLocale().weekdays();
        for (size_t b = 0; b < buckets.size(); ++b) {
            if (!workdays.contains(Qt::DayOfWeek(buckets[b].first.dayOfWeek())))
                painter.fillRect(
                    QRectF(m_plot.left() + m_slotWidth * double(b), m_plot.top(), m_slotWidth, m_plot.height()), band);
        }
    }
    if (m_hoverBucket >= 0) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(hover);
        painter.drawRoundedRect(
            QRectF(m_plot.left() + m_slotWidth * m_hoverBucket, m_plot.top() - 2, m_slotWidth, m_plot.height() + 2), 3,
            3);
    }

    // Gridlines with their hours.
    painter.setFont(font());
    for (qint64 t = 0; t <= m_axisTopSeconds; t += m_tickSeconds) {
        const double y = std::round(m_plot.bottom() - m_plot.height() * double(t) / double(m_axisTopSeconds)) + 0.5;
        painter.setPen(QPen(t == 0 ? faint : grid, 1));
        painter.drawLine(QPointF(m_plot.left(), y), QPointF(m_plot.right(), y));
        painter.setPen(faint);
        const QString label = t == 0 ? QStringLiteral("0") : QLocale().toString(double(t) / Hour) + u" h";
        painter.drawText(
            QRectF(0, y - fm.height() / 2, m_plot.left() - 8, fm.height()), Qt::AlignRight | Qt::AlignVCenter, label);
    }

    // The stacks: a one-pixel gap between parts, the top corners rounded.
    painter.setPen(Qt::NoPen);
    for (size_t i = 0; i < m_segments.size(); ++i) {
        const Segment &segment = m_segments[i];
        const bool topmost = i + 1 == m_segments.size() || m_segments[i + 1].bucket != segment.bucket;
        QColor color = seriesColor(series[segment.series], dark);
        if (m_hoverSeries >= 0 && m_hoverSeries != segment.series)
            color.setAlphaF(0.45f);
        QRectF r = segment.rect;
        if (r.height() > 3 && r.bottom() < m_plot.bottom() - 0.5)
            r.setBottom(r.bottom() - 1);
        if (topmost && r.height() > 3) {
            QPainterPath path;
            path.setFillRule(Qt::WindingFill);
            const double radius = std::min(3.0, r.width() / 3);
            path.addRoundedRect(r, radius, radius);
            path.addRect(r.adjusted(0, radius, 0, 0));
            painter.fillPath(path.simplified(), color);
        } else {
            painter.fillRect(r, color);
        }
    }

    // Bar labels, thinned out to fit, and the month (or year) under the first bar of each.
    painter.setPen(faint);
    const double labelTop = m_plot.bottom() + 3;
    double groupEnd = -1;
    for (size_t b = 0; b < buckets.size(); ++b) {
        const double x = m_plot.left() + m_slotWidth * double(b);
        if (b % size_t(m_labelEvery) == 0)
            painter.drawText(QRectF(x + m_slotWidth / 2 - 50, labelTop, 100, fm.height()),
                Qt::AlignHCenter | Qt::AlignTop, primaryLabel(int(b)));
        const QString group = groupLabel(int(b));
        if (!group.isEmpty() && x >= groupEnd) {
            painter.setPen(text);
            painter.drawText(QPointF(x + 2, labelTop + fm.height() + fm.ascent()), group);
            painter.setPen(faint);
            groupEnd = x + fm.horizontalAdvance(group) + 12;
        }
    }
    if (m_data.totalSeconds() == 0) {
        painter.setPen(faint);
        painter.drawText(m_plot, Qt::AlignCenter, tr("No time recorded in this range"));
    }

    // Legend: swatch, name and total per series, then the whole total.
    for (int row = 0; row < int(m_legendRows.size()); ++row) {
        const QRectF r = m_legendRows[size_t(row)];
        const bool total = row == series.size();
        if (!total && row == m_hoverSeries) {
            painter.setPen(Qt::NoPen);
            painter.setBrush(hover);
            painter.drawRoundedRect(r.adjusted(-4, 0, 4, 0), 3, 3);
        }
        QFont rowFont = font();
        rowFont.setBold(total);
        painter.setFont(rowFont);
        const QFontMetricsF rowMetrics(rowFont);
        const QString value = duration(total ? m_data.totalSeconds() : series[row].seconds);
        const double valueWidth = rowMetrics.horizontalAdvance(value);
        double nameLeft = r.left();
        if (total) {
            painter.setPen(QPen(grid, 1));
            painter.drawLine(QPointF(r.left(), r.top() - 3.5), QPointF(r.right(), r.top() - 3.5));
        } else {
            painter.setPen(Qt::NoPen);
            painter.setBrush(seriesColor(series[row], dark));
            painter.drawRoundedRect(QRectF(r.left(), r.center().y() - Swatch / 2, Swatch, Swatch), 2.5, 2.5);
            nameLeft += Swatch + 8;
        }
        painter.setPen(text);
        const QRectF nameRect(nameLeft, r.top(), r.right() - valueWidth - 12 - nameLeft, r.height());
        painter.drawText(nameRect, Qt::AlignLeft | Qt::AlignVCenter,
            rowMetrics.elidedText(total ? tr("Total") : seriesTitle(row), Qt::ElideRight, nameRect.width()));
        painter.setPen(total ? text : faint);
        painter.drawText(r, Qt::AlignRight | Qt::AlignVCenter, value);
    }
}
