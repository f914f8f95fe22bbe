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

/// Of a pipe: the handler writes a byte and the event loop reads it (the way that signal-safety(7) leaves open). Opened
/// before there is a handler.
int writeEnd;

std::array<struct sigaction, kSignals.size()> formerActions;

void writeByte(int /*signal*/)
{
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(writeEnd, "", 1);
    errno = error;
}

} // namespace

TerminationSignals::TerminationSignals()
    : notifier(QSocketNotifier::Read)
{
    std::array<int, 2> ends = {};
    // Not blocking on either side: a handler must never wait, and one byte in the pipe is enough.
    if (::pipe2(ends.data(), O_NONBLOCK | O_CLOEXEC) != 0) {
        // Without a pipe the signals keep their default, which ends the program as well.
        return;
    }
    writeEnd = ends.back();
    notifier.setSocket(ends.front());
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
    if (!notifier.isValid()) {
        return;
    }
    for (std::size_t index = 0; index < kSignals.size(); ++index) {
        ::sigaction(kSignals.at(index), &formerActions.at(index), nullptr);
    }
    ::close(static_cast<int>(notifier.socket()));
    ::close(writeEnd);
}

void TerminationSignals::onReadable()
{
    char byte = 0;
    while (::read(static_cast<int>(notifier.socket()), &byte, sizeof byte) > 0) {}
    Q_EMIT received();
}

#include "moc_TerminationSignals.cpp"
