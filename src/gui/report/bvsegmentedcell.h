#pragma once

#include <QIcon>
#include <QList>
#include <QString>
#include <QWidget>

// A row of contiguous segments, each with a text and/or an icon, drawn as one joined button of the current
// style. A click (or Space/Return on the segment that has keyboard focus, Left/Right moving that focus)
// goes through setSelectedSegment, which keeps only the inner segments marked: the first and the last
// act as buttons (the range control's back and forward arrows) and leave the marked mode alone.
class BvSegmentedCell : public QWidget
{
    Q_OBJECT
public:
    explicit BvSegmentedCell(QWidget *parent = nullptr);

    void setSegmentCount(int count);
    int segmentCount() const { return int(m_segments.size()); }
    void setSegmentText(int index, const QString &text);
    void setSegmentIcon(int index, const QIcon &icon);
    void setSegmentToolTip(int index, const QString &toolTip);
    QString segmentText(int index) const;

    // The marked segment, -1 when none is.
    int selectedSegment() const { return m_selected; }
    // Marks `index` when it lies strictly between the first and the last segment, then tells
    // segmentClicked(index) in every case. An index outside the segments does nothing.
    void setSelectedSegment(int index);

    // The segment under `pos` (widget coordinates), -1 when none.
    int segmentAt(const QPoint &pos) const;
    QRect segmentRect(int index) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

Q_SIGNALS:
    // A segment was clicked or set, arrows included.
    void segmentClicked(int index);

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    struct Segment
    {
        QString text;
        QIcon icon;
        QString toolTip;
    };
    int naturalWidth(int index) const;
    QList<int> segmentWidths() const;
    int iconExtent() const;

    QList<Segment> m_segments;
    int m_selected = -1;
    int m_pressed = -1;
    int m_hovered = -1;
    int m_focused = 0;
};
