#include "cli/cliinterrupt.h"

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

#include <QSocketNotifier>

namespace {

// A signal handler may only write to a pipe; the event loop reads the other end.
int wakeUp[2] = { -1, -1 };

void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(wakeUp[1], &byte, 1);
}

void install(void (*handler)(int))
{
    struct sigaction action {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    // The first signal asks politely; the handler is then reset, so a second one ends the process.
    action.sa_flags = handler == SIG_DFL ? 0 : SA_RESETHAND;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

} // namespace

CliInterrupt::CliInterrupt(QObject *parent)
    : QObject(parent)
{
    if (::pipe2(wakeUp, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    m_notifier = new QSocketNotifier(wakeUp[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this]() {
        char byte = 0;
        while (::read(wakeUp[0], &byte, 1) > 0) { }
        Q_EMIT interrupted();
    });
    install(onSignal);
}

CliInterrupt::~CliInterrupt()
{
    if (!m_notifier)
        return;
    install(SIG_DFL);
    delete m_notifier;
    ::close(wakeUp[0]);
    ::close(wakeUp[1]);
    wakeUp[0] = wakeUp[1] = -1;
}
