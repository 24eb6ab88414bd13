#pragma once

#include <optional>
#include <utility>

#include <QList>
#include <QPointer>
#include <QWidget>

class ExportLayoutEditor;
class QMenu;
class QMimeData;
class QToolButton;

// The columns of one export layout as a row of tokens ("token-0", "token-1", ...). A click on a token
// opens its menu ("tokenMenu"): the token catalogue in groups, for XML the attribute's name, and
// "Remove". Tokens are reordered by dragging them within the row. The fixed XML attributes are shown
// greyed and neither open a menu nor move. Every change goes through the editor, which stores it.
class ExportTokenRow : public QWidget
{
    Q_OBJECT

public:
    ExportTokenRow(ExportLayoutEditor &editor, QWidget *parent = nullptr);

    // The MIME type of a dragged token: the column as CSVTokenField stores it, its index and mode.
    static QString mimeType();

    QToolButton *tokenButton(qsizetype index) const;
    // The menu of the token last clicked, while it is open; null otherwise.
    QMenu *tokenMenu() const;
    void showTokenMenu(qsizetype index);
    // What dragging the token at `index` carries.
    QMimeData *mimeDataForToken(qsizetype index) const;
    // Where a token dropped at `pos` (row coordinates) lands: the index of the token it goes before.
    qsizetype dropIndexAt(const QPoint &pos) const;

Q_SIGNALS:
    // A name was refused (the reason), or a later change succeeded (an empty text).
    void messageChanged(const QString &message);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void rebuild();
    void startDrag(qsizetype index);
    // The index a drag of this row's own layout carries, or -1 for anything else.
    qsizetype draggedIndex(const QMimeData *mimeData) const;
    void commitName(qsizetype index, const QString &name);
    void moveLater(std::pair<qsizetype, qsizetype> move);

    ExportLayoutEditor &m_editor;
    QList<QToolButton *> m_buttons;
    QPointer<QMenu> m_menu;
    QPoint m_pressPos;
    qsizetype m_pressIndex = -1;
    qsizetype m_dropIndex = -1;
    // This row's own drag is under way; a drop onto the row waits in m_pendingMove until it returns.
    bool m_dragging = false;
    std::optional<std::pair<qsizetype, qsizetype>> m_pendingMove;
};
