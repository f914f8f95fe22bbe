// The standard descriptors, signals and rights of new files, put right.
#include "desktop/application/InheritedState.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

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

/// By a description of the program's own: the flag of the one that it was given is everybody's who has it, as a shell
/// and its terminal. A pipe and a terminal of this user's can be opened once more; with anything else the program's own
/// writes do not wait. What was handed over for reading stays so: root's rights would open it for writing as well,
/// whatever the rights of whoever has opened it.
void keepStandardErrorFromWaiting()
{
    if ((::fcntl(STDERR_FILENO, F_GETFL) & O_ACCMODE) == O_RDONLY) {
        return;
    }
    const int own = ::open("/proc/self/fd/2", O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (own >= 0) {
        ::dup2(own, STDERR_FILENO);
        ::close(own);
    }
}

} // namespace

void putInheritedStateRight()
{
    openStandardDescriptors();
    keepStandardErrorFromWaiting();
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    std::signal(SIGCHLD, SIG_DFL);
    ::alarm(0);
    const mode_t inherited = ::umask(S_IRWXG | S_IRWXO);
    ::umask((inherited & (S_IRWXG | S_IRWXO)) | S_IWGRP | S_IWOTH);
}
