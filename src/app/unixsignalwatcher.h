#pragma once

#include <QList>
#include <QObject>

class QSocketNotifier;

// Turns Unix signals (SIGTERM at logout or shutdown, SIGINT from Ctrl+C, SIGHUP when the terminal goes)
// into a Qt signal on the main thread, through a self-pipe: the handler only writes the signal's number.
// One watcher per process. Main thread.
class UnixSignalWatcher : public QObject
{
    Q_OBJECT
public:
    // Installs handlers for `signalNumbers`; those that cannot be installed are logged and left alone.
    explicit UnixSignalWatcher(const QList<int> &signalNumbers, QObject *parent = nullptr);
    ~UnixSignalWatcher() override;

Q_SIGNALS:
    void unixSignal(int signalNumber);

private:
    void onReadable();

    QList<int> m_signals;
    QSocketNotifier *m_notifier = nullptr;
};
