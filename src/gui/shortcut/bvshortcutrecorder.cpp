#include "gui/shortcut/bvshortcutrecorder.h"

#include <utility>

#include <QApplication>
#include <QClipboard>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

#include "platform/globalhotkey.h"
#include "settings/bvsettings.h"

using namespace Qt::StringLiterals;

BvShortcutRecorder::BvShortcutRecorder(BvSettings &settings, GlobalHotKey &hotKey, QWidget *parent)
    : QWidget(parent)
    , m_settings(settings)
    , m_hotKey(hotKey)
    , m_field(new QPushButton(this))
    , m_clearButton(new QToolButton(this))
    , m_message(new QLabel(this))
    , m_unavailable(new QWidget(this))
    , m_command(new QLineEdit(BvShortcutRecorderRules::showCommand(), m_unavailable))
{
    setObjectName(u"shortcutRecorder"_s);
    m_field->setObjectName(u"shortcutField"_s);
    m_field->setMinimumWidth(m_field->fontMetrics().horizontalAdvance(u"Super+Ctrl+Alt+Shift+PgDown"_s) + 24);
    m_field->setToolTip(tr("Click, then type the combination that brings Brimvale up from any application"));
    m_field->installEventFilter(this);
    connect(m_field, &QPushButton::clicked, this, [this] {
        if (m_recording)
            stopRecording();
        else
            startRecording();
    });

    m_clearButton->setObjectName(u"shortcutClearButton"_s);
    m_clearButton->setIcon(QIcon::fromTheme(u"edit-clear"_s));
    m_clearButton->setText(u"\u00d7"_s);
    m_clearButton->setToolTip(tr("Remove the shortcut"));
    connect(m_clearButton, &QToolButton::clicked, this, &BvShortcutRecorder::clearShortcut);

    m_message->setObjectName(u"shortcutMessage"_s);
    m_message->setWordWrap(true);

    m_unavailable->setObjectName(u"shortcutUnavailable"_s);
    auto *explanation = new QLabel(BvShortcutRecorderRules::unavailableText(), m_unavailable);
    explanation->setObjectName(u"shortcutUnavailableText"_s);
    explanation->setWordWrap(true);
    m_command->setObjectName(u"showCommandField"_s);
    m_command->setReadOnly(true);
    auto *copy = new QPushButton(tr("Copy"), m_unavailable);
    copy->setObjectName(u"copyShowCommandButton"_s);
    connect(copy, &QPushButton::clicked, this,
        [] { QApplication::clipboard()->setText(BvShortcutRecorderRules::showCommand()); });
    auto *commandRow = new QHBoxLayout;
    commandRow->addWidget(m_command, 1);
    commandRow->addWidget(copy);
    auto *unavailableLayout = new QVBoxLayout(m_unavailable);
    unavailableLayout->setContentsMargins(0, 0, 0, 0);
    unavailableLayout->addWidget(explanation);
    unavailableLayout->addLayout(commandRow);
    m_unavailable->setVisible(!m_hotKey.isAvailable());

    auto *fieldRow = new QHBoxLayout;
    fieldRow->addWidget(m_field, 1);
    fieldRow->addWidget(m_clearButton);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(fieldRow);
    layout->addWidget(m_message);
    layout->addWidget(m_unavailable);

    connect(&m_hotKey, &GlobalHotKey::registrationChanged, this, &BvShortcutRecorder::updateTexts);
    connect(&m_settings, &BvSettings::globalHotKeyChanged, this, &BvShortcutRecorder::updateTexts);
    updateTexts();
}

void BvShortcutRecorder::setReservedShortcuts(ReservedShortcuts reserved)
{
    m_reserved = std::move(reserved);
}

void BvShortcutRecorder::startRecording()
{
    if (m_recording)
        return;
    m_recording = true;
    m_pending.clear();
    m_refusal.clear();
    QList<BvShortcutRecorderRules::Reserved> rules;
    for (const auto &[sequence, title] : m_reserved ? m_reserved() : QList<QPair<QKeySequence, QString>> {}) {
        // A global key is one chord: only a menu shortcut of one chord can collide with it.
        if (sequence.count() != 1)
            continue;
        const QKeyCombination chord = sequence[0];
        if (const auto hotKey = BvHotKey::fromKeyPress(chord.key(), chord.keyboardModifiers().toInt()))
            rules.append({ *hotKey, QString(title).remove(u'&') });
    }
    m_rules.setReserved(rules);
    // An X11 grab would swallow its own combination before this control saw it, and typing it again is
    // how one keeps a shortcut.
    m_released = m_hotKey.isAvailable() && m_hotKey.grabHidesKeysFromTheApp();
    if (m_released)
        static_cast<void>(m_hotKey.registerHotKey(std::nullopt));
    m_field->setFocus(Qt::OtherFocusReason);
    updateTexts();
}

void BvShortcutRecorder::stopRecording()
{
    if (!m_recording)
        return;
    m_recording = false;
    m_pending.clear();
    if (std::exchange(m_released, false))
        static_cast<void>(m_hotKey.registerHotKey(m_settings.globalHotKey()));
    updateTexts();
}

void BvShortcutRecorder::clearShortcut()
{
    m_refusal.clear();
    m_settings.setGlobalHotKey(std::nullopt);
    // A released grab is taken again, now as none, when recording stops; one left in place is released here.
    const bool released = m_released;
    stopRecording();
    if (!released)
        static_cast<void>(m_hotKey.registerHotKey(std::nullopt));
    updateTexts();
}

bool BvShortcutRecorder::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_field)
        return QWidget::eventFilter(watched, event);
    switch (event->type()) {
    case QEvent::ShortcutOverride:
        // While recording every combination is typed into this control, even one a menu item uses.
        if (m_recording) {
            event->accept();
            return true;
        }
        break;
    case QEvent::KeyPress: {
        const auto *press = static_cast<QKeyEvent *>(event);
        if (m_recording) {
            onKeyPress(press->key(), press->modifiers());
            return true;
        }
        if (press->modifiers() == Qt::NoModifier
            && (press->key() == Qt::Key_Backspace || press->key() == Qt::Key_Delete)) {
            clearShortcut();
            return true;
        }
        break;
    }
    case QEvent::KeyRelease:
        if (m_recording) {
            // Letting go of a modifier before the key takes it back from the pending text.
            const auto *release = static_cast<QKeyEvent *>(event);
            m_pending = m_rules.keyPressed(0, release->modifiers().toInt()).pending;
            updateTexts();
            return true;
        }
        break;
    case QEvent::FocusOut:
        stopRecording();
        break;
    default:
        break;
    }
    return QWidget::eventFilter(watched, event);
}

void BvShortcutRecorder::onKeyPress(int key, Qt::KeyboardModifiers modifiers)
{
    const BvShortcutRecorderRules::Outcome outcome = m_rules.keyPressed(key, modifiers.toInt());
    m_pending = outcome.pending;
    m_refusal.clear();
    switch (outcome.kind) {
    case BvShortcutRecorderRules::Outcome::Kind::KeepRecording:
        break;
    case BvShortcutRecorderRules::Outcome::Kind::Cancel:
        stopRecording();
        break;
    case BvShortcutRecorderRules::Outcome::Kind::Clear:
        clearShortcut();
        break;
    case BvShortcutRecorderRules::Outcome::Kind::Refused:
        m_refusal = outcome.message;
        break;
    case BvShortcutRecorderRules::Outcome::Kind::Accepted:
        accept(*outcome.hotKey);
        break;
    }
    updateTexts();
}

void BvShortcutRecorder::accept(const BvHotKey &hotKey)
{
    // A combination another program holds is refused here, before it is stored; recording goes on.
    // The key in force already needs no second request.
    const bool unchanged = !m_released && m_settings.globalHotKey() == hotKey;
    if (m_hotKey.isAvailable() && !unchanged) {
        if (const auto grabbed = m_hotKey.registerHotKey(hotKey); !grabbed) {
            m_refusal = tr("%1: %2").arg(hotKey.toString(), grabbed.error());
            // Nothing is grabbed after a refusal: the stored key again, unless it stays released for recording.
            static_cast<void>(m_hotKey.registerHotKey(m_released ? std::nullopt : m_settings.globalHotKey()));
            return;
        }
    }
    m_settings.setGlobalHotKey(hotKey);
    stopRecording();
}

void BvShortcutRecorder::updateTexts()
{
    const std::optional<BvHotKey> stored = m_settings.globalHotKey();
    if (m_recording)
        m_field->setText(m_pending.isEmpty() ? BvShortcutRecorderRules::recordingText() : m_pending);
    else
        m_field->setText(stored ? stored->toString() : BvShortcutRecorderRules::placeholderText());
    m_field->setDown(m_recording);
    m_clearButton->setEnabled(stored.has_value());

    QString message = m_refusal;
    if (message.isEmpty() && !m_recording && stored && m_hotKey.isAvailable())
        message = m_hotKey.registrationError();
    showMessage(message);
}

void BvShortcutRecorder::showMessage(const QString &message)
{
    m_message->setText(message);
    m_message->setVisible(!message.isEmpty());
}
