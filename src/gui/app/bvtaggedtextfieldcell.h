#pragma once

#include <QFont>
#include <QStringList>
#include <QStyledItemDelegate>

// Draws a table cell's text followed by the activity's task names as tags: small rounded labels on a pale
// yellow ground, one after another with a small gap. The tags of a row come from the model's TagsRole.
class BvTaggedTextFieldCell : public QStyledItemDelegate
{
    Q_OBJECT
public:
    // A QStringList of the row's task names.
    static constexpr int TagsRole = Qt::UserRole + 1;
    // Room around a tag's text, and between two tags, in pixels.
    static constexpr qreal TagPadding = 4;
    static constexpr qreal TagGap = 3;
    static QColor tagColor() { return QColor(249, 252, 198); }

    explicit BvTaggedTextFieldCell(QObject *parent = nullptr);

    // The tag text's font: the application's font, smaller.
    QFont tagFont() const { return m_tagFont; }
    // The width of `tag`'s text in the tag font.
    qreal widthForTag(const QString &tag) const;
    // For each tag of activityTags() its width with padding (text width + 4).
    QList<qreal> activityTagsWidth() const;
    // All tags with the gap after each: the room the tags take after the text. Cached until the tags change.
    qreal totalTagsWidth() const;

    void setActivityTags(const QStringList &tags);
    QStringList activityTags() const { return m_activityTags; }

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;

private:
    void initializeField();
    qreal totalWidthOf(const QStringList &tags) const;
    // Draws `tags` from `left` on, vertically centred in `cell`, clipped to it.
    void drawTags(QPainter *painter, const QStringList &tags, qreal left, const QRect &cell) const;

    QFont m_tagFont;
    QStringList m_activityTags;
    mutable qreal m_totalTagsWidth = -1;
};
