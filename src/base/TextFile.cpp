// Whole files, read without ever waiting for them.
#include "base/TextFile.h"

#include "base/Utf8.h"

#include <QLoggingCategory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

// Off unless QT_LOGGING_RULES switches it on: the program prints its diagnostic lines and nothing else.
Q_LOGGING_CATEGORY(loading, "korvale.loading", QtFatalMsg)

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

ssize_t readSome(const FileDescriptor &file, char *into, qsizetype maxCount)
{
    ssize_t count = 0;
    do {
        count = ::read(file.get(), into, static_cast<size_t>(maxCount));
    } while (count < 0 && errno == EINTR);
    return count;
}

/// Says why a file is not taken, to whoever has asked for it by QT_LOGGING_RULES; returns what a failed reading does.
std::nullopt_t notTaken(const QString &path, const char *reason)
{
    qCInfo(loading).noquote() << path << "is not taken:" << reason;
    return std::nullopt;
}

std::optional<QByteArray> readToEnd(const FileDescriptor &file, qsizetype sizeHint, qsizetype maxBytes)
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
        if (used > maxBytes) {
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

std::optional<QByteArray> contentsOfRegularFile(const QString &path, qsizetype maxBytes)
{
    const std::optional<QByteArray> name = fileSystemRepresentation(path);
    if (!name) {
        return notTaken(path, "it is not a name that a file can have");
    }
    const FileDescriptor file(openForReading(*name));
    struct stat status = {};
    if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
        return notTaken(path, std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        return notTaken(path, "it is not a regular file");
    }
    if (status.st_size > maxBytes) {
        return notTaken(path, "it is too large");
    }
    try {
        std::optional<QByteArray> content = readToEnd(file, std::max<qsizetype>(status.st_size, 0), maxBytes);
        return content ? std::move(content) : notTaken(path, "it cannot be read, or has grown too large");
    } catch (const std::bad_alloc &) {
        return notTaken(path, "there is no memory for it");
    }
}

std::optional<QString> textOfFile(const QString &path, qsizetype maxBytes)
{
    const std::optional<QByteArray> content = contentsOfRegularFile(path, maxBytes);
    if (!content) {
        return std::nullopt;
    }
    try {
        std::optional<QString> text = textFromUtf8(*content);
        return text ? std::move(text) : notTaken(path, "it is not valid UTF-8");
    } catch (const std::bad_alloc &) {
        return notTaken(path, "there is no memory for its text");
    }
}
