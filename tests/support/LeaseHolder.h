// Another process that holds a lease on a file.
#pragma once

#include <QString>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

/// A process that holds a lease on the file.
class LeaseHolder
{
public:
    /// What it does when it is asked to let go: it ends, it does not listen, or it lets go and takes the lease again as
    /// soon as the one who asked has closed the file.
    enum Manner { Ends, Keeps, TakesItAgain };

    LeaseHolder(const QString &path, Manner manner)
    {
        int ready[2] = {};
        EXPECT_EQ(::pipe(ready), 0);
        process = ::fork();
        if (process == 0) {
            hold(path.toUtf8().constData(), manner, ready[1]);
        }
        char isHeld = 0;
        EXPECT_EQ(::read(ready[0], &isHeld, 1), 1);
        EXPECT_EQ(isHeld, 'y');
        ::close(ready[0]);
        ::close(ready[1]);
    }
    LeaseHolder(const LeaseHolder &) = delete;
    LeaseHolder &operator=(const LeaseHolder &) = delete;
    ~LeaseHolder()
    {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }

private:
    [[noreturn]] static void hold(const char *path, Manner manner, int ready)
    {
        const int file = ::open(path, O_RDWR);
        const int closings = ::inotify_init();
        sigset_t asked;
        ::sigemptyset(&asked);
        ::sigaddset(&asked, SIGIO);
        std::signal(SIGIO, manner == Keeps ? SIG_IGN : SIG_DFL);
        if (manner == TakesItAgain) {
            ::sigprocmask(SIG_BLOCK, &asked, nullptr);
        }
        const auto takes = [&] { return ::fcntl(file, F_SETLEASE, F_WRLCK) == 0; };
        const bool isWatched = ::inotify_add_watch(closings, path, IN_CLOSE_NOWRITE) >= 0;
        const char isHeld = takes() && isWatched ? 'y' : 'n';
        [[maybe_unused]] const ssize_t written = ::write(ready, &isHeld, 1);
        while (true) {
            int signal = 0;
            ::sigwait(&asked, &signal);
            ::fcntl(file, F_SETLEASE, F_UNLCK);
            inotify_event event = {};
            [[maybe_unused]] const ssize_t seen = ::read(closings, &event, sizeof event);
            while (!takes()) {}
        }
    }

    pid_t process = -1;
};
