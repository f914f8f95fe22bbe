// An open file of the process.
#pragma once

#include <unistd.h>

/// Closes what was opened. A negative number, as open(2) gives where it fails, is no file.
class FileDescriptor
{
public:
    explicit FileDescriptor(int openedNumber)
        : number(openedNumber)
    {
    }
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    ~FileDescriptor()
    {
        if (number >= 0) {
            ::close(number);
        }
    }

    bool isOpen() const { return number >= 0; }
    int get() const { return number; }

private:
    int number;
};
