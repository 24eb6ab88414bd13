#include "gui/attention/idlepromptpresenter.h"

#include "attention/attentioncontroller.h"

IdlePromptPresenter::IdlePromptPresenter(
    AttentionController &attention, BvSettings &settings, Clock &clock, QObject *parent)
    : QObject(parent)
    , m_attention(attention)
    , m_settings(settings)
    , m_clock(clock)
{
    connect(&m_attention, &AttentionController::idlePromptRequested, this, &IdlePromptPresenter::onIdlePromptRequested);
    connect(&m_attention, &AttentionController::idlePromptEnded, this, &IdlePromptPresenter::onIdlePromptEnded);
}

IdlePromptPresenter::~IdlePromptPresenter()
{
    delete m_window;
}

void IdlePromptPresenter::onIdlePromptRequested(const QDateTime &idleFromDate)
{
    delete m_window;
    m_window = new IdleTimePromptWindowController(idleFromDate, m_settings, m_clock);
    connect(m_window, &QDialog::finished, &m_attention, &AttentionController::idlePromptDidEnd);
    m_window->sbOpen();
}

void IdlePromptPresenter::onIdlePromptEnded()
{
    // Answered through the notification: the window's question is settled too. Closing it as rejected
    // reports 0, which the rules ignore because the question is no longer open.
    if (m_window && m_window->isVisible())
        m_window->reject();
}
