#pragma once

#include <QPlainTextEdit>

class ActivityManager;
class QAbstractItemView;
class QCompleter;
class QStringListModel;

// The field the user types an activity line into. While typing a "@" project or "#" task word it offers
// the stored names that start with what was typed; choosing one replaces the word. Pasting always inserts
// plain text. Return (without Shift) is the command to start, reported by returnPressed().
class ActivityTextView : public QPlainTextEdit
{
    Q_OBJECT
public:
    // `completionSource` is not owned and outlives the field.
    explicit ActivityTextView(ActivityManager &completionSource, QWidget *parent = nullptr);

    // Replaces the text, caret at the end, without textEdited().
    void setText(const QString &text);
    QString text() const;
    // The application's default font.
    void setDefaultFont();
    // One line high, no wrapping, no scroll bars, and no line breaks (Shift+Return and pasted line breaks
    // included): the main window's field. Off by default.
    void setSingleLine(bool singleLine);
    bool isSingleLine() const { return m_singleLine; }

    // The completion list; visible only while it offers names.
    QAbstractItemView *completionPopup() const;
    QStringList completionCandidates() const;

Q_SIGNALS:
    void returnPressed();
    // The user changed the text (typing, pasting, choosing a completion); not sent for setText().
    void textEdited(const QString &text);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void changeEvent(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    bool canInsertFromMimeData(const QMimeData *source) const override;
    void insertFromMimeData(const QMimeData *source) override;

private:
    void complete();
    void hideCompletion();
    void insertCompletion(const QString &name);
    void onTextChanged();
    void updateSingleLineHeight();

    ActivityManager &m_completionSource;
    QCompleter *m_completer = nullptr;
    QStringListModel *m_candidates = nullptr;
    // Where the word being completed starts (its marker) and how long it is.
    int m_wordStart = -1;
    int m_wordLength = 0;
    bool m_settingText = false;
    bool m_singleLine = false;
};
