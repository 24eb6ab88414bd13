#include "gui/preferences/exporttokenrow.h"

#include <QActionGroup>
#include <QApplication>
#include <QDrag>
#include <QDragEnterEvent>
#include <QHBoxLayout>
#include <QJsonDocument>
#include <QJsonObject>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QToolButton>
#include <QWidgetAction>

#include "export/exportlayouteditor.h"
#include "gui/preferences/tokenflowlayout.h"

namespace {

const auto kField = QStringLiteral("field");
const auto kIndex = QStringLiteral("index");
const auto kMode = QStringLiteral("mode");

// Rounded like the tokens of a tag field, so that a row reads as a sequence of columns rather than as
// buttons that each do something.
const auto kTokenStyle = QStringLiteral("QToolButton { border: 1px solid palette(mid); border-radius: 10px;"
                                        " padding: 2px 9px; background: palette(button); }"
                                        "QToolButton:hover { border-color: palette(highlight); }"
                                        "QToolButton:disabled { background: palette(window); }");

} // namespace

ExportTokenRow::ExportTokenRow(ExportLayoutEditor &editor, QWidget *parent)
    : QWidget(parent)
    , m_editor(editor)
{
    setAcceptDrops(true);
    auto *layout = new TokenFlowLayout(this);
    layout->setContentsMargins(0, 2, 0, 2);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    connect(&m_editor, &ExportLayoutEditor::layoutChanged, this, &ExportTokenRow::rebuild);
    rebuild();
}

QString ExportTokenRow::mimeType()
{
    return QStringLiteral("application/x-brimvale-csvtokenfield");
}

QToolButton *ExportTokenRow::tokenButton(qsizetype index) const
{
    return index >= 0 && index < m_buttons.size() ? m_buttons.at(index) : nullptr;
}

QMenu *ExportTokenRow::tokenMenu() const
{
    return m_menu && m_menu->isVisible() ? m_menu.data() : nullptr;
}

void ExportTokenRow::rebuild()
{
    if (m_menu) {
        // Its token may be gone or moved: nothing typed into it is committed now.
        m_menu->disconnect(this);
        if (auto *edit = m_menu->findChild<QLineEdit *>(QStringLiteral("attributeName")))
            edit->disconnect(this);
        m_menu->close();
    }
    // Later, not now: the rebuild may run inside an event of the button it replaces (a drop at the end
    // of its own drag).
    for (QToolButton *button : std::as_const(m_buttons)) {
        layout()->removeWidget(button);
        button->hide();
        button->deleteLater();
    }
    m_buttons.clear();
    const QList<CSVTokenField> &fields = m_editor.fields();
    for (qsizetype i = 0; i < fields.size(); ++i) {
        auto *button = new QToolButton(this);
        button->setObjectName(QStringLiteral("token-%1").arg(i));
        button->setText(m_editor.title(i));
        button->setStyleSheet(kTokenStyle);
        button->setFocusPolicy(Qt::StrongFocus);
        if (m_editor.isEditable(i)) {
            button->setToolTip(
                tr("%1\nClick to choose what it shows. Drag it, or press Ctrl+Left or Ctrl+Right, to move it; Delete "
                   "removes it.")
                    .arg(fields.at(i).tokenValue().description()));
            button->setCursor(Qt::OpenHandCursor);
            button->installEventFilter(this);
            connect(button, &QToolButton::clicked, this, [this, i] { showTokenMenu(i); });
        } else {
            button->setEnabled(false);
        }
        layout()->addWidget(button);
        // At once rather than when the layout gets to it, so that the moved token can take the focus.
        button->setVisible(true);
        m_buttons.append(button);
    }
    updateGeometry();
}

void ExportTokenRow::showTokenMenu(qsizetype index)
{
    if (!m_editor.isEditable(index))
        return;
    if (m_menu) {
        m_menu->close();
        m_menu->deleteLater();
    }
    auto *menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("tokenMenu"));
    menu->setAttribute(Qt::WA_DeleteOnClose);
    m_menu = menu;

    const QList<ExportTokenChoiceGroup> groups = m_editor.choices(index);
    for (qsizetype g = 0; g < groups.size(); ++g) {
        const ExportTokenChoiceGroup &group = groups.at(g);
        QMenu *submenu = menu->addMenu(group.title);
        submenu->setObjectName(QStringLiteral("group-%1").arg(g));
        // The group of the token in use stands out; inside it, the token is the selected choice.
        if (group.current) {
            QFont font = submenu->menuAction()->font();
            font.setBold(true);
            submenu->menuAction()->setFont(font);
        }
        auto *exclusive = new QActionGroup(submenu);
        for (const ExportTokenChoice &choice : group.choices) {
            QAction *action = submenu->addAction(choice.title);
            exclusive->addAction(action);
            action->setObjectName(QStringLiteral("choice-%1-%2").arg(choice.tokenType).arg(choice.tokenValue));
            action->setCheckable(true);
            action->setChecked(choice.checked);
            connect(
                action, &QAction::triggered, this, [this, index, type = choice.tokenType, value = choice.tokenValue] {
                    m_editor.chooseToken(index, type, value);
                });
        }
    }

    if (m_editor.mode() == CSVTokenField::XMLMode) {
        menu->addSeparator();
        auto *nameAction = new QWidgetAction(menu);
        auto *box = new QWidget(menu);
        auto *boxLayout = new QHBoxLayout(box);
        boxLayout->setContentsMargins(8, 2, 8, 2);
        auto *label = new QLabel(tr("Attribute name:"), box);
        auto *edit = new QLineEdit(m_editor.fields().at(index).xmlPropertyName(), box);
        edit->setObjectName(QStringLiteral("attributeName"));
        label->setBuddy(edit);
        boxLayout->addWidget(label);
        boxLayout->addWidget(edit);
        nameAction->setDefaultWidget(box);
        menu->addAction(nameAction);
        // A typed name counts however the user leaves the field: Return, another field, or closing the menu.
        // Only a change is committed, once: Return, then the menu closing, commit one name.
        const auto commitTyped = [this, index, edit] {
            if (!edit->isModified())
                return;
            edit->setModified(false);
            commitName(index, edit->text());
        };
        connect(edit, &QLineEdit::editingFinished, this, commitTyped);
        connect(menu, &QMenu::aboutToHide, this, commitTyped);
    }

    menu->addSeparator();
    QAction *remove = menu->addAction(tr("Remove"));
    remove->setObjectName(QStringLiteral("removeToken"));
    connect(remove, &QAction::triggered, this, [this, index] { m_editor.removeField(index); });

    const QToolButton *button = tokenButton(index);
    menu->popup(button ? button->mapToGlobal(QPoint(0, button->height())) : QCursor::pos());
}

void ExportTokenRow::commitName(qsizetype index, const QString &name)
{
    const QString refusal = m_editor.renameField(index, name);
    Q_EMIT messageChanged(refusal);
    // A refused name stays in the field for correcting; an accepted one closes the menu.
    if (refusal.isNull() && m_menu)
        m_menu->close();
}

QMimeData *ExportTokenRow::mimeDataForToken(qsizetype index) const
{
    if (!m_editor.isEditable(index))
        return nullptr;
    const QJsonObject payload {
        { kField, m_editor.fields().at(index).toJson() },
        { kIndex, int(index) },
        { kMode, m_editor.mode() },
    };
    auto *mimeData = new QMimeData;
    mimeData->setData(mimeType(), QJsonDocument(payload).toJson(QJsonDocument::Compact));
    return mimeData;
}

qsizetype ExportTokenRow::draggedIndex(const QMimeData *mimeData) const
{
    if (!mimeData || !mimeData->hasFormat(mimeType()))
        return -1;
    const QJsonObject payload = QJsonDocument::fromJson(mimeData->data(mimeType())).object();
    const qsizetype index = payload.value(kIndex).toInt(-1);
    // Only a token of this very layout, as it still stands: a drag from the other layout, or one that
    // outlived a change of the layout, moves nothing.
    if (payload.value(kMode).toInt(-1) != m_editor.mode() || !m_editor.isEditable(index)
        || !(CSVTokenField::fromJson(payload.value(kField).toObject()) == m_editor.fields().at(index)))
        return -1;
    return index;
}

qsizetype ExportTokenRow::dropIndexAt(const QPoint &pos) const
{
    for (qsizetype i = 0; i < m_buttons.size(); ++i) {
        const QRect rect = m_buttons.at(i)->geometry();
        if (pos.y() < rect.top() || (pos.y() <= rect.bottom() && pos.x() < rect.center().x()))
            return i;
    }
    return m_buttons.size();
}

bool ExportTokenRow::eventFilter(QObject *watched, QEvent *event)
{
    auto *button = qobject_cast<QToolButton *>(watched);
    const qsizetype index = button ? m_buttons.indexOf(button) : -1;
    if (index < 0)
        return QWidget::eventFilter(watched, event);
    if (event->type() == QEvent::MouseButtonPress) {
        const auto *mouse = static_cast<QMouseEvent *>(event);
        if (mouse->button() == Qt::LeftButton) {
            m_pressPos = mouse->position().toPoint();
            m_pressIndex = index;
        }
    } else if (event->type() == QEvent::MouseMove) {
        const auto *mouse = static_cast<QMouseEvent *>(event);
        if (m_pressIndex == index && (mouse->buttons() & Qt::LeftButton)
            && (mouse->position().toPoint() - m_pressPos).manhattanLength() >= QApplication::startDragDistance()) {
            m_pressIndex = -1;
            button->setDown(false);
            startDrag(index);
            return true;
        }
    } else if (event->type() == QEvent::MouseButtonRelease) {
        m_pressIndex = -1;
    } else if (event->type() == QEvent::KeyPress) {
        // The keyboard does what dragging and the menu's "Remove" do.
        const auto *key = static_cast<QKeyEvent *>(event);
        const bool left = key->key() == Qt::Key_Left;
        if (key->modifiers() == Qt::ControlModifier && (left || key->key() == Qt::Key_Right)) {
            if (m_editor.moveField(index, left ? index - 1 : index + 2)) {
                if (QToolButton *moved = tokenButton(left ? index - 1 : index + 1))
                    moved->setFocus();
            }
            return true;
        }
        if (key->key() == Qt::Key_Delete || key->key() == Qt::Key_Backspace) {
            m_editor.removeField(index);
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void ExportTokenRow::startDrag(qsizetype index)
{
    QMimeData *mimeData = mimeDataForToken(index);
    if (!mimeData)
        return;
    auto *drag = new QDrag(this);
    drag->setMimeData(mimeData);
    QToolButton *button = tokenButton(index);
    drag->setPixmap(button->grab());
    drag->setHotSpot(button->mapFromGlobal(QCursor::pos()));
    m_dragging = true;
    drag->exec(Qt::MoveAction);
    m_dragging = false;
    if (m_pendingMove)
        moveLater(*std::exchange(m_pendingMove, std::nullopt));
}

void ExportTokenRow::moveLater(std::pair<qsizetype, qsizetype> move)
{
    // Queued: the move rebuilds the row, and the token being dragged must not go while its events (and,
    // for this row's own drag, the drag's event loop) are still running.
    QMetaObject::invokeMethod(
        this, [this, move] { m_editor.moveField(move.first, move.second); }, Qt::QueuedConnection);
}

void ExportTokenRow::dragEnterEvent(QDragEnterEvent *event)
{
    if (draggedIndex(event->mimeData()) < 0)
        return event->ignore();
    event->acceptProposedAction();
}

void ExportTokenRow::dragMoveEvent(QDragMoveEvent *event)
{
    if (draggedIndex(event->mimeData()) < 0)
        return event->ignore();
    const qsizetype dropIndex = std::max(dropIndexAt(event->position().toPoint()), m_editor.fixedCount());
    if (dropIndex != m_dropIndex) {
        m_dropIndex = dropIndex;
        update();
    }
    event->acceptProposedAction();
}

void ExportTokenRow::dragLeaveEvent(QDragLeaveEvent *)
{
    m_dropIndex = -1;
    update();
}

void ExportTokenRow::dropEvent(QDropEvent *event)
{
    m_dropIndex = -1;
    update();
    const qsizetype from = draggedIndex(event->mimeData());
    if (from < 0)
        return event->ignore();
    event->acceptProposedAction();
    const std::pair<qsizetype, qsizetype> move { from, dropIndexAt(event->position().toPoint()) };
    if (m_dragging)
        m_pendingMove = move;
    else
        moveLater(move);
}

void ExportTokenRow::paintEvent(QPaintEvent *)
{
    if (m_dropIndex < 0 || m_buttons.isEmpty())
        return;
    // A bar where the token will land: before the token at the index, or after the last one.
    const bool atEnd = m_dropIndex >= m_buttons.size();
    const QRect rect = m_buttons.at(atEnd ? m_buttons.size() - 1 : m_dropIndex)->geometry();
    const int x = atEnd ? rect.right() + 3 : rect.left() - 4;
    QPainter painter(this);
    painter.fillRect(QRect(x, rect.top(), 2, rect.height()), palette().highlight());
}
