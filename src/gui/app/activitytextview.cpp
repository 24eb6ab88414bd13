#include "gui/app/activitytextview.h"

#include <algorithm>

#include <QAbstractItemView>
#include <QApplication>
#include <QCompleter>
#include <QKeyEvent>
#include <QMimeData>
#include <QScrollBar>
#include <QStringListModel>
#include <QtMath>

#include "model/activitymanager.h"
#include "model/activityparser.h"

namespace {

bool isReturn(int key)
{
    return key == Qt::Key_Return || key == Qt::Key_Enter;
}

// Keys after which the field does not look for a word to complete, even though some of them produce a
// character: leaving the list, deleting and moving the caret are not typing a name.
bool endsCompletion(int key)
{
    switch (key) {
    case Qt::Key_Escape:
    case Qt::Key_Backspace:
    case Qt::Key_Delete:
    case Qt::Key_Left:
    case Qt::Key_Right:
    case Qt::Key_Up:
    case Qt::Key_Down:
        return true;
    default:
        return false;
    }
}

// Whether the key typed something. Shortcuts (Ctrl+C) and keys such as Tab carry text too, but type nothing.
// AltGr, which types "@" on many layouts, is not a Control or Meta modifier.
bool typesText(const QKeyEvent &event)
{
    const QString text = event.text();
    if (text.isEmpty() || (event.modifiers() & (Qt::ControlModifier | Qt::MetaModifier)))
        return false;
    return std::all_of(text.cbegin(), text.cend(), [](QChar c) { return c.isPrint(); });
}

QString withoutLineBreaks(QString text)
{
    text.replace(QStringLiteral("\r\n"), QStringLiteral(" "));
    for (QChar &c : text) {
        if (c == u'\n' || c == u'\r' || c == QChar::LineSeparator || c == QChar::ParagraphSeparator)
            c = u' ';
    }
    return text;
}

} // namespace

ActivityTextView::ActivityTextView(ActivityManager &completionSource, QWidget *parent)
    : QPlainTextEdit(parent)
    , m_completionSource(completionSource)
    , m_completer(new QCompleter(this))
    , m_candidates(new QStringListModel(this))
{
    setObjectName(QStringLiteral("activityTextView"));
    setTabChangesFocus(true);
    m_completer->setModel(m_candidates);
    // The manager has already matched the names; the completer only shows them.
    m_completer->setCompletionMode(QCompleter::UnfilteredPopupCompletion);
    m_completer->setWidget(this);
    m_completer->popup()->setObjectName(QStringLiteral("activityCompletionPopup"));
    // Installed after the completer's own filter, so it sees the popup's keys first: Return and Tab choose
    // the selected name without the key reaching the field, where Return would start tracking.
    m_completer->popup()->installEventFilter(this);
    connect(m_completer->popup(), &QAbstractItemView::clicked, this,
        [this](const QModelIndex &index) { insertCompletion(index.data().toString()); });
    connect(this, &QPlainTextEdit::textChanged, this, &ActivityTextView::onTextChanged);
}

void ActivityTextView::setText(const QString &text)
{
    m_settingText = true;
    setPlainText(m_singleLine ? withoutLineBreaks(text) : text);
    m_settingText = false;
    moveCursor(QTextCursor::End);
    hideCompletion();
}

QString ActivityTextView::text() const
{
    return toPlainText();
}

void ActivityTextView::setDefaultFont()
{
    setFont(QApplication::font());
    updateSingleLineHeight();
}

void ActivityTextView::setSingleLine(bool singleLine)
{
    m_singleLine = singleLine;
    setLineWrapMode(singleLine ? QPlainTextEdit::NoWrap : QPlainTextEdit::WidgetWidth);
    const Qt::ScrollBarPolicy policy = singleLine ? Qt::ScrollBarAlwaysOff : Qt::ScrollBarAsNeeded;
    setHorizontalScrollBarPolicy(policy);
    setVerticalScrollBarPolicy(policy);
    if (singleLine) {
        if (toPlainText().contains(u'\n'))
            setText(toPlainText());
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
        updateSingleLineHeight();
    } else {
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
        setMinimumHeight(0);
        setMaximumHeight(QWIDGETSIZE_MAX);
    }
}

void ActivityTextView::updateSingleLineHeight()
{
    if (!m_singleLine)
        return;
    setFixedHeight(fontMetrics().lineSpacing() + qCeil(2 * document()->documentMargin()) + 2 * frameWidth());
}

QAbstractItemView *ActivityTextView::completionPopup() const
{
    return m_completer->popup();
}

QStringList ActivityTextView::completionCandidates() const
{
    return m_candidates->stringList();
}

void ActivityTextView::keyPressEvent(QKeyEvent *event)
{
    const int key = event->key();
    if (isReturn(key)) {
        if (!(event->modifiers() & Qt::ShiftModifier)) {
            hideCompletion();
            event->accept();
            Q_EMIT returnPressed();
            return;
        }
        if (m_singleLine) {
            event->accept();
            return;
        }
    }
    QPlainTextEdit::keyPressEvent(event);
    if (endsCompletion(key) || !typesText(*event)) {
        if (key != Qt::Key_Shift && key != Qt::Key_Control && key != Qt::Key_Alt && key != Qt::Key_Meta)
            hideCompletion();
        return;
    }
    complete();
}

void ActivityTextView::changeEvent(QEvent *event)
{
    QPlainTextEdit::changeEvent(event);
    if (event->type() == QEvent::FontChange)
        updateSingleLineHeight();
}

bool ActivityTextView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_completer->popup() && event->type() == QEvent::KeyPress) {
        auto *keyEvent = static_cast<QKeyEvent *>(event);
        const int key = keyEvent->key();
        if (isReturn(key) || key == Qt::Key_Tab) {
            const QModelIndex current = m_completer->popup()->currentIndex();
            if (current.isValid())
                insertCompletion(current.data().toString());
            else
                hideCompletion();
            return true;
        }
        if (key == Qt::Key_Escape) {
            hideCompletion();
            return true;
        }
    }
    return QPlainTextEdit::eventFilter(watched, event);
}

void ActivityTextView::complete()
{
    const QString text = toPlainText();
    const int caret = textCursor().selectionStart();
    const QString word = ActivityParser::findCurrentProjectOrTask(text, caret);
    if (word.isEmpty()) {
        hideCompletion();
        return;
    }
    // The typed part after the marker is the prefix; the candidates keep the user's spelling of it.
    const QString prefix = word.mid(1);
    const QStringList names = word.startsWith(u'@') ? m_completionSource.findProjectNames(prefix, true)
                                                    : m_completionSource.findTaskNames(prefix, true);
    if (names.isEmpty()) {
        hideCompletion();
        return;
    }
    m_wordStart = caret - int(word.size());
    m_wordLength = int(word.size());
    m_candidates->setStringList(names);
    m_completer->setCompletionPrefix(QString());
    QAbstractItemView *popup = m_completer->popup();
    // The list opens under the word's marker, where the replaced text will start.
    QTextCursor wordStart = textCursor();
    wordStart.setPosition(m_wordStart);
    QRect at = cursorRect(wordStart);
    at.setWidth(popup->sizeHintForColumn(0) + popup->verticalScrollBar()->sizeHint().width());
    m_completer->complete(at);
    // Only the name typed in full is chosen in advance, so Return does not pick a name the user did not type.
    const int exact = int(names.indexOf(prefix));
    popup->setCurrentIndex(exact >= 0 ? m_candidates->index(exact) : QModelIndex());
}

void ActivityTextView::hideCompletion()
{
    if (m_completer->popup()->isVisible())
        m_completer->popup()->hide();
    m_wordStart = -1;
    m_wordLength = 0;
}

void ActivityTextView::insertCompletion(const QString &name)
{
    if (m_wordStart < 0) {
        hideCompletion();
        return;
    }
    QTextCursor cursor = textCursor();
    cursor.setPosition(m_wordStart);
    cursor.setPosition(m_wordStart + m_wordLength, QTextCursor::KeepAnchor);
    const QString marker = cursor.selectedText().left(1);
    hideCompletion();
    cursor.insertText(marker + name);
    setTextCursor(cursor);
}

bool ActivityTextView::canInsertFromMimeData(const QMimeData *source) const
{
    return source->hasText();
}

void ActivityTextView::insertFromMimeData(const QMimeData *source)
{
    if (!source->hasText())
        return;
    const QString text = source->text();
    insertPlainText(m_singleLine ? withoutLineBreaks(text) : text);
}

void ActivityTextView::onTextChanged()
{
    if (!m_settingText)
        Q_EMIT textEdited(toPlainText());
}
