// Writing without waiting, whatever standard error is.
#include "desktop/application/StandardError.h"

#include <QString>
#include <QtGlobal>

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace {

/// A socket is asked for it with each write: its flag would be that of everybody who has it, as the starter's own.
ssize_t writeAtOnce(QByteArrayView bytes)
{
    const auto size = static_cast<size_t>(bytes.size());
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
