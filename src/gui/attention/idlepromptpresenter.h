#pragma once

#include <QPointer>

#include "gui/attention/idletimepromptwindowcontroller.h"

class AttentionController;
class BvSettings;
class Clock;

// Puts the idle question on screen when the attention rules ask it, hands the answer back, and closes
// the window when the question was answered elsewhere (the notification's buttons). Main thread.
class IdlePromptPresenter : public QObject
{
    Q_OBJECT
public:
    // None is owned; all outlive this object.
    IdlePromptPresenter(AttentionController &attention, BvSettings &settings, Clock &clock, QObject *parent = nullptr);
    ~IdlePromptPresenter() override;

    // The open prompt, if any.
    IdleTimePromptWindowController *window() const { return m_window; }

private:
    void onIdlePromptRequested(const QDateTime &idleFromDate);
    void onIdlePromptEnded();

    AttentionController &m_attention;
    BvSettings &m_settings;
    Clock &m_clock;
    QPointer<IdleTimePromptWindowController> m_window;
};
