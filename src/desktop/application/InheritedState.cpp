// The standard descriptors, signals and rights of new files, put right.
#include "desktop/application/InheritedState.h"

#include "desktop/application/TerminationSignals.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <initializer_list>

namespace {

/// The lowest descriptor that is free is the one that is given (open(2)).
void openStandardDescriptors()
{
    int descriptor = 0;
    do {
        descriptor = ::open("/dev/null", O_RDWR);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0) {
        ::close(descriptor);
    }
}

/// Whether a write may wait for somebody. A file never does, and by a description of its own the program would write at
/// a place of its own, over which whoever has handed the file over goes on writing.
bool mayKeepAWriterWaiting(int descriptor)
{
    struct stat status = {};
    return ::fstat(descriptor, &status) == 0 && (S_ISFIFO(status.st_mode) || ::isatty(descriptor) != 0);
}

/// By a description of the program's own: the flag of the one that it was given is everybody's who has it, as a shell
/// and its terminal. A pipe and a terminal of this user's can be opened once more; with anything else the program's own
/// writes do not wait. What was handed over for reading stays so: root's rights would open it for writing as well,
/// whatever the rights of whoever has opened it.
void keepStandardErrorFromWaiting()
{
    if ((::fcntl(STDERR_FILENO, F_GETFL) & O_ACCMODE) == O_RDONLY || !mayKeepAWriterWaiting(STDERR_FILENO)) {
        return;
    }
    const int own = ::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (own >= 0) {
        ::dup2(own, STDERR_FILENO);
        ::close(own);
    }
}

void stopTimers()
{
    const itimerval none = {};
    for (const auto timer : {ITIMER_REAL, ITIMER_VIRTUAL, ITIMER_PROF}) {
        ::setitimer(timer, &none, nullptr);
    }
}

/// What was sent while it was blocked, as by a timer, was meant for the program that was here before, and stays over
/// execve(2). To ignore a signal for a moment discards it (sigaction(2), POSIX.1-2008).
void forgetPendingSignals()
{
    sigset_t pending;
    ::sigpending(&pending);
    for (int signal = 1; signal < NSIG; ++signal) {
        if (::sigismember(&pending, signal) == 1 && std::ranges::count(kTerminationSignals, signal) == 0) {
            std::signal(signal, std::signal(signal, SIG_IGN));
        }
    }
}

} // namespace

void putInheritedStateRight()
{
    openStandardDescriptors();
    keepStandardErrorFromWaiting();
    stopTimers();
    forgetPendingSignals();
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    std::signal(SIGCHLD, SIG_DFL);
    // A terminal may be set to stop whoever writes to it from the background (stty(1), tostop): the window would stand
    // still.
    std::signal(SIGTTOU, SIG_IGN);
    const mode_t inherited = ::umask(S_IRWXG | S_IRWXO);
    ::umask((inherited & (S_IRWXG | S_IRWXO)) | S_IWGRP | S_IWOTH);
}
