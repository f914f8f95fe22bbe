// Whole files, read without ever waiting for them.
#include "base/TextFile.h"

#include "base/Utf8.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace {

/// Bytes asked for at once where the reported size is no help.
constexpr qsizetype kChunk = qsizetype(64) * 1024;

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

/// The path as the file system takes it; nothing for a text that no file can be named by.
std::optional<QByteArray> fileSystemRepresentation(const QString &path)
{
    if (path.contains(QChar::Null)) {
        return std::nullopt;
    }
    return utf8FromText(path);
}

int openForReading(const QByteArray &path)
{
    // Not blocking, because opening a FIFO would otherwise wait for its writer.
    return ::open(path.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
}

ssize_t readSome(const FileDescriptor &file, char *into, qsizetype most)
{
    ssize_t count = 0;
    do {
        count = ::read(file.get(), into, static_cast<size_t>(most));
    } while (count < 0 && errno == EINTR);
    return count;
}

std::optional<QByteArray> readToEnd(const FileDescriptor &file, qsizetype sizeHint, qsizetype mostBytes)
{
    QByteArray content;
    qsizetype used = 0;
    while (true) {
        if (used == content.size()) {
            // One byte more than expected, so that the end of a file of the reported size is seen without growing.
            content.resize(used == 0 ? sizeHint + 1 : used + std::max(used / 2, kChunk));
        }
        const ssize_t count = readSome(file, content.data() + used, content.size() - used);
        if (count < 0) {
            return std::nullopt;
        }
        used += count;
        if (used > mostBytes) {
            return std::nullopt;
        }
        if (count == 0) {
            content.truncate(used);
            return content;
        }
    }
}

} // namespace

bool fileExists(const QString &path)
{
    const std::optional<QByteArray> name = fileSystemRepresentation(path);
    struct stat status = {};
    return name && ::stat(name->constData(), &status) == 0;
}

std::optional<QByteArray> contentsOfRegularFile(const QString &path, qsizetype mostBytes)
{
    const std::optional<QByteArray> name = fileSystemRepresentation(path);
    if (!name) {
        return std::nullopt;
    }
    const FileDescriptor file(openForReading(*name));
    struct stat status = {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    if (status.st_size > mostBytes) {
        return std::nullopt;
    }
    try {
        return readToEnd(file, std::max<qsizetype>(status.st_size, 0), mostBytes);
    } catch (const std::bad_alloc &) {
        return std::nullopt;
    }
}

std::optional<QString> textOfFile(const QString &path, qsizetype mostBytes)
{
    const std::optional<QByteArray> content = contentsOfRegularFile(path, mostBytes);
    if (!content) {
        return std::nullopt;
    }
    try {
        return textFromUtf8(*content);
    } catch (const std::bad_alloc &) {
        return std::nullopt;
    }
}
