// The signals that ask the program to end.
#include "desktop/application/TerminationSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>

namespace {

constexpr std::array kSignals = {SIGTERM, SIGINT, SIGHUP};

/// Ends of a pipe: the handler writes a byte and the event loop reads it (the way that signal-safety(7) leaves open).
std::array<int, 2> pipeEnds = {-1, -1};

std::array<struct sigaction, kSignals.size()> formerActions;

int readEndOfNewPipe()
{
    // Not blocking on either side: a handler must never wait, and one byte in the pipe is enough.
    if (::pipe2(pipeEnds.data(), O_NONBLOCK | O_CLOEXEC) != 0) {
        pipeEnds = {-1, -1};
    }
    return pipeEnds[0];
}

void writeByte(int /*signal*/)
{
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(pipeEnds[1], "", 1);
    errno = error;
}

} // namespace

TerminationSignals::TerminationSignals()
    : notifier(QSocketNotifier::Read)
{
    const int readEnd = readEndOfNewPipe();
    if (readEnd < 0) {
        // Without a pipe the signals keep their default, which ends the program as well.
        return;
    }
    notifier.setSocket(readEnd);
    notifier.setEnabled(true);
    connect(&notifier, &QSocketNotifier::activated, this, &TerminationSignals::onReadable);
    for (std::size_t index = 0; index < kSignals.size(); ++index) {
        struct sigaction &former = formerActions.at(index);
        ::sigaction(kSignals.at(index), nullptr, &former);
        // Whoever has started the program with a signal ignored, as nohup(1) does, wants it to live on.
        if (former.sa_handler == SIG_IGN) {
            continue;
        }
        struct sigaction action = {};
        action.sa_handler = writeByte;
        action.sa_flags = SA_RESTART;
        ::sigaction(kSignals.at(index), &action, nullptr);
    }
}

TerminationSignals::~TerminationSignals()
{
    if (pipeEnds[0] < 0) {
        return;
    }
    for (std::size_t index = 0; index < kSignals.size(); ++index) {
        ::sigaction(kSignals.at(index), &formerActions.at(index), nullptr);
    }
    notifier.setEnabled(false);
    for (int &end : pipeEnds) {
        ::close(end);
        end = -1;
    }
}

void TerminationSignals::onReadable()
{
    std::array<char, 16> bytes = {};
    while (::read(pipeEnds[0], bytes.data(), bytes.size()) > 0) {}
    Q_EMIT received();
}

#include "moc_TerminationSignals.cpp"
