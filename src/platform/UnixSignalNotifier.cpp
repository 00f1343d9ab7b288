#include "platform/UnixSignalNotifier.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {
int s_pipe[2] = {-1, -1};

void handleSignal(int signal)
{
    // The code the signal interrupted may be about to read errno; a full
    // pipe (EAGAIN) must not change it under it.
    const int savedErrno = errno;
    const unsigned char number = static_cast<unsigned char>(signal);
    [[maybe_unused]] const ssize_t written = ::write(s_pipe[1], &number, 1);
    errno = savedErrno;
}
} // namespace

UnixSignalNotifier::UnixSignalNotifier(std::initializer_list<int> signalNumbers, QObject *parent)
    : QObject(parent)
{
    if (s_pipe[0] < 0 && ::pipe2(s_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return;
    m_notifier = new QSocketNotifier(s_pipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        unsigned char number;
        while (::read(s_pipe[0], &number, 1) == 1)
            Q_EMIT received(number);
    });
    struct sigaction action = {};
    action.sa_handler = &handleSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signal : signalNumbers)
        ::sigaction(signal, &action, nullptr);
}

UnixSignalNotifier::~UnixSignalNotifier() = default;
