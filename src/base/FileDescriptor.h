// An open file of the process.
#pragma once

#include <unistd.h>

#include <utility>

/// Closes what was opened. A negative number, as open(2) gives where it fails, is no file.
class FileDescriptor
{
public:
    explicit FileDescriptor(int openedNumber = -1)
        : number(openedNumber)
    {
    }
    FileDescriptor(FileDescriptor &&other) noexcept
        : number(std::exchange(other.number, -1))
    {
    }
    FileDescriptor &operator=(FileDescriptor &&other) noexcept
    {
        std::swap(number, other.number);
        return *this;
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
