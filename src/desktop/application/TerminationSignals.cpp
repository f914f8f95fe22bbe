// The signals that ask the program to end.
#include "desktop/application/TerminationSignals.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace {

/// Of a pipe: the handler writes a byte and the event loop reads it (the way that signal-safety(7) leaves open). There
/// is one from the first object until the process ends, as the handler may be called until then.
std::array<int, 2> pipeEnds = {-1, -1};

/// Seconds in which the program ends by itself, or is ended: the display may have stopped to answer, or a disk, and
/// whoever sends the signal counts on the end.
constexpr unsigned kPatience = 2;

/// Whether those seconds run: a signal that is repeated meanwhile does not begin them anew.
volatile std::sig_atomic_t isEnding = 0;

void writeByte(int /*signal*/)
{
    const int error = errno;
    if (!isEnding) {
        isEnding = 1;
        ::alarm(kPatience);
    }
    [[maybe_unused]] const ssize_t written = ::write(pipeEnds.back(), "", 1);
    errno = error;
}

} // namespace

TerminationSignals::TerminationSignals()
    : notifier(QSocketNotifier::Read)
{
    // Not blocking on either side: a handler must never wait, and one byte in the pipe is enough.
    if (pipeEnds.front() < 0 && ::pipe2(pipeEnds.data(), O_NONBLOCK | O_CLOEXEC) != 0) {
        // Without a pipe the signals keep their default, which ends the program as well.
        return;
    }
    notifier.setSocket(pipeEnds.front());
    notifier.setEnabled(true);
    connect(&notifier, &QSocketNotifier::activated, this, &TerminationSignals::onReadable);
    std::signal(SIGALRM, SIG_DFL);
    isEnding = 0;
    for (const int signal : kTerminationSignals) {
        struct sigaction former = {};
        ::sigaction(signal, nullptr, &former);
        // Whoever has started the program with a signal ignored, as nohup(1) does, wants it to live on.
        if (former.sa_handler == SIG_IGN) {
            continue;
        }
        struct sigaction action = {};
        action.sa_handler = writeByte;
        action.sa_flags = SA_RESTART;
        ::sigaction(signal, &action, nullptr);
    }
}

void TerminationSignals::onReadable()
{
    char byte = 0;
    while (::read(static_cast<int>(notifier.socket()), &byte, sizeof byte) > 0) {}
    Q_EMIT received();
}

#include "moc_TerminationSignals.cpp"
