// Writing without waiting, whatever standard error is.
#include "desktop/application/StandardError.h"

#include <QString>
#include <QtGlobal>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace {

/// What can be written takes this much without waiting, if it is a pipe (pipe(7)).
constexpr qsizetype kTakenAtOnce = PIPE_BUF;

/// A socket is asked with each write not to wait: its flag would be that of everybody who has it, as the starter's own.
ssize_t writeAtOnce(QByteArrayView bytes)
{
    pollfd standardError = {.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
    if (::poll(&standardError, 1, 0) <= 0) {
        return 0;
    }
    const auto size = static_cast<size_t>(std::min(bytes.size(), kTakenAtOnce));
    const ssize_t sent = ::send(STDERR_FILENO, bytes.data(), size, MSG_DONTWAIT);
    return sent < 0 && errno == ENOTSOCK ? ::write(STDERR_FILENO, bytes.data(), size) : sent;
}

void writeMessage(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    writeToStandardError(qFormatLogMessage(type, context, message).toLocal8Bit() + '\n');
}

} // namespace

void writeToStandardError(QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        const ssize_t written = writeAtOnce(bytes);
        if (written <= 0) {
            return;
        }
        bytes = bytes.sliced(written);
    }
}

void writeToolkitMessagesToStandardError()
{
    qInstallMessageHandler(writeMessage);
}
