#pragma once

#include <QLayout>
#include <QList>

// Lays its items out left to right and wraps to a new line where the width ends, as words in a
// paragraph: the columns of an export layout, however many the user adds.
class TokenFlowLayout : public QLayout
{
public:
    explicit TokenFlowLayout(QWidget *parent = nullptr, int spacing = 6);
    ~TokenFlowLayout() override;

    void addItem(QLayoutItem *item) override;
    int count() const override { return int(m_items.size()); }
    QLayoutItem *itemAt(int index) const override;
    QLayoutItem *takeAt(int index) override;
    Qt::Orientations expandingDirections() const override { return {}; }
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize minimumSize() const override;
    QSize sizeHint() const override;
    void setGeometry(const QRect &rect) override;

private:
    int doLayout(const QRect &rect, bool testOnly) const;

    QList<QLayoutItem *> m_items;
    int m_spacing;
};
