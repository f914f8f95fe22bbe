// Another process that holds a lease on a file.
#pragma once

#include <QString>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

/// A process that holds a lease on the file. Asked to let go it ends, by the signal's default, or it does not listen.
class LeaseHolder
{
public:
    LeaseHolder(const QString &path, bool listens)
    {
        int ready[2] = {};
        EXPECT_EQ(::pipe(ready), 0);
        process = ::fork();
        if (process == 0) {
            const int file = ::open(path.toUtf8().constData(), O_RDWR);
            std::signal(SIGIO, listens ? SIG_DFL : SIG_IGN);
            const char isHeld = ::fcntl(file, F_SETLEASE, F_WRLCK) == 0 ? 'y' : 'n';
            [[maybe_unused]] const ssize_t written = ::write(ready[1], &isHeld, 1);
            ::pause();
            ::_exit(0);
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
    pid_t process = -1;
};
