#pragma once

#include <QObject>

class QSocketNotifier;

// Turns the first Ctrl-C (SIGINT) or SIGTERM into the `interrupted` signal for as long as it lives, so
// that a long command can stop at a safe point; a second one ends the process as usual. One at a time.
class CliInterrupt : public QObject
{
    Q_OBJECT
public:
    explicit CliInterrupt(QObject *parent = nullptr);
    ~CliInterrupt() override;

Q_SIGNALS:
    void interrupted();

private:
    QSocketNotifier *m_notifier = nullptr;
};
