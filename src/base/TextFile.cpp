// Whole files, read without waiting for them, but for a moment where another process holds a lease.
#include "base/TextFile.h"

#include "base/HeldFile.h"
#include "base/Utf8.h"

#include <QLoggingCategory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>

// Off unless QT_LOGGING_RULES switches it on: the program prints its diagnostic lines and nothing else.
Q_LOGGING_CATEGORY(lcLoading, "korvale.loading", QtFatalMsg)

namespace {

/// Bytes asked for at once where the reported size is no help.
constexpr qsizetype kChunk = qsizetype(64) * 1024;
/// Bytes of a text that are read and decoded in one step, through buffers that stay in the processor's cache.
constexpr qsizetype kTextChunk = qsizetype(16) * 1024;

/// The path as the file system takes it; std::nullopt for a text that no file can be named by.
std::optional<QByteArray> fileSystemRepresentation(const QString &path)
{
    if (path.contains(QChar::Null)) {
        return std::nullopt;
    }
    return utf8FromText(path);
}

/// Not blocking, because opening a FIFO would otherwise wait for its writer.
constexpr int kForReading = O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;

int openByPath(const char *path, int flags)
{
    return ::open(path, flags);
}

bool isRegularFile(const char *path)
{
    struct stat status = {};
    return ::stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

/// Where another process holds a lease on the file (fcntl(2), F_SETLEASE), as servers of files do, the first try has it
/// asked to let go. The system would give it 45 seconds; a window is not kept waiting for so long. A busy device may
/// give the same error: only regular files are tried again.
int openOnceItIsLetGo(FileOpener open, const char *path)
{
    constexpr std::chrono::milliseconds kLeaseLimit(2000);
    return onceItIsLetGo(kLeaseLimit, [&] {
        const int file = open(path, kForReading);
        if (file < 0 && errno == EWOULDBLOCK) {
            errno = isRegularFile(path) ? EWOULDBLOCK : EBUSY;
        }
        return file;
    });
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
    qCInfo(lcLoading) << path << "is not taken:" << reason;
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

/// The bytes before the last character, where that may go on behind the bytes; otherwise all of them.
qsizetype wholeCharacters(QByteArrayView bytes)
{
    constexpr qsizetype kLongestStart = 3; // of a character, which takes four bytes at most
    for (qsizetype place = bytes.size() - 1; place >= std::max<qsizetype>(bytes.size() - kLongestStart, 0); --place) {
        const auto byte = static_cast<unsigned char>(bytes[place]);
        if (byte < 0x80) {
            break;
        }
        if (byte >= 0xC0) {
            return place;
        }
    }
    return bytes.size();
}

/// Decodes chunk by chunk, so that the bytes of a large file are never in memory beside its text.
std::optional<QString> decodeToEnd(const FileDescriptor &file, qsizetype sizeHint, qsizetype maxBytes)
{
    QString text;
    text.reserve(sizeHint);
    std::array<char, kTextChunk> buffer = {};
    qsizetype carried = 0; // bytes of a character that goes on in the next chunk
    qsizetype total = 0;
    while (true) {
        const ssize_t count = readSome(file, buffer.data() + carried, kTextChunk - carried);
        if (count < 0 || (total += count) > maxBytes) {
            return std::nullopt;
        }
        const QByteArrayView bytes(buffer.data(), carried + count);
        const qsizetype whole = count == 0 ? bytes.size() : wholeCharacters(bytes);
        const std::optional<QString> decoded = textFromUtf8(bytes.first(whole));
        if (!decoded) {
            return std::nullopt;
        }
        text += *decoded;
        if (count == 0) {
            return text;
        }
        carried = bytes.size() - whole;
        std::copy_n(bytes.data() + whole, carried, buffer.data());
    }
}

/// What reading to the end gives of a file, if it is a regular one.
template<class Content>
using Reading = std::optional<Content> (*)(const FileDescriptor &, qsizetype sizeHint, qsizetype maxBytes);

template<class Content>
std::optional<Content> readRegularFile(const FileDescriptor &file, const QString &path, qsizetype maxBytes,
                                       Reading<Content> read)
{
    struct stat status = {};
    if (::fstat(file.get(), &status) != 0) {
        return notTaken(path, std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        return notTaken(path, "it is not a regular file");
    }
    if (status.st_size > maxBytes) {
        return notTaken(path, "it is too large");
    }
    try {
        std::optional<Content> content = read(file, status.st_size, maxBytes);
        return content ? std::move(content)
                       : notTaken(path, "it cannot be read, has grown too large, or is no text in UTF-8");
    } catch (const std::bad_alloc &) {
        return notTaken(path, "there is no memory for it");
    }
}

template<class Content>
std::optional<Content> readRegularFile(const QString &path, qsizetype maxBytes, FileOpener open, Reading<Content> read)
{
    const std::optional<QByteArray> name = fileSystemRepresentation(path);
    if (!name) {
        return notTaken(path, "it is not a name that a file can have");
    }
    const FileDescriptor file(openOnceItIsLetGo(open, name->constData()));
    return file.isOpen() ? readRegularFile(file, path, maxBytes, read) : notTaken(path, std::strerror(errno));
}

} // namespace

bool fileExists(const QString &path)
{
    const std::optional<QByteArray> name = fileSystemRepresentation(path);
    struct stat status = {};
    if (!name || ::stat(name->constData(), &status) != 0) {
        qCInfo(lcLoading) << path << "does not exist";
        return false;
    }
    return true;
}

std::optional<QByteArray> contentsOfRegularFile(const QString &path, qsizetype maxBytes)
{
    return readRegularFile(path, maxBytes, &openByPath, &readToEnd);
}

std::optional<QByteArray> contentsOfRegularFile(const FileDescriptor &file, const QString &path, qsizetype maxBytes)
{
    return readRegularFile(file, path, maxBytes, &readToEnd);
}

std::optional<QString> textOfFile(const QString &path, qsizetype maxBytes)
{
    return textOfFile(path, maxBytes, &openByPath);
}

std::optional<QString> textOfFile(const QString &path, qsizetype maxBytes, FileOpener open)
{
    return readRegularFile(path, maxBytes, open, &decodeToEnd);
}
