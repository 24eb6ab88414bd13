#include "app/unixsignalwatcher.h"

#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QSocketNotifier>

#include "gui/app/applogging.h"

namespace {

int s_pipe[2] = { -1, -1 };

extern "C" void writeSignalNumber(int signalNumber)
{
    const int savedErrno = errno;
    const unsigned char byte = static_cast<unsigned char>(signalNumber);
    // Async-signal-safe: one write, its result deliberately unused (a full pipe already wakes the loop).
    [[maybe_unused]] const ssize_t written = ::write(s_pipe[1], &byte, 1);
    errno = savedErrno;
}

} // namespace

UnixSignalWatcher::UnixSignalWatcher(const QList<int> &signalNumbers, QObject *parent)
    : QObject(parent)
{
    Q_ASSERT(s_pipe[0] < 0);
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, s_pipe) != 0) {
        qCWarning(lcApp) << "Could not watch for termination signals:" << strerror(errno);
        return;
    }
    m_notifier = new QSocketNotifier(s_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &UnixSignalWatcher::onReadable);

    for (const int signalNumber : signalNumbers) {
        struct sigaction action = {};
        action.sa_handler = writeSignalNumber;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        if (::sigaction(signalNumber, &action, nullptr) != 0) {
            qCWarning(lcApp) << "Could not handle signal" << signalNumber << strerror(errno);
            continue;
        }
        m_signals.append(signalNumber);
    }
}

UnixSignalWatcher::~UnixSignalWatcher()
{
    for (const int signalNumber : std::as_const(m_signals))
        ::signal(signalNumber, SIG_DFL);
    delete m_notifier;
    for (int &fd : s_pipe) {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
}

void UnixSignalWatcher::onReadable()
{
    unsigned char byte = 0;
    while (::read(s_pipe[0], &byte, 1) == 1)
        Q_EMIT unixSignal(byte);
}
