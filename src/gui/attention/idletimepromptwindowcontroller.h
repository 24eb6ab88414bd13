#pragma once

#include <QDateTime>
#include <QDialog>
#include <QTimer>

class BvSettings;
class Clock;
class QButtonGroup;
class QLabel;
class QRadioButton;

// The idle question: how long the user has been away, counted up once a minute, and the two ways of
// subtracting that time, preselected from the last choice. OK answers with the chosen action (1 subtract
// and stop, 2 subtract and continue) and remembers it; Cancel answers 0 and keeps the time. Opened with
// open(); the answer is the dialog's result (finished(int)). Main thread.
class IdleTimePromptWindowController : public QDialog
{
    Q_OBJECT
public:
    static constexpr int SubtractAndStop = 1;
    static constexpr int SubtractAndContinue = 2;
    static constexpr int CounterIntervalMsecs = 60 * 1000;

    // Neither is owned; both outlive the window.
    IdleTimePromptWindowController(
        const QDateTime &idleFromDate, BvSettings &settings, Clock &clock, QWidget *parent = nullptr);

    QDateTime idleFromDate() const { return m_idleFromDate; }
    int selectedIdleAction() const { return m_selectedIdleAction; }
    // "Subtract and stop" or "Subtract and continue".
    QString selectedIdleActionTitle() const;
    void setSelectedIdleAction(int action);

    // Refreshes "You have been idle for N minutes" from the clock.
    void updateIdleTime();
    // Shows the window above the others and gives it the focus where the desktop allows.
    void sbOpen();

    void onOkButton();
    void onCancelButton();
    void done(int response) override;

    bool isCounting() const { return m_counterTimer.isActive(); }

private:
    QRadioButton *addChoice(int action, const QString &title);

    QDateTime m_idleFromDate;
    BvSettings &m_settings;
    Clock &m_clock;
    int m_selectedIdleAction = SubtractAndStop;
    QLabel *m_idleTimeLabel = nullptr;
    QButtonGroup *m_actionRadioButtonList = nullptr;
    QTimer m_counterTimer;
};
